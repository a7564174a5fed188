// Per-slice drivers of the remap, one per element type and mode, reached
// through a table indexed by the mode value (slots 0 and 3 empty); each
// walks the rows of its slice with the mode's row kernel.
#include <array>
#include <xmmintrin.h>

#include "core/parallel.h"
#include "volume/convert.h"
#include "volume/interp.h"
#include "volume/remap.h"
#include "volume/sample.h"

namespace vekr::volume {
namespace {

inline int roundHalfEven(float v) noexcept
{
    return _mm_cvtss_si32(_mm_set_ss(v));
}

inline int clampTo(int v, int lo, int hi) noexcept
{
    return v < lo ? lo : v > hi ? hi : v;
}

template <class T, int Mode>
void remapRow(const SliceVolume<const T>& src, const float* mx, const float* my, const float* mz,
              T* out, int width, const RemapJob& job) noexcept
{
    const float lx = job.lo[0], ly = job.lo[1], lz = job.lo[2];
    const float hx = job.hi[0], hy = job.hi[1], hz = job.hi[2];
    const float* table = isCubicMode(Mode) ? cubicTable(Mode) : nullptr;
    for (int i = 0; i < width; ++i) {
        const float x = mx[i], y = my[i], z = mz[i];
        // Written so that a NaN fails the test and the voxel is skipped.
        if (!(lx <= x && x <= hx && ly <= y && y <= hy && lz <= z && z <= hz)) continue;
        if constexpr (Mode == kNearest) {
            out[i] = src.row(roundHalfEven(y), roundHalfEven(z))[roundHalfEven(x)];
        } else if constexpr (Mode == kLinear) {
            const float c[3] = {x, y, z};
            int i0[3], i1[3];
            float t[3];
            for (int a = 0; a < 3; ++a) {
                int b = static_cast<int>(c[a]);
                if (b == job.ihi[a]) b = job.ihi[a] - 1;
                t[a] = c[a] - static_cast<float>(b);
                i0[a] = b < 0 ? 0 : b;  // weight 0 there; never read below the volume
                i1[a] = b + 1;
            }
            const float v =
                i1[0] == i0[0] + 1
                    ? linearSampleAdjacent(src, i0[0], i0[1], i0[2], i1[1], i1[2], t[0], t[1], t[2])
                    : linearSample(src, i0[0], i0[1], i0[2], i1[0], i1[1], i1[2], t[0], t[1], t[2]);
            out[i] = warpConvert<T>(v);
        } else {
            const float c[3] = {x, y, z};
            int b[3];
            __m128 w[3];
            bool interior = true;
            for (int a = 0; a < 3; ++a) {
                b[a] = static_cast<int>(c[a]);
                w[a] = tabulatedWeights4(table, c[a] - static_cast<float>(b[a]));
                interior = interior && b[a] - 1 >= job.ilo[a] && b[a] + 2 <= job.ihi[a];
            }
            float v;
            if (interior) {
                v = cubicSampleInterior(src, b[0] - 1, b[1] - 1, b[2] - 1, w[0], w[1], w[2]);
            } else {
                int taps[3][4];
                float wa[3][4];
                for (int a = 0; a < 3; ++a) {
                    for (int k = 0; k < 4; ++k) taps[a][k] = clampTo(b[a] - 1 + k, job.ilo[a], job.ihi[a]);
                    _mm_storeu_ps(wa[a], w[a]);
                }
                v = cubicSample(src, taps[0], taps[1], taps[2], wa[0], wa[1], wa[2]);
            }
            out[i] = warpConvert<T>(v);
        }
    }
}

template <class T>
using SliceDriver = void (*)(const SliceVolume<const T>&, const CoordinateMaps&, T*, std::ptrdiff_t,
                             int, const RemapJob&);

template <class T, int Mode>
void remapSlice(const SliceVolume<const T>& src, const CoordinateMaps& maps, T* dst,
                std::ptrdiff_t dstStep, int k, const RemapJob& job) noexcept
{
    for (int j = 0; j < job.dst.height; ++j) {
        const std::ptrdiff_t m = j * maps.step;
        remapRow<T, Mode>(src, maps.axis[0][k] + m, maps.axis[1][k] + m, maps.axis[2][k] + m,
                          dst + j * dstStep, job.dst.width, job);
    }
}

template <class T>
constexpr std::array<SliceDriver<T>, 8> kSliceDrivers = {
    nullptr,             &remapSlice<T, 1>, &remapSlice<T, 2>, nullptr,
    &remapSlice<T, 4>,   &remapSlice<T, 5>, &remapSlice<T, 6>, &remapSlice<T, 7>,
};

}  // namespace

template <class T>
void remapSlab(const SliceVolume<const T>& src, const CoordinateMaps& maps, T* const* dst,
               std::ptrdiff_t dstStep, const RemapJob& job, int zBegin, int zEnd)
{
    const SliceDriver<T> drive = kSliceDrivers<T>[job.mode];
    for (int k = zBegin; k < zEnd; ++k) drive(src, maps, dst[k], dstStep, k, job);
}

template <class T>
void remapRun(const SliceVolume<const T>& src, const CoordinateMaps& maps, T* const* dst,
              std::ptrdiff_t dstStep, const RemapJob& job, int threads)
{
    const VekVolumeSize& d = job.dst;
    if (threads > 1 && d.width >= 16 && d.height >= 16 && d.depth >= 16) {
        parallelFor(threads, d.depth, lastTakesRest, [&](int begin, int end, int, int) {
            remapSlab(src, maps, dst, dstStep, job, begin, end);
        });
    } else {
        remapSlab(src, maps, dst, dstStep, job, 0, d.depth);
    }
}

#define VEKR_REMAP_TYPE(T)                                                                   \
    template void remapSlab<T>(const SliceVolume<const T>&, const CoordinateMaps&, T* const*, \
                               std::ptrdiff_t, const RemapJob&, int, int);                   \
    template void remapRun<T>(const SliceVolume<const T>&, const CoordinateMaps&, T* const*,  \
                              std::ptrdiff_t, const RemapJob&, int);
VEKR_REMAP_TYPE(uint8_t)
VEKR_REMAP_TYPE(uint16_t)
VEKR_REMAP_TYPE(float)
#undef VEKR_REMAP_TYPE

}  // namespace vekr::volume
