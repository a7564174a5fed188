// The masked per-ray family: each member against a reference, the 4-wide
// groups against the one-ray loop, the checks each member makes, and the
// division by zero.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "shade/masked_ops.h"
#include "shadetest.h"
#include "vekr.h"

namespace {

using namespace shadetest;
using namespace vekr::shade;

const int kCounts[] = {1, 2, 3, 4, 8, 13, 64, 401};

// Every array a member can touch, at one offset from a 16-byte boundary.
struct Packet {
    int n;
    Planes a, b, v;
    Plane s, x;
    Mask m;
    Packet(int count, int shift, std::mt19937& rng)
        : n(count), a(count, shift), b(count, shift), v(count, shift), s(count, shift),
          x(count, shift), m(count, shift)
    {
        fillUniform(a, rng, -2, 2);
        fillUniform(b, rng, -2, 2);
        fillUniform(v, rng, -2, 2);
        fillUniform(s, n, rng, -3, 3);
        fillUniform(x, n, rng, -3, 3);
        fillMask(m, n, rng);
    }
    Packet(const Packet& o) = delete;
    // Same values as o, at another offset.
    Packet(const Packet& o, int shift)
        : n(o.n), a(o.n, shift), b(o.n, shift), v(o.n, shift), s(o.n, shift), x(o.n, shift),
          m(o.n, shift)
    {
        for (int i = 0; i < n; ++i) {
            for (int c = 0; c < 3; ++c) {
                a.p[c][i] = o.a.p[c][i];
                b.p[c][i] = o.b.p[c][i];
                v.p[c][i] = o.v.p[c][i];
            }
            s.p[i] = o.s.p[i];
            x.p[i] = o.x.p[i];
            m.p[i] = o.m.p[i];
        }
    }
};

TEST(MaskedDot, ReferenceAndInactiveZero)
{
    std::mt19937 rng(51);
    for (int n : kCounts)
        for (int shift : {0, 1}) {
            Packet k(n, shift, rng);
            ASSERT_EQ(vekrDot_32f_P3C1M(k.a.in(), k.b.in(), k.m.p, k.x.p, n), vekStsOk);
            for (int i = 0; i < n; ++i) {
                double want = 0;
                for (int c = 0; c < 3; ++c) want += double(k.a.at(c, i)) * k.b.at(c, i);
                if (k.m[i] < 0) ASSERT_TRUE(sameBits(k.x[i], 0.0f));
                else ASSERT_NEAR(k.x[i], want, 2e-6) << i;
            }
        }
}

TEST(MaskedDotChangeNorm, FacesNormalsAgainstTheRay)
{
    std::mt19937 rng(52);
    for (int n : kCounts)
        for (int shift : {0, 1}) {
            Packet k(n, shift, rng);
            Packet before(k, 0);
            ASSERT_EQ(vekrDotChangeNorm_32f_IM(k.a.in(), k.m.p, k.v.out(), k.x.p, n), vekStsOk);
            for (int i = 0; i < n; ++i) {
                double q = 0;
                for (int c = 0; c < 3; ++c) q += double(k.a.at(c, i)) * before.v.at(c, i);
                if (k.m[i] < 0) {
                    ASSERT_TRUE(sameBits(k.x[i], 0.0f));
                    for (int c = 0; c < 3; ++c)
                        ASSERT_TRUE(sameBits(k.v.at(c, i), before.v.at(c, i)));
                    continue;
                }
                ASSERT_LE(k.x[i], 0.0f);
                ASSERT_NEAR(k.x[i], -std::fabs(q), 2e-6) << i;
                // The normal is turned exactly where the float dot was positive.
                const float sign = (q > 2e-6) ? -1.0f : (q < -2e-6 ? 1.0f : 0.0f);
                if (sign != 0) {
                    for (int c = 0; c < 3; ++c)
                        ASSERT_TRUE(sameBits(k.v.at(c, i), sign * before.v.at(c, i))) << i;
                }
            }
        }
}

TEST(MaskedDotChangeNorm, ZeroDotLeavesNormal)
{
    alignas(16) float dx[4] = {1, 0, 0, 1}, dy[4] = {0, 1, 0, 0}, dz[4] = {0, 0, 1, 0};
    alignas(16) float nx[4] = {0, 1, -0.0f, 2}, ny[4] = {1, 0, 1, 0}, nz[4] = {1, 1, 0, 0};
    alignas(16) int m[4] = {0, 0, 0, INT32_MIN};
    alignas(16) float out[4] = {9, 9, 9, 9};
    const float* d[3] = {dx, dy, dz};
    float* nn[3] = {nx, ny, nz};
    for (int count : {4, 3}) {
        ASSERT_EQ(vekrDotChangeNorm_32f_IM(d, m, nn, out, count), vekStsOk);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(out[i], 0.0f);
        EXPECT_EQ(nx[0], 0.0f);
        EXPECT_EQ(ny[0], 1.0f);
        EXPECT_EQ(nz[0], 1.0f);
        EXPECT_TRUE(sameBits(nx[2], -0.0f));
    }
    EXPECT_EQ(out[3], 0.0f);  // INT32_MIN is inactive
    EXPECT_EQ(nx[3], 2.0f);
}

TEST(MaskedMulP3, ScalesActiveVectorsZeroesInactive)
{
    std::mt19937 rng(53);
    for (int n : kCounts)
        for (int shift : {0, 2}) {
            Packet k(n, shift, rng);
            Packet before(k, 0);
            ASSERT_EQ(vekrMul_32f_C1P3IM(k.s.p, k.m.p, k.v.out(), n), vekStsOk);
            for (int i = 0; i < n; ++i)
                for (int c = 0; c < 3; ++c) {
                    const float want = k.m[i] < 0 ? 0.0f : before.v.at(c, i) * k.s[i];
                    ASSERT_TRUE(sameBits(k.v.at(c, i), want)) << i;
                }
        }
}

TEST(MaskedMulC1, ScalesActiveZeroesInactive)
{
    std::mt19937 rng(54);
    for (int n : kCounts) {
        Packet k(n, 0, rng);
        Packet before(k, 0);
        ASSERT_EQ(vekrMul_32f_C1IM(k.s.p, k.m.p, k.x.p, n), vekStsOk);
        for (int i = 0; i < n; ++i) {
            const double want = k.m[i] < 0 ? 0.0 : double(before.x[i]) * k.s[i];
            ASSERT_EQ(k.x[i], static_cast<float>(want)) << i;
        }
    }
}

TEST(MaskedDiv, DividesActiveZeroesInactive)
{
    std::mt19937 rng(55);
    for (int n : kCounts) {
        Packet k(n, 1, rng);
        Packet before(k, 0);
        ASSERT_EQ(vekrDiv_32f_C1IM(k.s.p, k.m.p, k.x.p, n), vekStsOk);
        for (int i = 0; i < n; ++i) {
            const double want = k.m[i] < 0 ? 0.0 : double(before.x[i]) / k.s[i];
            ASSERT_EQ(k.x[i], static_cast<float>(want)) << i;
        }
    }
}

TEST(MaskedDiv, DivisionByZero)
{
    const float inf = std::numeric_limits<float>::infinity();
    float s[7] = {0, 0, 0, -0.0f, 0, -0.0f, 0};
    float x[7] = {3, -3, 0, 3, std::numeric_limits<float>::quiet_NaN(), -0.0f, 5};
    int m[7] = {0, 1, 0, 0, 0, 0, -1};
    ASSERT_EQ(vekrDiv_32f_C1IM(s, m, x, 7), vekStsOk);
    EXPECT_EQ(x[0], inf);
    EXPECT_EQ(x[1], -inf);
    EXPECT_EQ(bits(x[2]), 0xFFC00000u);
    EXPECT_EQ(x[3], inf);  // the sign of a zero divisor does not matter
    EXPECT_EQ(bits(x[4]), 0xFFC00000u);
    EXPECT_EQ(bits(x[5]), 0xFFC00000u);
    EXPECT_TRUE(sameBits(x[6], 0.0f));
}

TEST(MaskedAddMulMul, AccumulatesActiveLeavesInactive)
{
    std::mt19937 rng(56);
    const float kf[3] = {0.7f, 1.3f, -0.45f};
    for (int n : kCounts)
        for (int shift : {0, 1}) {
            Packet k(n, shift, rng);
            Packet before(k, 0);
            ASSERT_EQ(vekrAddMulMul_32f_AC1P3IM(kf, k.s.p, k.a.in(), k.m.p, k.v.out(), n),
                      vekStsOk);
            for (int i = 0; i < n; ++i)
                for (int c = 0; c < 3; ++c) {
                    if (k.m[i] < 0) {
                        ASSERT_TRUE(sameBits(k.v.at(c, i), before.v.at(c, i)));
                        continue;
                    }
                    const double want =
                        before.v.at(c, i) + double(k.a.at(c, i)) * kf[c] * double(k.s[i]);
                    ASSERT_NEAR(k.v.at(c, i), want, 3e-6) << i;
                }
        }
}

// ---- 4-wide groups against the loop --------------------------------------------

// Runs the groups on one copy and the loop on another, through a member made
// by `make(packet)`, and returns the largest difference in ulps over the
// arrays the members write (x and the three v planes).
template <class Make>
int64_t groupsVersusLoop(Make make, int n, uint32_t seed)
{
    std::mt19937 rng(seed);
    Packet g(n, 0, rng);
    Packet l(g, 0);
    maskedGroups(make(g), n);
    maskedLoop(make(l), n);
    int64_t worst = 0;
    for (int i = 0; i < n; ++i) {
        worst = std::max(worst, ulps(g.x[i], l.x[i]));
        for (int c = 0; c < 3; ++c) worst = std::max(worst, ulps(g.v.at(c, i), l.v.at(c, i)));
    }
    return worst;
}

TEST(MaskedGroups, SameResultsAsLoop)
{
    for (uint32_t seed : {1u, 2u, 3u}) {
        EXPECT_EQ(groupsVersusLoop([](Packet& p) { return DotOp{p.a.p, p.b.p, p.m.p, p.x.p}; },
                                   1000, seed),
                  0);
        EXPECT_EQ(groupsVersusLoop(
                      [](Packet& p) { return DotChangeNormOp{p.a.p, p.m.p, p.v.p, p.x.p}; },
                      1000, seed),
                  0);
        EXPECT_EQ(groupsVersusLoop([](Packet& p) { return MulP3Op{p.s.p, p.m.p, p.v.p}; }, 1000,
                                   seed),
                  0);
    }
}

TEST(MaskedGroups, AddMulMulDiffersOnlyInTheLastBits)
{
    static const float kf[3] = {0.3f, 1.7f, -2.9f};
    auto make = [](Packet& p) { return AddMulMulOp{kf, p.s.p, p.a.p, p.m.p, p.v.p}; };
    int differing = 0;
    for (uint32_t seed : {4u, 5u}) {
        std::mt19937 rng(seed);
        const int n = 1000;
        Packet g(n, 0, rng);
        Packet l(g, 0), before(g, 0);
        maskedGroups(make(g), n);
        maskedLoop(make(l), n);
        for (int i = 0; i < n; ++i)
            for (int c = 0; c < 3; ++c) {
                // The two products differ by at most their two roundings; the
                // sums then by at most one more rounding of the result.
                const double prod = std::fabs(double(g.a.at(c, i)) * kf[c] * g.s[i]);
                const double sum = std::fabs(double(before.v.at(c, i))) + prod;
                const double diff = std::fabs(double(g.v.at(c, i)) - l.v.at(c, i));
                ASSERT_LE(diff, 2.4e-7 * prod + 1.2e-7 * sum) << i;
                differing += diff != 0;
            }
    }
    EXPECT_GT(differing, 0);  // the two associations really are different
}

TEST(MaskedGroups, ExportChoosesGroupsOnlyForAlignedMultiplesOfFour)
{
    // AddMulMul's two paths give different bits on some rays, which shows
    // the path the export took.
    static const float kf[3] = {0.3f, 1.7f, -2.9f};
    auto make = [](Packet& p) { return AddMulMulOp{kf, p.s.p, p.a.p, p.m.p, p.v.p}; };
    std::mt19937 rng(60);
    for (int n : {64, 63}) {
        Packet ref(n, 0, rng);
        Packet groups(ref, 0), loop(ref, 0), aligned(ref, 0), shifted(ref, 1);
        if (n % 4 == 0) maskedGroups(make(groups), n);
        else maskedLoop(make(groups), n);
        maskedLoop(make(loop), n);
        vekrAddMulMul_32f_AC1P3IM(kf, aligned.s.p, aligned.a.in(), aligned.m.p, aligned.v.out(),
                                  n);
        vekrAddMulMul_32f_AC1P3IM(kf, shifted.s.p, shifted.a.in(), shifted.m.p,
                                  shifted.v.out(), n);
        for (int c = 0; c < 3; ++c) {
            EXPECT_EQ(std::memcmp(aligned.v.p[c], groups.v.p[c], 4 * n), 0);
            EXPECT_EQ(std::memcmp(shifted.v.p[c], loop.v.p[c], 4 * n), 0);
        }
    }
}

// ---- checks and counts ---------------------------------------------------------

TEST(MaskedChecks, EachMemberChecksItsOwnPointers)
{
    float f = 1;
    const float* c3[3] = {&f, &f, &f};
    float* o3[3] = {&f, &f, &f};
    int m = 0;
    EXPECT_EQ(vekrDot_32f_P3C1M(nullptr, c3, &m, &f, 1), vekStsNullPtr);
    EXPECT_EQ(vekrDot_32f_P3C1M(c3, nullptr, &m, &f, 1), vekStsNullPtr);
    EXPECT_EQ(vekrDot_32f_P3C1M(c3, c3, nullptr, &f, 1), vekStsNullPtr);
    EXPECT_EQ(vekrDot_32f_P3C1M(c3, c3, &m, nullptr, -1), vekStsNullPtr);

    EXPECT_EQ(vekrDotChangeNorm_32f_IM(nullptr, &m, o3, &f, 1), vekStsNullPtr);
    EXPECT_EQ(vekrDotChangeNorm_32f_IM(c3, nullptr, o3, &f, 1), vekStsNullPtr);
    EXPECT_EQ(vekrDotChangeNorm_32f_IM(c3, &m, nullptr, &f, 1), vekStsNullPtr);
    EXPECT_EQ(vekrDotChangeNorm_32f_IM(c3, &m, o3, nullptr, 0), vekStsNullPtr);

    EXPECT_EQ(vekrMul_32f_C1P3IM(nullptr, &m, o3, 1), vekStsNullPtr);
    EXPECT_EQ(vekrMul_32f_C1P3IM(&f, nullptr, o3, 1), vekStsNullPtr);
    EXPECT_EQ(vekrMul_32f_C1P3IM(&f, &m, nullptr, 1), vekStsNullPtr);

    EXPECT_EQ(vekrAddMulMul_32f_AC1P3IM(&f, nullptr, c3, &m, o3, 1), vekStsNullPtr);
    EXPECT_EQ(vekrAddMulMul_32f_AC1P3IM(&f, &f, nullptr, &m, o3, 1), vekStsNullPtr);
    EXPECT_EQ(vekrAddMulMul_32f_AC1P3IM(&f, &f, c3, nullptr, o3, 1), vekStsNullPtr);
    EXPECT_EQ(vekrAddMulMul_32f_AC1P3IM(&f, &f, c3, &m, nullptr, 1), vekStsNullPtr);
    // k is not checked.
    EXPECT_EQ(vekrAddMulMul_32f_AC1P3IM(nullptr, &f, c3, &m, o3, 0), vekStsOk);

    EXPECT_EQ(vekrDiv_32f_C1IM(nullptr, &m, &f, 1), vekStsNullPtr);
    EXPECT_EQ(vekrDiv_32f_C1IM(&f, &m, nullptr, 1), vekStsNullPtr);
    // The mask is not checked.
    EXPECT_EQ(vekrDiv_32f_C1IM(&f, nullptr, &f, 0), vekStsOk);

    // Mul_C1IM checks nothing: only the count.
    EXPECT_EQ(vekrMul_32f_C1IM(nullptr, nullptr, nullptr, 0), vekStsOk);
    EXPECT_EQ(vekrMul_32f_C1IM(nullptr, nullptr, nullptr, -7), vekStsOk);
    EXPECT_EQ(f, 1.0f);
}

TEST(MaskedChecks, CountsBelowOneTouchNothing)
{
    alignas(16) float f[4] = {2, 2, 2, 2};
    alignas(16) int m[4] = {0, 0, 0, 0};
    const float* c3[3] = {f, f, f};
    float* o3[3] = {f, f, f};
    for (int n : {0, -1, -4}) {
        EXPECT_EQ(vekrDot_32f_P3C1M(c3, c3, m, f, n), vekStsOk);
        EXPECT_EQ(vekrDotChangeNorm_32f_IM(c3, m, o3, f, n), vekStsOk);
        EXPECT_EQ(vekrMul_32f_C1P3IM(f, m, o3, n), vekStsOk);
        EXPECT_EQ(vekrMul_32f_C1IM(f, m, f, n), vekStsOk);
        EXPECT_EQ(vekrDiv_32f_C1IM(f, m, f, n), vekStsOk);
        EXPECT_EQ(vekrAddMulMul_32f_AC1P3IM(f, f, c3, m, o3, n), vekStsOk);
    }
    for (float v : f) EXPECT_EQ(v, 2.0f);
}

}  // namespace
