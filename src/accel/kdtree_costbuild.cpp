// The cost-driven build: budget test, charged working memory, the root leaf
// of every (kept) triangle, the recursive split, packing.
//
// Charges, in 32 bits: the build state (400 bytes), twelve per-triangle
// arrays of 4t bytes, a triangle block of (36t rounded down to 16 MB) + 16 MB,
// a vertex block of (48v rounded down to 16 MB) + 16 MB, and 16 MB + 40 for
// every working unit.  The builder allocates only what it uses of the fixed
// part (nine of the arrays as sort keys, 24t bytes of the triangle block as
// per-triangle boxes, and for large meshes 192 KB of its remaining 12t bytes
// as radix digit counts; it reads the caller's vertices in place), so its
// real use stays below what it is charged.
#include <cmath>
#include <memory>

#include "accel/kdtree_boxes.h"
#include "accel/kdtree_budget.h"
#include "accel/kdtree_build.h"
#include "accel/kdtree_pack.h"
#include "accel/kdtree_recurse.h"
#include "core/alloc.h"

namespace vekr::kd {

namespace {

constexpr uint32_t kStateBytes = 400;
constexpr uint32_t kFixedExtra = 0x20001E0u;  // 32 MB + 480 bytes
constexpr uint32_t kBlockMask = ~(kUnitBytes - 1u);

struct FreeBlock {
    void operator()(void* p) const { freeBlock(p); }
};
using Owned = std::unique_ptr<void, FreeBlock>;

}  // namespace

VekStatus buildCostDrivenStats(const float* vertices, const int* triangles, int32_t vertexCount,
                               int32_t triangleCount, float threshold, int32_t depthLimit,
                               uint32_t budgetBytes, const VekrBox3D* region,
                               VekrKDTreeNode** ppTree, int* pTreeSize, BuildStats* stats)
{
    const uint32_t t = static_cast<uint32_t>(triangleCount);
    const uint32_t v = static_cast<uint32_t>(vertexCount);
    if (budgetBytes < 84u * t + 12u * v + kFixedExtra) return vekStsNoMem;

    Budget budget(budgetBytes, stats);
    budget.charge(kStateBytes);
    for (int i = 0; i < 12; ++i) budget.charge(4u * t);
    budget.charge(((36u * t) & kBlockMask) + kUnitBytes);
    budget.charge(((48u * v) & kBlockMask) + kUnitBytes);

    // Sort keys: per axis starts (flats at the tail), ends, scratch.
    Owned keys, boxesBlock;
    Recursion rc{};
    if (t > 0) {
        const int64_t keyCount = 9 * static_cast<int64_t>(t);
        const int64_t boxFloats = 6 * static_cast<int64_t>(t);
        if (keyCount > 0x7FFFFFFF) return vekStsNoMem;
        const bool wide = t >= static_cast<uint32_t>(kWideDigitsFrom);
        const int64_t wideWords = wide ? static_cast<int64_t>(kWideCountsBytes / 4) : 0;
        keys.reset(malloc32(static_cast<int32_t>(keyCount)));
        boxesBlock.reset(malloc32(static_cast<int32_t>(boxFloats + wideWords)));
        if (!keys || !boxesBlock) return vekStsNoMem;
        uint32_t* k = static_cast<uint32_t*>(keys.get());
        float* b = static_cast<float*>(boxesBlock.get());
        for (int a = 0; a < 3; ++a) {
            for (int j = 0; j < 3; ++j) rc.axisKeys[a][j] = k + (3 * a + j) * static_cast<size_t>(t);
            rc.boxes.lo[a] = b + a * static_cast<size_t>(t);
            rc.boxes.hi[a] = b + (3 + a) * static_cast<size_t>(t);
            // Two Radix24Counts per axis, a sixth of the counts area each.
            rc.wideCounts[a] = wide ? b + boxFloats + a * (kWideCountsBytes / 3 / sizeof(float))
                                    : nullptr;
        }
    }

    WorkUnits units(budget);
    rc.units = &units;
    rc.stats = stats;
    rc.q = splitFactor(threshold);
    rc.depthLimit = depthLimit;

    VekrKDTreeBuildNode root{kLeafKind, 0, nullptr};
    if (stats) stats->nodes = 1;
    NodeBox box{{0, 0, 0}, {0, 0, 0}};
    if (t > 0) {
        int32_t* list = static_cast<int32_t*>(units.take(4u * static_cast<size_t>(t)));
        if (!list) return units.outOfMemory() ? vekStsNoMem : vekStsMemBudget;
        const int32_t kept =
            triangleBoxes(vertices, triangles, triangleCount, region, rc.boxes, list);
        root.value = kept;
        root.ptr = list;
        // The root cell is the box of every kept triangle (NaN bounds ignored).
        for (int a = 0; a < 3; ++a) {
            float lo = INFINITY, hi = -INFINITY;
            const float* bl = rc.boxes.lo[a];
            const float* bh = rc.boxes.hi[a];
            for (int32_t i = 0; i < kept; ++i) {
                const int32_t id = list[i];
                lo = bl[id] < lo ? bl[id] : lo;
                hi = bh[id] > hi ? bh[id] : hi;
            }
            box.lo[a] = lo;
            box.hi[a] = hi;
        }
        const VekStatus st = splitNode(rc, root, box, 0);
        if (st != vekStsOk) return st;
    }
    return packTree(root, ppTree, pTreeSize);
}

VekStatus buildCostDriven(const float* vertices, const int* triangles, int32_t vertexCount,
                          int32_t triangleCount, float threshold, int32_t depthLimit,
                          uint32_t budgetBytes, const VekrBox3D* region,
                          VekrKDTreeNode** ppTree, int* pTreeSize)
{
    return buildCostDrivenStats(vertices, triangles, vertexCount, triangleCount, threshold,
                                depthLimit, budgetBytes, region, ppTree, pTreeSize, nullptr);
}

}  // namespace vekr::kd
