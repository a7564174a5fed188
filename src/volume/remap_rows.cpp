// Per-slice drivers of the remap, one per element type and mode, reached
// through a table indexed by the mode value (slots 0 and 3 empty); each
// walks the rows of its slice with the mode's row kernel.
#include <array>
#include <smmintrin.h>

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

// Nearest and linear, four voxels at a time: the bound test, the indices and
// the fractions run as vectors, lanes = voxels, with the same operations per
// voxel as remapRow.  Lanes outside the region are given the region's lower
// corner so that nothing else is read for them, and are not written.
template <class T, int Mode>
void remapRow4(const SliceVolume<const T>& src, const float* mx, const float* my, const float* mz,
               T* out, int width, const RemapJob& job) noexcept
{
    __m128 lo[3], hi[3];
    __m128i ihi[3];
    for (int a = 0; a < 3; ++a) {
        lo[a] = _mm_set1_ps(job.lo[a]);
        hi[a] = _mm_set1_ps(job.hi[a]);
        ihi[a] = _mm_set1_epi32(job.ihi[a]);
    }
    int i = 0;
    for (; i + 4 <= width; i += 4) {
        __m128 c[3] = {_mm_loadu_ps(mx + i), _mm_loadu_ps(my + i), _mm_loadu_ps(mz + i)};
        __m128 in = _mm_castsi128_ps(_mm_set1_epi32(-1));
        for (int a = 0; a < 3; ++a)
            in = _mm_and_ps(in, _mm_and_ps(_mm_cmple_ps(lo[a], c[a]), _mm_cmple_ps(c[a], hi[a])));
        const int inside = _mm_movemask_ps(in);
        if (inside == 0) continue;
        for (int a = 0; a < 3; ++a) c[a] = _mm_blendv_ps(lo[a], c[a], in);
        alignas(16) int32_t ix[4], iy[4], iz[4];
        if constexpr (Mode == kNearest) {
            _mm_store_si128(reinterpret_cast<__m128i*>(ix), _mm_cvtps_epi32(c[0]));
            _mm_store_si128(reinterpret_cast<__m128i*>(iy), _mm_cvtps_epi32(c[1]));
            _mm_store_si128(reinterpret_cast<__m128i*>(iz), _mm_cvtps_epi32(c[2]));
            for (int l = 0; l < 4; ++l)
                if (inside & (1 << l)) out[i + l] = src.row(iy[l], iz[l])[ix[l]];
        } else {
            __m128i b[3];
            __m128 t[3];
            for (int a = 0; a < 3; ++a) {
                b[a] = _mm_cvttps_epi32(c[a]);
                b[a] = _mm_add_epi32(b[a], _mm_cmpeq_epi32(b[a], ihi[a]));  // hi -> hi - 1
                t[a] = _mm_sub_ps(c[a], _mm_cvtepi32_ps(b[a]));
            }
            // A lower tap of -1 (a region one voxel wide at 0) needs the scalar form.
            const __m128i negative = _mm_or_si128(_mm_or_si128(b[0], b[1]), b[2]);
            _mm_store_si128(reinterpret_cast<__m128i*>(ix), b[0]);
            _mm_store_si128(reinterpret_cast<__m128i*>(iy), b[1]);
            _mm_store_si128(reinterpret_cast<__m128i*>(iz), b[2]);
            if (_mm_movemask_ps(_mm_castsi128_ps(negative)) != 0) {
                remapRow<T, Mode>(src, mx + i, my + i, mz + i, out + i, 4, job);
                continue;
            }
            const __m128 r = linearSample4Lanes(src, ix, iy, iz, t[0], t[1], t[2]);
            if (inside == 0xF) {
                warpConvertStore4<T>(out + i, r);
            } else {
                alignas(16) float v[4];
                _mm_store_ps(v, r);
                for (int l = 0; l < 4; ++l)
                    if (inside & (1 << l)) out[i + l] = warpConvert<T>(v[l]);
            }
        }
    }
    if (i < width) remapRow<T, Mode>(src, mx + i, my + i, mz + i, out + i, width - i, job);
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
        if constexpr (Mode == kNearest || Mode == kLinear)
            remapRow4<T, Mode>(src, maps.axis[0][k] + m, maps.axis[1][k] + m, maps.axis[2][k] + m,
                               dst + j * dstStep, job.dst.width, job);
        else
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
