// Internal entry points of the intersection functions: the one-ray code
// (*Rays: one ray after another, the single-ray path written plainly; the
// single-ray path runs it lanes-wide, bit for bit, see ray_lanes.h, and tests
// compare the two), and the dispatch between the single-ray path and the
// packet path at a given instruction-set level (the exports pass the best
// level; tests force each one).
#pragma once

#include "core/isa.h"
#include "vekr.h"

namespace vekr::trace {

void intersectEyeRays(const float eye[3], const float* const dirs[3], float* dist,
                      float* const hits[2], int* tris, const VekrIntersectContext& ctx, int count);
void intersectEye(Isa isa, const float eye[3], const float* const dirs[3], float* dist,
                  float* const hits[2], int* tris, const VekrIntersectContext& ctx, VekSize extent);

void intersectAnyRays(const float origin[3], const float* const dirs[3], int* tris, int* mask,
                      const VekrIntersectContext& ctx, int count);
void intersectAny(Isa isa, const float origin[3], const float* const dirs[3], int* tris,
                  int* mask, VekSize size, const VekrIntersectContext& ctx);

void intersectOwnRays(const float* const origins[3], const float* const dirs[3], float* dist,
                      float* const hits[2], int* tris, const VekrIntersectContext& ctx, int count);
void intersectOwn(Isa isa, const float* const origins[3], const float* const dirs[3],
                  float* dist, float* const hits[2], int* tris, const VekrIntersectContext& ctx,
                  VekSize size);

void intersectLayersRays(const float origin[3], const float* const dirs[3], float* dist,
                         float* const hits[2], int* tris, const VekrIntersectContext& ctx,
                         int rays, int count);
void intersectLayers(Isa isa, const float origin[3], const float* const dirs[3], float* dist,
                     float* const hits[2], int* tris, VekrHitBlockSize size,
                     const VekrIntersectContext& ctx);

}  // namespace vekr::trace
