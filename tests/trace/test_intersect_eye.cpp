// Nearest hit for eye rays: single-ray path against brute force, packet path
// against brute force at every instruction-set level, and the edge rules.
#include <gtest/gtest.h>

#include <cmath>

#include "rays.h"
#include "scene.h"
#include "trace/intersect.h"

namespace {

using namespace vekr::test;
using vekr::Isa;

// Checks one traced block against brute force.  exact: the single-ray path
// must reproduce the reference's distance and coordinates to the bit.
std::vector<RefHit> referenceOf(const Scene& s, const float eye[3], const RayBlock& in)
{
    std::vector<RefHit> refs(in.size());
    for (size_t k = 0; k < in.size(); ++k) {
        float d[3];
        in.direction(k, d);
        refs[k] = refNearest(s, eye, d, in.dist[k]);
    }
    return refs;
}

void expectMatchesReference(const std::vector<RefHit>& refs, const RayBlock& in,
                            const RayBlock& out, bool exact, const char* what)
{
    size_t robust = 0, hits = 0;
    for (size_t k = 0; k < in.size(); ++k) {
        const RefHit& ref = refs[k];
        if (!ref.robust) continue;
        ++robust;
        ASSERT_EQ(out.tri[k], ref.tri) << what << " ray " << k;
        if (ref.tri < 0) {
            EXPECT_EQ(out.dist[k], in.dist[k]) << what << " ray " << k;
            EXPECT_EQ(out.u[k], in.u[k]);
            EXPECT_EQ(out.v[k], in.v[k]);
            continue;
        }
        ++hits;
        if (exact) {
            EXPECT_EQ(out.dist[k], ref.t) << what << " ray " << k;
            EXPECT_EQ(out.u[k], ref.u);
            EXPECT_EQ(out.v[k], ref.v);
        } else {
            EXPECT_NEAR(out.dist[k], ref.t, 2e-6f * std::fabs(ref.t)) << what << " ray " << k;
            EXPECT_NEAR(out.u[k], ref.u, 2e-5f);
            EXPECT_NEAR(out.v[k], ref.v, 2e-5f);
        }
    }
    EXPECT_GT(robust, in.size() * 8 / 10) << what;
    EXPECT_GT(hits, 0u) << what;
}

RayBlock copyOf(const RayBlock& b)
{
    RayBlock c(b.w, b.h);
    for (size_t k = 0; k < b.size(); ++k) {
        for (int i = 0; i < 3; ++i) c.d[i][k] = b.d[i][k];
        c.dist[k] = b.dist[k];
        c.u[k] = b.u[k];
        c.v[k] = b.v[k];
        c.tri[k] = b.tri[k];
    }
    return c;
}

void traceSingle(const Scene& s, const float eye[3], RayBlock& b)
{
    vekr::trace::intersectEyeRays(eye, b.cdirs(), b.dist.data(), b.hits, b.tri.data(), s.ctx,
                                  static_cast<int>(b.size()));
}

void tracePacket(Isa isa, const Scene& s, const float eye[3], RayBlock& b)
{
    vekr::trace::intersectEye(isa, eye, b.cdirs(), b.dist.data(), b.hits, b.tri.data(), s.ctx,
                              b.extent());
}

void checkBothPaths(const Scene& s, const float eye[3], const RayBlock& in, const char* what)
{
    const std::vector<RefHit> refs = referenceOf(s, eye, in);
    RayBlock single = copyOf(in);
    traceSingle(s, eye, single);
    expectMatchesReference(refs, in, single, true, what);
    for (Isa isa : supportedIsas()) {
        RayBlock packet = copyOf(in);
        tracePacket(isa, s, eye, packet);
        expectMatchesReference(refs, in, packet, false, vekr::isaName(isa));
    }
}

TEST(IntersectEye, RandomSceneFromOutside)
{
    const Scene s = Scene::median(randomTriangles(400, 11u, 0.25f));
    const float eye[3] = {0.3f, 0.4f, 4.0f};
    RayBlock b(32, 32);
    frameBox(s.box, eye, b);
    checkBothPaths(s, eye, b, "median tree");
    const Scene leaf = Scene::oneLeaf(randomTriangles(400, 11u, 0.25f));
    checkBothPaths(leaf, eye, b, "single leaf");
}

TEST(IntersectEye, RaysInAllDirectionsFromInside)
{
    // The eye inside the scene: hits behind it (t < 0) must be ignored.
    const Scene s = Scene::median(randomTriangles(600, 3u, 0.2f));
    const float eye[3] = {0.01f, -0.02f, 0.03f};
    RayBlock b(24, 16);
    randomDirections(b, 5u);
    checkBothPaths(s, eye, b, "inside");
}

TEST(IntersectEye, FiniteLimitsAndShallowTrees)
{
    const Scene s = Scene::median(randomTriangles(500, 21u, 0.3f), 6, 40);
    const float eye[3] = {-3.0f, 0.5f, 1.5f};
    RayBlock b(16, 16);
    frameBox(s.box, eye, b);
    for (size_t k = 0; k < b.size(); ++k) b.dist[k] = 2.0f + 3.0f * (k % 7) / 7.0f;
    checkBothPaths(s, eye, b, "limits");
}

TEST(IntersectEye, RealMesh)
{
    if (!bunnyScene()) GTEST_SKIP() << "bunny00.off not available";
    const Scene& s = *bunnyScene();
    const float eye[3] = {0.5f * (s.box.minX + s.box.maxX), 0.5f * (s.box.minY + s.box.maxY),
                          s.box.maxZ + 2.0f * (s.box.maxZ - s.box.minZ)};
    RayBlock b(12, 8);
    frameBox(s.box, eye, b);
    checkBothPaths(s, eye, b, "bunny");
}

TEST(IntersectEye, CostBuiltTrees)
{
    const float eye[3] = {0.3f, 0.4f, 4.0f};
    const float inside[3] = {0.01f, -0.02f, 0.03f};
    const float gridEye[3] = {-3.0f, 14.5f, 9.0f};
    for (const CostBuild& p : costBuilds()) {
        SCOPED_TRACE(testing::Message() << "depth " << p.depth << " threshold " << p.threshold);
        const Scene s(randomTriangles(1000, 61u, 0.18f), p);
        ASSERT_EQ(s.buildStatus, vekStsOk);
        RayBlock b(24, 16);
        frameBox(s.box, eye, b);
        checkBothPaths(s, eye, b, "cost tree");
        RayBlock r(16, 16);
        randomDirections(r, 62u);
        checkBothPaths(s, inside, r, "cost tree, from inside");
        // Squares lying exactly in shared planes, where the build's choice
        // of side for flat triangles decides where the traversal finds them.
        const Scene g(gridOfSquares(12), p);
        ASSERT_EQ(g.buildStatus, vekStsOk);
        RayBlock q(24, 24);
        frameBox(g.box, gridEye, q);
        checkBothPaths(g, gridEye, q, "cost tree, squares");
    }
}

TEST(IntersectEye, CostBuiltTreeOnRealMesh)
{
    if (!bunnyCostScene()) GTEST_SKIP() << "bunny00.off not available";
    const Scene& s = *bunnyCostScene();
    ASSERT_EQ(s.buildStatus, vekStsOk);
    const float front[3] = {0.5f * (s.box.minX + s.box.maxX), 0.5f * (s.box.minY + s.box.maxY),
                            s.box.maxZ + 2.0f * (s.box.maxZ - s.box.minZ)};
    RayBlock b(12, 8);
    frameBox(s.box, front, b);
    checkBothPaths(s, front, b, "bunny, front");
    const float corner[3] = {s.box.maxX + 0.05f, s.box.minY - 0.03f, s.box.minZ - 0.1f};
    RayBlock c(8, 8);
    frameBox(s.box, corner, c);
    checkBothPaths(s, corner, c, "bunny, corner");
}

TEST(IntersectEye, AxisParallelDirections)
{
    const Scene s = Scene::median(randomTriangles(400, 8u, 0.3f));
    const float eye[3] = {0.05f, 0.1f, 5.0f};
    RayBlock b(8, 8);
    for (size_t k = 0; k < b.size(); ++k) {
        const float a = -0.2f + 0.4f * static_cast<float>(k % 8) / 7.0f;
        const int kind = static_cast<int>(k / 8) % 3;
        b.d[0][k] = kind == 0 ? a : 0.0f;
        b.d[1][k] = kind == 1 ? a : 0.0f;
        b.d[2][k] = -1.0f;
    }
    // A few rays along the other axes as well, from the same eye.
    b.d[0][60] = 0.0f, b.d[1][60] = 0.0f, b.d[2][60] = -1.0f;
    checkBothPaths(s, eye, b, "axis-parallel");
}

TEST(IntersectEye, BackFacesAreHitAndTZeroIsNot)
{
    Mesh m;
    m.vertices = {-1, -1, 0, 1, -1, 0, 0, 1, 0};
    m.triangles = {0, 1, 2, 0};
    const Scene s = Scene::oneLeaf(m);
    for (float z : {2.0f, -2.0f, 0.0f}) {
        const float eye[3] = {0.1f, 0.0f, z};
        RayBlock b(4, 4);
        for (size_t k = 0; k < b.size(); ++k) {
            b.d[0][k] = 0.01f * (k % 4);
            b.d[1][k] = 0.01f * (k / 4);
            b.d[2][k] = z > 0 ? -1.0f : 1.0f;
        }
        for (int path = 0; path < 2; ++path) {
            RayBlock r = copyOf(b);
            if (path == 0)
                traceSingle(s, eye, r);
            else
                tracePacket(vekr::Isa::Sse41, s, eye, r);
            for (size_t k = 0; k < r.size(); ++k) {
                if (z == 0.0f) {
                    EXPECT_EQ(r.tri[k], -1);  // the eye lies in the triangle: t = 0
                } else {
                    EXPECT_EQ(r.tri[k], 0);
                    EXPECT_NEAR(r.dist[k], 2.0f, 1e-5f);
                }
            }
        }
    }
}

TEST(IntersectEye, LimitsBelowTheHitAndNonPositiveLimits)
{
    const Scene s = Scene::median(randomTriangles(300, 4u, 0.3f));
    const float eye[3] = {0.2f, 0.1f, 4.0f};
    RayBlock b(16, 8);
    frameBox(s.box, eye, b);
    const float limits[4] = {0.0f, -1.0f, 0.5f, -0.0f};  // all below any hit (t > 2)
    for (size_t k = 0; k < b.size(); ++k) b.dist[k] = limits[k % 4];
    for (int path = 0; path < 1 + static_cast<int>(supportedIsas().size()); ++path) {
        RayBlock r = copyOf(b);
        if (path == 0)
            traceSingle(s, eye, r);
        else
            tracePacket(supportedIsas()[path - 1], s, eye, r);
        for (size_t k = 0; k < r.size(); ++k) {
            EXPECT_EQ(r.tri[k], -1);
            EXPECT_EQ(std::signbit(r.dist[k]), std::signbit(limits[k % 4]));
            EXPECT_EQ(r.dist[k], limits[k % 4]);
            EXPECT_EQ(r.u[k], -7.0f);
            EXPECT_EQ(r.v[k], -7.0f);
        }
    }
}

TEST(IntersectEye, EmptyTreeNeverHits)
{
    const Scene s = Scene::oneLeaf(Mesh{});
    const float eye[3] = {0, 0, 3};
    RayBlock b(8, 4);
    randomDirections(b, 9u);
    for (int path = 0; path < 2; ++path) {
        RayBlock r = copyOf(b);
        if (path == 0)
            traceSingle(s, eye, r);
        else
            tracePacket(vekr::bestIsa(), s, eye, r);
        for (size_t k = 0; k < r.size(); ++k) {
            EXPECT_EQ(r.tri[k], -1);
            EXPECT_EQ(r.dist[k], 1e30f);
        }
    }
}

TEST(IntersectEye, OddAndFourWideExtentsAgree)
{
    const Scene s = Scene::median(randomTriangles(300, 14u, 0.3f));
    const float eye[3] = {0.0f, 0.0f, 4.0f};
    RayBlock b4(4, 4), b3(3, 4);
    frameBox(s.box, eye, b4);
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 3; ++i)
            for (int c = 0; c < 3; ++c) b3.d[c][j * 3 + i] = b4.d[c][j * 4 + i];
    ASSERT_EQ(vekrIntersectEyeSO_32f(eye, b4.cdirs(), b4.dist.data(), b4.hits, b4.tri.data(), &s.ctx,
                                     b4.extent()),
              vekStsOk);
    ASSERT_EQ(vekrIntersectEyeSO_32f(eye, b3.cdirs(), b3.dist.data(), b3.hits, b3.tri.data(), &s.ctx,
                                     b3.extent()),
              vekStsOk);
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(b3.tri[j * 3 + i], b4.tri[j * 4 + i]);
            EXPECT_NEAR(b3.dist[j * 3 + i], b4.dist[j * 4 + i], 1e-5f * b3.dist[j * 3 + i]);
        }
    // An empty extent does nothing.
    EXPECT_EQ(vekrIntersectEyeSO_32f(eye, b4.cdirs(), nullptr, nullptr, nullptr, &s.ctx, VekSize{0, 4}),
              vekStsOk);
}

}  // namespace
