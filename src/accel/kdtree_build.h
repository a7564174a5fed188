// Internal entry points of the KD-tree builders (see kdtree_entry.cpp for the
// exported function that checks the arguments and picks one).
#pragma once

#include <cstdint>

#include "vekr.h"

namespace vekr::kd {

// One leaf that lists every triangle 0..n-1; the mesh itself is not read.
VekStatus buildSingleLeaf(int32_t triangleCount, VekrKDTreeNode** ppTree, int* pTreeSize);

// The surface-area-cost build under a memory budget of budgetBytes (already
// shifted to bytes in 32 bits).  `threshold` is the caller's split threshold.
VekStatus buildCostDriven(const float* vertices, const int* triangles, int32_t vertexCount,
                          int32_t triangleCount, float threshold, int32_t depthLimit,
                          uint32_t budgetBytes, const VekrBox3D* region,
                          VekrKDTreeNode** ppTree, int* pTreeSize);

}  // namespace vekr::kd

#include "accel/kdtree_buildnode.h"
#include "core/isa.h"

namespace vekr::kd {

// The same build, reporting what it charged against the budget, with its
// cost sweep at the given level (tests).
VekStatus buildCostDrivenStats(const float* vertices, const int* triangles, int32_t vertexCount,
                               int32_t triangleCount, float threshold, int32_t depthLimit,
                               uint32_t budgetBytes, const VekrBox3D* region,
                               VekrKDTreeNode** ppTree, int* pTreeSize, BuildStats* stats,
                               Isa isa);

}  // namespace vekr::kd
