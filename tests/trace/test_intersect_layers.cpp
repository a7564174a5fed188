// Successive hits: sorted layers against brute force, the layer invariants,
// the end-of-layers values, and packet against single-ray paths.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

#include "rays.h"
#include "scene.h"
#include "trace/intersect.h"

namespace {

using namespace vekr::test;
using vekr::Isa;

struct Layers {
    int w, h, count;
    size_t n;
    Aligned<float> d[3], dist, u, v;
    Aligned<int> tri;
    float* dirs[3];
    float* hits[2];
    Layers(int width, int height, int layers) : w(width), h(height), count(layers)
    {
        n = static_cast<size_t>(w) * h;
        for (int c = 0; c < 3; ++c) {
            d[c].resize(n);
            dirs[c] = d[c].data();
        }
        dist.resize(n * count, 1e30f);
        u.resize(n * count, -7.0f);
        v.resize(n * count, -7.0f);
        tri.resize(n * count, 55);
        hits[0] = u.data();
        hits[1] = v.data();
    }
};

Layers copyOf(const Layers& b)
{
    Layers c(b.w, b.h, b.count);
    for (size_t k = 0; k < b.n; ++k)
        for (int i = 0; i < 3; ++i) c.d[i][k] = b.d[i][k];
    for (size_t k = 0; k < b.n * b.count; ++k) c.dist[k] = b.dist[k];
    return c;
}

void run(const Scene& sc, const float origin[3], Layers& b, int path)
{
    if (path < 0) {
        for (size_t k = 0; k < b.n * b.count; ++k) b.tri[k] = -1;
        vekr::trace::intersectLayersRays(origin, b.dirs, b.dist.data(), b.hits, b.tri.data(), sc.ctx,
                                         static_cast<int>(b.n), b.count);
    } else {
        vekr::trace::intersectLayers(static_cast<Isa>(path), origin, b.dirs, b.dist.data(), b.hits,
                                     b.tri.data(), VekrHitBlockSize{b.w, b.h, b.count}, sc.ctx);
    }
}

// Layers must list the distinct triangles along the ray in order of distance,
// compared where crossings are well apart and away from edges.
void checkAgainstReference(const Scene& sc, const float origin[3], const Layers& in,
                           const Layers& out, const char* what)
{
    size_t robust = 0, deep = 0;
    for (size_t k = 0; k < in.n; ++k) {
        float d[3] = {in.d[0][k], in.d[1][k], in.d[2][k]};
        const std::vector<RefCross> all = refCrossings(sc, origin, d);
        std::vector<RefCross> cs;
        bool clean = true;
        for (const RefCross& c : all) {
            if (std::fabs(c.t) < 1e-3f) clean = false;
            if (c.t <= 0) continue;
            if (std::fabs(c.margin) < 1e-4) clean = false;
            if (c.inside) cs.push_back(c);
        }
        for (size_t i = 1; i < cs.size(); ++i)
            if (cs[i].t - cs[i - 1].t < 2e-3f * cs[i].t) clean = false;
        if (!clean) continue;
        ++robust;
        // Layer invariants, on every ray.
        for (int l = 0; l < in.count; ++l) {
            const size_t at = static_cast<size_t>(l) * in.n + k;
            if (l < static_cast<int>(cs.size())) {
                ASSERT_EQ(out.tri[at], cs[l].tri) << what << " ray " << k << " layer " << l;
                EXPECT_NEAR(out.dist[at], cs[l].t, 1e-4f * cs[l].t) << what;
                if (l > 0) ++deep;
            } else if (l == static_cast<int>(cs.size())) {
                EXPECT_EQ(out.tri[at], -1) << what;
                EXPECT_EQ(out.dist[at], l == 0 ? 1e30f : FLT_MAX) << what;
            } else {
                EXPECT_EQ(out.tri[at], -1) << what;
                EXPECT_EQ(out.dist[at], 1e30f) << what;  // untouched
            }
        }
    }
    EXPECT_GT(robust, in.n / 2) << what;
    EXPECT_GT(deep, 0u) << what;
}

void checkInvariants(const Layers& out, const char* what)
{
    for (size_t k = 0; k < out.n; ++k)
        for (int l = 1; l < out.count; ++l) {
            const size_t at = static_cast<size_t>(l) * out.n + k, prev = at - out.n;
            if (out.tri[at] < 0) continue;
            ASSERT_GE(out.tri[prev], 0) << what;
            EXPECT_NE(out.tri[at], out.tri[prev]) << what;
            EXPECT_GE(out.dist[at], out.dist[prev]) << what;
        }
}

void checkAllPaths(const Scene& sc, const float origin[3], const Layers& in, const char* what)
{
    Layers single = copyOf(in);
    run(sc, origin, single, -1);
    checkAgainstReference(sc, origin, in, single, what);
    checkInvariants(single, what);
    for (Isa isa : supportedIsas()) {
        Layers packet = copyOf(in);
        run(sc, origin, packet, static_cast<int>(isa));
        checkAgainstReference(sc, origin, in, packet, vekr::isaName(isa));
        checkInvariants(packet, vekr::isaName(isa));
    }
}

TEST(IntersectLayers, RandomScenes)
{
    const float eye[3] = {0.2f, 0.3f, 4.0f};
    const Scene a = Scene::median(randomTriangles(300, 51u, 0.25f));
    Layers b(16, 16, 5);
    RayBlock frame(16, 16);
    frameBox(a.box, eye, frame);
    for (size_t k = 0; k < b.n; ++k)
        for (int c = 0; c < 3; ++c) b.d[c][k] = frame.d[c][k];
    checkAllPaths(a, eye, b, "median");
    const Scene one = Scene::oneLeaf(randomTriangles(150, 52u, 0.3f));
    checkAllPaths(one, eye, b, "one leaf");
    Layers many(8, 8, 12);  // more than eight layers: the slot rule wraps
    for (size_t k = 0; k < many.n; ++k)
        for (int c = 0; c < 3; ++c) many.d[c][k] = frame.d[c][(k / 8) * 16 + (k % 8) + 4 * 16 + 4];
    const Scene dense = Scene::median(randomTriangles(1500, 53u, 0.3f));
    checkAllPaths(dense, eye, many, "twelve layers");
}

TEST(IntersectLayers, CostBuiltTrees)
{
    const float eye[3] = {0.2f, 0.3f, 4.0f};
    const float gridEye[3] = {-3.0f, 14.5f, 9.0f};
    for (const CostBuild& p : costBuilds()) {
        SCOPED_TRACE(testing::Message() << "depth " << p.depth << " threshold " << p.threshold);
        const Scene s(randomTriangles(1000, 91u, 0.18f), p);
        ASSERT_EQ(s.buildStatus, vekStsOk);
        Layers b(16, 16, 6);
        RayBlock frame(16, 16);
        frameBox(s.box, eye, frame);
        for (size_t k = 0; k < b.n; ++k)
            for (int c = 0; c < 3; ++c) b.d[c][k] = frame.d[c][k];
        checkAllPaths(s, eye, b, "cost tree");
        const Scene g(gridOfSquares(12), p);
        ASSERT_EQ(g.buildStatus, vekStsOk);
        frameBox(g.box, gridEye, frame);
        for (size_t k = 0; k < b.n; ++k)
            for (int c = 0; c < 3; ++c) b.d[c][k] = frame.d[c][k];
        checkAllPaths(g, gridEye, b, "cost tree, squares");
    }
}

TEST(IntersectLayers, CostBuiltTreeOnRealMesh)
{
    if (!bunnyCostScene()) GTEST_SKIP() << "bunny00.off not available";
    const Scene& sc = *bunnyCostScene();
    ASSERT_EQ(sc.buildStatus, vekStsOk);
    const float eye[3] = {0.5f * (sc.box.minX + sc.box.maxX), 0.5f * (sc.box.minY + sc.box.maxY),
                          sc.box.maxZ + 2.0f * (sc.box.maxZ - sc.box.minZ)};
    RayBlock frame(8, 8);
    frameBox(sc.box, eye, frame);
    Layers b(8, 8, 4);
    for (size_t k = 0; k < b.n; ++k)
        for (int c = 0; c < 3; ++c) b.d[c][k] = frame.d[c][k];
    checkAllPaths(sc, eye, b, "bunny");
}

TEST(IntersectLayers, FirstLayerIsTheNearestHit)
{
    const Scene sc = Scene::median(randomTriangles(400, 54u, 0.25f));
    const float eye[3] = {-0.1f, 0.2f, 3.5f};
    RayBlock frame(16, 8);
    frameBox(sc.box, eye, frame);
    Layers b(16, 8, 1);
    for (size_t k = 0; k < b.n; ++k)
        for (int c = 0; c < 3; ++c) b.d[c][k] = frame.d[c][k];
    vekrIntersectMultipleSO_32f(eye, b.dirs, b.dist.data(), b.hits, b.tri.data(), VekrHitBlockSize{16, 8, 1},
                                &sc.ctx);
    vekrIntersectEyeSO_32f(eye, frame.cdirs(), frame.dist.data(), frame.hits, frame.tri.data(), &sc.ctx,
                           frame.extent());
    size_t same = 0;
    for (size_t k = 0; k < b.n; ++k) same += b.tri[k] == frame.tri[k];
    EXPECT_GE(same, b.n - 2);
}

TEST(IntersectLayers, TwoHitsThenEnd)
{
    Mesh m;
    m.vertices = {-1, -1, 1, 1, -1, 1, 0, 1, 1, -1, -1, 2, 1, -1, 2, 0, 1, 2};
    m.triangles = {0, 1, 2, 0, 3, 4, 5, 0};
    const Scene sc = Scene::oneLeaf(m);
    const float origin[3] = {0.1f, 0.0f, 0.0f};
    for (int path = -1; path < static_cast<int>(supportedIsas().size()); ++path) {
        Layers b(4, 4, 4);
        for (size_t k = 0; k < b.n; ++k) b.d[0][k] = 0.0f, b.d[1][k] = 0.01f * (k % 4), b.d[2][k] = 0.5f;
        run(sc, origin, b, path);
        for (size_t k = 0; k < b.n; ++k) {
            EXPECT_EQ(b.tri[k], 0);
            EXPECT_NEAR(b.dist[k], 2.0f, 1e-5f);
            EXPECT_EQ(b.tri[b.n + k], 1);
            EXPECT_NEAR(b.dist[b.n + k], 4.0f, 1e-4f);  // measured from the origin
            EXPECT_EQ(b.tri[2 * b.n + k], -1);
            EXPECT_EQ(b.dist[2 * b.n + k], FLT_MAX);
            EXPECT_EQ(b.tri[3 * b.n + k], -1);
            EXPECT_EQ(b.dist[3 * b.n + k], 1e30f);
        }
    }
}

}  // namespace
