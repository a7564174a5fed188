// The two work-buffer queries of the volume transforms.
#include "volume/bufsize.h"

#include "core/status.h"
#include "vekcore.h"
#include "volume/checks.h"
#include "volume/interp.h"

namespace {

// The checks both queries share: pointer, both regions, channels, mode.
VekStatus checkQuery(const VekCuboid* pSrcVoi, const VekCuboid* pDstVoi, int nChannel,
                     int interpolation, const int* pSize) noexcept
{
    using namespace vekr::volume;
    if (!pSize || !pSrcVoi || !pDstVoi) return vekStsNullPtr;
    if (!validCuboid(*pSrcVoi) || !validCuboid(*pDstVoi)) return vekStsSize;
    if (nChannel != 1) return vekStsChannelCount;
    if (!validMode(interpolation)) return vekStsInterpolation;
    return vekStsOk;
}

}  // namespace

extern "C" VEKR_API VekStatus vekrResizeGetBufSize(const VekCuboid* pSrcVoi,
                                                   const VekCuboid* pDstVoi, int nChannel,
                                                   int interpolation, int* pSize)
{
    const VekStatus st = checkQuery(pSrcVoi, pDstVoi, nChannel, interpolation, pSize);
    if (st != vekStsOk) return st;
    const int32_t perThread = vekr::volume::resizeBufferPerThread(
        pDstVoi->width, pDstVoi->height, pDstVoi->depth, interpolation);
    *pSize = static_cast<int32_t>(static_cast<uint32_t>(perThread) *
                                  static_cast<uint32_t>(ownGetNumThreads()));
    return vekStsOk;
}

extern "C" VEKR_API VekStatus vekrWarpAffineGetBufSize(const VekCuboid* pSrcVoi,
                                                       const VekCuboid* pDstVoi, int nChannel,
                                                       int interpolation, int* pSize)
{
    const VekStatus st = checkQuery(pSrcVoi, pDstVoi, nChannel, interpolation, pSize);
    if (st != vekStsOk) return st;
    *pSize = 0;
    return vekStsOk;
}
