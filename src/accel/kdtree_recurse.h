// The recursive split of the tree under construction.
#pragma once

#include <cstdint>

#include "accel/kdtree_boxes.h"
#include "accel/kdtree_budget.h"
#include "accel/kdtree_buildnode.h"

namespace vekr::kd {

struct NodeBox {
    float lo[3];
    float hi[3];
};

struct Recursion {
    TriBoxes boxes;
    uint32_t* axisKeys[3][3];  // per axis: starts (flats at the tail), ends, sort scratch
    WorkUnits* units;
    BuildStats* stats;
    float q;             // split-acceptance factor
    int32_t depthLimit;  // a node at this depth stays a leaf
};

// q from the caller's threshold: (10 - 9 * threshold) * 0.5057569742202759
// in double precision, rounded to float.
float splitFactor(float threshold) noexcept;

// Splits `node`, a leaf of n triangles (its list in node.ptr) whose cell is
// box, at depth `depth`, and recursively its children.
VekStatus splitNode(const Recursion& rc, VekrKDTreeBuildNode& node, const NodeBox& box,
                    int32_t depth);

}  // namespace vekr::kd
