// A synthetic mesh for the benchmarks, of any size.
#pragma once

#include <algorithm>
#include <cmath>

#include "testutil.h"

namespace vekr::bench {

// A closed, bumpy sphere tessellated into 2 * rings * segments triangles:
// a synthetic stand-in for a scanned mesh of any size.
inline vekr::test::Mesh bumpySphere(int rings, int segments)
{
    vekr::test::Mesh m;
    const double pi = 3.14159265358979323846;
    for (int r = 0; r <= rings; ++r) {
        const double th = pi * r / rings;
        for (int s = 0; s < segments; ++s) {
            const double ph = 2 * pi * s / segments;
            const double rr = 1.0 + 0.08 * std::sin(7 * th) * std::cos(5 * ph);
            m.vertices.push_back(static_cast<float>(rr * std::sin(th) * std::cos(ph)));
            m.vertices.push_back(static_cast<float>(rr * std::sin(th) * std::sin(ph)));
            m.vertices.push_back(static_cast<float>(rr * std::cos(th)));
        }
    }
    for (int r = 0; r < rings; ++r) {
        for (int s = 0; s < segments; ++s) {
            const int a = r * segments + s, b = r * segments + (s + 1) % segments;
            m.triangles.insert(m.triangles.end(), {a, a + segments, b, 0});
            m.triangles.insert(m.triangles.end(), {b, a + segments, b + segments, 0});
        }
    }
    return m;
}

// k copies of a mesh side by side on a grid of cells one and a half times
// the mesh's extent apart (the copies do not overlap).
inline vekr::test::Mesh gridCopies(const vekr::test::Mesh& m, int k)
{
    float lo[3] = {1e30f, 1e30f, 1e30f}, hi[3] = {-1e30f, -1e30f, -1e30f};
    for (size_t i = 0; i < m.vertices.size(); ++i) {
        lo[i % 3] = std::min(lo[i % 3], m.vertices[i]);
        hi[i % 3] = std::max(hi[i % 3], m.vertices[i]);
    }
    const int side = static_cast<int>(std::ceil(std::cbrt(static_cast<double>(k))));
    vekr::test::Mesh out;
    for (int c = 0; c < k; ++c) {
        const int cell[3] = {c % side, (c / side) % side, c / (side * side)};
        const int base = out.vertexCount();
        for (size_t i = 0; i < m.vertices.size(); ++i)
            out.vertices.push_back(m.vertices[i] + 1.5f * (hi[i % 3] - lo[i % 3]) * cell[i % 3]);
        for (size_t i = 0; i < m.triangles.size(); ++i)
            out.triangles.push_back(i % 4 == 3 ? m.triangles[i] : m.triangles[i] + base);
    }
    return out;
}

}  // namespace vekr::bench
