// Triangle, flat and smooth normals: double-precision references, fast path
// against general path, rays without a hit, and the degenerate cases.
#include <gtest/gtest.h>
#include <omp.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <vector>

#include "core/simd.h"
#include "shade/normals.h"
#include "testutil.h"
#include "vekr.h"

namespace {

using vekr::test::Mesh;

// Reference: cross product of the edges leaving the first vertex, in long
// double; zero where the doubled area's square is below the double epsilon.
void referenceNormal(const Mesh& m, int t, long double out[3])
{
    const int* r = &m.triangles[4 * t];
    long double p[3][3];
    for (int k = 0; k < 3; ++k)
        for (int c = 0; c < 3; ++c) p[k][c] = m.vertices[3 * r[k] + c];
    const long double a[3] = {p[1][0] - p[0][0], p[1][1] - p[0][1], p[1][2] - p[0][2]};
    const long double b[3] = {p[2][0] - p[0][0], p[2][1] - p[0][1], p[2][2] - p[0][2]};
    const long double n[3] = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2],
                              a[0] * b[1] - a[1] * b[0]};
    const long double s = n[0] * n[0] + n[1] * n[1] + n[2] * n[2];
    for (int c = 0; c < 3; ++c) out[c] = s < DBL_EPSILON ? 0.0L : n[c] / std::sqrt(s);
}

void expectTriangleNormalsMatch(const Mesh& m)
{
    const int n = m.triangleCount();
    std::vector<float> out(3 * n, 7.0f);
    ASSERT_EQ(vekrTriangleNormal_32f(m.vertices.data(), m.triangles.data(), out.data(), n),
              vekStsOk);
    for (int t = 0; t < n; ++t) {
        long double ref[3];
        referenceNormal(m, t, ref);
        for (int c = 0; c < 3; ++c)
            ASSERT_NEAR(out[3 * t + c], static_cast<double>(ref[c]), 3e-7) << "triangle " << t;
    }
}

// Random triangles, squares in shared planes with a point and a segment among
// them, and the real mesh, against the long double reference.
TEST(TriangleNormal, MatchesLongDoubleReference)
{
    expectTriangleNormalsMatch(vekr::test::randomTriangles(5001, 11, 0.3f));
    expectTriangleNormalsMatch(vekr::test::gridOfSquares(12));
    const std::string path = vekr::test::dataFile("bunny00.off");
    if (!path.empty()) expectTriangleNormalsMatch(vekr::test::loadOff(path));
}

TEST(TriangleNormal, WindingOrientationAndDegenerates)
{
    const float v[] = {0, 0, 0, 1, 0, 0, 0, 1, 0, 2, 0, 0, 1e-5f, 0, 0, 0, 1e-5f, 0};
    const int tri[] = {
        0, 1, 2, -99,  // counter-clockwise in the xy plane: +z
        0, 2, 1, 12,   // reversed: -z
        0, 1, 1, 0,    // two equal vertices
        0, 1, 3, 0,    // collinear
        0, 4, 5, 0,    // tiny: squared cross product below the double epsilon
    };
    float out[15];
    ASSERT_EQ(vekrTriangleNormal_32f(v, tri, out, 5), vekStsOk);
    const float expect[15] = {0, 0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    for (int i = 0; i < 15; ++i) EXPECT_EQ(out[i], expect[i]) << i;
}

TEST(TriangleNormal, SameResultInsideAnActiveParallelRegion)
{
    const Mesh m = vekr::test::randomTriangles(1003, 5);
    const int n = m.triangleCount();
    std::vector<float> a(3 * n), b(3 * n, -1.0f);
    vekrTriangleNormal_32f(m.vertices.data(), m.triangles.data(), a.data(), n);
#pragma omp parallel num_threads(2)
    {
#pragma omp master
        vekrTriangleNormal_32f(m.vertices.data(), m.triangles.data(), b.data(), n);
    }
    EXPECT_EQ(std::memcmp(a.data(), b.data(), a.size() * 4), 0);
}

}  // namespace
