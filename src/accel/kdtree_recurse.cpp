// Split decision for one node and the recursion over its children.
//
// Leaf cost C = n * (dx*dy + dz*(dx + dy)) (n times half the box's surface);
// each axis whose extent exceeds 1e-5 offers its best split (kdtree_cost);
// the node splits on the cheapest axis, ties going to the later one, when
// n * (C - cost) > max(1e-5, q * C).  A node of more than 75 triangles is
// searched only when at least two axes take part.
//
// The keys of large nodes come from the sorted orders their parent handed
// down (kdtree_orders), so a level of the tree costs linear time; small
// nodes, and nodes whose orders did not fit in the spare memory, sort their
// own keys.  Both give the same sorted keys.  Large subtrees are built as
// OpenMP tasks, and the axes of very large nodes are searched as tasks; the
// tree does not depend on which thread built what.
#include "accel/kdtree_recurse.h"

#include <omp.h>

#include <atomic>
#include <cstring>

#include "accel/kdtree_cost.h"
#include "accel/kdtree_orders.h"
#include "accel/kdtree_sort.h"
#include "accel/kdtree_split.h"

namespace vekr::kd {

namespace {

constexpr int32_t kParallelAbove = 75;
constexpr float kMinExtent = 1e-5f;  // 0x3727C5AC
constexpr int32_t kOrdersAbove = 8;      // larger nodes read their keys from orders
constexpr int32_t kTaskFrom = 4096;        // a child this large is built as a task
constexpr int32_t kAxisTasksFrom = 12288;  // a node this large searches its axes, and
                                           // filters its children's orders, as tasks

// The triangle's extent on one axis, kept inside the cell.  A NaN bound
// takes the cell's.
inline float clampLo(float v, float lo) { return v > lo ? v : lo; }
inline float clampHi(float v, float hi) { return v < hi ? v : hi; }

AxisResult searchKeys(int axis, const uint32_t* starts, const uint32_t* ends, int32_t m,
                      int32_t n, const NodeBox& box)
{
    const int o1 = axis == 0 ? 1 : 0, o2 = axis == 2 ? 1 : 2;
    AxisInput in{starts, ends, m, starts + m, n - m, box.lo[axis], box.hi[axis],
                 box.hi[o1] - box.lo[o1], box.hi[o2] - box.lo[o2]};
    return searchAxis(in);
}

// Sorts the node's keys on one axis itself; scratch holds 3n words.
AxisResult searchSorting(const Recursion& rc, int axis, const int32_t* list, int32_t n,
                         const NodeBox& box, uint32_t* scratch)
{
    uint32_t* starts = scratch;
    uint32_t* ends = scratch + n;
    uint32_t* spare = scratch + 2 * static_cast<int64_t>(n);
    const float* B = rc.boxes.bounds[axis];
    const float lo = box.lo[axis], hi = box.hi[axis];
    int32_t m = 0, tail = n;
    for (int32_t i = 0; i < n; ++i) {
        const int32_t id = list[i];
        const uint32_t ks = floatKey(clampLo(B[2 * id], lo));
        const uint32_t ke = floatKey(clampHi(B[2 * id + 1], hi));
        if (ks == ke) {
            starts[--tail] = ks;
        } else {
            starts[m] = ks;
            ends[m] = ke;
            ++m;
        }
    }
    sortKeys(starts, spare, m, n);
    sortKeys(ends, spare, m, n);
    sortKeys(starts + m, spare, n - m, n);
    return searchKeys(axis, starts, ends, m, n, box);
}

// Searches the node on one axis from its orders: straight off the events
// when no triangle lies flat, otherwise on keys read off the orders into
// scratch (2n words).
AxisResult searchOrdered(const Recursion& rc, int axis, const Orders& orders, int32_t n,
                         const NodeBox& box, uint32_t* scratch)
{
    const int o1 = axis == 0 ? 1 : 0, o2 = axis == 2 ? 1 : 2;
    if (orders.f[axis] == 0) {
        return searchEvents(EventInput{orders.events[axis], orders.m[axis],
                                       rc.boxes.bounds[axis], box.lo[axis], box.hi[axis],
                                       box.hi[o1] - box.lo[o1], box.hi[o2] - box.lo[o2]},
                            rc.isa);
    }
    keysFromOrders(rc.boxes, orders, axis, box.lo[axis], box.hi[axis], scratch, scratch + n);
    return searchKeys(axis, scratch, scratch + n, orders.m[axis], n, box);
}

// Writes the children's lists: below when the start lies below the split,
// above when the end lies above it; a triangle in the plane goes to `side`.
// With sideOf, also records per triangle where it went (bit 0 below, bit 1
// above).  The wide blocks first, then the rest one triangle at a time.
void partition(const Recursion& rc, int axis, uint32_t xKey, int32_t side, const int32_t* list,
               int32_t n, const NodeBox& box, int32_t* below, int32_t* above, int32_t& nb,
               int32_t& na, uint8_t* sideOf)
{
    const float* B = rc.boxes.bounds[axis];
    const float lo = box.lo[axis], hi = box.hi[axis];
    int32_t b = 0, a = 0;
    const PartitionInput in{B, list, n, lo, hi, keyFloat(xKey), side};
    for (int32_t i = VEKR_ISA_CALL(rc.isa, partitionBlocks(in, below, b, above, a, sideOf)); i < n; ++i) {
        const int32_t id = list[i];
        const uint32_t ks = floatKey(clampLo(B[2 * id], lo));
        const uint32_t ke = floatKey(clampHi(B[2 * id + 1], hi));
        bool toBelow, toAbove;
        if (ks == ke) {
            toBelow = ks < xKey || (ks == xKey && side == 0);
            toAbove = !toBelow;
        } else {
            toBelow = ks < xKey;
            toAbove = ke > xKey;
        }
        if (toBelow) below[b++] = id;
        if (toAbove) above[a++] = id;
        if (sideOf) sideOf[id] = static_cast<uint8_t>((toBelow ? 1 : 0) | (toAbove ? 2 : 0));
    }
    nb = b;
    na = a;
}

// A block of the spare pool, given back when the owner is done with it.
class PoolBlock {
public:
    PoolBlock(SparePool* pool, int32_t* p, int64_t words) : pool_(pool), p_(p), words_(words) {}
    ~PoolBlock() { release(); }
    PoolBlock(const PoolBlock&) = delete;
    PoolBlock& operator=(const PoolBlock&) = delete;
    void release()
    {
        pool_->give(p_, words_);
        p_ = nullptr;
    }

private:
    SparePool* pool_;
    int32_t* p_;
    int64_t words_;
};

void splitNode(const Recursion& rc, const TaskSpace& space, VekrKDTreeBuildNode& node,
               const NodeBox& box, int32_t depth, int32_t* orderBlock);

// Builds the subtree below `node` as a task with its own space, when the
// pool can give it and fewer than two tasks per thread wait to start; false
// when not (the caller builds it).  A waiting task holds its space, so the
// bound keeps the pool for the children's orders.
bool splitAsTask(const Recursion& rc, VekrKDTreeBuildNode& node, const NodeBox& box,
                 int32_t depth, int32_t* orderBlock)
{
    if (rc.waiting->load(std::memory_order_relaxed) >= 2 * rc.threads) return false;
    const int32_t n = node.value;
    const int64_t scratchWords = 3 * static_cast<int64_t>(n);
    const int64_t words = scratchWords + sideWords(rc.triangles);
    int32_t* block = rc.pool->take(words);
    if (!block) return false;
    rc.waiting->fetch_add(1, std::memory_order_relaxed);
    const Recursion* shared = &rc;
    VekrKDTreeBuildNode* target = &node;
#pragma omp task firstprivate(shared, target, block, words, scratchWords, box, depth, orderBlock)
    {
        shared->waiting->fetch_sub(1, std::memory_order_relaxed);
        const TaskSpace own{reinterpret_cast<uint32_t*>(block), scratchWords,
                            reinterpret_cast<uint8_t*>(block + scratchWords)};
        splitNode(*shared, own, *target, box, depth, orderBlock);
        shared->pool->give(block, words);
    }
    return true;
}

void splitNode(const Recursion& rc, const TaskSpace& space, VekrKDTreeBuildNode& node,
               const NodeBox& box, int32_t depth, int32_t* orderBlock)
{
    const int32_t n = node.value;
    PoolBlock ownOrders(rc.pool, orderBlock, orderWords(n));
    if (rc.store->failed() != vekStsOk) return;
    if (depth >= rc.depthLimit || n == 0) return;
    const int32_t* list = static_cast<const int32_t*>(node.ptr);

    const float ex[3] = {box.hi[0] - box.lo[0], box.hi[1] - box.lo[1], box.hi[2] - box.lo[2]};
    const double dx = ex[0], dy = ex[1], dz = ex[2];
    const double C = static_cast<double>(n) * (dx * dy + dz * (dx + dy));

    // Every axis cost is at least 0, so the gain is at most C: a node with
    // n * C <= max(1e-5, q * C) can never split, whatever the search finds.
    const double qC = static_cast<double>(rc.q) * C;
    const double minT = static_cast<double>(1e-5f);
    const double T = qC > minT ? qC : minT;
    if (!(static_cast<double>(n) * C > T)) return;

    int axes[3];
    int taking = 0;
    for (int a = 0; a < 3; ++a)
        if (ex[a] > kMinExtent) axes[taking++] = a;
    // One axis alone is not searched in a large node: it stays a leaf.
    if (n > kParallelAbove && taking < 2) return;

    AxisResult res[3];
    for (int a = 0; a < 3; ++a) res[a] = AxisResult{C, 0u, 0, 0, 0};
    const bool ordered = orderBlock != nullptr;
    const Orders orders = ordered ? ordersIn(orderBlock, n) : Orders{};
    const int64_t perAxis = (ordered ? 2 : 3) * static_cast<int64_t>(n);
    auto search = [&](int i, uint32_t* scratch) {
        res[axes[i]] = ordered ? searchOrdered(rc, axes[i], orders, n, box, scratch)
                               : searchSorting(rc, axes[i], list, n, box, scratch);
    };
    if (rc.threads > 1 && n >= kAxisTasksFrom && space.scratchWords >= taking * perAxis) {
#pragma omp taskgroup
        {
            for (int i = 1; i < taking; ++i) {
#pragma omp task firstprivate(i) shared(search)
                search(i, space.scratch + i * perAxis);
            }
            search(0, space.scratch);
        }
    } else {
        for (int i = 0; i < taking; ++i) search(i, space.scratch);
    }

    int best;
    if (res[0].cost < res[1].cost && res[0].cost < res[2].cost)
        best = 0;
    else if (res[1].cost < res[2].cost)
        best = 1;
    else
        best = 2;

    const double gain = C - res[best].cost;
    if (!(static_cast<double>(n) * gain > T)) return;

    const AxisResult& R = res[best];
    // One 48-byte build record holds the pair of children and their counts.
    const int thread = omp_get_thread_num();
    auto* record = static_cast<VekrKDTreeBuildNode*>(rc.store->take(kBuildRecordBytes, thread));
    int32_t* below = R.nBelow > 0 ? static_cast<int32_t*>(rc.store->take(4u * R.nBelow, thread)) : nullptr;
    int32_t* above = R.nAbove > 0 ? static_cast<int32_t*>(rc.store->take(4u * R.nAbove, thread)) : nullptr;
    if (!record || (R.nBelow > 0 && !below) || (R.nAbove > 0 && !above)) return;

    int32_t nb = 0, na = 0;
    partition(rc, best, R.posKey, R.side, list, n, box, below, above, nb, na,
              ordered ? space.side : nullptr);
    rc.store->give(const_cast<int32_t*>(list), 4u * static_cast<size_t>(n), thread);

    const float split = keyFloat(R.posKey);
    node.kind = best;
    std::memcpy(&node.value, &split, 4);
    node.ptr = record;
    record[0] = VekrKDTreeBuildNode{kLeafKind, nb, below};
    record[1] = VekrKDTreeBuildNode{kLeafKind, na, above};
    record[2] = VekrKDTreeBuildNode{nb, na, nullptr};  // the lists' sizes, for the charges

    // The children's orders, filtered from this node's, which are then done.
    int32_t* childOrders[2] = {nullptr, nullptr};
    if (ordered && depth + 1 < rc.depthLimit) {
        const int32_t counts[2] = {nb, na};
        for (int c = 0; c < 2; ++c)
            if (counts[c] > kOrdersAbove) childOrders[c] = rc.pool->take(orderWords(counts[c]));
        auto filter = [&](int axis) {
            filterOrders(orders, axis, space.side, childOrders[0], nb, childOrders[1], na, rc.isa);
        };
#pragma omp taskgroup
        {
#pragma omp task shared(filter) if (rc.threads > 1 && n >= kAxisTasksFrom)
            filter(0);
#pragma omp task shared(filter) if (rc.threads > 1 && n >= kAxisTasksFrom)
            filter(1);
            filter(2);
        }
    }
    ownOrders.release();

    NodeBox lower = box, upper = box;
    lower.hi[best] = split;
    upper.lo[best] = split;
    if (rc.threads > 1 && nb >= kTaskFrom && splitAsTask(rc, record[0], lower, depth + 1, childOrders[0])) {
        splitNode(rc, space, record[1], upper, depth + 1, childOrders[1]);
        return;
    }
    splitNode(rc, space, record[0], lower, depth + 1, childOrders[0]);
    splitNode(rc, space, record[1], upper, depth + 1, childOrders[1]);
}

}  // namespace

float splitFactor(float threshold) noexcept
{
    return static_cast<float>((10.0 - 9.0 * static_cast<double>(threshold)) * 0.5057569742202759);
}

void buildTree(const Recursion& rc, const TaskSpace& space, VekrKDTreeBuildNode& root,
               const NodeBox& box)
{
    const int32_t n = root.value;
    const auto* list = static_cast<const int32_t*>(root.ptr);
    int32_t* orders = nullptr;
    if (n > kOrdersAbove && rc.depthLimit > 0 && orderable(rc.boxes, list, n))
        orders = rc.pool->take(orderWords(n));
    // The root's orders: one sort per axis, the axes shared by up to three
    // threads, the first using the task scratch and the others blocks of
    // the pool.  Without room for one sort the root sorts its own keys.
    auto sortAxes = [&] {
        if (!orders) return;
        const int64_t slot = sortEventsScratch(n);
        if (space.scratchWords < slot) {
            rc.pool->give(orders, orderWords(n));
            orders = nullptr;
            return;
        }
        uint32_t* scratch[3] = {space.scratch, nullptr, nullptr};
        int workers = 1;
        while (workers < 3 && workers < rc.threads &&
               (scratch[workers] = reinterpret_cast<uint32_t*>(rc.pool->take(slot))))
            ++workers;
        std::atomic<int> next{0};
        auto work = [&](uint32_t* own) {
            for (int a; (a = next.fetch_add(1, std::memory_order_relaxed)) < 3;)
                sortEvents(rc.boxes, list, n, a, box.lo[a], box.hi[a], orders, own);
        };
#pragma omp taskgroup
        {
            for (int w = 1; w < workers; ++w) {
#pragma omp task firstprivate(w) shared(work, scratch)
                work(scratch[w]);
            }
            work(scratch[0]);
        }
        for (int w = 1; w < workers; ++w) rc.pool->give(scratch[w], slot);
    };
    if (rc.threads > 1) {
#pragma omp parallel num_threads(rc.threads)
#pragma omp single
        {
            sortAxes();
            splitNode(rc, space, root, box, 0, orders);
        }
    } else {
        sortAxes();
        splitNode(rc, space, root, box, 0, orders);
    }
}

}  // namespace vekr::kd
