// Distance of each point from a light, clamped below at 1: the divisor of a
// distance attenuation.  Inactive points get 1.
#include <cmath>

#include "core/simd.h"
#include "core/status.h"
#include "shade/load.h"
#include "shade/rays.h"
#include "vekr.h"

namespace vekr::shade {

void attenuationScalar(const float* light, const float* const p[3], const int* mask,
                       float* dist, int count)
{
    for (int i = 0; i < count; ++i) {
        if (mask[i] < 0) {
            dist[i] = 1.0f;
            continue;
        }
        const float dx = p[0][i] - light[0];
        const float dy = p[1][i] - light[1];
        const float dz = p[2][i] - light[2];
        const float s = dx * dx + dy * dy + dz * dz;
        dist[i] = s < 1.0f ? 1.0f : std::sqrt(s);
    }
}

void attenuationVector(const float* light, const float* const p[3], const int* mask,
                       float* dist, int count)
{
    using namespace simd;
    const F4 lx(light[0]), ly(light[1]), lz(light[2]), one(1.0f);
    for (int i = 0; i < count; i += 4) {
        const I4 m = loadi4(mask + i);
        if (negativeLanes(m) == 0xF) {
            store4(dist + i, one);
            continue;
        }
        const F4 dx = load4(p[0] + i) - lx;
        const F4 dy = load4(p[1] + i) - ly;
        const F4 dz = load4(p[2] + i) - lz;
        const F4 s = dx * dx + dy * dy + dz * dz;
        // max(s, 1) keeps s only where s > 1 (a NaN gives 1).
        const F4 d = sqrt(max(s, one));
        store4(dist + i, select(activeLanes(m), d, one));
    }
}

}  // namespace vekr::shade

extern "C" VEKR_API VekStatus vekrDistAttenuationSO_32f_M(const float light[3],
                                                          const float* const pPoints[3],
                                                          const int* pMask, float* pDist,
                                                          int count)
{
    // The light position is not checked.
    if (!pPoints || !pMask || !pDist) return vekStsNullPtr;
    if (count < 1) return vekStsOk;
    if (count % 4 == 0 && vekr::allAligned16(pMask, pDist, pPoints[0], pPoints[1], pPoints[2]))
        vekr::shade::attenuationVector(light, pPoints, pMask, pDist, count);
    else
        vekr::shade::attenuationScalar(light, pPoints, pMask, pDist, count);
    return vekStsOk;
}
