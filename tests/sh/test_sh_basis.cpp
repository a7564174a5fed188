// Basis evaluation (both methods) and single bands against an independent
// double-precision reference, the printed constants, the pole, the checks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "core/isa.h"
#include "sh/sh_basis.h"
#include "sh_reference.h"
#include "sh_state_fixture.h"
#include "vekr.h"

namespace {

using shtest::State;

constexpr VekrSHType kTypes[] = {vekrSHDirect, vekrSHRecurrence};

// Worst error of band l relative to the band's largest value
// sqrt((2l+1)/(4 pi)), over many random directions, for every L.  The float
// directions are unit only to about 6e-8, which the polynomials of band 15
// amplify to a few 1e-6; the reference normalises them.
TEST(SHBasis, MatchesReferenceForEveryOrder)
{
    const shref::Directions d(2000, 7);
    for (VekrSHType type : kTypes) {
        State st(15, type);
        double worst = 0;
        for (uint32_t L = 0; L <= 15; ++L) {
            const int n = int((L + 1) * (L + 1));
            std::vector<float> out(size_t(d.size()) * n + 1, -7.0f);
            ASSERT_EQ(vekrSH_32f(d.x.data(), d.y.data(), d.z.data(), d.size(), out.data(), L,
                                 st.get()),
                      vekStsOk);
            EXPECT_EQ(out.back(), -7.0f);
            for (int i = 0; i < d.size(); ++i) {
                const auto ref = shref::basis(d.x[i], d.y[i], d.z[i], int(L));
                for (int l = 0; l <= int(L); ++l) {
                    const double scale = std::sqrt((2 * l + 1) / (4 * shref::kPi));
                    for (int k = l * l; k <= l * l + 2 * l; ++k)
                        worst = std::max(worst, std::fabs(out[size_t(i) * n + k] - ref[k]) / scale);
                }
            }
        }
        std::printf("%s method: worst error %.3g of the band scale\n",
                    type == vekrSHDirect ? "direct" : "recurrence", worst);
        EXPECT_LT(worst, 1e-5);
    }
}

// Direction grouping and instruction-set level do not change a single bit.
TEST(SHBasis, SameBitsForAnyCountAndLevel)
{
    const shref::Directions d(23, 3);
    for (VekrSHType type : kTypes) {
        State st(15, type);
        for (uint32_t L : {0u, 1u, 4u, 15u}) {
            const int n = int((L + 1) * (L + 1));
            std::vector<float> all(size_t(d.size()) * n), one(all.size()), lvl(all.size());
            ASSERT_EQ(vekrSH_32f(d.x.data(), d.y.data(), d.z.data(), d.size(), all.data(), L,
                                 st.get()),
                      vekStsOk);
            for (int i = 0; i < d.size(); ++i)
                ASSERT_EQ(vekrSH_32f(&d.x[i], &d.y[i], &d.z[i], 1, &one[size_t(i) * n], L,
                                     st.get()),
                          vekStsOk);
            EXPECT_EQ(std::memcmp(all.data(), one.data(), all.size() * 4), 0);
            for (int isa = 0; isa < vekr::kIsaCount; ++isa) {
                if (!vekr::isaSupported(vekr::Isa(isa))) continue;
                ASSERT_EQ(vekr::sh::basis(vekr::Isa(isa), d.x.data(), d.y.data(), d.z.data(),
                                          d.size(), lvl.data(), L, st.get()),
                          vekStsOk);
                EXPECT_EQ(std::memcmp(all.data(), lvl.data(), all.size() * 4), 0) << isa;
            }
        }
    }
}

TEST(SHBand, EqualsSliceOfDirectBasis)
{
    const shref::Directions d(37, 11);
    State st(15, vekrSHDirect);
    std::vector<float> full(size_t(d.size()) * 256);
    ASSERT_EQ(vekrSH_32f(d.x.data(), d.y.data(), d.z.data(), d.size(), full.data(), 15, st.get()),
              vekStsOk);
    for (uint32_t l = 0; l <= 15; ++l) {
        const int w = int(2 * l + 1);
        for (int count : {1, 4, 5, d.size()}) {
            std::vector<float> band(size_t(count) * w + 1, -7.0f);
            ASSERT_EQ(vekrSHBand_32f(d.x.data(), d.y.data(), d.z.data(), count, band.data(), l),
                      vekStsOk);
            EXPECT_EQ(band.back(), -7.0f);
            for (int i = 0; i < count; ++i)
                EXPECT_EQ(std::memcmp(&band[size_t(i) * w], &full[size_t(i) * 256 + l * l], w * 4), 0)
                    << "l=" << l << " direction " << i;
        }
    }
}

// The constants printed for bands 0..4, as polynomials in x, y, z.
TEST(SHBasis, PrintedConstants)
{
    const shref::Directions d(500, 5);
    State st(4, vekrSHDirect);
    std::vector<float> out(size_t(d.size()) * 25);
    ASSERT_EQ(vekrSH_32f(d.x.data(), d.y.data(), d.z.data(), d.size(), out.data(), 4, st.get()),
              vekStsOk);
    for (int i = 0; i < d.size(); ++i) {
        const double x = d.x[i], y = d.y[i], z = d.z[i];
        const float* Y = &out[size_t(i) * 25];
        uint32_t bits;
        std::memcpy(&bits, &Y[0], 4);
        EXPECT_EQ(bits, 0x3E906EBBu);
        const double expect[][2] = {
            {1, -0.4886025119029199 * y},
            {2, 0.4886025119029199 * z},
            {3, -0.4886025119029199 * x},
            {4, 1.092548430592079 * x * y},
            {5, -1.092548430592079 * y * z},
            {6, 0.31539156525252 * (3 * z * z - 1)},
            {7, -1.092548430592079 * x * z},
            {8, 0.5462742152960395 * (x * x - y * y)},
            {9, 0.5900435899266435 * (y * y * y - 3 * x * x * y)},
            {10, 2.890611442640554 * x * y * z},
            {16, 2.503342941796705 * x * y * (x * x - y * y)},
        };
        for (const auto& e : expect) {
            const float want = float(e[1]);
            const float got = Y[int(e[0])];
            const float tol = std::nextafter(std::fabs(want), INFINITY) - std::fabs(want);
            EXPECT_LE(std::fabs(got - want), tol) << "entry " << e[0];
        }
    }
    // The last function of band 15: -0.8442506508573726 * Re (x + iy)^15.
    std::vector<float> b15(size_t(d.size()) * 31);
    ASSERT_EQ(vekrSHBand_32f(d.x.data(), d.y.data(), d.z.data(), d.size(), b15.data(), 15),
              vekStsOk);
    for (int i = 0; i < d.size(); ++i) {
        double re = 1, im = 0;
        for (int k = 0; k < 15; ++k) {
            const double r = re * d.x[i] - im * d.y[i];
            im = re * d.y[i] + im * d.x[i];
            re = r;
        }
        EXPECT_NEAR(b15[size_t(i) * 31 + 30], -0.8442506508573726 * re, 1e-6);
    }
}

TEST(SHBasis, PoleDirection)
{
    const float x = 0, y = 0, z = 1;
    for (VekrSHType type : kTypes) {
        State st(15, type);
        float out[256];
        ASSERT_EQ(vekrSH_32f(&x, &y, &z, 1, out, 15, st.get()), vekStsOk);
        for (int l = 0; l <= 15; ++l) {
            for (int m = -l; m <= l; ++m) {
                const float v = out[l * l + l + m];
                if (m != 0) {
                    EXPECT_EQ(v, 0.0f) << l << " " << m;
                } else {
                    const double want = std::sqrt((2 * l + 1) / (4 * shref::kPi));
                    EXPECT_NEAR(v, want, want * (type == vekrSHDirect ? 1.2e-7 : 2e-6)) << l;
                }
            }
        }
    }
}

TEST(SHBasis, OrderZeroWritesOneValue)
{
    const shref::Directions d(6, 2);
    for (VekrSHType type : kTypes) {
        State st(0, type);
        std::vector<float> out(7, -7.0f);
        ASSERT_EQ(vekrSH_32f(d.x.data(), d.y.data(), d.z.data(), 6, out.data(), 0, st.get()),
                  vekStsOk);
        for (int i = 0; i < 6; ++i) EXPECT_EQ(out[i], 0.2820948f);
        EXPECT_EQ(out[6], -7.0f);
    }
}

TEST(SHBasis, Checks)
{
    const float v[4] = {0, 0, 1, 0};
    float out[300];
    State direct(3, vekrSHDirect);
    State rec16(16, vekrSHRecurrence);
    const VekrSHState* s = direct.get();
    EXPECT_EQ(vekrSH_32f(nullptr, v, v, 0, out, 9, s), vekStsNullPtr);  // nulls first
    EXPECT_EQ(vekrSH_32f(v, nullptr, v, 1, out, 1, s), vekStsNullPtr);
    EXPECT_EQ(vekrSH_32f(v, v, nullptr, 1, out, 1, s), vekStsNullPtr);
    EXPECT_EQ(vekrSH_32f(v, v, v, 1, nullptr, 1, s), vekStsNullPtr);
    EXPECT_EQ(vekrSH_32f(v, v, v, 1, out, 1, nullptr), vekStsNullPtr);
    EXPECT_EQ(vekrSH_32f(v, v, v, 0, out, 9, s), vekStsSize);  // count before order
    EXPECT_EQ(vekrSH_32f(v, v, v, 1, out, 4, s), vekStsSelector);
    EXPECT_EQ(vekrSH_32f(v, v, v, 1, out, 2, s), vekStsOk);
    EXPECT_EQ(vekrSH_32f(v, v, v, 1, out, 16, rec16.get()), vekStsSelector);
    EXPECT_EQ(vekrSH_32f(v, v, v, 1, out, 15, rec16.get()), vekStsOk);

    // A negative count (read as signed) is accepted and writes nothing.
    std::fill(out, out + 300, -7.0f);
    const VekrSHState* both[] = {s, rec16.get()};
    for (const VekrSHState* st : both) {
        EXPECT_EQ(vekrSH_32f(v, v, v, 0x80000000u, out, 1, st), vekStsOk);
        EXPECT_EQ(vekrSH_32f(v, v, v, 0xFFFFFFFFu, out, 1, st), vekStsOk);
    }
    for (float f : out) ASSERT_EQ(f, -7.0f);

    // A state of unknown type is refused after the order check.
    VekrSHState bad = *s;
    bad.type = 2;
    EXPECT_EQ(vekrSH_32f(v, v, v, 1, out, 1, &bad), vekStsSelector);
    EXPECT_EQ(vekrSH_32f(v, v, v, 0, out, 1, &bad), vekStsSize);
    for (float f : out) ASSERT_EQ(f, -7.0f);
}

TEST(SHBand, Checks)
{
    const float v[4] = {0, 0, 1, 0};
    float out[40];
    std::fill(out, out + 40, -7.0f);
    EXPECT_EQ(vekrSHBand_32f(nullptr, v, v, 1, out, 1), vekStsNullPtr);
    EXPECT_EQ(vekrSHBand_32f(v, nullptr, v, 1, out, 1), vekStsNullPtr);
    EXPECT_EQ(vekrSHBand_32f(v, v, nullptr, 1, out, 1), vekStsNullPtr);
    EXPECT_EQ(vekrSHBand_32f(v, v, v, 1, nullptr, 16), vekStsNullPtr);
    EXPECT_EQ(vekrSHBand_32f(v, v, v, 0, out, 16), vekStsSelector);  // band before count
    EXPECT_EQ(vekrSHBand_32f(v, v, v, 0, out, 15), vekStsSize);
    EXPECT_EQ(vekrSHBand_32f(v, v, v, -3, out, 15), vekStsOk);
    for (float f : out) ASSERT_EQ(f, -7.0f);
    EXPECT_EQ(vekrSHBand_32f(v, v, v, 1, out, 0), vekStsOk);
    EXPECT_EQ(out[0], 0.2820948f);
    EXPECT_EQ(out[1], -7.0f);
    EXPECT_EQ(vekrSHBand_32f(v, v, v, 1, out, 15), vekStsOk);
    EXPECT_EQ(out[31], -7.0f);
}

}  // namespace
