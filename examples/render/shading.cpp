#include "shading.h"

namespace render {

VekStatus addLight(const Light& light, const float* const points[3], const int* mask,
                   float* cosine, float* dist, float* scratch, const float* const albedo[3],
                   float* const colour[3], int n)
{
    VekStatus st = vekrDistAttenuationSO_32f_M(light.position, points, mask, dist, n);
    if (st != vekStsOk) return st;
    // cosine / d is the cosine of the angle of incidence (the vector to the
    // light was not normalised); dividing by d^2 as well gives the
    // inverse-square fall-off.
    if ((st = vekrDiv_32f_C1IM(dist, mask, cosine, n)) != vekStsOk) return st;
    for (int i = 0; i < n; ++i) scratch[i] = dist[i];
    if ((st = vekrMul_32f_C1IM(dist, mask, scratch, n)) != vekStsOk) return st;
    if ((st = vekrDiv_32f_C1IM(scratch, mask, cosine, n)) != vekStsOk) return st;
    return vekrAddMulMul_32f_AC1P3IM(light.power, cosine, albedo, mask, colour, n);
}

VekStatus addAmbient(const float* const ambient[3], const float* const albedo[3], const int* mask,
                     float* const colour[3], int n)
{
    for (int c = 0; c < 3; ++c) {
        float k[3] = {0.0f, 0.0f, 0.0f};
        k[c] = 1.0f;
        const VekStatus st = vekrAddMulMul_32f_AC1P3IM(k, ambient[c], albedo, mask, colour, n);
        if (st != vekStsOk) return st;
    }
    return vekStsOk;
}

VekStatus blendMirror(const float* share, const int* mirrorMask, const int* everyRay, float* scale,
                      const float* const mirrored[3], float* const colour[3], int n)
{
    for (int i = 0; i < n; ++i) scale[i] = mirrorMask[i] >= 0 ? 1.0f - share[i] : 1.0f;
    VekStatus st = vekrMul_32f_C1P3IM(scale, everyRay, colour, n);
    if (st != vekStsOk) return st;
    const float one[3] = {1.0f, 1.0f, 1.0f};
    return vekrAddMulMul_32f_AC1P3IM(one, share, mirrored, mirrorMask, colour, n);
}

}  // namespace render
