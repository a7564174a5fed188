// vekrSHBand_32f: one band of the basis from the closed forms, without a
// state; the same code as the bands of the direct method.
#include <cstdint>

#include "sh/sh_basis.h"
#include "sh/sh_state.h"

namespace vekr::sh {

VekStatus band(Isa isa, const float* pX, const float* pY, const float* pZ, int count,
               float* pDst, uint32_t l)
{
    if (!pX || !pY || !pZ || !pDst) return vekStsNullPtr;
    if (l > kMaxBand) return vekStsSelector;
    if (count == 0) return vekStsSize;
    if (count < 0) return vekStsOk;
    const int n = static_cast<int>(2 * l + 1);
    alignas(16) float soa[4 * (2 * kMaxBand + 1)];
    alignas(16) float lx[4], ly[4], lz[4];
    for (int64_t i = 0; i < count; i += 4) {
        const int rows = count - i < 4 ? static_cast<int>(count - i) : 4;
        gatherLanes(pX, pY, pZ, i, rows, lx, ly, lz);
        VEKR_ISA_CALL(isa, shBandLanes(lx, ly, lz, l, soa));
        lanesToRows(soa, n, rows, pDst + i * n, n, false);
    }
    return vekStsOk;
}

}  // namespace vekr::sh

extern "C" VEKR_API VekStatus vekrSHBand_32f(const float* pX, const float* pY, const float* pZ,
                                             int count, float* pDst, uint32_t l)
{
    return vekr::sh::band(vekr::bestIsa(), pX, pY, pZ, count, pDst, l);
}
