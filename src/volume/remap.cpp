// The remap exports: the checks in their order, the source bounds and the
// small-source mode rule, then the slab driver of remap_rows.cpp.
#include <cstdint>

#include "core/status.h"
#include "vekcore.h"
#include "volume/checks.h"
#include "volume/interp.h"
#include "volume/remap.h"
#include "volume/warp.h"

namespace {

using namespace vekr::volume;

template <class T>
VekStatus remap(const T* const pSrc[], const VekVolumeSize* pSrcVolume, int srcStep,
                const VekCuboid* pSrcVoi, const float* const pxMap[], const float* const pyMap[],
                const float* const pzMap[], int mapStep, T* const pDst[], int dstStep,
                const VekVolumeSize* pDstRoiSize, int interpolation)
{
    if (!pSrc || !pDst || !pxMap || !pyMap || !pzMap) return vekStsNullPtr;
    // The records are needed as well; a null one is refused rather than read.
    if (!pSrcVolume || !pSrcVoi || !pDstRoiSize) return vekStsNullPtr;
    if (!validVolumeSize(*pSrcVolume)) return vekStsSize;
    if (!validCuboid(*pSrcVoi)) return vekStsSize;
    if (!validVolumeSize(*pDstRoiSize)) return vekStsSize;
    if (!validMode(interpolation)) return vekStsInterpolation;
    if (voiOriginOutside(*pSrcVolume, *pSrcVoi)) return vekStsVoiOutside;
    RemapJob job;
    const SourceBounds b = sourceBounds(*pSrcVolume, *pSrcVoi);
    for (int a = 0; a < 3; ++a) {
        job.ilo[a] = b.lo[a];
        job.ihi[a] = b.hi[a];
        job.lo[a] = static_cast<float>(b.lo[a]);
        job.hi[a] = static_cast<float>(b.hi[a]);
    }
    job.mode = smallSourceMode(*pSrcVolume, interpolation);
    job.dst = *pDstRoiSize;
    const SliceVolume<const T> src(pSrc, srcStep);
    const CoordinateMaps maps{{pxMap, pyMap, pzMap}, rowStepElements<float>(mapStep)};
    return vekr::guarded([&] {
        remapRun(src, maps, pDst, rowStepElements<T>(dstStep), job, ownGetNumThreads());
        return vekStsOk;
    });
}

}  // namespace

extern "C" VEKR_API VekStatus vekrRemap_8u_C1PV(const uint8_t* const pSrc[],
                                                const VekVolumeSize* pSrcVolume, int srcStep,
                                                const VekCuboid* pSrcVoi,
                                                const float* const pxMap[],
                                                const float* const pyMap[],
                                                const float* const pzMap[], int mapStep,
                                                uint8_t* const pDst[], int dstStep,
                                                const VekVolumeSize* pDstRoiSize,
                                                int interpolation)
{
    return remap(pSrc, pSrcVolume, srcStep, pSrcVoi, pxMap, pyMap, pzMap, mapStep, pDst, dstStep,
                 pDstRoiSize, interpolation);
}

extern "C" VEKR_API VekStatus vekrRemap_16u_C1PV(const uint16_t* const pSrc[],
                                                 const VekVolumeSize* pSrcVolume, int srcStep,
                                                 const VekCuboid* pSrcVoi,
                                                 const float* const pxMap[],
                                                 const float* const pyMap[],
                                                 const float* const pzMap[], int mapStep,
                                                 uint16_t* const pDst[], int dstStep,
                                                 const VekVolumeSize* pDstRoiSize,
                                                 int interpolation)
{
    return remap(pSrc, pSrcVolume, srcStep, pSrcVoi, pxMap, pyMap, pzMap, mapStep, pDst, dstStep,
                 pDstRoiSize, interpolation);
}

extern "C" VEKR_API VekStatus vekrRemap_32f_C1PV(const float* const pSrc[],
                                                 const VekVolumeSize* pSrcVolume, int srcStep,
                                                 const VekCuboid* pSrcVoi,
                                                 const float* const pxMap[],
                                                 const float* const pyMap[],
                                                 const float* const pzMap[], int mapStep,
                                                 float* const pDst[], int dstStep,
                                                 const VekVolumeSize* pDstRoiSize,
                                                 int interpolation)
{
    return remap(pSrc, pSrcVolume, srcStep, pSrcVoi, pxMap, pyMap, pzMap, mapStep, pDst, dstStep,
                 pDstRoiSize, interpolation);
}
