#include "volume/resize_plan.h"

#include <cmath>
#include <cstdint>

#include "volume/bufsize.h"
#include "volume/checks.h"
#include "volume/interp.h"

namespace vekr::volume {

namespace {

enum class AxisRange { Empty, Ok, TooFar };

// Destination range of one axis: start rounded with a bias just below one
// half, end with a bias just above, both cut to the destination region.
// TooFar when the range ends past 2^31 - 1 (a region placed beyond the int32
// coordinates), which the resize refuses.
AxisRange axisRange(int srcStart, int srcCount, int dstStart, int dstCount, double factor,
                    double shift, ResizeAxis& a) noexcept
{
    const double lo = srcStart * factor + shift;
    const double hi = (srcStart + static_cast<double>(srcCount)) * factor + shift;
    const double dlo = dstStart;
    const double dhi = static_cast<double>(dstStart) + dstCount;
    const double d0 = std::trunc((lo > dlo ? lo : dlo) + 0.4999999999);
    const double d1 = std::trunc((hi < dhi ? hi : dhi) + 0.5000000001);
    if (!(d0 < d1)) return AxisRange::Empty;
    if (d1 > 2147483647.0) return AxisRange::TooFar;
    a.d0 = static_cast<int>(d0);
    a.d1 = static_cast<int>(d1);
    a.inv = 1.0 / factor;
    a.off = (0.0 - shift) / factor;
    return AxisRange::Ok;
}

}  // namespace

VekStatus planResize(const void* pSrc, const VekVolumeSize* pSrcVolume, const VekCuboid* pSrcVoi,
                     const void* pDst, const VekCuboid* pDstVoi, const double factor[3],
                     const double shift[3], int interpolation, const void* pBuffer,
                     ResizePlan& plan) noexcept
{
    if (!pSrc || !pDst || !pBuffer || !pSrcVolume || !pSrcVoi || !pDstVoi) return vekStsNullPtr;
    if (!validVolumeSize(*pSrcVolume) || !validCuboid(*pSrcVoi) || !validCuboid(*pDstVoi))
        return vekStsSize;
    // A factor must be positive; a factor or a shift that is not finite is
    // refused with the same code (it maps no voxel to a defined place).
    for (int k = 0; k < 3; ++k)
        if (!(factor[k] > 0.0) || !std::isfinite(factor[k])) return vekStsResizeFactor;
    for (int k = 0; k < 3; ++k)
        if (!std::isfinite(shift[k])) return vekStsResizeFactor;
    if (!validMode(interpolation)) return vekStsInterpolation;
    const VekVolumeSize& vol = *pSrcVolume;
    const VekCuboid& s = *pSrcVoi;
    const VekCuboid& d = *pDstVoi;
    if (voiOriginOutside(vol, s)) return vekStsVoiOutside;
    const ClippedExtent c = clipToVolume(vol, s);
    plan.mode = interpolation;
    plan.x.n = vol.width;
    plan.y.n = vol.height;
    plan.z.n = vol.depth;
    const AxisRange r[3] = {
        axisRange(s.x, c.width, d.x, d.width, factor[0], shift[0], plan.x),
        axisRange(s.y, c.height, d.y, d.height, factor[1], shift[1], plan.y),
        axisRange(s.z, c.depth, d.z, d.depth, factor[2], shift[2], plan.z)};
    for (AxisRange a : r)
        if (a == AxisRange::Empty) return vekStsEmptyDestination;
    for (AxisRange a : r)
        if (a == AxisRange::TooFar) return vekStsSize;
    return vekStsOk;
}

int32_t nearestIndex(const ResizeAxis& a, int d) noexcept
{
    const double s = (d + 0.5) * a.inv - 1e-10 + a.off;
    // The mapping keeps s inside the source region; the clamp only guards
    // the memory against rounding at extreme factors.
    if (!(s > 0.0)) return 0;
    if (s >= a.n - 1) return a.n - 1;
    return static_cast<int32_t>(s);
}

double sourceCoordinate(const ResizeAxis& a, int d) noexcept
{
    return (d + 0.5) * a.inv - 0.5 + a.off;
}

void linearTaps(int i, int n, int32_t taps[2]) noexcept
{
    if (i < 0) {
        taps[0] = 0;
        taps[1] = 0;
    } else if (i > n - 2) {
        taps[0] = n - 1;
        taps[1] = n - 1;
    } else {
        taps[0] = i;
        taps[1] = i + 1;
    }
}

// The i = 0 case comes before the upper border, so an axis shorter than 3
// voxels reads past its edge; callers use the cubic modes on at least 3.
void cubicTaps(int i, int n, int32_t taps[4]) noexcept
{
    if (i < 0) {
        taps[0] = 0, taps[1] = 0, taps[2] = 0, taps[3] = 1;
    } else if (i == 0) {
        taps[0] = 0, taps[1] = 0, taps[2] = 1, taps[3] = 2;
    } else if (i <= n - 3) {
        taps[0] = i - 1, taps[1] = i, taps[2] = i + 1, taps[3] = i + 2;
    } else if (i == n - 2) {
        taps[0] = n - 3, taps[1] = n - 2, taps[2] = n - 1, taps[3] = n - 1;
    } else {
        taps[0] = n - 2, taps[1] = n - 1, taps[2] = n - 1, taps[3] = n - 1;
    }
}

namespace {

// Hands out consecutive 64-byte multiples of the share.  It works on the
// address alone, so a layout can also be measured without memory behind it.
struct Carver {
    uintptr_t p;
    template <class T>
    T* take(int64_t count) noexcept
    {
        T* r = reinterpret_cast<T*>(p);
        p += static_cast<uintptr_t>((count * static_cast<int64_t>(sizeof(T)) + 63) & ~int64_t{63});
        return r;
    }
};

// Places the tables, ring and planes of one share that starts at `share`
// (first aligned to 64); returns the bytes used from `share` on.  The box
// must be small enough for 64-bit offsets (resizeWorkBytes checks).
int64_t layout(uintptr_t share, const ResizePlan& plan, ResizeWork& w) noexcept
{
    const int mode = plan.mode;
    const int W = plan.x.count(), H = plan.y.count(), D = plan.z.count();
    Carver c{share + ((64 - (share & 63)) & 63)};
    w.x.index = c.take<int32_t>(align16(W));
    w.y.index = c.take<int32_t>(align16(H));
    w.z.index = c.take<int32_t>(align16(D));
    if (mode != kNearest) {
        const int K = mode == kLinear ? 2 : 4;
        w.x.frac = c.take<float>(align64(W));
        w.y.frac = c.take<float>(align64(H));
        w.z.frac = c.take<float>(align64(D));
        w.rowStride = align16(W);
        w.planeStride = w.rowStride * H;
        w.ring = c.take<float>(K * w.rowStride);
        w.planes = c.take<float>(K * w.planeStride);
        if (K == 4) {
            w.x.weight = c.take<float>(4 * W);
            w.y.weight = c.take<float>(4 * H);
            w.z.weight = c.take<float>(4 * D);
        }
        w.xTaps = c.take<int32_t>(K * W);
        if (K == 2) w.xPairWeights = c.take<float>(2 * W);
    }
    return static_cast<int64_t>(c.p - share);
}

void fillAxis(AxisTables& t, const ResizeAxis& a, int mode) noexcept
{
    t.count = a.count();
    t.n = a.n;
    for (int k = 0; k < t.count; ++k) {
        const int d = a.d0 + k;
        if (mode == kNearest) {
            t.index[k] = nearestIndex(a, d);
            continue;
        }
        const Split sp = splitCoordinate(sourceCoordinate(a, d));
        t.index[k] = sp.i;
        t.frac[k] = sp.t;
        if (isCubicMode(mode)) cubicWeights(mode, sp.t, t.weight + 4 * k);
    }
}

}  // namespace

ResizeWork buildResizeWork(uint8_t* share, const ResizePlan& plan) noexcept
{
    const int mode = plan.mode;
    const int W = plan.x.count();
    ResizeWork w;
    layout(reinterpret_cast<uintptr_t>(share), plan, w);
    fillAxis(w.x, plan.x, mode);
    fillAxis(w.y, plan.y, mode);
    fillAxis(w.z, plan.z, mode);
    if (mode != kNearest) {
        // Columns are in source order, so the border cases sit at both ends
        // and the uninterrupted middle (0 <= i <= n-2 for linear, 1 <= i <=
        // n-3 for cubic) is one run.
        const int lo = mode == kLinear ? 0 : 1;
        const int hi = mode == kLinear ? w.x.n - 2 : w.x.n - 3;
        w.xMidBegin = W;
        w.xMidEnd = W;
        for (int k = 0; k < W; ++k) {
            const int i = w.x.index[k];
            if (mode == kLinear) {
                linearTaps(i, w.x.n, w.xTaps + 2 * k);
                w.xPairWeights[2 * k] = 1.0f - w.x.frac[k];
                w.xPairWeights[2 * k + 1] = w.x.frac[k];
            } else {
                cubicTaps(i, w.x.n, w.xTaps + 4 * k);
            }
            if (i >= lo && i <= hi) {
                if (w.xMidBegin == W) w.xMidBegin = k;
                w.xMidEnd = k + 1;
            }
        }
        if (w.xMidBegin == W) w.xMidBegin = w.xMidEnd = 0;
    }
    return w;
}

int64_t resizeWorkBytes(uintptr_t share, const ResizePlan& plan) noexcept
{
    using U = unsigned __int128;
    const U bound = resizeBytesPerThread<U>(U(plan.x.count()), U(plan.y.count()),
                                            U(plan.z.count()), plan.mode);
    if (bound > U{INT32_MAX}) return INT64_MAX;
    ResizeWork w;
    return layout(share, plan, w);
}

ShareSpan resizeShare(uintptr_t buffer, int32_t total, int thread, int team,
                      const ResizePlan& plan) noexcept
{
    const int64_t begin = (int64_t{total} * thread) / team;
    const int64_t bytes = resizeWorkBytes(buffer + static_cast<uintptr_t>(begin), plan);
    return ShareSpan{begin, bytes == INT64_MAX ? INT64_MAX : begin + bytes};
}

bool sharesFit(uintptr_t buffer, int32_t total, int team, const ResizePlan& plan) noexcept
{
    for (int t = 0; t < team; ++t) {
        const int64_t limit = t + 1 < team ? (int64_t{total} * (t + 1)) / team : total;
        if (resizeShare(buffer, total, t, team, plan).end > limit) return false;
    }
    return true;
}

}  // namespace vekr::volume
