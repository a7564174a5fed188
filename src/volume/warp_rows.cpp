// Row kernels of the affine warp, one per element type and mode, reached
// through a table indexed by the mode value (slots 0 and 3 empty), and the
// slab driver that walks the destination box.  The source point is carried
// incrementally in double precision: formed directly at the start of each
// destination slice, advanced by the inverse's second column per row and by
// its first column per voxel.
#include <array>
#include <smmintrin.h>

#include "core/parallel.h"
#include "volume/convert.h"
#include "volume/interp.h"
#include "volume/sample.h"
#include "volume/warp.h"

namespace vekr::volume {
namespace {

// Tap indices of a cubic axis: i = floor(s), hi the inclusive upper bound.
// The lower edge is clamped against 0, not against the region.
inline void cubicTaps(int i, int hi, int t[4]) noexcept
{
    if (i < 1) {
        t[0] = 0, t[1] = 0, t[2] = 1, t[3] = 2;
    } else if (i == hi - 1) {
        t[0] = i - 1, t[1] = i, t[2] = i + 1, t[3] = i + 1;
    } else if (i < hi) {
        t[0] = i - 1, t[1] = i, t[2] = i + 1, t[3] = i + 2;
    } else {
        t[0] = i - 1, t[1] = i, t[2] = i, t[3] = i;
    }
}

// Linear axis: i = trunc(s) (s >= 0, so the floor), lowered to hi - 1 at the
// upper edge so that t = s - i is 1 there.  With a region one voxel wide at
// index 0 the lower tap would be -1 with weight 0; it is read at 0 instead.
struct LinearAxis {
    int i0, i1;
    float t;
};

inline LinearAxis linearAxis(double s, int hi) noexcept
{
    int i = static_cast<int>(s);
    if (i == hi) i = hi - 1;
    const float t = static_cast<float>(s) - static_cast<float>(i);
    return LinearAxis{i < 0 ? 0 : i, i + 1, t};
}

inline int roundHalfEven(double s) noexcept
{
    return _mm_cvtsd_si32(_mm_set_sd(s));
}

template <class T>
using RowKernel = void (*)(const SliceVolume<const T>&, T*, int, const double*, const WarpJob&);

template <class T, int Mode>
void warpRow(const SliceVolume<const T>& src, T* out, int width, const double* start,
             const WarpJob& job) noexcept
{
    double sx = start[0], sy = start[1], sz = start[2];
    const double dx = job.m[0], dy = job.m[4], dz = job.m[8];
    const double lx = job.lo[0], ly = job.lo[1], lz = job.lo[2];
    const double hx = job.hi[0], hy = job.hi[1], hz = job.hi[2];
    const float* table = isCubicMode(Mode) ? cubicTable(Mode) : nullptr;
    for (int x = 0; x < width; ++x, sx += dx, sy += dy, sz += dz) {
        if (!(lx <= sx && sx <= hx && ly <= sy && sy <= hy && lz <= sz && sz <= hz)) continue;
        if constexpr (Mode == kNearest) {
            out[x] = src.row(roundHalfEven(sy), roundHalfEven(sz))[roundHalfEven(sx)];
        } else if constexpr (Mode == kLinear) {
            const LinearAxis ax = linearAxis(sx, job.bounds.hi[0]);
            const LinearAxis ay = linearAxis(sy, job.bounds.hi[1]);
            const LinearAxis az = linearAxis(sz, job.bounds.hi[2]);
            const float v =
                ax.i1 == ax.i0 + 1
                    ? linearSampleAdjacent(src, ax.i0, ay.i0, az.i0, ay.i1, az.i1, ax.t, ay.t, az.t)
                    : linearSample(src, ax.i0, ay.i0, az.i0, ax.i1, ay.i1, az.i1, ax.t, ay.t, az.t);
            out[x] = warpConvert<T>(v);
        } else {
            const double s[3] = {sx, sy, sz};
            int i[3];
            __m128 w[3];
            bool interior = true;
            for (int a = 0; a < 3; ++a) {
                i[a] = static_cast<int>(s[a]);
                w[a] = tabulatedWeights4(table, static_cast<float>(s[a]) - static_cast<float>(i[a]));
                interior = interior && i[a] >= 1 && i[a] <= job.bounds.hi[a] - 2;
            }
            float v;
            if (interior) {
                v = cubicSampleInterior(src, i[0] - 1, i[1] - 1, i[2] - 1, w[0], w[1], w[2]);
            } else {
                int taps[3][4];
                float wa[3][4];
                for (int a = 0; a < 3; ++a) {
                    cubicTaps(i[a], job.bounds.hi[a], taps[a]);
                    _mm_storeu_ps(wa[a], w[a]);
                }
                v = cubicSample(src, taps[0], taps[1], taps[2], wa[0], wa[1], wa[2]);
            }
            out[x] = warpConvert<T>(v);
        }
    }
}

// Linear, four voxels at a time: the source points are still advanced one
// voxel after another in double precision; the bound test runs per voxel,
// the indices, fractions and blends as vectors (lanes = voxels) with the same
// operations per voxel as warpRow.
template <class T>
void warpRowLinear4(const SliceVolume<const T>& src, T* out, int width, const double* start,
                    const WarpJob& job) noexcept
{
    double sx = start[0], sy = start[1], sz = start[2];
    const double dx = job.m[0], dy = job.m[4], dz = job.m[8];
    const double lx = job.lo[0], ly = job.lo[1], lz = job.lo[2];
    const double hx = job.hi[0], hy = job.hi[1], hz = job.hi[2];
    __m128i ihi[3];
    for (int a = 0; a < 3; ++a) ihi[a] = _mm_set1_epi32(job.bounds.hi[a]);
    int x = 0;
    for (; x + 4 <= width; x += 4) {
        double p[3][4];
        int inside = 0;
        for (int l = 0; l < 4; ++l, sx += dx, sy += dy, sz += dz) {
            const bool in = lx <= sx && sx <= hx && ly <= sy && sy <= hy && lz <= sz && sz <= hz;
            inside |= in << l;
            p[0][l] = in ? sx : lx;
            p[1][l] = in ? sy : ly;
            p[2][l] = in ? sz : lz;
        }
        if (inside == 0) continue;
        alignas(16) int32_t idx[3][4];
        __m128 t[3];
        __m128i any = _mm_setzero_si128();
        for (int a = 0; a < 3; ++a) {
            // Built in registers: loading the four stored doubles back as
            // pairs would stall on store forwarding.
            const __m128d lo2 = _mm_set_pd(p[a][1], p[a][0]), hi2 = _mm_set_pd(p[a][3], p[a][2]);
            __m128i b = _mm_unpacklo_epi64(_mm_cvttpd_epi32(lo2), _mm_cvttpd_epi32(hi2));
            b = _mm_add_epi32(b, _mm_cmpeq_epi32(b, ihi[a]));  // hi -> hi - 1
            const __m128 f = _mm_movelh_ps(_mm_cvtpd_ps(lo2), _mm_cvtpd_ps(hi2));
            t[a] = _mm_sub_ps(f, _mm_cvtepi32_ps(b));
            any = _mm_or_si128(any, b);
            _mm_store_si128(reinterpret_cast<__m128i*>(idx[a]), b);
        }
        if (_mm_movemask_ps(_mm_castsi128_ps(any)) != 0) {
            // A lower tap of -1 (a region one voxel wide at 0): voxel by voxel.
            for (int l = 0; l < 4; ++l) {
                if (!(inside & (1 << l))) continue;
                const LinearAxis ax = linearAxis(p[0][l], job.bounds.hi[0]);
                const LinearAxis ay = linearAxis(p[1][l], job.bounds.hi[1]);
                const LinearAxis az = linearAxis(p[2][l], job.bounds.hi[2]);
                out[x + l] = warpConvert<T>(
                    linearSample(src, ax.i0, ay.i0, az.i0, ax.i1, ay.i1, az.i1, ax.t, ay.t, az.t));
            }
            continue;
        }
        const __m128 r = linearSample4Lanes(src, idx[0], idx[1], idx[2], t[0], t[1], t[2]);
        if (inside == 0xF) {
            warpConvertStore4<T>(out + x, r);
        } else {
            alignas(16) float v[4];
            _mm_store_ps(v, r);
            for (int l = 0; l < 4; ++l)
                if (inside & (1 << l)) out[x + l] = warpConvert<T>(v[l]);
        }
    }
    if (x < width) {
        const double rest[3] = {sx, sy, sz};
        warpRow<T, kLinear>(src, out + x, width - x, rest, job);
    }
}

template <class T>
constexpr std::array<RowKernel<T>, 8> kRowKernels = {
    nullptr,           &warpRow<T, 1>, &warpRowLinear4<T>, nullptr,
    &warpRow<T, 4>,    &warpRow<T, 5>, &warpRow<T, 6>, &warpRow<T, 7>,
};

}  // namespace

template <class T>
void warpSlab(const SliceVolume<const T>& src, T* const* dst, std::ptrdiff_t dstStep,
              const WarpJob& job, int zBegin, int zEnd)
{
    const RowKernel<T> row = kRowKernels<T>[job.mode];
    const double* m = job.m;
    const double x0 = job.dst.x, y0 = job.dst.y;
    for (int zi = zBegin; zi < zEnd; ++zi) {
        const int z = job.dst.z + zi;
        const double zd = z;
        double s[3] = {m[0] * x0 + m[1] * y0 + m[2] * zd + m[3],
                       m[4] * x0 + m[5] * y0 + m[6] * zd + m[7],
                       m[8] * x0 + m[9] * y0 + m[10] * zd + m[11]};
        for (int y = job.dst.y; y < job.dst.y + job.dst.height; ++y) {
            row(src, dst[z] + y * dstStep + job.dst.x, job.dst.width, s, job);
            s[0] += m[1];
            s[1] += m[5];
            s[2] += m[9];
        }
    }
}

template <class T>
void warpRun(const SliceVolume<const T>& src, T* const* dst, std::ptrdiff_t dstStep,
             const WarpJob& job, int threads)
{
    const VekCuboid& d = job.dst;
    if (threads > 1 && d.width >= 16 && d.height >= 16 && d.depth >= 16) {
        parallelFor(threads, d.depth, lastTakesRest,
                    [&](int begin, int end, int, int) { warpSlab(src, dst, dstStep, job, begin, end); });
    } else {
        warpSlab(src, dst, dstStep, job, 0, d.depth);
    }
}

#define VEKR_WARP_TYPE(T)                                                                     \
    template void warpSlab<T>(const SliceVolume<const T>&, T* const*, std::ptrdiff_t,        \
                              const WarpJob&, int, int);                                     \
    template void warpRun<T>(const SliceVolume<const T>&, T* const*, std::ptrdiff_t,         \
                             const WarpJob&, int);
VEKR_WARP_TYPE(uint8_t)
VEKR_WARP_TYPE(uint16_t)
VEKR_WARP_TYPE(float)
#undef VEKR_WARP_TYPE

}  // namespace vekr::volume
