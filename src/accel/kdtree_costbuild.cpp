// The cost-driven build: budget test, charged working memory, the root leaf
// of every (kept) triangle, the recursive split, packing.
//
// Charges, in 32 bits: the build state (400 bytes), twelve per-triangle
// arrays of 4t bytes, a triangle block of (36t rounded down to 16 MB) + 16 MB,
// a vertex block of (48v rounded down to 16 MB) + 16 MB, and 16 MB + 40 for
// every working unit of records and lists (kdtree_budget).  The builder
// allocates nine of the arrays as key scratch and 24t bytes of the triangle
// block as per-triangle boxes, and reads the caller's vertices in place; the
// rest of what the fixed part is charged is its spare pool, which holds the
// sorted orders of large nodes and the scratch of subtree tasks.  So its
// real use stays within what it is charged.
#include <cmath>
#include <memory>

#include "accel/kdtree_boxes.h"
#include "accel/kdtree_budget.h"
#include "accel/kdtree_build.h"
#include "accel/kdtree_pack.h"
#include "accel/kdtree_recurse.h"
#include "core/alloc.h"
#include "vekcore.h"

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
                               VekrKDTreeNode** ppTree, int* pTreeSize, BuildStats* stats,
                               Isa isa)
{
    const uint32_t t = static_cast<uint32_t>(triangleCount);
    const uint32_t v = static_cast<uint32_t>(vertexCount);
    if (budgetBytes < 84u * t + 12u * v + kFixedExtra) return vekStsNoMem;

    Budget budget(budgetBytes, stats);
    const uint32_t fixedCharges[] = {kStateBytes, 4u * t, 4u * t, 4u * t, 4u * t, 4u * t, 4u * t,
                                     4u * t, 4u * t, 4u * t, 4u * t, 4u * t, 4u * t,
                                     ((36u * t) & kBlockMask) + kUnitBytes,
                                     ((48u * v) & kBlockMask) + kUnitBytes};
    int64_t fixed = 0;
    for (uint32_t c : fixedCharges) {
        budget.charge(c);
        fixed += c;
    }
    if (t == 0) {
        const VekrKDTreeBuildNode empty{kLeafKind, 0, nullptr};
        return packTree(empty, ppTree, pTreeSize);
    }

    // Key scratch (9t words) and the per-triangle boxes (6t floats).
    const int64_t keyCount = 9 * static_cast<int64_t>(t);
    const int64_t boxFloats = 6 * static_cast<int64_t>(t);
    if (keyCount > 0x7FFFFFFF) return vekStsNoMem;
    Owned keys(malloc32(static_cast<int32_t>(keyCount)));
    Owned boxesBlock(malloc32(static_cast<int32_t>(boxFloats)));
    if (!keys || !boxesBlock) return vekStsNoMem;
    Recursion rc{};
    float* b = static_cast<float*>(boxesBlock.get());
    for (int a = 0; a < 3; ++a) {
        rc.boxes.bounds[a] = b + 2 * a * static_cast<size_t>(t);
    }

    rc.threads = ownGetNumThreads() > 1 ? ownGetNumThreads() : 1;
    rc.isa = isa;
    // Records and lists may take what the budget has left for units; each
    // thread's partly used block comes out of the spare memory.
    NodeStore store(rc.threads, budget.remaining());
    SparePool pool(fixed - 4 * (keyCount + boxFloats) - static_cast<int64_t>(rc.threads) * NodeStore::kBlockBytes);
    std::atomic<int> waiting{0};
    rc.waiting = &waiting;
    rc.store = &store;
    rc.pool = &pool;
    rc.triangles = triangleCount;
    rc.q = splitFactor(threshold);
    rc.depthLimit = depthLimit;

    int32_t* list = static_cast<int32_t*>(store.take(4u * static_cast<size_t>(t), 0));
    if (!list) return store.failed();
    const int32_t kept = triangleBoxes(vertices, triangles, triangleCount, region, rc.boxes, list,
                                       rc.threads);
    VekrKDTreeBuildNode root{kLeafKind, kept, list};
    // The root cell is the box of every kept triangle (NaN bounds ignored).
    NodeBox box;
    for (int a = 0; a < 3; ++a) {
        float lo = INFINITY, hi = -INFINITY;
        for (int32_t i = 0; i < kept; ++i) {
            const float l = rc.boxes.lo(a, list[i]), h = rc.boxes.hi(a, list[i]);
            lo = l < lo ? l : lo;
            hi = h > hi ? h : hi;
        }
        box.lo[a] = lo;
        box.hi[a] = hi;
    }
    // The side bytes of the first task at the end of the key scratch.
    const int64_t side = sideWords(triangleCount);
    uint32_t* scratch = static_cast<uint32_t*>(keys.get());
    const TaskSpace space{scratch, keyCount - side,
                          reinterpret_cast<uint8_t*>(scratch + keyCount - side)};
    buildTree(rc, space, root, box);
    if (store.failed() != vekStsOk) return store.failed();
    if (!chargeNodes(budget, 4u * static_cast<size_t>(t), root, store.requested()))
        return vekStsMemBudget;
    return packTree(root, ppTree, pTreeSize, rc.threads);
}

VekStatus buildCostDriven(const float* vertices, const int* triangles, int32_t vertexCount,
                          int32_t triangleCount, float threshold, int32_t depthLimit,
                          uint32_t budgetBytes, const VekrBox3D* region,
                          VekrKDTreeNode** ppTree, int* pTreeSize)
{
    return buildCostDrivenStats(vertices, triangles, vertexCount, triangleCount, threshold,
                                depthLimit, budgetBytes, region, ppTree, pTreeSize, nullptr,
                                bestIsa());
}

}  // namespace vekr::kd
