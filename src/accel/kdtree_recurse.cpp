// Split decision for one node and the recursion over its children.
//
// Leaf cost C = n * (dx*dy + dz*(dx + dy)) (n times half the box's surface);
// each axis whose extent exceeds 1e-5 offers its best split (kdtree_cost);
// the node splits on the cheapest axis, ties going to the later one, when
// n * (C - cost) > max(1e-5, q * C).  Nodes of more than 75 triangles search
// their axes in a parallel region of one thread per axis, and only when at
// least two axes take part; smaller nodes search on the calling thread.
#include "accel/kdtree_recurse.h"

#include <cstring>

#include "accel/kdtree_cost.h"
#include "accel/kdtree_sort.h"
#include "core/parallel.h"

namespace vekr::kd {

namespace {

constexpr int32_t kParallelAbove = 75;
constexpr float kMinExtent = 1e-5f;  // 0x3727C5AC

// The triangle's extent on one axis, kept inside the cell.  A NaN bound
// takes the cell's.
inline float clampLo(float v, float lo) { return v > lo ? v : lo; }
inline float clampHi(float v, float hi) { return v < hi ? v : hi; }

// Sorted keys of the node's triangles on one axis, then the cost search.
AxisResult searchOneAxis(const Recursion& rc, int axis, const int32_t* list, int32_t n,
                         const NodeBox& box)
{
    uint32_t* starts = rc.axisKeys[axis][0];
    uint32_t* ends = rc.axisKeys[axis][1];
    uint32_t* scratch = rc.axisKeys[axis][2];
    const float* bl = rc.boxes.lo[axis];
    const float* bh = rc.boxes.hi[axis];
    const float lo = box.lo[axis], hi = box.hi[axis];
    int32_t m = 0, tail = n;
    // Every key of the node lies between the keys of its faces; when those
    // differ only in the low 24 bits, a large node sorts in two 12-bit passes.
    const bool narrow = (floatKey(lo) ^ floatKey(hi)) < (1u << 24);
    if (n >= kWideDigitsFrom && narrow) {
        auto* counts = static_cast<Radix24Counts*>(rc.wideCounts[axis]);
        Radix24Counts& cs = counts[0];
        Radix24Counts& ce = counts[1];
        cs.clear();
        ce.clear();
        for (int32_t i = 0; i < n; ++i) {
            const int32_t id = list[i];
            const uint32_t ks = floatKey(clampLo(bl[id], lo)), ke = floatKey(clampHi(bh[id], hi));
            if (ks == ke) {
                starts[--tail] = ks;
            } else {
                starts[m] = ks;
                ends[m] = ke;
                cs.add(ks);
                ce.add(ke);
                ++m;
            }
        }
        radixSort24Counted(starts, scratch, m, cs);
        radixSort24Counted(ends, scratch, m, ce);
        radixSortKeys(starts + m, scratch, n - m);
    } else if (n > kRadixAbove) {
        // The radix sort's digit counts are taken while the keys are made.
        RadixCounts cs, ce;
        cs.clear();
        ce.clear();
        for (int32_t i = 0; i < n; ++i) {
            const int32_t id = list[i];
            const uint32_t ks = floatKey(clampLo(bl[id], lo)), ke = floatKey(clampHi(bh[id], hi));
            if (ks == ke) {
                starts[--tail] = ks;
            } else {
                starts[m] = ks;
                ends[m] = ke;
                cs.add(ks);
                ce.add(ke);
                ++m;
            }
        }
        radixSortCounted(starts, scratch, m, cs);
        radixSortCounted(ends, scratch, m, ce);
        radixSortKeys(starts + m, scratch, n - m);
    } else {
        for (int32_t i = 0; i < n; ++i) {
            const int32_t id = list[i];
            const uint32_t ks = floatKey(clampLo(bl[id], lo)), ke = floatKey(clampHi(bh[id], hi));
            if (ks == ke) {
                starts[--tail] = ks;
            } else {
                starts[m] = ks;
                ends[m] = ke;
                ++m;
            }
        }
        smallSortKeys(starts, m);
        smallSortKeys(ends, m);
        smallSortKeys(starts + m, n - m);
    }

    const int o1 = axis == 0 ? 1 : 0, o2 = axis == 2 ? 1 : 2;
    const int32_t f = n - m;
    AxisInput in{starts, ends, m, starts + m, f, lo, hi,
                 box.hi[o1] - box.lo[o1], box.hi[o2] - box.lo[o2]};
    return searchAxis(in);
}

// Writes the children's lists: below when the start lies below the split,
// above when the end lies above it; a triangle in the plane goes to `side`.
void partition(const Recursion& rc, int axis, uint32_t xKey, int32_t side, const int32_t* list,
               int32_t n, const NodeBox& box, int32_t* below, int32_t* above, int32_t& nb,
               int32_t& na)
{
    const float* bl = rc.boxes.lo[axis];
    const float* bh = rc.boxes.hi[axis];
    const float lo = box.lo[axis], hi = box.hi[axis];
    int32_t b = 0, a = 0;
    for (int32_t i = 0; i < n; ++i) {
        const int32_t id = list[i];
        const uint32_t ks = floatKey(clampLo(bl[id], lo));
        const uint32_t ke = floatKey(clampHi(bh[id], hi));
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
    }
    nb = b;
    na = a;
}

}  // namespace

float splitFactor(float threshold) noexcept
{
    return static_cast<float>((10.0 - 9.0 * static_cast<double>(threshold)) * 0.5057569742202759);
}

VekStatus splitNode(const Recursion& rc, VekrKDTreeBuildNode& node, const NodeBox& box,
                    int32_t depth)
{
    const int32_t n = node.value;
    if (depth >= rc.depthLimit || n == 0) return vekStsOk;
    const int32_t* list = static_cast<const int32_t*>(node.ptr);

    const float ex[3] = {box.hi[0] - box.lo[0], box.hi[1] - box.lo[1], box.hi[2] - box.lo[2]};
    const double dx = ex[0], dy = ex[1], dz = ex[2];
    const double C = static_cast<double>(n) * (dx * dy + dz * (dx + dy));

    // Every axis cost is at least 0, so the gain is at most C: a node with
    // n * C <= max(1e-5, q * C) can never split, whatever the search finds.
    const double qC = static_cast<double>(rc.q) * C;
    const double minT = static_cast<double>(1e-5f);
    const double T = qC > minT ? qC : minT;
    if (!(static_cast<double>(n) * C > T)) return vekStsOk;

    int axes[3];
    int taking = 0;
    for (int a = 0; a < 3; ++a)
        if (ex[a] > kMinExtent) axes[taking++] = a;

    if (rc.stats && (taking >= 2 || (taking == 1 && n <= kParallelAbove))) {
        rc.stats->searchedTriangles += n;
        if (n > kRadixAbove) rc.stats->radixTriangles += n;
    }
    AxisResult res[3];
    for (int a = 0; a < 3; ++a) res[a] = AxisResult{C, 0u, 0, 0, 0};
    if (n > kParallelAbove) {
        // One axis alone is not searched: the node stays a leaf.
        if (taking < 2) return vekStsOk;
        if (rc.stats) ++rc.stats->parallelSearches;
        parallelRegion(taking, [&](int thread, int team) {
            const Range r = staticBlock(taking, thread, team);
            for (int i = r.begin; i < r.end; ++i)
                res[axes[i]] = searchOneAxis(rc, axes[i], list, n, box);
        });
    } else {
        for (int i = 0; i < taking; ++i) res[axes[i]] = searchOneAxis(rc, axes[i], list, n, box);
    }

    int best;
    if (res[0].cost < res[1].cost && res[0].cost < res[2].cost)
        best = 0;
    else if (res[1].cost < res[2].cost)
        best = 1;
    else
        best = 2;

    const double gain = C - res[best].cost;
    if (!(static_cast<double>(n) * gain > T)) return vekStsOk;

    const AxisResult& R = res[best];
    // One 48-byte build record holds the pair of children.
    auto* record = static_cast<VekrKDTreeBuildNode*>(rc.units->take(kBuildRecordBytes));
    int32_t* below = R.nBelow > 0 ? static_cast<int32_t*>(rc.units->take(4u * R.nBelow)) : nullptr;
    int32_t* above = R.nAbove > 0 ? static_cast<int32_t*>(rc.units->take(4u * R.nAbove)) : nullptr;
    if (!record || (R.nBelow > 0 && !below) || (R.nAbove > 0 && !above))
        return rc.units->outOfMemory() ? vekStsNoMem : vekStsMemBudget;

    int32_t nb = 0, na = 0;
    partition(rc, best, R.posKey, R.side, list, n, box, below, above, nb, na);

    const float split = keyFloat(R.posKey);
    node.kind = best;
    std::memcpy(&node.value, &split, 4);
    node.ptr = record;
    record[0] = VekrKDTreeBuildNode{kLeafKind, nb, below};
    record[1] = VekrKDTreeBuildNode{kLeafKind, na, above};
    if (rc.stats) rc.stats->nodes += 2;

    NodeBox lower = box, upper = box;
    lower.hi[best] = split;
    upper.lo[best] = split;
    const VekStatus st = splitNode(rc, record[0], lower, depth + 1);
    if (st != vekStsOk) return st;
    return splitNode(rc, record[1], upper, depth + 1);
}

}  // namespace vekr::kd
