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
#include "shadetest.h"
#include "vekr.h"

namespace {

using namespace shadetest;
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

TEST(TriangleNormal, MatchesLongDoubleReferenceOnRandomTriangles)
{
    expectTriangleNormalsMatch(vekr::test::randomTriangles(5001, 11, 0.3f));
}

TEST(TriangleNormal, MatchesReferenceOnMeshWithDegeneratePoles)
{
    // The sphere's pole rows collapse to single points: zero normals there.
    const Mesh m = vekr::test::bumpySphere(40, 37);
    expectTriangleNormalsMatch(m);
    std::vector<float> out(3 * m.triangleCount());
    vekrTriangleNormal_32f(m.vertices.data(), m.triangles.data(), out.data(), m.triangleCount());
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_EQ(out[1], 0.0f);
    EXPECT_EQ(out[2], 0.0f);
}

TEST(TriangleNormal, RealMeshIfAvailable)
{
    const std::string path = vekr::test::dataFile("bunny00.off");
    if (path.empty()) GTEST_SKIP() << "bunny00.off not fetched";
    expectTriangleNormalsMatch(vekr::test::loadOff(path));
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

TEST(TriangleNormal, ChecksAndCounts)
{
    const float v[9] = {};
    const int t[4] = {};
    float out[3] = {5, 5, 5};
    EXPECT_EQ(vekrTriangleNormal_32f(nullptr, t, out, 1), vekStsNullPtr);
    EXPECT_EQ(vekrTriangleNormal_32f(v, nullptr, out, -1), vekStsNullPtr);
    EXPECT_EQ(vekrTriangleNormal_32f(v, t, nullptr, 1), vekStsNullPtr);
    EXPECT_EQ(vekrTriangleNormal_32f(v, t, out, 0), vekStsOk);
    EXPECT_EQ(vekrTriangleNormal_32f(v, t, out, -3), vekStsOk);
    EXPECT_EQ(out[0], 5.0f);
}

// ---- per-ray normals -------------------------------------------------------

// A small mesh with per-triangle and per-vertex normals (not unit length),
// plus a packet of hits that mixes hit and missed rays.
struct HitPacket {
    std::vector<float> triNormals;   // 3 per triangle
    std::vector<float> vertNormals;  // 3 per vertex
    std::vector<int> records;        // `stride` ints per triangle
    int stride;
    int triangles;
};

HitPacket makeMesh(int triangles, int vertices, int stride, std::mt19937& rng)
{
    HitPacket h;
    h.stride = stride;
    h.triangles = triangles;
    std::uniform_real_distribution<float> d(-2.0f, 2.0f);
    for (int i = 0; i < 3 * triangles; ++i) h.triNormals.push_back(d(rng));
    for (int i = 0; i < 3 * vertices; ++i) h.vertNormals.push_back(d(rng));
    h.records.assign(static_cast<size_t>(triangles) * stride, -5);
    for (int t = 0; t < triangles; ++t)
        for (int k = 0; k < 3; ++k) h.records[t * stride + k] = static_cast<int>(rng() % vertices);
    return h;
}

// Hit indices: groups of all hits (sometimes one triangle four times), all
// misses, and mixes.
void fillHits(Mask& idx, int n, int triangles, std::mt19937& rng)
{
    for (int g = 0; g < n; g += 4) {
        const int kind = static_cast<int>(rng() % 4);
        const int same = static_cast<int>(rng() % triangles);
        for (int i = g; i < g + 4 && i < n; ++i) {
            if (kind == 0) idx[i] = -1 - static_cast<int>(rng() % 3);
            else if (kind == 1) idx[i] = same;
            else if (kind == 2) idx[i] = static_cast<int>(rng() % triangles);
            else idx[i] = (rng() & 1) ? static_cast<int>(rng() % triangles) : INT32_MIN;
        }
    }
}

TEST(FlatNormal, CopiesStoredNormalAndZeroesMisses)
{
    std::mt19937 rng(3);
    const HitPacket h = makeMesh(50, 30, 4, rng);
    for (int n : {1, 3, 4, 17, 64, 203}) {
        for (int shift : {0, 1}) {
            Mask idx(n, shift);
            fillHits(idx, n, h.triangles, rng);
            Planes out(n, shift);
            fillUniform(out, rng, 9, 10);
            ASSERT_EQ(vekrSurfFlatNormal_32f(h.triNormals.data(), idx.p, out.out(), n), vekStsOk);
            for (int i = 0; i < n; ++i)
                for (int c = 0; c < 3; ++c) {
                    const float want = idx[i] < 0 ? 0.0f : h.triNormals[3 * idx[i] + c];
                    ASSERT_TRUE(sameBits(out.at(c, i), want)) << n << " " << i;
                }
        }
    }
}

TEST(FlatNormal, FastPathBitEqualToGeneral)
{
    std::mt19937 rng(4);
    HitPacket h = makeMesh(37, 10, 4, rng);
    h.triNormals[5] = shadetest::fromBits(0x7FC01234);  // a NaN payload survives the copy
    const int n = 1000;
    Mask idx(n);
    fillHits(idx, n, h.triangles, rng);
    Aligned<float> normals(h.triNormals.size());
    std::copy(h.triNormals.begin(), h.triNormals.end(), normals.data());
    Planes a(n), b(n);
    vekr::shade::flatNormalsFast(normals.data(), idx.p, a.out(), n);
    vekr::shade::flatNormalsGeneral(normals.data(), idx.p, b.out(), n);
    for (int c = 0; c < 3; ++c) EXPECT_EQ(std::memcmp(a.p[c], b.p[c], 4 * n), 0);
}

TEST(FlatNormal, ChecksAndCounts)
{
    const float tn[3] = {1, 2, 3};
    const int idx[1] = {0};
    float x = 5, y = 5, z = 5;
    float* out[3] = {&x, &y, &z};
    EXPECT_EQ(vekrSurfFlatNormal_32f(nullptr, idx, out, 1), vekStsNullPtr);
    EXPECT_EQ(vekrSurfFlatNormal_32f(tn, nullptr, out, 1), vekStsNullPtr);
    EXPECT_EQ(vekrSurfFlatNormal_32f(tn, idx, out, 0), vekStsOk);
    EXPECT_EQ(vekrSurfFlatNormal_32f(tn, idx, out, -4), vekStsOk);
    EXPECT_EQ(vekrSurfFlatNormal_32f(tn, idx, nullptr, 0), vekStsOk);  // planes not checked
    EXPECT_EQ(x, 5.0f);
}

// Double-precision smooth normal, or nothing (zeros) where the float blend
// would be shorter than the float epsilon.
void referenceSmooth(const HitPacket& h, int t, float u, float v, double out[3])
{
    const int* r = &h.records[static_cast<size_t>(t) * h.stride];
    const double w = 1.0 - double(u) - double(v);
    double n[3];
    for (int c = 0; c < 3; ++c)
        n[c] = h.vertNormals[3 * r[0] + c] * double(u) + h.vertNormals[3 * r[1] + c] * double(v) +
               h.vertNormals[3 * r[2] + c] * w;
    const double len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    for (int c = 0; c < 3; ++c) out[c] = n[c] / len;
}

struct SmoothCase {
    int n;
    Mask idx;
    Planes uv;  // planes 0 and 1 used
    SmoothCase(int count, int shift, const HitPacket& h, std::mt19937& rng)
        : n(count), idx(count, shift), uv(count, shift)
    {
        fillHits(idx, n, h.triangles, rng);
        std::uniform_real_distribution<float> d(0.0f, 1.0f);
        for (int i = 0; i < n; ++i) {
            float u = d(rng), v = d(rng);
            if (u + v > 1) u = 1 - u, v = 1 - v;
            uv.p[0][i] = u;
            uv.p[1][i] = v;
        }
    }
    const float* const* uvp() const { return uv.p; }
};

TEST(SmoothNormal, GeneralPathMatchesDoubleReference)
{
    std::mt19937 rng(8);
    const HitPacket h = makeMesh(60, 40, 5, rng);
    for (int n : {1, 7, 16, 301}) {
        SmoothCase k(n, 1, h, rng);  // misaligned: general path through the export
        Planes out(n, 1);
        ASSERT_EQ(vekrSurfSmoothNormal_32f(h.vertNormals.data(), h.records.data(), k.idx.p,
                                           k.uvp(), out.out(), n, h.stride),
                  vekStsOk);
        for (int i = 0; i < n; ++i) {
            if (k.idx[i] < 0) {
                for (int c = 0; c < 3; ++c) ASSERT_TRUE(sameBits(out.at(c, i), 0.0f));
                continue;
            }
            double ref[3];
            referenceSmooth(h, k.idx[i], k.uv.p[0][i], k.uv.p[1][i], ref);
            const double len = std::sqrt(double(out.at(0, i)) * out.at(0, i) +
                                         double(out.at(1, i)) * out.at(1, i) +
                                         double(out.at(2, i)) * out.at(2, i));
            if (len == 0) continue;  // blend below the epsilon: checked separately
            for (int c = 0; c < 3; ++c) ASSERT_NEAR(out.at(c, i), ref[c], 2e-5) << i;
        }
    }
}

TEST(SmoothNormal, FastPathWithinLastBitsOfGeneral)
{
    std::mt19937 rng(9);
    for (int stride : {3, 4, 7}) {
        const HitPacket h = makeMesh(80, 50, stride, rng);
        Aligned<float> vn(h.vertNormals.size());
        Aligned<int> rec(h.records.size());
        std::copy(h.vertNormals.begin(), h.vertNormals.end(), vn.data());
        std::copy(h.records.begin(), h.records.end(), rec.data());
        const int n = 2000;
        SmoothCase k(n, 0, h, rng);
        Planes fast(n), general(n);
        vekr::shade::smoothNormalsFast(vn.data(), rec.data(), k.idx.p, k.uvp(), fast.out(), n,
                                       stride);
        vekr::shade::smoothNormalsGeneral(vn.data(), rec.data(), k.idx.p, k.uvp(), general.out(),
                                          n, stride);
        for (int i = 0; i < n; ++i)
            for (int c = 0; c < 3; ++c) {
                const float f = fast.at(c, i), g = general.at(c, i);
                if (k.idx[i] < 0) {
                    ASSERT_TRUE(sameBits(f, 0.0f) && sameBits(g, 0.0f));
                }
                ASSERT_NEAR(f, g, 4e-7f * std::fabs(g) + 1e-9f) << "ray " << i;
            }
        // The export picks the fast path for this aligned packet.
        Planes viaExport(n);
        ASSERT_EQ(vekrSurfSmoothNormal_32f(vn.data(), rec.data(), k.idx.p, k.uvp(),
                                           viaExport.out(), n, stride),
                  vekStsOk);
        for (int c = 0; c < 3; ++c) EXPECT_EQ(std::memcmp(viaExport.p[c], fast.p[c], 4 * n), 0);
    }
}

TEST(SmoothNormal, EdgeCases)
{
    const float e = std::ldexp(1.0f, -12);  // (e, e, 0) has squared length exactly FLT_EPSILON
    alignas(16) const float vn[] = {
        0, 0, 2,    // 0
        3, 0, 0,    // 1
        -3, 0, 0,   // 2: cancels vertex 1 at u = v = 1/2
        e, e, 0,    // 3
        0, 0, 0,    // 4
    };
    alignas(16) const int rec[] = {0, 1, 2, 0, 1, 2, 0, 0, 4, 4, 3, 0, 0, 1, 0, 0};
    alignas(16) const int idx[] = {0, 1, 2, 3};
    alignas(16) const float u[] = {0.0f, 0.5f, 0.0f, 0.25f};
    alignas(16) const float v[] = {0.0f, 0.5f, 0.0f, 0.25f};
    const float* uv[2] = {u, v};
    alignas(16) float fx[4], fy[4], fz[4], gx[4], gy[4], gz[4];
    float* fast[3] = {fx, fy, fz};
    float* general[3] = {gx, gy, gz};
    vekr::shade::smoothNormalsFast(vn, rec, idx, uv, fast, 4, 4);
    vekr::shade::smoothNormalsGeneral(vn, rec, idx, uv, general, 4, 4);
    // u = v = 0: the normalised third vertex normal (-1, 0, 0).
    EXPECT_EQ(gx[0], -1.0f);
    EXPECT_NEAR(fx[0], -1.0f, 2e-7f);
    // Opposite normals cancel: zero, not a division by zero.
    for (float* o : {gx, gy, gz, fx, fy, fz}) EXPECT_TRUE(sameBits(o[1], 0.0f));
    // Squared length exactly the epsilon: normalised in the general path,
    // zero in the fast path.
    EXPECT_NEAR(gx[2], 0.70710678f, 1e-7f);
    EXPECT_NEAR(gy[2], 0.70710678f, 1e-7f);
    EXPECT_EQ(fx[2], 0.0f);
    EXPECT_EQ(fy[2], 0.0f);
    // (0, 0, 2)/4 + (3, 0, 0)/4 + (0, 0, 2)/2 = (0.75, 0, 1.5), i.e. (1, 0, 2)/sqrt(5).
    EXPECT_NEAR(gx[3], 0.4472136f, 1e-7f);
    EXPECT_NEAR(gz[3], 0.8944272f, 1e-7f);
    EXPECT_NEAR(fx[3], 0.4472136f, 3e-7f);
    EXPECT_NEAR(fz[3], 0.8944272f, 3e-7f);
}

TEST(SmoothNormal, ChecksAndCounts)
{
    const float vn[3] = {1, 0, 0}, u = 0, v = 0;
    const int rec[3] = {0, 0, 0}, idx = 0;
    const float* uv[2] = {&u, &v};
    float x = 5, y = 5, z = 5;
    float* out[3] = {&x, &y, &z};
    EXPECT_EQ(vekrSurfSmoothNormal_32f(nullptr, rec, &idx, uv, out, 1, 3), vekStsNullPtr);
    EXPECT_EQ(vekrSurfSmoothNormal_32f(vn, nullptr, &idx, uv, out, 1, 3), vekStsNullPtr);
    EXPECT_EQ(vekrSurfSmoothNormal_32f(vn, rec, nullptr, uv, out, 1, 3), vekStsNullPtr);
    EXPECT_EQ(vekrSurfSmoothNormal_32f(vn, rec, &idx, nullptr, out, 1, 3), vekStsNullPtr);
    EXPECT_EQ(vekrSurfSmoothNormal_32f(vn, rec, &idx, uv, nullptr, -1, 3), vekStsNullPtr);
    EXPECT_EQ(vekrSurfSmoothNormal_32f(vn, rec, &idx, uv, out, 0, 3), vekStsOk);
    EXPECT_EQ(vekrSurfSmoothNormal_32f(vn, rec, &idx, uv, out, -8, 3), vekStsOk);
    EXPECT_EQ(x, 5.0f);
    EXPECT_EQ(vekrSurfSmoothNormal_32f(vn, rec, &idx, uv, out, 1, 3), vekStsOk);
    EXPECT_EQ(x, 1.0f);
}

TEST(RsqrtNewton, RefinesTheHardwareEstimateInTheStatedOrder)
{
    std::mt19937 rng(1);
    std::uniform_real_distribution<float> d(1e-6f, 1e6f);
    for (int k = 0; k < 10000; ++k) {
        const float s = d(rng);
        const float r0 = _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(s)));
        const float want = (-0.5f * r0) * (s * (r0 * r0) - 3.0f);
        const float got = _mm_cvtss_f32(vekr::simd::rsqrtNewton(vekr::simd::F4(s)));
        ASSERT_TRUE(sameBits(got, want)) << s;
        ASSERT_NEAR(got, 1.0 / std::sqrt(double(s)), 4e-7 / std::sqrt(double(s)));
    }
}

}  // namespace
