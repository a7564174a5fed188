// vekrKDTreeBuildAlloc argument checks (their order and codes), the layout of
// the single-leaf tree and vekrKDTreeFree.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "testutil.h"
#include "vekr.h"

namespace {

VekrKDTreeNode* const kUnset = reinterpret_cast<VekrKDTreeNode*>(uintptr_t{0x1234});

VekrKDTreeBuildParams simple(int depth = 0)
{
    return VekrKDTreeBuildParams{VEKR_KDTREE_SIMPLE_MAGIC, depth, 0.0f, 0u, nullptr};
}

VekrKDTreeBuildParams sah(int depth, float thr, uint32_t mb)
{
    return VekrKDTreeBuildParams{VEKR_KDTREE_SAH_MAGIC, depth, thr, mb, nullptr};
}

struct Call {
    VekrKDTreeNode* tree = kUnset;
    int size = -77;
    VekStatus run(const vekr::test::Mesh& m, const VekrKDTreeBuildParams* p, int nv = -1000,
                  int nt = -1000)
    {
        if (nv == -1000) nv = m.vertexCount();
        if (nt == -1000) nt = m.triangleCount();
        return vekrKDTreeBuildAlloc(&tree, m.vertices.data(), m.triangles.data(), nv, nt, &size, p);
    }
    bool untouched() const { return tree == kUnset && size == -77; }
    ~Call()
    {
        if (tree != kUnset) vekrKDTreeFree(tree);
    }
};

void expectSingleLeaf(const VekrKDTreeNode* tree, int size, int n)
{
    ASSERT_EQ(size, 16 + 4 * n);
    EXPECT_EQ(tree[0].w0, -16);
    EXPECT_EQ(static_cast<uint32_t>(tree[0].w0), 0xFFFFFFF0u);
    EXPECT_EQ(tree[0].w1, n);
    EXPECT_EQ(tree[1].w0, 0);
    EXPECT_EQ(tree[1].w1, 0);
    const int32_t* list = reinterpret_cast<const int32_t*>(tree + 2);
    for (int i = 0; i < n; ++i) ASSERT_EQ(list[i], i);
}

TEST(KDTreeSingleLeaf, LayoutForManyCounts)
{
    // The mesh is never read: one vertex and one record serve every count.
    const float v[3] = {0, 0, 0};
    const int t[4] = {0, 0, 0, 0};
    for (int n : {0, 1, 2, 3, 4, 5, 7, 8, 9, 31, 1000, 4099}) {
        VekrKDTreeNode* tree = nullptr;
        int size = 0;
        const auto p = simple(17);
        ASSERT_EQ(vekrKDTreeBuildAlloc(&tree, v, t, 1, n, &size, &p), vekStsOk);
        expectSingleLeaf(tree, size, n);
        vekrKDTreeFree(tree);
    }
}

TEST(KDTreeFree, AcceptsNull)
{
    vekrKDTreeFree(nullptr);
}

}  // namespace
