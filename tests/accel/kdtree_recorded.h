// The trees of a table of meshes under every combination of build
// parameters, folded into one hash per mesh, so that a build can be held to
// the exact bytes (and statuses and sizes) recorded from an earlier one.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "testutil.h"
#include "vekr.h"

namespace kdrecorded {

using vekr::test::Mesh;

// Triangles of random size 0.01 in four tight clusters.
inline Mesh clustered(int n, uint32_t seed)
{
    Mesh m = vekr::test::randomTriangles(n, seed, 0.01f);
    const float centers[4][3] = {{-0.7f, -0.6f, 0.1f}, {0.5f, 0.6f, -0.4f}, {0.2f, -0.3f, 0.8f}, {0.6f, 0.5f, -0.35f}};
    for (int t = 0; t < n; ++t)
        for (int v = 0; v < 3; ++v)
            for (int a = 0; a < 3; ++a) {
                float& c = m.vertices[9 * size_t(t) + 3 * v + a];
                c = 0.08f * c + centers[t % 4][a];
            }
    return m;
}

// Slivers along the x axis: the root box is 5e-6 thick on y and z, so only x
// takes part, yet the box has a surface to gain on.
inline Mesh needles(int n)
{
    Mesh m;
    for (int i = 0; i < n; ++i) {
        const float x = float(i);
        m.vertices.insert(m.vertices.end(), {x, 0, 0, x + 0.5f, 5e-6f, 0, x + 0.75f, 0, 5e-6f});
        m.triangles.insert(m.triangles.end(), {3 * i, 3 * i + 1, 3 * i + 2, 0});
    }
    return m;
}

struct MeshRow {
    std::string name;
    std::function<Mesh()> mesh;
    bool everyParameter;  // otherwise depths 8 and 50, thresholds 0 and 1
    uint64_t recorded;
};

// Status, size and bytes of every tree, over depths 0, 1, 8, 20, 50,
// thresholds 0, 0.25, 0.5, 1, without and with a region.
inline uint64_t treesHash(const Mesh& m, bool everyParameter)
{
    uint64_t h = 1469598103934665603ull;
    auto fold = [&](const void* p, size_t n) {
        for (size_t i = 0; i < n; ++i) h = (h ^ static_cast<const uint8_t*>(p)[i]) * 1099511628211ull;
    };
    VekrBox3D box;
    vekrSetBoundBox_32f(m.vertices.data(), m.vertexCount(), &box);
    const VekrBox3D region{0.7f * box.minX + 0.3f * box.maxX, 0.5f * box.minY + 0.5f * box.maxY, box.minZ - 1,
                           0.2f * box.minX + 0.8f * box.maxX, box.maxY + 1, 0.4f * box.minZ + 0.6f * box.maxZ};
    const std::vector<int> depths = everyParameter ? std::vector<int>{0, 1, 8, 20, 50} : std::vector<int>{8, 50};
    const std::vector<float> thresholds = everyParameter ? std::vector<float>{0, 0.25f, 0.5f, 1} : std::vector<float>{0, 1};
    for (int depth : depths)
        for (float thr : thresholds)
            for (const VekrBox3D* r : {static_cast<const VekrBox3D*>(nullptr), &region}) {
                const VekrKDTreeBuildParams p{VEKR_KDTREE_SAH_MAGIC, depth, thr, 1024u, r};
                VekrKDTreeNode* tree = nullptr;
                int size = 0;
                const VekStatus st = vekrKDTreeBuildAlloc(&tree, m.vertices.data(), m.triangles.data(),
                                                          m.vertexCount(), m.triangleCount(), &size, &p);
                fold(&st, sizeof st);
                fold(&size, sizeof size);
                if (st == vekStsOk) fold(tree, size_t(size));
                vekrKDTreeFree(tree);
            }
    return h;
}

inline Mesh realMesh(const char* name)
{
    const std::string path = vekr::test::dataFile(name);
    return path.empty() ? Mesh{} : vekr::test::loadOff(path);
}

inline std::vector<MeshRow> meshRows()
{
    return {
        {"soup20", [] { return vekr::test::randomTriangles(20, 120, 0.4f); }, true, 0xa203801d5796a4d9ull},
        {"soup400", [] { return vekr::test::randomTriangles(400, 500, 0.15f); }, true, 0x27542745dd0a5528ull},
        {"soup3000", [] { return vekr::test::randomTriangles(3000, 11, 0.2f); }, true, 0x9a09e814cff3c3d9ull},
        {"soup6000_small", [] { return vekr::test::randomTriangles(6000, 12, 0.02f); }, true, 0x7902db9f6cf0f180ull},
        {"clustered5000", [] { return clustered(5000, 13); }, true, 0x97cf2ac161fed925ull},
        {"squares30", [] { return vekr::test::gridOfSquares(30); }, true, 0x2710559a040241d3ull},
        {"needles75", [] { return needles(75); }, true, 0xacd0ef8cf2689d04ull},
        {"needles76", [] { return needles(76); }, true, 0x513aa8d103cf32feull},
        {"bunny", [] { return realMesh("bunny00.off"); }, false, 0x755890d63a6ed05aull},
        {"armadillo", [] { return realMesh("armadillo.off"); }, false, 0x65c22bf59dfc5e2full},
    };
}

}  // namespace kdrecorded
