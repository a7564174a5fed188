// Mirror directions: each incident direction reflected about its surface
// normal, R = D - N * 2(D.N).  Not normalised; inactive rays get (0, 0, 0).
#include "core/simd.h"
#include "core/status.h"
#include "shade/load.h"
#include "shade/rays.h"
#include "vekr.h"

namespace vekr::shade {

void reflectScalar(const float* const d[3], const int* mask, const float* const n[3],
                   float* const r[3], int count)
{
    for (int i = 0; i < count; ++i) {
        if (mask[i] < 0) {
            r[0][i] = r[1][i] = r[2][i] = 0.0f;
            continue;
        }
        const float dx = d[0][i], dy = d[1][i], dz = d[2][i];
        const float nx = n[0][i], ny = n[1][i], nz = n[2][i];
        const float dot = dx * nx + dy * ny + dz * nz;
        const float k = dot + dot;
        r[0][i] = dx - nx * k;
        r[1][i] = dy - ny * k;
        r[2][i] = dz - nz * k;
    }
}

namespace {

template <bool A>
void reflectGroups(const float* const d[3], const int* mask, const float* const n[3],
                   float* const r[3], int count)
{
    using namespace simd;
    for (int i = 0; i < count; i += 4) {
        const I4 m = ldi<A>(mask + i);
        if (negativeLanes(m) == 0xF) {
            // Nothing active: zeros, without touching the vectors.
            st<A>(r[0] + i, zero4());
            st<A>(r[1] + i, zero4());
            st<A>(r[2] + i, zero4());
            continue;
        }
        const F4 dx = ld<A>(d[0] + i), dy = ld<A>(d[1] + i), dz = ld<A>(d[2] + i);
        const F4 nx = ld<A>(n[0] + i), ny = ld<A>(n[1] + i), nz = ld<A>(n[2] + i);
        const F4 dot = dx * nx + dy * ny + dz * nz;
        const F4 k = dot + dot;
        const F4 on = activeLanes(m);
        st<A>(r[0] + i, on & (dx - nx * k));
        st<A>(r[1] + i, on & (dy - ny * k));
        st<A>(r[2] + i, on & (dz - nz * k));
    }
}

}  // namespace

void reflectVector(const float* const d[3], const int* mask, const float* const n[3],
                   float* const r[3], int count, bool aligned)
{
    if (aligned) reflectGroups<true>(d, mask, n, r, count);
    else reflectGroups<false>(d, mask, n, r, count);
}

}  // namespace vekr::shade

extern "C" VEKR_API VekStatus vekrCastReflectionRay_32f(const float* const pIncident[3],
                                                        const int* pMask,
                                                        const float* const pNormals[3],
                                                        float* const pReflected[3], int count)
{
    if (!pIncident || !pMask || !pNormals || !pReflected) return vekStsNullPtr;
    if (count < 1) return vekStsOk;
    if (count % 4 == 0) {
        const bool aligned = vekr::allAligned16(
            pIncident[0], pIncident[1], pIncident[2], pNormals[0], pNormals[1], pNormals[2],
            pReflected[0], pReflected[1], pReflected[2], pMask);
        vekr::shade::reflectVector(pIncident, pMask, pNormals, pReflected, count, aligned);
    } else {
        vekr::shade::reflectScalar(pIncident, pMask, pNormals, pReflected, count);
    }
    return vekStsOk;
}
