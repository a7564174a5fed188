// Exports of the masked per-ray family: each runs its member through the
// shared frame.
#include "shade/masked_ops.h"

#include "vekr.h"

using namespace vekr::shade;

extern "C" VEKR_API VekStatus vekrDot_32f_P3C1M(const float* const pSrc1[3],
                                                const float* const pSrc2[3], const int* pMask,
                                                float* pDst, int count)
{
    return runMasked(DotOp{pSrc1, pSrc2, pMask, pDst}, count);
}

extern "C" VEKR_API VekStatus vekrDotChangeNorm_32f_IM(const float* const pSrc[3],
                                                       const int* pMask, float* const pSrcDst[3],
                                                       float* pDot, int count)
{
    return runMasked(DotChangeNormOp{pSrc, pMask, pSrcDst, pDot}, count);
}

extern "C" VEKR_API VekStatus vekrMul_32f_C1P3IM(const float* pSrc, const int* pMask,
                                                 float* const pSrcDst[3], int count)
{
    return runMasked(MulP3Op{pSrc, pMask, pSrcDst}, count);
}

extern "C" VEKR_API VekStatus vekrMul_32f_C1IM(const float* pSrc, const int* pMask,
                                               float* pSrcDst, int count)
{
    return runMasked(MulC1Op{pSrc, pMask, pSrcDst}, count);
}

extern "C" VEKR_API VekStatus vekrDiv_32f_C1IM(const float* pSrc, const int* pMask,
                                               float* pSrcDst, int count)
{
    return runMasked(DivOp{pSrc, pMask, pSrcDst}, count);
}

extern "C" VEKR_API VekStatus vekrAddMulMul_32f_AC1P3IM(const float k[3], const float* pSrc,
                                                        const float* const pSrc3[3],
                                                        const int* pMask,
                                                        float* const pSrcDst[3], int count)
{
    return runMasked(AddMulMulOp{k, pSrc, pSrc3, pMask, pSrcDst}, count);
}
