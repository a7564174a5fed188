// Internal entry points of the intersection functions: the one-ray code
// (*Rays: one ray after another, the single-ray path written plainly; the
// single-ray path runs it lanes-wide, bit for bit, see ray_lanes.h, and tests
// compare the two); the dispatch between the single-ray path and the packet
// path at a given instruction-set level (the exports pass the best level;
// tests force each one); and the kernels compiled once per level.
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

namespace vekr {

// Packet paths, compiled once per instruction-set level (*.isa.cpp).  Each
// takes a block whose width and height are multiples of 4 and whose arrays
// are 16-byte aligned.

VEKR_ISA_DECLARE(void intersectEyePackets(const float eye[3], const float* const dirs[3],
                                          float* dist, float* const hits[2], int* tris,
                                          const VekrIntersectContext& ctx, int width, int height))

VEKR_ISA_DECLARE(void intersectAnyPackets(const float origin[3], const float* const dirs[3],
                                          int* tris, int* mask, const VekrIntersectContext& ctx,
                                          int width, int height))

VEKR_ISA_DECLARE(void intersectOwnPackets(const float* const origins[3],
                                          const float* const dirs[3], float* dist,
                                          float* const hits[2], int* tris,
                                          const VekrIntersectContext& ctx, int width, int height))

VEKR_ISA_DECLARE(void intersectLayersPackets(const float origin[3], const float* const dirs[3],
                                             float* dist, float* const hits[2], int* tris,
                                             const VekrIntersectContext& ctx, int width,
                                             int height, int count))

// The single-ray path of the same functions, consecutive rays side by side
// in the level's lanes (bit for bit the one-ray results); any count, any
// alignment.
VEKR_ISA_DECLARE(void intersectEyeRows(const float eye[3], const float* const dirs[3], float* dist,
                                       float* const hits[2], int* tris,
                                       const VekrIntersectContext& ctx, int count))

VEKR_ISA_DECLARE(void intersectAnyRows(const float origin[3], const float* const dirs[3], int* tris,
                                       int* mask, const VekrIntersectContext& ctx, int count))

VEKR_ISA_DECLARE(void intersectOwnRows(const float* const origins[3], const float* const dirs[3],
                                       float* dist, float* const hits[2], int* tris,
                                       const VekrIntersectContext& ctx, int count))

VEKR_ISA_DECLARE(void intersectLayersRows(const float origin[3], const float* const dirs[3],
                                          float* dist, float* const hits[2], int* tris,
                                          const VekrIntersectContext& ctx, int rays, int count))

}  // namespace vekr
