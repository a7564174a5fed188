#include "accel/kdtree_pack.h"

#include <cstring>

#include "accel/kdnode.h"
#include "core/alloc.h"

namespace vekr::kd {

namespace {

const VekrKDTreeBuildNode* childrenOf(const VekrKDTreeBuildNode& n)
{
    return static_cast<const VekrKDTreeBuildNode*>(n.ptr);
}

// Bytes of the nodes below n (8 each) and of the listed numbers in its subtree.
void measure(const VekrKDTreeBuildNode& n, int64_t& nodeBytes, int64_t& listBytes)
{
    if (n.kind == kLeafKind) {
        VekrKDTreeNode packed;
        if (!tryPack(static_cast<const int32_t*>(n.ptr), n.value, packed))
            listBytes += 4 * static_cast<int64_t>(n.value);
        return;
    }
    nodeBytes += 16;
    measure(childrenOf(n)[0], nodeBytes, listBytes);
    measure(childrenOf(n)[1], nodeBytes, listBytes);
}

struct Writer {
    char* base;
    int64_t nextPair;  // next free place of the node area
    int64_t nextList;  // next free place of the list area

    void write(const VekrKDTreeBuildNode& n, int64_t at)
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
        write(childrenOf(n)[0], pair);
        write(childrenOf(n)[1], pair + 8);
    }
};

}  // namespace

VekStatus packTree(const VekrKDTreeBuildNode& root, VekrKDTreeNode** ppTree, int* pTreeSize)
{
    int64_t nodeBytes = 16, listBytes = 0;
    measure(root, nodeBytes, listBytes);
    const int64_t size = nodeBytes + listBytes;
    if (size > 0x7FFFFFF0) return vekStsNoMem;
    char* block = static_cast<char*>(malloc64(static_cast<int32_t>((size >> 3) + 1)));
    if (!block) return vekStsNoMem;
    std::memset(block + 8, 0, 8);
    Writer w{block, 16, nodeBytes};
    w.write(root, 0);
    *ppTree = reinterpret_cast<VekrKDTreeNode*>(block);
    *pTreeSize = static_cast<int>(size);
    return vekStsOk;
}

}  // namespace vekr::kd
