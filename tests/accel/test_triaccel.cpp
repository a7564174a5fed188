// Triangle acceleration records: layout of a known record, the choice of the
// projection axis, degenerate input, and the geometric meaning of the words
// (plane equation and barycentric edges) on many random triangles.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "testutil.h"
#include "vekr.h"

namespace {

VekrTriangleAccel recordOf(const std::vector<float>& v)
{
    const int tri[4] = {0, 1, 2, 12345};
    VekrTriangleAccel r;
    std::memset(&r, 0xAB, sizeof r);
    EXPECT_EQ(vekrTriangleAccelInit(&r, v.data(), tri, 1), vekStsOk);
    return r;
}

uint32_t word(const VekrTriangleAccel& r, int i)
{
    uint32_t w;
    std::memcpy(&w, reinterpret_cast<const char*>(&r) + 4 * i, 4);
    return w;
}

float fword(const VekrTriangleAccel& r, int i)
{
    float f;
    std::memcpy(&f, reinterpret_cast<const char*>(&r) + 4 * i, 4);
    return f;
}

TEST(TriangleAccel, WorkedExample)
{
    const VekrTriangleAccel r = recordOf({0, 0, 5, 1, 0, 5, 0, 1, 5});
    EXPECT_EQ(word(r, 0), 0x80000021u);
    const float expect[10] = {0, 0, 5, 0, 0, 1, 1, -1, 0, -1};
    for (int i = 1; i < 10; ++i) EXPECT_EQ(fword(r, i), expect[i]) << "word " << i;
}

TEST(TriangleAccel, DominantAxisTiesGoToEarlierAxis)
{
    // N = (1, 1, 0.5): |Nx| = |Ny| > |Nz| gives k = x, (u, v) = (y, z).
    // A triangle with normal n: C at origin, e1 and e2 spanning the plane.
    auto withNormal = [](double nx, double ny, double nz) {
        // Two vectors orthogonal to n whose cross product is a positive multiple of n.
        double a[3], b[3];
        if (std::fabs(nx) > 0.1 || std::fabs(ny) > 0.1) {
            a[0] = -ny; a[1] = nx; a[2] = 0;
        } else {
            a[0] = 0; a[1] = -nz; a[2] = ny;
        }
        b[0] = ny * a[2] - nz * a[1];
        b[1] = nz * a[0] - nx * a[2];
        b[2] = nx * a[1] - ny * a[0];
        return std::vector<float>{float(a[0]), float(a[1]), float(a[2]),
                                  float(b[0]), float(b[1]), float(b[2]), 0, 0, 0};
    };
    auto axisOf = [](const VekrTriangleAccel& r) { return (word(r, 0) >> 4) & 3; };
    EXPECT_EQ(axisOf(recordOf(withNormal(1, 1, 0.5))), 0u);
    EXPECT_EQ(axisOf(recordOf(withNormal(1, -1, 0.5))), 0u);
    EXPECT_EQ(axisOf(recordOf(withNormal(0.5, 1, 1))), 1u);
    EXPECT_EQ(axisOf(recordOf(withNormal(1, 0.5, -1))), 0u);
    EXPECT_EQ(axisOf(recordOf(withNormal(0.25, 0.5, 1))), 2u);
    // (u, v) follow k: y -> (x, z), x -> (y, z).
    EXPECT_EQ(word(recordOf(withNormal(0.5, 1, 0.25)), 0) & 0x3Fu, 0x10u | (0u << 2) | 2u);
    EXPECT_EQ(word(recordOf(withNormal(1, 0.5, 0.25)), 0) & 0x3Fu, (1u << 2) | 2u);
}

TEST(TriangleAccel, DegenerateTrianglesGiveZeroRecords)
{
    const VekrTriangleAccel collinear = recordOf({0, 0, 0, 1, 1, 1, 2, 2, 2});
    const VekrTriangleAccel point = recordOf({3, 4, 5, 3, 4, 5, 3, 4, 5});
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(word(collinear, i), 0u);
        EXPECT_EQ(word(point, i), 0u);
    }
}

TEST(TriangleAccel, NanCoordinatesTakeTheGeneralPath)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const VekrTriangleAccel r = recordOf({0, 0, 0, 1, 0, 0, 0, nan, 0});
    EXPECT_EQ(word(r, 0) & 0x3Fu, 0x06u);  // k = x (no comparison succeeds), u = y, v = z
    EXPECT_TRUE(std::isnan(fword(r, 1)));
    EXPECT_EQ(fword(r, 2), 0.0f);
}

TEST(TriangleAccel, FourthIndexIsIgnored)
{
    const float v[9] = {0, 0, 5, 1, 0, 5, 0, 1, 5};
    const int a[4] = {0, 1, 2, -7}, b[4] = {0, 1, 2, 99999};
    VekrTriangleAccel ra, rb;
    vekrTriangleAccelInit(&ra, v, a, 1);
    vekrTriangleAccelInit(&rb, v, b, 1);
    EXPECT_EQ(std::memcmp(&ra, &rb, sizeof ra), 0);
}

}  // namespace
