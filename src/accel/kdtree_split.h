// The wide kernels that hand a split node's triangles to its children.
#pragma once

#include <cstdint>

#include "core/isa.h"

namespace vekr::kd {

// A node's list split at x on one axis whose cell is [lo, hi]: a triangle
// goes below when its start lies below x, above when its end lies above x;
// one lying in the plane x goes to `side` (0: below, 1: above).
struct PartitionInput {
    const float* bounds;  // the axis's bounds, a triangle's start and end side by side
    const int32_t* list;
    int32_t n;
    float lo, hi, x;
    int32_t side;
};

}  // namespace vekr::kd

namespace vekr {

// Partitions in.list into the children, a block of lanes at a time, while a
// whole block remains; with sideOf, records per triangle where it went (bit
// 0 below, bit 1 above).  Adds to the counts what it stored and returns how
// many triangles it took (none at the SSE level).
VEKR_ISA_DECLARE(int32_t partitionBlocks(const ::vekr::kd::PartitionInput& in, int32_t* below,
                                         int32_t& nBelow, int32_t* above, int32_t& nAbove,
                                         uint8_t* sideOf));

// Filters a list (of events: shift 1; of triangles: shift 0) into the
// children, a block of lanes at a time, while a whole block remains: entry
// v goes below when side[v >> shift] & 1, above when & 2; a null child gets
// nothing.  side holds 3 bytes past the last triangle's (each lane reads 4
// bytes).  Adds to the counts what it stored and returns how many entries
// it took (none at the SSE level).
VEKR_ISA_DECLARE(int32_t filterListBlocks(const int32_t* src, int32_t count, int shift,
                                          const uint8_t* side, int32_t* below, int32_t& nBelow,
                                          int32_t* above, int32_t& nAbove));

}  // namespace vekr
