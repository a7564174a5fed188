// Packet paths of the intersection functions, compiled once per instruction
// set level (*.isa.cpp).  Each takes a block whose width and height are
// multiples of 4 and whose arrays are 16-byte aligned.
#pragma once

#include "core/isa.h"
#include "vekr.h"

namespace vekr {

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
