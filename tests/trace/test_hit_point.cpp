// Hit points: both association orders, the mask rule, and the null checks.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "testutil.h"
#include "vekr.h"

namespace {

using vekr::test::Aligned;

struct Data {
    size_t n;
    Aligned<float> d[3], o[3], p[3], dist;
    Aligned<int> mask;
    float* dp[3];
    float* op[3];
    float* pp[3];
    Data(size_t count, size_t shift = 0) : n(count)
    {
        std::mt19937 rng(5u);
        std::uniform_real_distribution<float> u(-3.0f, 3.0f);
        dist.resize(n + 1);
        mask.resize(n + 1);
        for (int c = 0; c < 3; ++c) {
            d[c].resize(n + 1);
            o[c].resize(n + 1);
            p[c].resize(n + 1, 42.0f);
            dp[c] = d[c].offset(shift);
            op[c] = o[c].offset(shift);
            pp[c] = p[c].offset(shift);
            for (size_t k = 0; k <= n; ++k) d[c][k] = u(rng), o[c][k] = u(rng);
        }
        for (size_t k = 0; k <= n; ++k) {
            dist[k] = std::fabs(u(rng));
            mask[k] = (k % 3 == 1) ? -1 : (k % 5 == 0 ? -7 : static_cast<int>(k));
        }
        // One group of four fully masked.
        for (size_t k = 4; k < 8 && k <= n; ++k) mask[k] = -2;
    }
};

TEST(HitPoint, SharedOriginBothPaths)
{
    const float origin[3] = {0.25f, -1.5f, 3.0f};
    const float eps = 0.999f;
    for (int fast = 0; fast < 2; ++fast) {
        Data x(fast ? 16 : 15);
        ASSERT_EQ(vekrHitPoint3DEpsS0_32f_M(origin, x.dp, x.dist.data(), x.mask.data(), x.pp,
                                            static_cast<int>(x.n), eps),
                  vekStsOk);
        for (size_t k = 0; k < x.n; ++k)
            for (int c = 0; c < 3; ++c) {
                const float expect = x.mask[k] < 0 ? 0.0f
                                     : fast        ? x.d[c][k] * x.dist[k] * eps + origin[c]
                                                   : x.d[c][k] * eps * x.dist[k] + origin[c];
                EXPECT_EQ(x.p[c][k], expect) << k;
                if (x.mask[k] < 0) EXPECT_FALSE(std::signbit(x.p[c][k]));
            }
        for (int c = 0; c < 3; ++c) EXPECT_EQ(x.p[c][x.n], 42.0f);
    }
}

TEST(HitPoint, OwnOriginsBothPathsAndUnalignedFallsBack)
{
    for (int variant = 0; variant < 3; ++variant) {
        const bool fast = variant == 0;
        Data x(variant == 1 ? 13 : 16, variant == 2 ? 1 : 0);  // odd count, or misaligned
        ASSERT_EQ(vekrHitPoint3DEpsM0_32f_M(x.op, x.dp, x.dist.data(), x.mask.data(), x.pp,
                                            static_cast<int>(x.n), 1.0f),
                  vekStsOk);
        const size_t s = variant == 2 ? 1 : 0;
        for (size_t k = 0; k < x.n; ++k)
            for (int c = 0; c < 3; ++c) {
                const float d = x.d[c][k + s], o = x.o[c][k + s];
                const float expect = x.mask[k] < 0 ? 0.0f
                                     : fast        ? d * x.dist[k] * 1.0f + o
                                                   : d * 1.0f * x.dist[k] + o;
                EXPECT_EQ(x.pp[c][k], expect) << variant << " " << k;
            }
    }
}

TEST(HitPoint, NullChecksComeFirst)
{
    Data x(4);
    const float origin[3] = {0, 0, 0};
    EXPECT_EQ(vekrHitPoint3DEpsS0_32f_M(origin, x.dp, nullptr, x.mask.data(), x.pp, 4, 1.0f), vekStsNullPtr);
    EXPECT_EQ(vekrHitPoint3DEpsS0_32f_M(origin, x.dp, x.dist.data(), nullptr, x.pp, 4, 1.0f), vekStsNullPtr);
    EXPECT_EQ(vekrHitPoint3DEpsS0_32f_M(origin, nullptr, x.dist.data(), x.mask.data(), x.pp, 4, 1.0f), vekStsNullPtr);
    EXPECT_EQ(vekrHitPoint3DEpsS0_32f_M(origin, x.dp, x.dist.data(), x.mask.data(), nullptr, 4, 1.0f), vekStsNullPtr);
    EXPECT_EQ(vekrHitPoint3DEpsS0_32f_M(nullptr, nullptr, nullptr, nullptr, nullptr, 0, 1.0f), vekStsNullPtr);
    EXPECT_EQ(vekrHitPoint3DEpsM0_32f_M(nullptr, x.dp, x.dist.data(), x.mask.data(), x.pp, 4, 1.0f), vekStsNullPtr);
    EXPECT_EQ(vekrHitPoint3DEpsM0_32f_M(x.op, x.dp, x.dist.data(), x.mask.data(), nullptr, 0, 1.0f), vekStsNullPtr);
    // Counts below one return at once; a null shared origin is not tested.
    EXPECT_EQ(vekrHitPoint3DEpsS0_32f_M(nullptr, x.dp, x.dist.data(), x.mask.data(), x.pp, 0, 1.0f), vekStsOk);
    EXPECT_EQ(vekrHitPoint3DEpsM0_32f_M(x.op, x.dp, x.dist.data(), x.mask.data(), x.pp, -4, 1.0f), vekStsOk);
    for (int c = 0; c < 3; ++c) EXPECT_EQ(x.p[c][0], 42.0f);
}

}  // namespace
