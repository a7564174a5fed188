// Scene bounding box: per-axis extremes of the vertices, NaN coordinates
// skipped, and a margin of 1e-4 times the largest magnitude (at least
// FLT_MIN) on every side; no vertices give the inverted box.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <random>
#include <vector>

#include "vekr.h"

namespace {

TEST(BoundBox, ExtremesPlusTheMargin)
{
    const float nan = std::nanf("");
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> d(-50.0f, 20.0f);
    std::vector<float> cloud(3000);
    for (float& x : cloud) x = d(rng);
    struct Row {
        std::vector<float> v;
        int count;
    };
    const Row rows[] = {{{1, 2, 3}, 0}, {{1, 2, 3}, -7}, {{0, 0, 0}, 1}, {{100, 0, 0}, 1},
                        {{nan, 1, 2, 3, nan, -4, -1, 2, nan}, 3}, {cloud, 1000}};
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << row.count << " vertices, first " << row.v[0]);
        VekrBox3D box;
        ASSERT_EQ(vekrSetBoundBox_32f(row.v.data(), row.count, &box), vekStsOk);
        double lo[3] = {FLT_MAX, FLT_MAX, FLT_MAX}, hi[3] = {-FLT_MAX, -FLT_MAX, -FLT_MAX}, big = 0;
        for (int i = 0; i < row.count; ++i)
            for (int c = 0; c < 3; ++c) {
                const float x = row.v[3 * i + c];
                if (std::isnan(x)) continue;
                lo[c] = std::min(lo[c], double(x));
                hi[c] = std::max(hi[c], double(x));
            }
        for (int c = 0; c < 3; ++c) big = std::max({big, std::fabs(lo[c]), std::fabs(hi[c])});
        const float m = 0.0001f * std::max(float(big), FLT_MIN);
        const float got[6] = {box.minX, box.minY, box.minZ, box.maxX, box.maxY, box.maxZ};
        for (int c = 0; c < 3; ++c) {
            EXPECT_EQ(got[c], float(lo[c]) - m) << c;
            EXPECT_EQ(got[3 + c], float(hi[c]) + m) << c;
        }
    }
}

}  // namespace
