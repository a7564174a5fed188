// Eye rays and hit points: both paths against a double-precision reference,
// the fast path against the general one, masks, and what lies past the block.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "testutil.h"
#include "vekr.h"

namespace {

using vekr::test::Aligned;

struct Planes {
    Aligned<float> a[3];
    float* p[3];
    Planes(size_t n, size_t shift, float fill = -99.0f)
    {
        for (int c = 0; c < 3; ++c) {
            a[c].resize(n + 8, fill);
            p[c] = a[c].offset(shift);
        }
    }
};

// Eye rays of one block: widths that take the four-wide path (multiples of 4,
// aligned or not) and widths that do not, against the pixel's exact direction.
TEST(EyeRays, EveryPathWithinLastBitsOfTheExactDirection)
{
    const float corner[3] = {-1.3f, 0.7f, -2.1f}, sx[3] = {0.013f, -0.0021f, 0.0007f},
                sy[3] = {-0.0009f, -0.011f, 0.0031f};
    struct Case {
        int bx, by, w, h;
        size_t shift;
    };
    for (const Case& c : {Case{0, 0, 8, 3, 0}, Case{3, 2, 5, 3, 0}, Case{5, 11, 12, 7, 0}, Case{5, 11, 12, 7, 1},
                          Case{1, 0, 7, 9, 3}, Case{2, 3, 16, 16, 0}}) {
        SCOPED_TRACE(testing::Message() << "block " << c.bx << "," << c.by << " extent " << c.w << "x" << c.h);
        const VekSize step{16, 16};
        Planes d(size_t(c.w) * c.h, c.shift);
        ASSERT_EQ(vekrCastEye_32f(corner, sx, sy, c.bx, c.by, step, d.p, VekSize{c.w, c.h}), vekStsOk);
        for (int j = 0; j < c.h; ++j)
            for (int i = 0; i < c.w; ++i)
                for (int k = 0; k < 3; ++k) {
                    const double x = c.bx * 16.0 + i, y = c.by * 16.0 + j;
                    const double want = double(corner[k]) + double(sx[k]) * x + double(sy[k]) * y;
                    const double scale = std::fabs(corner[k]) + std::fabs(sx[k] * x) + std::fabs(sy[k] * y);
                    EXPECT_NEAR(d.p[k][j * c.w + i], want, 2e-7 * scale * (1 + j)) << j << "," << i;
                }
        for (int k = 0; k < 3 && c.bx == 0 && c.by == 0; ++k) EXPECT_EQ(d.p[k][0], corner[k]);
        for (int k = 0; k < 3; ++k) EXPECT_EQ(d.p[k][c.w * c.h], -99.0f) << "written past the block";
    }
    // The four-wide path writes the same values through aligned and unaligned stores.
    Planes a(48, 0), u(48, 1);
    vekrCastEye_32f(corner, sx, sy, 1, 1, VekSize{16, 16}, a.p, VekSize{8, 6});
    vekrCastEye_32f(corner, sx, sy, 1, 1, VekSize{16, 16}, u.p, VekSize{8, 6});
    for (int k = 0; k < 3; ++k) EXPECT_EQ(std::memcmp(a.p[k], u.p[k], 48 * 4), 0);
}

// Hit points o + d * eps * t for both forms, fast (aligned, multiple of 4)
// and general, against double precision; masked rays give +0.0.
TEST(HitPoints, BothFormsAndPathsMatchTheReference)
{
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> u(-3.0f, 3.0f);
    for (int n : {16, 15, 64}) {
        for (size_t shift : {size_t(0), size_t(1)}) {
            for (float eps : {1.0f, 0.999f}) {
                Planes d(n, shift, 0.0f), o(n, shift, 0.0f), ps(n, shift, 42.0f), pm(n, shift, 42.0f);
                Aligned<float> t(n + 8);
                Aligned<int> mask(n + 8);
                for (int k = 0; k < n; ++k) {
                    for (int c = 0; c < 3; ++c) d.p[c][k] = u(rng), o.p[c][k] = u(rng);
                    t[k + shift] = std::fabs(u(rng));
                    mask[k + shift] = (k % 3 == 1) ? -1 : (k >= 4 && k < 8) ? -2 : k % 5 == 0 ? 0 : k;
                }
                const float origin[3] = {0.25f, -1.5f, 3.0f};
                ASSERT_EQ(vekrHitPoint3DEpsS0_32f_M(origin, d.p, t.offset(shift), mask.offset(shift), ps.p, n, eps), vekStsOk);
                ASSERT_EQ(vekrHitPoint3DEpsM0_32f_M(o.p, d.p, t.offset(shift), mask.offset(shift), pm.p, n, eps), vekStsOk);
                for (int k = 0; k < n; ++k)
                    for (int c = 0; c < 3; ++c) {
                        const bool off = mask[k + shift] < 0;
                        const double step = double(d.p[c][k]) * eps * t[k + shift];
                        for (auto [p, base] : {std::pair{ps.p[c][k], double(origin[c])}, std::pair{pm.p[c][k], double(o.p[c][k])}}) {
                            if (off) {
                                EXPECT_TRUE(p == 0.0f && !std::signbit(p)) << k;
                            } else {
                                EXPECT_NEAR(p, base + step, 4e-7 * (std::fabs(base) + std::fabs(step))) << k;
                            }
                        }
                    }
                for (int c = 0; c < 3; ++c) EXPECT_EQ(ps.p[c][n], 42.0f);
            }
        }
    }
}

}  // namespace
