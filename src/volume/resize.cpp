// The six resize exports: one check and mapping, one set of kernels over
// both layouts and the three element types; vekrResize_32f_C1V splits the
// destination slices over threads.
#include <cstdint>

#include "core/parallel.h"
#include "core/status.h"
#include "vekcore.h"
#include "volume/layout.h"
#include "volume/resize_passes.h"
#include "volume/resize_plan.h"

namespace vekr::volume {
namespace {

// The size the caller was told to allocate, asked again now.  Where the
// query's 32-bit arithmetic has wrapped it is smaller than the work, and the
// call is refused with vekStsSize before anything is written.
int32_t reportedSize(const VekCuboid& srcVoi, const VekCuboid& dstVoi, int mode)
{
    int total = 0;
    vekrResizeGetBufSize(&srcVoi, &dstVoi, 1, mode, &total);
    return total;
}

template <class SrcL, class DstL>
VekStatus resizeSerial(const SrcL& src, const DstL& dst, const ResizePlan& plan,
                       const VekCuboid& srcVoi, const VekCuboid& dstVoi, uint8_t* pBuffer)
{
    const auto buffer = reinterpret_cast<uintptr_t>(pBuffer);
    if (!sharesFit(buffer, reportedSize(srcVoi, dstVoi, plan.mode), 1, plan)) return vekStsSize;
    const ResizeWork w = buildResizeWork(pBuffer, plan);
    resizeSlab(src, dst, plan, w, 0, plan.z.count());
    return vekStsOk;
}

}  // namespace

// Slabs of destination slices on ownGetNumThreads() threads when the box is
// at least 16 voxels along every axis; the master sizes the buffer through
// the public query and thread t works in the share at (S * t) / n.
template <class SrcL, class DstL>
VekStatus resizeParallel(const SrcL& src, const DstL& dst, const ResizePlan& plan,
                         const VekCuboid& srcVoi, const VekCuboid& dstVoi, uint8_t* pBuffer)
{
    const int threads = ownGetNumThreads();
    if (threads <= 1 || plan.x.count() < 16 || plan.y.count() < 16 || plan.z.count() < 16)
        return resizeSerial(src, dst, plan, srcVoi, dstVoi, pBuffer);
    const auto buffer = reinterpret_cast<uintptr_t>(pBuffer);
    int total = 0;
    bool fits = false;
    parallelRegion(
        threads,
        [&](int team) {
            total = reportedSize(srcVoi, dstVoi, plan.mode);
            fits = sharesFit(buffer, total, team, plan);
        },
        [&](int thread, int team) {
            if (!fits) return;
            const Range r = lastTakesRest(plan.z.count(), thread, team);
            uint8_t* share = pBuffer + resizeShare(buffer, total, thread, team, plan).begin;
            const ResizeWork w = buildResizeWork(share, plan);
            if (r.begin < r.end) resizeSlab(src, dst, plan, w, r.begin, r.end);
        });
    return fits ? vekStsOk : vekStsSize;
}

}  // namespace vekr::volume

namespace {

using namespace vekr::volume;

template <class T>
VekStatus resizeV(const T* pSrc, const VekVolumeSize* pSrcVolume, int srcStep, int srcPlaneStep,
                  const VekCuboid* pSrcVoi, T* pDst, int dstStep, int dstPlaneStep,
                  const VekCuboid* pDstVoi, double xFactor, double yFactor, double zFactor,
                  double xShift, double yShift, double zShift, int interpolation,
                  uint8_t* pBuffer, bool parallel)
{
    const double factor[3] = {xFactor, yFactor, zFactor};
    const double shift[3] = {xShift, yShift, zShift};
    ResizePlan plan;
    const VekStatus st = planResize(pSrc, pSrcVolume, pSrcVoi, pDst, pDstVoi, factor, shift,
                                    interpolation, pBuffer, plan);
    if (st != vekStsOk) return st;
    const BlockVolume<const T> src(pSrc, srcStep, srcPlaneStep);
    const BlockVolume<T> dst(pDst, dstStep, dstPlaneStep);
    return vekr::guarded([&]() -> VekStatus {
        if (parallel) return resizeParallel(src, dst, plan, *pSrcVoi, *pDstVoi, pBuffer);
        return resizeSerial(src, dst, plan, *pSrcVoi, *pDstVoi, pBuffer);
    });
}

template <class T>
VekStatus resizePV(const T* const pSrc[], const VekVolumeSize* pSrcVolume, int srcStep,
                   const VekCuboid* pSrcVoi, T* const pDst[], int dstStep,
                   const VekCuboid* pDstVoi, double xFactor, double yFactor, double zFactor,
                   double xShift, double yShift, double zShift, int interpolation,
                   uint8_t* pBuffer)
{
    const double factor[3] = {xFactor, yFactor, zFactor};
    const double shift[3] = {xShift, yShift, zShift};
    ResizePlan plan;
    const VekStatus st = planResize(pSrc, pSrcVolume, pSrcVoi, pDst, pDstVoi, factor, shift,
                                    interpolation, pBuffer, plan);
    if (st != vekStsOk) return st;
    const SliceVolume<const T> src(pSrc, srcStep);
    const SliceVolume<T> dst(pDst, dstStep);
    return vekr::guarded(
        [&]() -> VekStatus { return resizeSerial(src, dst, plan, *pSrcVoi, *pDstVoi, pBuffer); });
}

}  // namespace

#define VEKR_RESIZE_V(SUFFIX, TYPE, PARALLEL)                                                    \
    extern "C" VEKR_API VekStatus vekrResize_##SUFFIX##_C1V(                                     \
        const TYPE* pSrc, const VekVolumeSize* pSrcVolume, int srcStep, int srcPlaneStep,        \
        const VekCuboid* pSrcVoi, TYPE* pDst, int dstStep, int dstPlaneStep,                     \
        const VekCuboid* pDstVoi, double xFactor, double yFactor, double zFactor, double xShift, \
        double yShift, double zShift, int interpolation, uint8_t* pBuffer)                      \
    {                                                                                            \
        return resizeV<TYPE>(pSrc, pSrcVolume, srcStep, srcPlaneStep, pSrcVoi, pDst, dstStep,    \
                             dstPlaneStep, pDstVoi, xFactor, yFactor, zFactor, xShift, yShift,   \
                             zShift, interpolation, pBuffer, PARALLEL);                          \
    }

#define VEKR_RESIZE_PV(SUFFIX, TYPE)                                                             \
    extern "C" VEKR_API VekStatus vekrResize_##SUFFIX##_C1PV(                                    \
        const TYPE* const pSrc[], const VekVolumeSize* pSrcVolume, int srcStep,                  \
        const VekCuboid* pSrcVoi, TYPE* const pDst[], int dstStep, const VekCuboid* pDstVoi,     \
        double xFactor, double yFactor, double zFactor, double xShift, double yShift,            \
        double zShift, int interpolation, uint8_t* pBuffer)                                      \
    {                                                                                            \
        return resizePV<TYPE>(pSrc, pSrcVolume, srcStep, pSrcVoi, pDst, dstStep, pDstVoi,        \
                              xFactor, yFactor, zFactor, xShift, yShift, zShift, interpolation,  \
                              pBuffer);                                                          \
    }

VEKR_RESIZE_V(8u, uint8_t, false)
VEKR_RESIZE_V(16u, uint16_t, false)
VEKR_RESIZE_V(32f, float, true)
VEKR_RESIZE_PV(8u, uint8_t)
VEKR_RESIZE_PV(16u, uint16_t)
VEKR_RESIZE_PV(32f, float)
