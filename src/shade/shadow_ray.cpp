// Shadow rays for one point light: the unnormalised vector from the light to
// each hit point (the point sits at parameter 1), and the cosine-like term
// |N.V| for surfaces that face the light on the viewer's side.  Other rays
// are switched off in the mask: they need no occlusion test.
#include <cmath>

#include "core/simd.h"
#include "core/status.h"
#include "shade/load.h"
#include "shade/rays.h"
#include "vekr.h"

namespace vekr::shade {

namespace {

// Below this |N.V| the light grazes the surface and the ray is dropped
// (the float nearest pi/1800, bits 0x3AE4C388).
constexpr float kGrazing = 0.0017453292f;

template <bool A>
void shadowGroups(const float* light, const float* side, const float* const n[3],
                  const float* const p[3], int* mask, float* cosine, float* const s[3],
                  int count)
{
    using namespace simd;
    const F4 lx(light[0]), ly(light[1]), lz(light[2]);
    for (int i = 0; i < count; i += 4) {
        const I4 m = ldi<A>(mask + i);
        const F4 vx = ld<A>(p[0] + i) - lx;
        const F4 vy = ld<A>(p[1] + i) - ly;
        const F4 vz = ld<A>(p[2] + i) - lz;
        const F4 q = ld<A>(n[0] + i) * vx + ld<A>(n[1] + i) * vy + ld<A>(n[2] + i) * vz;
        const F4 aq = abs(q);
        // Active, facing the light on the viewer's side, and not grazing.
        const F4 pass = activeLanes(m) & (ld<A>(side + i) * q > zero4()) & (aq >= F4(kGrazing));
        sti<A>(mask + i, select(asInt(pass), m, I4(-1)));
        st<A>(cosine + i, pass & aq);
        st<A>(s[0] + i, pass & vx);
        st<A>(s[1] + i, pass & vy);
        st<A>(s[2] + i, pass & vz);
    }
}

}  // namespace

void shadowVector(const float* light, const float* side, const float* const n[3],
                  const float* const p[3], int* mask, float* cosine, float* const s[3], int count,
                  bool aligned)
{
    if (aligned) shadowGroups<true>(light, side, n, p, mask, cosine, s, count);
    else shadowGroups<false>(light, side, n, p, mask, cosine, s, count);
}

void shadowScalar(const float* light, const float* side, const float* const n[3],
                  const float* const p[3], int* mask, float* cosine, float* const s[3], int begin,
                  int end)
{
    for (int i = begin; i < end; ++i) {
        cosine[i] = 0.0f;
        s[0][i] = s[1][i] = s[2][i] = 0.0f;
        if (mask[i] < 0) continue;
        const float vx = p[0][i] - light[0];
        const float vy = p[1][i] - light[1];
        const float vz = p[2][i] - light[2];
        float q = n[0][i] * vx + n[1][i] * vy + n[2][i] * vz;
        if (std::fabs(q) < kGrazing) q = 0.0f;
        if (side[i] * q > 0.0f) {
            cosine[i] = std::fabs(q);
            s[0][i] = vx;
            s[1][i] = vy;
            s[2][i] = vz;
        } else {
            mask[i] = -1;
        }
    }
}

}  // namespace vekr::shade

extern "C" VEKR_API VekStatus vekrCastShadowSO_32f(const float light[3], const float* pSideFactor,
                                                   const float* const pNormals[3],
                                                   const float* const pPoints[3], int* pMask,
                                                   float* pCosine, float* const pShadow[3],
                                                   int count)
{
    // The light position is deliberately not checked.
    if (!pSideFactor || !pNormals || !pPoints || !pMask || !pShadow || !pCosine)
        return vekStsNullPtr;
    if (count < 1) return vekStsOk;
    const int groups = count & ~3;
    const bool aligned = vekr::allAligned16(pNormals[0], pNormals[1], pNormals[2], pPoints[0],
                                            pPoints[1], pPoints[2], pShadow[0], pShadow[1],
                                            pShadow[2], pSideFactor, pMask, pCosine);
    vekr::shade::shadowVector(light, pSideFactor, pNormals, pPoints, pMask, pCosine, pShadow,
                              groups, aligned);
    vekr::shade::shadowScalar(light, pSideFactor, pNormals, pPoints, pMask, pCosine, pShadow,
                              groups, count);
    return vekStsOk;
}
