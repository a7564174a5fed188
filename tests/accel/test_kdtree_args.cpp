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

TEST(KDTreeArgs, NullPointersComeFirst)
{
    const auto m = vekr::test::randomTriangles(4, 1);
    VekrKDTreeNode* tree = kUnset;
    int size = -77;
    const auto p = simple();
    const float* v = m.vertices.data();
    const int* t = m.triangles.data();
    EXPECT_EQ(vekrKDTreeBuildAlloc(nullptr, v, t, -1, -1, &size, &p), vekStsNullPtr);
    EXPECT_EQ(vekrKDTreeBuildAlloc(&tree, nullptr, t, -1, -1, &size, &p), vekStsNullPtr);
    EXPECT_EQ(vekrKDTreeBuildAlloc(&tree, v, nullptr, -1, -1, &size, &p), vekStsNullPtr);
    EXPECT_EQ(vekrKDTreeBuildAlloc(&tree, v, t, -1, -1, nullptr, &p), vekStsNullPtr);
    EXPECT_EQ(tree, kUnset);
    EXPECT_EQ(size, -77);
}

TEST(KDTreeArgs, CountsBeforeParamsPointer)
{
    const auto m = vekr::test::randomTriangles(4, 1);
    Call c;
    EXPECT_EQ(c.run(m, nullptr, -1, 4), vekStsSize);
    EXPECT_EQ(c.run(m, nullptr, 12, -1), vekStsSize);
    EXPECT_EQ(c.run(m, nullptr, 12, 4), vekStsNullPtr);
    EXPECT_TRUE(c.untouched());
}

TEST(KDTreeArgs, MagicAndRanges)
{
    const auto m = vekr::test::randomTriangles(4, 1);
    Call c;
    for (int d : {-1, 51, std::numeric_limits<int>::min()}) {
        auto p = simple(d);
        EXPECT_EQ(c.run(m, &p), vekStsOutOfRange) << d;
        p = sah(d, 0.5f, 64);
        EXPECT_EQ(c.run(m, &p), vekStsOutOfRange) << d;
    }
    for (float thr : {-0.001f, 1.5f, 1.0000001f, -std::numeric_limits<float>::infinity()}) {
        auto p = sah(10, thr, 64);
        EXPECT_EQ(c.run(m, &p), vekStsOutOfRange) << thr;
    }
    // An unknown magic is reported even when every other field is out of range.
    VekrKDTreeBuildParams bad{0x12345678u, -5, 7.0f, 0u, nullptr};
    EXPECT_EQ(c.run(m, &bad), vekStsBadArg);
    // The single-leaf build reads only magic and depth.
    VekrKDTreeBuildParams s{VEKR_KDTREE_SIMPLE_MAGIC, 50, 9.0f, 0u, nullptr};
    EXPECT_TRUE(c.untouched());
    EXPECT_EQ(c.run(m, &s), vekStsOk);
}

TEST(KDTreeArgs, MemoryEntryTestShiftsBy19In32Bits)
{
    const auto m = vekr::test::randomTriangles(4, 1);
    for (uint32_t mb : {0u, 1u, 31u, 8192u, 8200u, 8223u}) {
        Call c;
        auto p = sah(10, 0.0f, mb);
        EXPECT_EQ(c.run(m, &p), vekStsNoMem) << mb;
        EXPECT_TRUE(c.untouched());
    }
    // 32 passes the entry test but not the budget test of the build: the fixed
    // part is 32 MB plus 480 bytes plus the per-element terms.
    {
        Call c;
        auto p = sah(10, 0.0f, 32);
        EXPECT_EQ(c.run(m, &p), vekStsNoMem);
        EXPECT_TRUE(c.untouched());
    }
    // 4096 passes the entry test (4096 << 19 = 2^31) but the budget wraps to 0.
    {
        Call c;
        auto p = sah(10, 0.0f, 4096);
        EXPECT_EQ(c.run(m, &p), vekStsNoMem);
        EXPECT_TRUE(c.untouched());
    }
    // A NaN threshold is accepted.
    {
        Call c;
        auto p = sah(10, std::numeric_limits<float>::quiet_NaN(), 128);
        EXPECT_EQ(c.run(m, &p), vekStsOk);
    }
}

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

TEST(KDTreeSingleLeaf, OverflowingCountIsRefused)
{
    const float v[3] = {0, 0, 0};
    const int t[4] = {0, 0, 0, 0};
    for (int n : {0x1FFFFFFC, 0x3FFFFFFC, 0x7FFFFFFF}) {
        Call c;
        const auto p = simple(0);
        EXPECT_EQ(vekrKDTreeBuildAlloc(&c.tree, v, t, 1, n, &c.size, &p), vekStsNoMem) << n;
        EXPECT_TRUE(c.untouched());
    }
}

TEST(KDTreeFree, AcceptsNull)
{
    vekrKDTreeFree(nullptr);
}

}  // namespace
