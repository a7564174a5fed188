// Colour accumulation for a packet of rays with the library's masked
// arithmetic.  Every array holds n values; the float planes and masks must be
// 16-byte aligned when n is a multiple of 4 (the library then takes its
// 4-wide paths, which read them with aligned loads).
#pragma once

#include "vekr.h"

#include "scene.h"

namespace render {

// Adds one point light's diffuse light, colour += power * albedo * cos / d^2,
// on the rays whose mask is not negative; d = max(1, |P - light|).  `cosine`
// comes in as |N . (P - light)| (what the shadow-ray cast writes) and is
// used up; `dist` and `scratch` are work planes.  Returns the first failing
// status, or vekStsOk.
VekStatus addLight(const Light& light, const float* const points[3], const int* mask,
                   float* cosine, float* dist, float* scratch, const float* const albedo[3],
                   float* const colour[3], int n);

// colour += ambient * albedo, channel by channel, where the mask allows.
VekStatus addAmbient(const float* const ambient[3], const float* const albedo[3], const int* mask,
                     float* const colour[3], int n);

// colour = (1 - share) * colour + share * mirrored where mirrorMask is not
// negative; other rays keep their colour.  `scale` is a work plane and
// `everyRay` a mask of n zeros.
VekStatus blendMirror(const float* share, const int* mirrorMask, const int* everyRay, float* scale,
                      const float* const mirrored[3], float* const colour[3], int n);

}  // namespace render
