// Evaluation of the spherical-harmonic basis, four directions at a time.
//
// The kernels work on "lanes": four directions evaluated side by side, with
// basis function k of lane j at soa[4k + j] (soa 16-byte aligned).  Every
// lane computes exactly what a one-direction evaluation would, so results do
// not depend on how directions are grouped.
#pragma once

#include <cstdint>

#include "core/isa.h"
#include "vekr.h"

namespace vekr {

// Closed forms in 64-bit arithmetic, bands 0..L (L <= 15).
VEKR_ISA_DECLARE(void shDirectLanes(const float* x, const float* y, const float* z, unsigned L,
                                    float* soa))
// Closed forms of band l alone (l <= 15), 2l + 1 functions per lane.
VEKR_ISA_DECLARE(void shBandLanes(const float* x, const float* y, const float* z, unsigned l,
                                  float* soa))

namespace sh {

// Recurrence in 32-bit arithmetic over the state's tables A and B, bands 0..L.
void recurrenceLanes(const float* x, const float* y, const float* z, unsigned L,
                     const float* A, const float* B, float* soa);

// Basis of four directions by the state's method.  L <= 15 and the state's
// type is 0 or 1 (the caller has checked both).
void basisLanes(Isa isa, const float* x, const float* y, const float* z, unsigned L,
                const VekrSHState& state, float* soa);

// vekrSH_32f with its checks, at a chosen instruction-set level.
VekStatus basis(Isa isa, const float* pX, const float* pY, const float* pZ, uint32_t count,
                float* pDst, uint32_t L, const VekrSHState* pState);

// vekrSHBand_32f with its checks, at a chosen instruction-set level.
VekStatus band(Isa isa, const float* pX, const float* pY, const float* pZ, int count,
               float* pDst, uint32_t l);

// Copies lanes 0 .. rows-1 (rows <= 4) of n basis functions to rows of
// out, row j starting at out + j * stride; `stream` asks for stores that
// bypass the caches where the rows are aligned (the caller fences).
void lanesToRows(const float* soa, int n, int rows, float* out, int stride, bool stream);

// Copies directions [i, i + rows) of the planes into four lanes; missing
// lanes repeat the last direction so that they evaluate harmlessly.
inline void gatherLanes(const float* x, const float* y, const float* z, int64_t i, int rows,
                        float* lx, float* ly, float* lz)
{
    for (int j = 0; j < 4; ++j) {
        const int64_t k = i + (j < rows ? j : rows - 1);
        lx[j] = x[k];
        ly[j] = y[k];
        lz[j] = z[k];
    }
}

}  // namespace sh
}  // namespace vekr
