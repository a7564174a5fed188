// Packing of hand-made build trees: the leaf forms, the layout of pairs and
// lists, and the reported size.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "accel/kdtree_buildnode.h"
#include "accel/kdtree_pack.h"
#include "kdtree_check.h"
#include "vekr.h"

namespace {

using vekr::kd::VekrKDTreeBuildNode;

VekrKDTreeBuildNode leaf(std::vector<int32_t>& tris)
{
    return VekrKDTreeBuildNode{vekr::kd::kLeafKind, int32_t(tris.size()), tris.data()};
}

struct Packed {
    VekrKDTreeNode* tree = nullptr;
    int size = 0;
    ~Packed() { vekrKDTreeFree(tree); }
};

// Packs a root leaf and returns its decoded triangles (in visiting order).
std::vector<int32_t> packLeaf(std::vector<int32_t> tris, VekrKDTreeNode& node, int& size)
{
    Packed p;
    EXPECT_EQ(vekr::kd::packTree(leaf(tris), &p.tree, &p.size), vekStsOk);
    node = p.tree[0];
    size = p.size;
    kdcheck::Walk w;
    return kdcheck::leafTriangles(reinterpret_cast<const char*>(p.tree), 0, p.size, w);
}

TEST(KDTreePack, LeafForms)
{
    VekrKDTreeNode n;
    int size;
    // Three triangles: packed only when the gaps fit 15 and 16 bits.
    EXPECT_EQ(packLeaf({10, 40000, 40010}, n, size), (std::vector<int32_t>{10, 40000, 40010}));
    EXPECT_EQ(n.w1, 3);
    EXPECT_EQ(size, 16 + 12);
    // The upper gap must stay below 65536: 65556 - 20 does not, 65555 - 20 does.
    packLeaf({10, 20, 65556}, n, size);
    EXPECT_EQ(n.w1, 3);
    EXPECT_EQ(packLeaf({10, 20, 65555}, n, size), (std::vector<int32_t>{10, 20, 65555}));
    EXPECT_LT(n.w1, 0);
    EXPECT_EQ(packLeaf({30, 10, 20}, n, size), (std::vector<int32_t>{10, 20, 30}));
    EXPECT_EQ(size, 16);
    EXPECT_EQ(uint32_t(n.w1), 0x80000000u | (20u << 2) | 3u);
    EXPECT_EQ(uint32_t(n.w0), 0x80000000u | (10u << 16) | 10u);
    EXPECT_EQ(packLeaf({10, 10 + 32767, 10 + 32767 + 65535}, n, size).size(), 3u);
    EXPECT_LT(n.w1, 0);
    packLeaf({0x20000000, 0x20000001, 0x20000002}, n, size);
    EXPECT_EQ(n.w1, 3) << "middle number needs 29 bits";
    // Two: B is the number below 2^29, visited after A.
    EXPECT_EQ(packLeaf({3, 9}, n, size), (std::vector<int32_t>{9, 3}));
    EXPECT_EQ(uint32_t(n.w1), 0x80000000u | (3u << 2) | 2u);
    EXPECT_EQ(uint32_t(n.w0), 0x80000000u | 9u);
    EXPECT_EQ(packLeaf({0x20000005, 7}, n, size), (std::vector<int32_t>{0x20000005, 7}));
    EXPECT_EQ(uint32_t(n.w1), 0x80000000u | (7u << 2) | 2u);
    packLeaf({0x20000005, 0x20000006}, n, size);
    EXPECT_EQ(n.w1, 2);
    EXPECT_EQ(size, 24);
    // One, and negative numbers.
    EXPECT_EQ(packLeaf({123456789}, n, size), (std::vector<int32_t>{123456789}));
    EXPECT_EQ(uint32_t(n.w1), 0x80000001u);
    packLeaf({-1}, n, size);
    EXPECT_EQ(n.w1, 1);
    packLeaf({4, -2}, n, size);
    EXPECT_EQ(n.w1, 2);
    // Four or more: always listed, right after the root and the zero slot.
    EXPECT_EQ(packLeaf({1, 2, 3, 4}, n, size), (std::vector<int32_t>{1, 2, 3, 4}));
    EXPECT_EQ(n.w0, -16);
    EXPECT_EQ(size, 32);
    // Empty.
    packLeaf({}, n, size);
    EXPECT_LT(n.w0, 0);
    EXPECT_EQ(n.w1, 0);
    EXPECT_EQ(size, 16);
}

TEST(KDTreePack, PairsAndListsDepthFirst)
{
    // root: x at 1.0 -> [A: y at 2.0 -> [L1 {5,6,7,8}, L2 {}], L3 {1,2,3,4,5}]
    std::vector<int32_t> t1{5, 6, 7, 8}, t2{}, t3{1, 2, 3, 4, 5};
    VekrKDTreeBuildNode inner[2], root, pairA[2];
    float one = 1.0f, two = 2.0f;
    pairA[0] = leaf(t1);
    pairA[1] = leaf(t2);
    inner[0] = VekrKDTreeBuildNode{1, 0, pairA};
    std::memcpy(&inner[0].value, &two, 4);
    inner[1] = leaf(t3);
    root = VekrKDTreeBuildNode{0, 0, inner};
    std::memcpy(&root.value, &one, 4);
    Packed p;
    ASSERT_EQ(vekr::kd::packTree(root, &p.tree, &p.size), vekStsOk);
    // 16 root + zero slot, two pairs of 16, lists of 4 and 5 numbers.
    EXPECT_EQ(p.size, 16 + 32 + 36);
    const VekrKDTreeNode* t = p.tree;
    EXPECT_EQ(t[1].w0, 0);
    EXPECT_EQ(t[1].w1, 0);
    EXPECT_EQ(t[0].w0, 16 | 0);
    EXPECT_EQ(t[2].w0, (32 - 16) | 1);  // A at 16, its pair at 32
    float f;
    std::memcpy(&f, &t[2].w1, 4);
    EXPECT_EQ(f, 2.0f);
    EXPECT_EQ(t[4].w1, 4);
    EXPECT_EQ(32 - (t[4].w0 & ~3), 48);  // L1 list right after the node area
    EXPECT_EQ(t[5].w1, 0);
    EXPECT_EQ(t[3].w1, 5);
    EXPECT_EQ(24 - (t[3].w0 & ~3), 64);  // L3 list after L1's
    const kdcheck::Walk w = kdcheck::walkTree(p.tree, p.size);
    EXPECT_TRUE(w.ok) << w.error;
    EXPECT_EQ(w.maxDepth, 2);
}

}  // namespace
