// Basis evaluation (both methods) and single bands against an independent
// double-precision reference, the pole, every count and level, and the large
// outputs written with streaming stores.
#include <gtest/gtest.h>

#include <algorithm>
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

}  // namespace

namespace {

// Outputs of 8 MiB and more are written with streaming stores: the same bits
// as the same directions evaluated a few at a time, at an aligned and a
// misaligned destination.
TEST(SHBasis, LargeOutputsGiveTheSameBits)
{
    const shref::Directions d(8200, 9);  // 8200 x 256 floats: just over 8 MiB
    for (VekrSHType type : kTypes) {
        State st(15, type);
        std::vector<float> big(size_t(d.size()) * 256 + 1), small(size_t(d.size()) * 256);
        for (size_t shift : {size_t(0), size_t(1)}) {
            ASSERT_EQ(vekrSH_32f(d.x.data(), d.y.data(), d.z.data(), d.size(), big.data() + shift, 15, st.get()), vekStsOk);
            for (int i = 0; i < d.size(); i += 100)
                ASSERT_EQ(vekrSH_32f(&d.x[i], &d.y[i], &d.z[i], std::min(100, d.size() - i), &small[size_t(i) * 256], 15,
                                     st.get()),
                          vekStsOk);
            EXPECT_EQ(std::memcmp(big.data() + shift, small.data(), small.size() * 4), 0) << shift;
        }
    }
}

}  // namespace
