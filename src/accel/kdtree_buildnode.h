// The node of the tree under construction and the build's shared records.
#pragma once

#include <cstdint>

#include "vekr.h"

namespace vekr::kd {

// kind 0..2: inner node split on that axis, value = split coordinate (float
// bits), ptr = pair of children.  kind 3: leaf, value = triangle count,
// ptr = the leaf's triangle numbers.
struct VekrKDTreeBuildNode {
    int32_t kind;
    int32_t value;
    void* ptr;
};
static_assert(sizeof(VekrKDTreeBuildNode) == 16, "build node is 16 bytes");

constexpr int32_t kLeafKind = 3;

// What one build charged against its budget; filled when a caller asks.
struct BuildStats {
    uint64_t charged = 0;      // every byte charged, summed
    uint32_t budget = 0;       // the budget in bytes
    int32_t unitsOpened = 0;   // 16 MB working units (a large block counts its units)
};

}  // namespace vekr::kd
