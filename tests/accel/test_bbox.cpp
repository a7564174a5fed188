// Scene bounding box: min/max per axis, NaN skipping and the margin rule.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <random>
#include <vector>

#include "vekr.h"

namespace {

TEST(BoundBox, EmptyCountWritesInvertedBox)
{
    const float v[3] = {1, 2, 3};
    for (int n : {0, -7}) {
        VekrBox3D box{};
        ASSERT_EQ(vekrSetBoundBox_32f(v, n, &box), vekStsOk);
        const float m = 0.0001f * FLT_MAX;
        EXPECT_EQ(box.minX, FLT_MAX - m);
        EXPECT_EQ(box.minZ, FLT_MAX - m);
        EXPECT_EQ(box.maxY, -FLT_MAX + m);
        EXPECT_GT(box.minX, box.maxX);
    }
}

TEST(BoundBox, SingleVertexAtOrigin)
{
    const float v[3] = {0, 0, 0};
    VekrBox3D box;
    ASSERT_EQ(vekrSetBoundBox_32f(v, 1, &box), vekStsOk);
    const float m = 0.0001f * FLT_MIN;
    EXPECT_EQ(box.minX, -m);
    EXPECT_EQ(box.maxZ, m);
    EXPECT_GT(box.maxX, 0.0f);
}

TEST(BoundBox, MarginFollowsLargestCoordinate)
{
    const float v[3] = {100, 0, 0};
    VekrBox3D box;
    ASSERT_EQ(vekrSetBoundBox_32f(v, 1, &box), vekStsOk);
    const float m = 0.0001f * 100.0f;
    EXPECT_EQ(box.minX, 100.0f - m);
    EXPECT_EQ(box.maxX, 100.0f + m);
    EXPECT_EQ(box.minY, -m);
    EXPECT_EQ(box.maxZ, m);
}

TEST(BoundBox, NaNCoordinatesAreSkipped)
{
    const float nan = std::nanf("");
    const float v[9] = {nan, 1, 2, 3, nan, -4, -1, 2, nan};
    VekrBox3D box;
    ASSERT_EQ(vekrSetBoundBox_32f(v, 3, &box), vekStsOk);
    const float m = 0.0001f * 4.0f;
    EXPECT_EQ(box.minX, -1.0f - m);
    EXPECT_EQ(box.maxX, 3.0f + m);
    EXPECT_EQ(box.minY, 1.0f - m);
    EXPECT_EQ(box.maxY, 2.0f + m);
    EXPECT_EQ(box.minZ, -4.0f - m);
    EXPECT_EQ(box.maxZ, 2.0f + m);
}

TEST(BoundBox, RandomCloudAgainstPlainLoop)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> d(-50.0f, 20.0f);
    std::vector<float> v(3 * 1000);
    for (float& x : v) x = d(rng);
    VekrBox3D box;
    ASSERT_EQ(vekrSetBoundBox_32f(v.data(), 1000, &box), vekStsOk);
    float lo[3] = {FLT_MAX, FLT_MAX, FLT_MAX}, hi[3] = {-FLT_MAX, -FLT_MAX, -FLT_MAX};
    float big = 0;
    for (int i = 0; i < 1000; ++i)
        for (int c = 0; c < 3; ++c) {
            lo[c] = std::min(lo[c], v[3 * i + c]);
            hi[c] = std::max(hi[c], v[3 * i + c]);
        }
    for (int c = 0; c < 3; ++c) big = std::max({big, std::fabs(lo[c]), std::fabs(hi[c])});
    const float m = 0.0001f * big;
    const float* b = &box.minX;
    for (int c = 0; c < 3; ++c) {
        EXPECT_EQ(b[c], lo[c] - m);
        EXPECT_EQ(b[3 + c], hi[c] + m);
    }
}

}  // namespace
