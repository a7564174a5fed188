// The affine warp exports: the checks in their order, the small-source mode
// rule, the inverse by the adjugate, then the slab driver of warp_rows.cpp.
#include <cmath>
#include <cstdint>

#include "core/status.h"
#include "vekcore.h"
#include "volume/checks.h"
#include "volume/interp.h"
#include "volume/warp.h"

namespace vekr::volume {

AffineInverse invertAffine(const double c[3][4]) noexcept
{
    const double c0 = c[0][0], c1 = c[0][1], c2 = c[0][2], c3 = c[0][3];
    const double c4 = c[1][0], c5 = c[1][1], c6 = c[1][2], c7 = c[1][3];
    const double c8 = c[2][0], c9 = c[2][1], c10 = c[2][2], c11 = c[2][3];
    AffineInverse r;
    r.det = c0 * (c5 * c10 - c9 * c6) - c1 * (c4 * c10 - c8 * c6) + c2 * (c4 * c9 - c8 * c5);
    const double d = r.det;
    double* m = r.m;
    m[0] = (c5 * c10 - c9 * c6) / d;
    m[1] = (c9 * c2 - c1 * c10) / d;
    m[2] = (c1 * c6 - c5 * c2) / d;
    m[4] = (c8 * c6 - c4 * c10) / d;
    m[5] = (c0 * c10 - c8 * c2) / d;
    m[6] = (c4 * c2 - c0 * c6) / d;
    m[8] = (c4 * c9 - c8 * c5) / d;
    m[9] = (c8 * c1 - c0 * c9) / d;
    m[10] = (c0 * c5 - c4 * c1) / d;
    m[3] = -(m[0] * c3 + m[1] * c7 + m[2] * c11);
    m[7] = -(m[4] * c3 + m[5] * c7 + m[6] * c11);
    m[11] = -(m[8] * c3 + m[9] * c7 + m[10] * c11);
    return r;
}

bool degenerateAffine(const double c[3][4]) noexcept
{
    constexpr double kZero = 1e-100, kTolerance = 1e-10, kFloor = 1e-200;
    if (std::fabs(c[0][0]) <= kZero && std::fabs(c[1][1]) <= kZero && std::fabs(c[2][2]) <= kZero)
        return true;
    // The 2 x 2 minors of the y and z rows; each is tested only when the one
    // before vanished, so this catches parallel y and z rows and no more.
    const double pairs[3][2] = {{c[1][1] * c[2][2], c[1][2] * c[2][1]},
                                {c[1][0] * c[2][2], c[1][2] * c[2][0]},
                                {c[1][0] * c[2][1], c[1][1] * c[2][0]}};
    for (const auto& p : pairs) {
        const double a = p[0], b = p[1];
        const double r = std::fabs(a) <= kFloor ? std::fabs(b) : std::fabs((a - b) / a);
        if (!(r <= kTolerance)) return false;
    }
    return true;
}

SourceBounds sourceBounds(const VekVolumeSize& v, const VekCuboid& voi) noexcept
{
    const ClippedExtent e = clipToVolume(v, voi);
    return SourceBounds{{voi.x, voi.y, voi.z},
                        {voi.x + e.width - 1, voi.y + e.height - 1, voi.z + e.depth - 1}};
}

int smallSourceMode(const VekVolumeSize& v, int mode) noexcept
{
    if (isCubicMode(mode) && (v.width < 4 || v.height < 4 || v.depth < 4)) mode = kLinear;
    if (v.width < 2 || v.height < 2 || v.depth < 2) mode = kNearest;
    return mode;
}

}  // namespace vekr::volume

namespace {

using namespace vekr::volume;

template <class T>
VekStatus warpAffine(const T* const pSrc[], const VekVolumeSize* pSrcVolume, int srcStep,
                     const VekCuboid* pSrcVoi, T* const pDst[], int dstStep,
                     const VekCuboid* pDstVoi, const double coeffs[3][4], int interpolation)
{
    if (!pSrc || !pDst) return vekStsNullPtr;
    // The records are needed as well; a null one is refused rather than read.
    if (!pSrcVolume || !pSrcVoi || !pDstVoi || !coeffs) return vekStsNullPtr;
    if (!validVolumeSize(*pSrcVolume)) return vekStsSize;
    if (!validCuboid(*pSrcVoi)) return vekStsSize;
    if (!validCuboid(*pDstVoi)) return vekStsSize;
    if (degenerateAffine(coeffs)) return vekStsAffineCoeff;
    if (!validMode(interpolation)) return vekStsInterpolation;
    if (voiOriginOutside(*pSrcVolume, *pSrcVoi)) return vekStsVoiOutside;
    WarpJob job;
    job.mode = smallSourceMode(*pSrcVolume, interpolation);
    const AffineInverse inv = invertAffine(coeffs);
    if (inv.det > -1e-10 && inv.det < 1e-10) return vekStsOk;
    for (int k = 0; k < 12; ++k) job.m[k] = inv.m[k];
    job.bounds = sourceBounds(*pSrcVolume, *pSrcVoi);
    for (int a = 0; a < 3; ++a) {
        job.lo[a] = job.bounds.lo[a];
        job.hi[a] = job.bounds.hi[a];
    }
    job.dst = *pDstVoi;
    const SliceVolume<const T> src(pSrc, srcStep);
    return vekr::guarded([&] {
        warpRun(src, pDst, rowStepElements<T>(dstStep), job, ownGetNumThreads());
        return vekStsOk;
    });
}

}  // namespace

extern "C" VEKR_API VekStatus vekrWarpAffine_8u_C1PV(const uint8_t* const pSrc[],
                                                     const VekVolumeSize* pSrcVolume, int srcStep,
                                                     const VekCuboid* pSrcVoi, uint8_t* const pDst[],
                                                     int dstStep, const VekCuboid* pDstVoi,
                                                     const double coeffs[3][4], int interpolation)
{
    return warpAffine(pSrc, pSrcVolume, srcStep, pSrcVoi, pDst, dstStep, pDstVoi, coeffs,
                      interpolation);
}

extern "C" VEKR_API VekStatus vekrWarpAffine_16u_C1PV(const uint16_t* const pSrc[],
                                                      const VekVolumeSize* pSrcVolume,
                                                      int srcStep, const VekCuboid* pSrcVoi,
                                                      uint16_t* const pDst[], int dstStep,
                                                      const VekCuboid* pDstVoi,
                                                      const double coeffs[3][4], int interpolation)
{
    return warpAffine(pSrc, pSrcVolume, srcStep, pSrcVoi, pDst, dstStep, pDstVoi, coeffs,
                      interpolation);
}

extern "C" VEKR_API VekStatus vekrWarpAffine_32f_C1PV(const float* const pSrc[],
                                                      const VekVolumeSize* pSrcVolume,
                                                      int srcStep, const VekCuboid* pSrcVoi,
                                                      float* const pDst[], int dstStep,
                                                      const VekCuboid* pDstVoi,
                                                      const double coeffs[3][4], int interpolation)
{
    return warpAffine(pSrc, pSrcVolume, srcStep, pSrcVoi, pDst, dstStep, pDstVoi, coeffs,
                      interpolation);
}
