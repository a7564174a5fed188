// A synthetic mesh for the benchmarks, of any size.
#pragma once

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

}  // namespace vekr::bench
