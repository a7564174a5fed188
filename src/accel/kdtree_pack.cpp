#include "accel/kdtree_pack.h"

#include <cstring>

#include "accel/kdnode.h"
#include "core/alloc.h"

namespace vekr::kd {

namespace {

// A subtree of at least this many triangles is measured and written as a
// task of its own.
constexpr int32_t kPackTaskFrom = 4096;

const VekrKDTreeBuildNode* childrenOf(const VekrKDTreeBuildNode& n)
{
    return static_cast<const VekrKDTreeBuildNode*>(n.ptr);
}

// Bytes a subtree takes in the block: 8 per node below its root, and 4 per
// listed triangle number.
struct Sizes {
    int64_t nodes;
    int64_t lists;
};

// The sizes of an inner node's subtree are kept in the third entry of its
// children's record (whose pointer the build leaves unused) for the writer.
void keepSizes(const VekrKDTreeBuildNode& n, const Sizes& s)
{
    auto* slot = const_cast<VekrKDTreeBuildNode*>(childrenOf(n) + 2);
    const uint64_t both = static_cast<uint64_t>(s.nodes) << 32 | static_cast<uint64_t>(s.lists);
    std::memcpy(&slot->ptr, &both, 8);
}

Sizes keptSizes(const VekrKDTreeBuildNode& n)
{
    if (n.kind == kLeafKind) {
        VekrKDTreeNode packed;
        const bool listed = !tryPack(static_cast<const int32_t*>(n.ptr), n.value, packed);
        return Sizes{0, listed ? 4 * static_cast<int64_t>(n.value) : 0};
    }
    uint64_t both;
    std::memcpy(&both, &childrenOf(n)[2].ptr, 8);
    return Sizes{static_cast<int64_t>(both >> 32), static_cast<int64_t>(both & 0xFFFFFFFFu)};
}

// Whether the lower child of an inner node is large enough to be a task.
bool lowerAsTask(const VekrKDTreeBuildNode& n, bool parallel)
{
    return parallel && childrenOf(n)[2].kind >= kPackTaskFrom;
}

// Measures every inner node's subtree, keeping the sizes; a subtree above
// 2^31 bytes saturates (the block cannot be had anyway).
Sizes measure(const VekrKDTreeBuildNode& n, bool parallel)
{
    if (n.kind == kLeafKind) return keptSizes(n);
    const VekrKDTreeBuildNode* c = childrenOf(n);
    Sizes lower, upper;
    if (lowerAsTask(n, parallel)) {
#pragma omp task shared(lower) firstprivate(c, parallel)
        lower = measure(c[0], parallel);
        upper = measure(c[1], parallel);
#pragma omp taskwait
    } else {
        lower = measure(c[0], parallel);
        upper = measure(c[1], parallel);
    }
    constexpr int64_t kMax = 0x7FFFFFFF;
    const int64_t nodes = 16 + lower.nodes + upper.nodes, lists = lower.lists + upper.lists;
    const Sizes s{nodes < kMax ? nodes : kMax, lists < kMax ? lists : kMax};
    keepSizes(n, s);
    return s;
}

// Writes n at `at`: an inner node's children pair at the next free place of
// the node area, a listed leaf's numbers at the next free place of the list
// area.  The places a subtree takes follow from the sizes of the subtrees
// before it, so the two halves of a large one are written at once.
struct Writer {
    char* base;
    bool parallel;

    void write(const VekrKDTreeBuildNode& n, int64_t at, int64_t& nextPair, int64_t& nextList) const
    {
        VekrKDTreeNode* out = reinterpret_cast<VekrKDTreeNode*>(base + at);
        if (n.kind == kLeafKind) {
            const int32_t* tris = static_cast<const int32_t*>(n.ptr);
            const int32_t k = n.value;
            if (tryPack(tris, k, *out)) return;
            *out = makeListedLeaf(k, nextList - at);
            if (k > 0) std::memcpy(base + nextList, tris, 4 * static_cast<size_t>(k));
            nextList += 4 * static_cast<int64_t>(k);
            return;
        }
        const int64_t pair = nextPair;
        nextPair += 16;
        float split;
        std::memcpy(&split, &n.value, 4);
        *out = makeInner(n.kind, split, pair - at);
        const VekrKDTreeBuildNode* c = childrenOf(n);
        if (lowerAsTask(n, parallel)) {
            const Sizes lower = keptSizes(c[0]);
            int64_t upperPair = nextPair + lower.nodes, upperList = nextList + lower.lists;
            const int64_t lowerPair = nextPair, lowerList = nextList;
#pragma omp task firstprivate(c, pair, lowerPair, lowerList)
            {
                int64_t p = lowerPair, l = lowerList;
                write(c[0], pair, p, l);
            }
            write(c[1], pair + 8, upperPair, upperList);
#pragma omp taskwait
            nextPair = upperPair;
            nextList = upperList;
        } else {
            write(c[0], pair, nextPair, nextList);
            write(c[1], pair + 8, nextPair, nextList);
        }
    }
};

}  // namespace

VekStatus packTree(const VekrKDTreeBuildNode& root, VekrKDTreeNode** ppTree, int* pTreeSize,
                   int threads)
{
    const bool parallel = threads > 1 && root.kind != kLeafKind && lowerAsTask(root, true);
    Sizes s{0, 0};
    char* block = nullptr;
    auto run = [&] {
        s = measure(root, parallel);
        const int64_t size = 16 + s.nodes + s.lists;
        if (size > 0x7FFFFFF0) return;
        block = static_cast<char*>(malloc64(static_cast<int32_t>((size >> 3) + 1)));
        if (!block) return;
        std::memset(block + 8, 0, 8);
        int64_t nextPair = 16, nextList = 16 + s.nodes;
        Writer{block, parallel}.write(root, 0, nextPair, nextList);
    };
    if (parallel) {
#pragma omp parallel num_threads(threads)
#pragma omp single
        run();
    } else {
        run();
    }
    if (!block) return vekStsNoMem;
    *ppTree = reinterpret_cast<VekrKDTreeNode*>(block);
    *pTreeSize = static_cast<int>(16 + s.nodes + s.lists);
    return vekStsOk;
}

}  // namespace vekr::kd
