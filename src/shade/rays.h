// Secondary rays and the light's distance term: the kernels behind the
// exports, reachable separately so the vector and scalar parts can be compared.
#pragma once

namespace vekr::shade {

// R = D - N * 2(D.N) for active rays, zero for inactive ones.
void reflectScalar(const float* const d[3], const int* mask, const float* const n[3],
                   float* const r[3], int count);
// Groups of four; count must be divisible by 4.  `aligned` selects aligned loads.
void reflectVector(const float* const d[3], const int* mask, const float* const n[3],
                   float* const r[3], int count, bool aligned);

// Shadow rays from the light to the hit points.  The vector kernel handles
// groups of four (count divisible by 4) and turns off every failing lane,
// including already inactive ones; the scalar kernel handles [begin, end)
// and leaves an inactive ray's mask value alone.
void shadowVector(const float* light, const float* side, const float* const n[3],
                  const float* const p[3], int* mask, float* cosine, float* const s[3], int count,
                  bool aligned);
void shadowScalar(const float* light, const float* side, const float* const n[3],
                  const float* const p[3], int* mask, float* cosine, float* const s[3], int begin,
                  int end);

// max(1, |P - L|) for active points, 1 for inactive ones.
void attenuationScalar(const float* light, const float* const p[3], const int* mask,
                       float* dist, int count);
void attenuationVector(const float* light, const float* const p[3], const int* mask,
                       float* dist, int count);

}  // namespace vekr::shade
