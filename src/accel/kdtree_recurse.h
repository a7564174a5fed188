// The recursive split of the tree under construction.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "accel/kdtree_boxes.h"
#include "accel/kdtree_budget.h"
#include "accel/kdtree_buildnode.h"
#include "core/isa.h"

namespace vekr::kd {

struct NodeBox {
    float lo[3];
    float hi[3];
};

// What every node of one build shares (read only while it runs).
struct Recursion {
    TriBoxes boxes;
    NodeStore* store;  // records and leaf lists
    SparePool* pool;   // orders of the children and the subtree tasks' scratch
    int32_t triangles; // t: the size of a side array
    float q;           // split-acceptance factor
    int32_t depthLimit;  // a node at this depth stays a leaf
    int threads;       // threads of the build; 1: no tasks
    std::atomic<int>* waiting;  // subtree tasks made and not yet started
    Isa isa;           // level of the cost sweep's wide blocks
};

// What one task owns while it builds a subtree: key scratch for the nodes
// of the subtree (3 words per triangle of its root per axis searched at
// once) and one side byte per triangle of the mesh.
struct TaskSpace {
    uint32_t* scratch;
    int64_t scratchWords;
    uint8_t* side;
};

// Words of a side array for t triangles: t bytes, and 3 more that the wide
// filter's 4-byte reads may touch.
constexpr int64_t sideWords(int32_t t) { return (static_cast<int64_t>(t) + 6) / 4; }

// q from the caller's threshold: (10 - 9 * threshold) * 0.5057569742202759
// in double precision, rounded to float.
float splitFactor(float threshold) noexcept;

// Builds the tree below `root`, a leaf of n triangles (its list in root.ptr)
// whose cell is box: on rc.threads threads, subtrees as tasks.  space holds
// scratch for 9n words.  Failures are left in rc.store->failed().
void buildTree(const Recursion& rc, const TaskSpace& space, VekrKDTreeBuildNode& root,
               const NodeBox& box);

}  // namespace vekr::kd
