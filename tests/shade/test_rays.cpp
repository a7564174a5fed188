// Reflection rays, shadow rays and distance attenuation: references, the
// vector kernels against the scalar ones, mask rules and edge values.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "shade/rays.h"
#include "shadetest.h"
#include "vekr.h"

namespace {

using namespace shadetest;

const float kNaN = std::numeric_limits<float>::quiet_NaN();

// ---- reflection --------------------------------------------------------------

struct ReflectCase {
    int n;
    Planes d, nn, r;
    Mask m;
    ReflectCase(int count, int shift, std::mt19937& rng)
        : n(count), d(count, shift), nn(count, shift), r(count, shift), m(count, shift)
    {
        fillUniform(d, rng, -1, 1);
        fillUniform(nn, rng, -1, 1);
        fillUniform(r, rng, 5, 6);
        fillMask(m, n, rng);
        for (int i = 0; i < n; ++i) {
            if (m[i] < 0 && (i % 3 == 0)) d.at(0, i) = kNaN;  // never reaches an output
        }
    }
};

TEST(Reflection, MatchesDoubleReferenceInEveryPath)
{
    std::mt19937 rng(21);
    for (int n : {1, 3, 4, 16, 37, 400}) {
        for (int shift : {0, 1}) {
            ReflectCase k(n, shift, rng);
            ASSERT_EQ(vekrCastReflectionRay_32f(k.d.in(), k.m.p, k.nn.in(), k.r.out(), n),
                      vekStsOk);
            for (int i = 0; i < n; ++i) {
                if (k.m[i] < 0) {
                    for (int c = 0; c < 3; ++c) ASSERT_TRUE(sameBits(k.r.at(c, i), 0.0f));
                    continue;
                }
                double dot = 0;
                for (int c = 0; c < 3; ++c) dot += double(k.d.at(c, i)) * k.nn.at(c, i);
                for (int c = 0; c < 3; ++c)
                    ASSERT_NEAR(k.r.at(c, i), k.d.at(c, i) - 2 * dot * k.nn.at(c, i), 2e-6)
                        << n << " " << i;
            }
        }
    }
}

TEST(Reflection, VectorKernelsBitEqualToScalar)
{
    std::mt19937 rng(22);
    const int n = 1024;
    for (int shift : {0, 3}) {
        ReflectCase k(n, shift, rng);
        Planes scalar(n);
        vekr::shade::reflectScalar(k.d.in(), k.m.p, k.nn.in(), scalar.out(), n);
        vekr::shade::reflectVector(k.d.in(), k.m.p, k.nn.in(), k.r.out(), n, shift == 0);
        for (int c = 0; c < 3; ++c) EXPECT_EQ(std::memcmp(scalar.p[c], k.r.p[c], 4 * n), 0);
    }
}

TEST(Reflection, PerpendicularOrZeroNormalKeepsDirection)
{
    alignas(16) float dx[4] = {1, 0.5f, 3, -2}, dy[4] = {0, 0.25f, 4, 1}, dz[4] = {0, 0, 5, 7};
    alignas(16) float nx[4] = {0, 0, 0, 0}, ny[4] = {1, 0, 0, 0}, nz[4] = {0, 1, 0, 0};
    alignas(16) int m[4] = {0, 1, 0, 2};
    alignas(16) float rx[4], ry[4], rz[4];
    const float* d[3] = {dx, dy, dz};
    const float* nn[3] = {nx, ny, nz};
    float* r[3] = {rx, ry, rz};
    for (int count : {4, 3}) {
        ASSERT_EQ(vekrCastReflectionRay_32f(d, m, nn, r, count), vekStsOk);
        for (int i : {0, 2, 3}) {
            if (i >= count) continue;
            EXPECT_EQ(rx[i], dx[i]);
            EXPECT_EQ(ry[i], dy[i]);
            EXPECT_EQ(rz[i], dz[i]);
        }
        // Lane 1 has N = z and D.N = 0: unchanged as well.
        EXPECT_EQ(rx[1], 0.5f);
        EXPECT_EQ(ry[1], 0.25f);
    }
}

TEST(Reflection, ChecksAndCounts)
{
    float a = 1, b = 2;
    const float* c[3] = {&a, &a, &a};
    float* o[3] = {&b, &b, &b};
    int m = 0;
    EXPECT_EQ(vekrCastReflectionRay_32f(nullptr, &m, c, o, 1), vekStsNullPtr);
    EXPECT_EQ(vekrCastReflectionRay_32f(c, nullptr, c, o, 1), vekStsNullPtr);
    EXPECT_EQ(vekrCastReflectionRay_32f(c, &m, nullptr, o, 1), vekStsNullPtr);
    EXPECT_EQ(vekrCastReflectionRay_32f(c, &m, c, nullptr, -2), vekStsNullPtr);
    EXPECT_EQ(vekrCastReflectionRay_32f(c, &m, c, o, 0), vekStsOk);
    EXPECT_EQ(vekrCastReflectionRay_32f(c, &m, c, o, -4), vekStsOk);
    EXPECT_EQ(b, 2.0f);
}

// ---- shadow rays ---------------------------------------------------------------

const float kGrazing = 0.0017453292f;

struct ShadowCase {
    int n;
    float light[3] = {0.25f, 2.0f, -0.5f};
    Plane f, c;
    Planes nn, p, s;
    Mask m;
    ShadowCase(int count, int shift, std::mt19937& rng)
        : n(count), f(count, shift), c(count, shift), nn(count, shift), p(count, shift),
          s(count, shift), m(count, shift)
    {
        fillUniform(f, n, rng, -1, 1);
        fillUniform(c, n, rng, 7, 8);
        fillUniform(nn, rng, -1, 1);
        fillUniform(p, rng, -3, 3);
        fillUniform(s, rng, 7, 8);
        fillMask(m, n, rng);
        for (int i = 0; i < n; i += 5) f[i] = 0.0f;
        // Some hits exactly at the light, some with |q| near the threshold.
        for (int i = 2; i < n; i += 11)
            for (int k = 0; k < 3; ++k) p.at(k, i) = light[k];
        for (int i = 3; i < n; i += 7) {
            nn.at(0, i) = 1, nn.at(1, i) = 0, nn.at(2, i) = 0;
            const float q = (i % 2) ? kGrazing : std::nextafter(kGrazing, 0.0f);
            p.at(0, i) = light[0] + ((i % 4 == 3) ? q : -q);
        }
    }
};

// Expected per ray, written from the rule: q = N.(P - L); the ray stays on
// when it is active, f*q > 0 and |q| reaches the threshold.
struct ShadowExpect {
    bool pass;
    float q, vx, vy, vz;
};

ShadowExpect expectShadow(ShadowCase& k, int i, int mask)
{
    ShadowExpect e;
    e.vx = k.p.at(0, i) - k.light[0];
    e.vy = k.p.at(1, i) - k.light[1];
    e.vz = k.p.at(2, i) - k.light[2];
    e.q = k.nn.at(0, i) * e.vx + k.nn.at(1, i) * e.vy + k.nn.at(2, i) * e.vz;
    e.pass = mask >= 0 && std::fabs(e.q) >= kGrazing && k.f[i] * e.q > 0;
    return e;
}

void checkShadow(ShadowCase& k, const std::vector<int>& maskBefore, int vectorEnd)
{
    for (int i = 0; i < k.n; ++i) {
        const ShadowExpect e = expectShadow(k, i, maskBefore[i]);
        if (e.pass) {
            ASSERT_EQ(k.m[i], maskBefore[i]) << i;
            ASSERT_TRUE(sameBits(k.c[i], std::fabs(e.q))) << i;
            ASSERT_TRUE(sameBits(k.s.at(0, i), e.vx) && sameBits(k.s.at(1, i), e.vy) &&
                        sameBits(k.s.at(2, i), e.vz))
                << i;
        } else {
            // The vector part turns off every failing lane; the scalar tail
            // keeps an inactive ray's own negative value.
            const int want = (i >= vectorEnd && maskBefore[i] < 0) ? maskBefore[i] : -1;
            ASSERT_EQ(k.m[i], want) << i;
            ASSERT_TRUE(sameBits(k.c[i], 0.0f)) << i;
            for (int c = 0; c < 3; ++c) ASSERT_TRUE(sameBits(k.s.at(c, i), 0.0f)) << i;
        }
    }
}

TEST(ShadowRay, VectorGroupsAndScalarTailFollowTheirMaskRules)
{
    std::mt19937 rng(31);
    for (int n : {1, 3, 4, 9, 64, 203}) {
        for (int shift : {0, 1}) {
            ShadowCase k(n, shift, rng);
            const std::vector<int> before(k.m.p, k.m.p + n);
            ASSERT_EQ(vekrCastShadowSO_32f(k.light, k.f.p, k.nn.in(), k.p.in(), k.m.p, k.c.p,
                                           k.s.out(), n),
                      vekStsOk);
            checkShadow(k, before, n & ~3);
        }
    }
}

TEST(ShadowRay, ScalarKernelAloneKeepsInactiveMasks)
{
    std::mt19937 rng(32);
    ShadowCase k(100, 0, rng);
    const std::vector<int> before(k.m.p, k.m.p + 100);
    vekr::shade::shadowScalar(k.light, k.f.p, k.nn.in(), k.p.in(), k.m.p, k.c.p, k.s.out(), 0,
                              100);
    checkShadow(k, before, 0);
}

TEST(ShadowRay, EdgeValues)
{
    // Lanes: light at the hit point; side factor 0; |q| just under the
    // threshold; |q| exactly the threshold; a lit ray seen from behind.
    const float light[3] = {0, 0, 0};
    const float under = std::nextafter(kGrazing, 0.0f);
    float f[5] = {1, 0, 1, 1, -1};
    float nx[5] = {0, 0, 1, 1, 0}, ny[5] = {0, 1, 0, 0, 1}, nz[5] = {1, 0, 0, 0, 0};
    float px[5] = {0, 0, under, kGrazing, 0}, py[5] = {0, 3, 0, 0, 3}, pz[5] = {0, 0, 0, 0, 0};
    int m[5] = {0, 0, 0, 0, 0};
    float c[5], sx[5], sy[5], sz[5];
    const float* nn[3] = {nx, ny, nz};
    const float* p[3] = {px, py, pz};
    float* s[3] = {sx, sy, sz};
    ASSERT_EQ(vekrCastShadowSO_32f(light, f, nn, p, m, c, s, 5), vekStsOk);
    const int wantMask[5] = {-1, -1, -1, 0, -1};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(m[i], wantMask[i]) << i;
    EXPECT_EQ(c[0], 0.0f);
    EXPECT_EQ(sx[0], 0.0f);
    EXPECT_EQ(c[3], kGrazing);
    EXPECT_EQ(sx[3], kGrazing);
    EXPECT_EQ(sy[4], 0.0f);
}

TEST(ShadowRay, ChecksAndCounts)
{
    float a = 1;
    const float* c3[3] = {&a, &a, &a};
    float* o3[3] = {&a, &a, &a};
    int m = 0;
    EXPECT_EQ(vekrCastShadowSO_32f(&a, nullptr, c3, c3, &m, &a, o3, 1), vekStsNullPtr);
    EXPECT_EQ(vekrCastShadowSO_32f(&a, &a, nullptr, c3, &m, &a, o3, 1), vekStsNullPtr);
    EXPECT_EQ(vekrCastShadowSO_32f(&a, &a, c3, nullptr, &m, &a, o3, 1), vekStsNullPtr);
    EXPECT_EQ(vekrCastShadowSO_32f(&a, &a, c3, c3, nullptr, &a, o3, 1), vekStsNullPtr);
    EXPECT_EQ(vekrCastShadowSO_32f(&a, &a, c3, c3, &m, nullptr, o3, 1), vekStsNullPtr);
    EXPECT_EQ(vekrCastShadowSO_32f(&a, &a, c3, c3, &m, &a, nullptr, 1), vekStsNullPtr);
    // The light position is not checked.
    EXPECT_EQ(vekrCastShadowSO_32f(nullptr, &a, c3, c3, &m, &a, o3, 0), vekStsOk);
    EXPECT_EQ(vekrCastShadowSO_32f(&a, &a, c3, c3, &m, &a, o3, -1), vekStsOk);
    EXPECT_EQ(a, 1.0f);
    EXPECT_EQ(m, 0);
}

// ---- distance attenuation ----------------------------------------------------------

TEST(DistAttenuation, ClampedDistanceInEveryPath)
{
    std::mt19937 rng(41);
    const float light[3] = {0.5f, -1.0f, 2.0f};
    for (int n : {1, 5, 8, 64, 333}) {
        for (int shift : {0, 1}) {
            Planes p(n, shift);
            fillUniform(p, rng, -2, 4);
            Mask m(n, shift);
            fillMask(m, n, rng);
            Plane d(n, shift);
            ASSERT_EQ(vekrDistAttenuationSO_32f_M(light, p.in(), m.p, d.p, n), vekStsOk);
            for (int i = 0; i < n; ++i) {
                double s = 0;
                for (int c = 0; c < 3; ++c) s += std::pow(double(p.at(c, i)) - light[c], 2);
                const double want = m[i] < 0 ? 1.0 : std::max(1.0, std::sqrt(s));
                ASSERT_NEAR(d[i], want, 1e-6 * want) << i;
            }
        }
    }
}

TEST(DistAttenuation, VectorKernelBitEqualToScalar)
{
    std::mt19937 rng(42);
    const float light[3] = {0.1f, 0.2f, 0.3f};
    const int n = 1000;
    Planes p(n);
    fillUniform(p, rng, -1.5f, 1.5f);
    Mask m(n);
    fillMask(m, n, rng);
    Plane a(n), b(n);
    vekr::shade::attenuationVector(light, p.in(), m.p, a.p, n);
    vekr::shade::attenuationScalar(light, p.in(), m.p, b.p, n);
    EXPECT_EQ(std::memcmp(a.p, b.p, 4 * n), 0);
}

TEST(DistAttenuation, EdgeValues)
{
    const float light[3] = {1, 1, 1};
    alignas(16) float px[4] = {1.5f, 3, 7, 1}, py[4] = {1, 1, 1, 1}, pz[4] = {1, 1, 1, 1};
    alignas(16) int m[4] = {0, 0, -1, 0};
    alignas(16) float d[4];
    const float* p[3] = {px, py, pz};
    for (int count : {4, 3}) {
        ASSERT_EQ(vekrDistAttenuationSO_32f_M(light, p, m, d, count), vekStsOk);
        EXPECT_EQ(d[0], 1.0f);  // distance 0.5
        EXPECT_EQ(d[1], 2.0f);  // distance 2
        EXPECT_EQ(d[2], 1.0f);  // masked
    }
    EXPECT_EQ(d[3], 1.0f);  // at the light
}

TEST(DistAttenuation, ChecksAndCounts)
{
    float a = 3;
    const float* c3[3] = {&a, &a, &a};
    int m = 0;
    EXPECT_EQ(vekrDistAttenuationSO_32f_M(&a, nullptr, &m, &a, 1), vekStsNullPtr);
    EXPECT_EQ(vekrDistAttenuationSO_32f_M(&a, c3, nullptr, &a, 1), vekStsNullPtr);
    EXPECT_EQ(vekrDistAttenuationSO_32f_M(&a, c3, &m, nullptr, 1), vekStsNullPtr);
    EXPECT_EQ(vekrDistAttenuationSO_32f_M(nullptr, c3, &m, &a, 0), vekStsOk);
    EXPECT_EQ(vekrDistAttenuationSO_32f_M(&a, c3, &m, &a, -4), vekStsOk);
    EXPECT_EQ(a, 3.0f);
}

}  // namespace
