// The recursive split of the tree under construction.
#pragma once

#include <cstddef>
#include <cstdint>

#include "accel/kdtree_boxes.h"
#include "accel/kdtree_budget.h"
#include "accel/kdtree_buildnode.h"

namespace vekr::kd {

struct NodeBox {
    float lo[3];
    float hi[3];
};

// Nodes of at least this many triangles may sort by two 12-bit digits.  The
// digit counts (six Radix24Counts, 192 KB) then live in the triangle block,
// after the boxes: 12t bytes of it are free, and 12 * 16384 is 192 KB.
constexpr int32_t kWideDigitsFrom = 16384;
constexpr size_t kWideCountsBytes = 6 * 2 * 4096 * sizeof(uint32_t);

struct Recursion {
    TriBoxes boxes;
    uint32_t* axisKeys[3][3];  // per axis: starts (flats at the tail), ends, sort scratch
    void* wideCounts[3];       // per axis: two Radix24Counts (starts, ends)
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
