// Rays with their own origins: nearest hit with the own-origin rules against
// brute force, the parallel-axis slab rule, and packet against single-ray.
#include <gtest/gtest.h>

#include <cmath>

#include "rays.h"
#include "scene.h"
#include "trace/intersect.h"

namespace {

using namespace vekr::test;
using vekr::Isa;

struct OwnBlock {
    RayBlock rays;
    Aligned<float> o[3];
    float* origins[3];
    OwnBlock(int w, int h, float limit = 1e30f) : rays(w, h, limit)
    {
        for (int c = 0; c < 3; ++c) {
            o[c].resize(rays.size());
            origins[c] = o[c].data();
        }
    }
};

OwnBlock copyOf(const OwnBlock& b)
{
    OwnBlock c(b.rays.w, b.rays.h);
    for (size_t k = 0; k < b.rays.size(); ++k) {
        for (int i = 0; i < 3; ++i) c.rays.d[i][k] = b.rays.d[i][k], c.o[i][k] = b.o[i][k];
        c.rays.dist[k] = b.rays.dist[k];
    }
    return c;
}

void run(const Scene& sc, OwnBlock& b, int path)
{
    if (path < 0)
        vekr::trace::intersectOwnRays(b.origins, b.rays.cdirs(), b.rays.dist.data(), b.rays.hits,
                                      b.rays.tri.data(), sc.ctx, static_cast<int>(b.rays.size()));
    else
        vekr::trace::intersectOwn(static_cast<Isa>(path), b.origins, b.rays.cdirs(), b.rays.dist.data(),
                                  b.rays.hits, b.rays.tri.data(), sc.ctx, b.rays.extent());
}

// Nearest crossing with t > 0, |den| >= 1.1920929e-6 and t < limit - 1e-5,
// compared only where no other crossing or edge lies near it.
void checkAgainstReference(const std::vector<std::vector<RefCross>>& refs, const OwnBlock& in, const OwnBlock& out, bool exact,
                           const char* what)
{
    size_t robust = 0, hits = 0;
    for (size_t k = 0; k < in.rays.size(); ++k) {
        const float limit = in.rays.dist[k];
        const std::vector<RefCross>& cs = refs[k];
        const RefCross* best = nullptr;
        for (const RefCross& c : cs)
            if (c.inside && c.t > 0 && std::fabs(c.den) >= 1.1920929e-6f && limit - 1e-5f > c.t) {
                best = &c;
                break;
            }
        const float at = best ? best->t : limit;
        if (nearlyAt(cs, 0.0f, 1e-4f) || grazesWithin(cs, 0.0f, at * 1.001f) ||
            (best && (nearlyAt(cs, limit, 1e-3f) || best->margin < 1e-4)))
            continue;
        bool tie = false;
        for (const RefCross& c : cs) tie |= best && &c != best && std::fabs(c.t - best->t) < 1e-3f * best->t;
        if (tie) continue;
        ++robust;
        ASSERT_EQ(out.rays.tri[k], best ? best->tri : -1) << what << " ray " << k;
        if (!best) {
            EXPECT_EQ(out.rays.dist[k], limit);
            continue;
        }
        ++hits;
        if (exact)
            EXPECT_EQ(out.rays.dist[k], best->t) << what << " ray " << k;
        else
            EXPECT_NEAR(out.rays.dist[k], best->t, 2e-6f * best->t) << what << " ray " << k;
    }
    EXPECT_GT(robust, in.rays.size() * 6 / 10) << what;
    EXPECT_GT(hits, 0u) << what;
}

void checkAllPaths(const Scene& sc, const OwnBlock& in, const char* what)
{
    std::vector<std::vector<RefCross>> refs(in.rays.size());
    for (size_t k = 0; k < in.rays.size(); ++k) {
        const float o[3] = {in.o[0][k], in.o[1][k], in.o[2][k]};
        float d[3];
        in.rays.direction(k, d);
        refs[k] = refCrossings(sc, o, d);
    }
    OwnBlock single = copyOf(in);
    run(sc, single, -1);
    checkAgainstReference(refs, in, single, true, what);
    for (Isa isa : supportedIsas()) {
        OwnBlock packet = copyOf(in);
        run(sc, packet, static_cast<int>(isa));
        checkAgainstReference(refs, in, packet, false, vekr::isaName(isa));
        for (size_t k = 0; k < in.rays.size(); ++k)  // packet against single-ray
            if (packet.rays.tri[k] != single.rays.tri[k])
                EXPECT_NEAR(packet.rays.dist[k], single.rays.dist[k], 1e-3f * single.rays.dist[k]);
    }
}

OwnBlock randomRays(const VekrBox3D& box, int w, int h, uint32_t seed)
{
    OwnBlock b(w, h);
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    randomDirections(b.rays, seed + 1);
    for (size_t k = 0; k < b.rays.size(); ++k) {
        b.o[0][k] = box.minX + u(rng) * (box.maxX - box.minX);
        b.o[1][k] = box.minY + u(rng) * (box.maxY - box.minY);
        b.o[2][k] = box.minZ + u(rng) * (box.maxZ - box.minZ);
        if (k % 5 == 2) b.rays.dist[k] = 0.2f + u(rng);
    }
    return b;
}

TEST(IntersectOwn, RandomScenes)
{
    const Scene a = Scene::median(randomTriangles(500, 41u, 0.2f));
    checkAllPaths(a, randomRays(a.box, 32, 16, 5u), "median");
    const Scene b = Scene::oneLeaf(randomTriangles(200, 42u, 0.25f));
    checkAllPaths(b, randomRays(b.box, 16, 8, 6u), "one leaf");
}

TEST(IntersectOwn, RealMesh)
{
    if (!bunnyScene()) GTEST_SKIP() << "bunny00.off not available";
    const Scene& sc = *bunnyScene();
    checkAllPaths(sc, randomRays(sc.box, 8, 8, 7u), "bunny");
}

TEST(IntersectOwn, CostBuiltTrees)
{
    for (const CostBuild& p : costBuilds()) {
        SCOPED_TRACE(testing::Message() << "depth " << p.depth << " threshold " << p.threshold);
        const Scene s(randomTriangles(1000, 81u, 0.18f), p);
        ASSERT_EQ(s.buildStatus, vekStsOk);
        checkAllPaths(s, randomRays(s.box, 16, 16, 82u), "cost tree");
        // Directions of one octant: whole packets trace together.
        OwnBlock coherent = randomRays(s.box, 16, 16, 85u);
        for (size_t k = 0; k < coherent.rays.size(); ++k)
            for (int c = 0; c < 3; ++c)
                coherent.rays.d[c][k] = c == 1 ? -std::fabs(coherent.rays.d[c][k]) : std::fabs(coherent.rays.d[c][k]);
        checkAllPaths(s, coherent, "cost tree, one octant");
        const Scene g(gridOfSquares(12), p);
        ASSERT_EQ(g.buildStatus, vekStsOk);
        checkAllPaths(g, randomRays(g.box, 16, 16, 83u), "cost tree, squares");
    }
}

TEST(IntersectOwn, CostBuiltTreeOnRealMesh)
{
    if (!bunnyCostScene()) GTEST_SKIP() << "bunny00.off not available";
    const Scene& sc = *bunnyCostScene();
    ASSERT_EQ(sc.buildStatus, vekStsOk);
    checkAllPaths(sc, randomRays(sc.box, 8, 8, 84u), "bunny");
}

TEST(IntersectOwn, OwnOriginRules)
{
    // Two parallel triangles 5e-6 apart at z = 1, and one at z = 2.
    Mesh m;
    m.vertices = {-1, -1, 1, 1, -1, 1, 0, 1, 1,  -1, -1, 1.000005f, 1, -1, 1.000005f, 0, 1, 1.000005f,
                  -1, -1, 2, 1, -1, 2, 0, 1, 2};
    m.triangles = {0, 1, 2, 0, 3, 4, 5, 0, 6, 7, 8, 0};
    const Scene sc = Scene::oneLeaf(m);
    for (int path = -1; path < static_cast<int>(supportedIsas().size()); ++path) {
        OwnBlock b(4, 4);
        for (size_t k = 0; k < 16; ++k) {
            b.o[0][k] = 0.1f;
            b.o[1][k] = 0.0f;
            b.o[2][k] = 0.0f;
            b.rays.d[0][k] = 0.0f;
            b.rays.d[1][k] = 0.0f;
            b.rays.d[2][k] = 1.0f;
        }
        b.o[2][1] = 1.0f;  // starts on triangle 0: t = 0 is no hit, the next one 5e-6 on is
        b.o[2][2] = 1.5f;      // only the triangle at z = 2
        b.rays.d[2][3] = 0.0f;  // parallel to every axis ...
        b.rays.d[0][3] = 1e-9f; // ... origin x inside, y and z inside slab? z = 0 is outside
        b.rays.d[1][3] = 0.0f;
        b.rays.d[0][4] = 1.0f, b.rays.d[2][4] = 0.0f;  // in the plane of the triangles: den = 0
        b.o[2][4] = 1.0f;
        run(sc, b, path);
        EXPECT_EQ(b.rays.tri[0], 0) << path;  // the first of two triangles 5e-6 apart stays
        EXPECT_EQ(b.rays.tri[1], 1) << path;
        EXPECT_EQ(b.rays.tri[2], 2) << path;
        EXPECT_EQ(b.rays.tri[3], -1) << path;
        EXPECT_EQ(b.rays.tri[4], -1) << path;
    }
}

TEST(IntersectOwn, ParallelAxisOutsideItsSlabMisses)
{
    const Scene sc = Scene::median(randomTriangles(300, 44u, 0.3f));
    const float* dirs[3];
    const float* orig[3];
    float dx = 0.0f, dy = 0.0f, dz = -1.0f, dist = 1e30f, u = 0, v = 0;
    float* hits[2] = {&u, &v};
    int tri = 9;
    dirs[0] = &dx, dirs[1] = &dy, dirs[2] = &dz;
    // Straight down through the scene: hits.  Same ray with x on the box face: misses.
    float ox = 0.0f, oy = 0.0f, oz = 3.0f;
    orig[0] = &ox, orig[1] = &oy, orig[2] = &oz;
    const std::vector<RefCross> cs = refCrossings(sc, std::vector<float>{ox, oy, oz}.data(),
                                                  std::vector<float>{dx, dy, dz}.data());
    bool any = false;
    for (const RefCross& c : cs) any |= c.inside && c.t > 0;
    vekrIntersectMO_32f(orig, dirs, &dist, hits, &tri, &sc.ctx, VekSize{1, 1});
    EXPECT_EQ(tri >= 0, any);
    ox = sc.box.minX;
    dist = 1e30f;
    vekrIntersectMO_32f(orig, dirs, &dist, hits, &tri, &sc.ctx, VekSize{1, 1});
    EXPECT_EQ(tri, -1);
    EXPECT_EQ(dist, 1e30f);
}

}  // namespace
