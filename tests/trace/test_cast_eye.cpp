// Eye-ray directions: the general formula, the four-wide association with an
// accumulated row start, aligned and unaligned stores, and the argument rules.
#include <gtest/gtest.h>

#include <cstring>

#include "testutil.h"
#include "vekr.h"

namespace {

using vekr::test::Aligned;

const float kCorner[3] = {-1.3f, 0.7f, -2.1f};
const float kStepX[3] = {0.013f, -0.0021f, 0.0007f};
const float kStepY[3] = {-0.0009f, -0.011f, 0.0031f};

struct Dirs {
    Aligned<float> a[3];
    float* p[3];
    Dirs(size_t n, size_t shift = 0)
    {
        for (int c = 0; c < 3; ++c) {
            a[c].resize(n + 4, -99.0f);
            p[c] = a[c].offset(shift);
        }
    }
};

TEST(CastEye, GeneralPathFollowsTheRowTermFirstFormula)
{
    const int bx = 3, by = 2, w = 5, h = 3;
    const VekSize step{7, 9};
    Dirs d(w * h);
    ASSERT_EQ(vekrCastEye_32f(kCorner, kStepX, kStepY, bx, by, step, d.p, VekSize{w, h}), vekStsOk);
    const float offX = float(bx * step.width), offY = float(step.height * by);
    for (int j = 0; j < h; ++j)
        for (int i = 0; i < w; ++i)
            for (int c = 0; c < 3; ++c) {
                const float fy = float(j) + offY, fx = float(i) + offX;
                const float rowTerm = kStepY[c] * fy;
                const float withCorner = rowTerm + kCorner[c];
                const float expect = withCorner + kStepX[c] * fx;
                EXPECT_EQ(d.p[c][j * w + i], expect) << j << "," << i;
            }
}

TEST(CastEye, FourWidePathAccumulatesTheRowStart)
{
    const int bx = 5, by = 11, w = 12, h = 7;
    const VekSize step{16, 16};
    const float offX = float(bx * step.width), offY = float(step.height * by);
    for (size_t shift : {size_t(0), size_t(1)}) {  // aligned and unaligned stores
        Dirs d(w * h, shift);
        ASSERT_EQ(vekrCastEye_32f(kCorner, kStepX, kStepY, bx, by, step, d.p, VekSize{w, h}), vekStsOk);
        for (int c = 0; c < 3; ++c) {
            float rowStart = kStepY[c] * offY + kCorner[c] + kStepX[c] * offX;
            for (int j = 0; j < h; ++j) {
                for (int i = 0; i < w; ++i)
                    EXPECT_EQ(d.p[c][j * w + i], kStepX[c] * float(i) + rowStart) << j << "," << i;
                rowStart = rowStart + kStepY[c];
            }
            EXPECT_EQ(d.p[c][w * h], -99.0f);  // nothing beyond the block
        }
    }
}

TEST(CastEye, OriginBlockStartsAtTheCorner)
{
    for (int w : {4, 5}) {
        Dirs d(w * 2);
        ASSERT_EQ(vekrCastEye_32f(kCorner, kStepX, kStepY, 0, 0, VekSize{8, 8}, d.p, VekSize{w, 2}),
                  vekStsOk);
        for (int c = 0; c < 3; ++c) EXPECT_EQ(d.p[c][0], kCorner[c]);
    }
}

TEST(CastEye, ArgumentRules)
{
    Dirs d(16);
    EXPECT_EQ(vekrCastEye_32f(kCorner, kStepX, kStepY, 0, 0, VekSize{4, 4}, nullptr, VekSize{4, 4}),
              vekStsNullPtr);
    // Null vectors are not tested when nothing is written... but the record is.
    EXPECT_EQ(vekrCastEye_32f(nullptr, nullptr, nullptr, 0, 0, VekSize{4, 4}, nullptr, VekSize{0, 0}),
              vekStsNullPtr);
    for (VekSize e : {VekSize{0, 4}, VekSize{4, 0}, VekSize{-4, 4}, VekSize{4, -1}}) {
        EXPECT_EQ(vekrCastEye_32f(kCorner, kStepX, kStepY, 0, 0, VekSize{4, 4}, d.p, e), vekStsOk);
        for (int c = 0; c < 3; ++c) EXPECT_EQ(d.p[c][0], -99.0f);
    }
}

}  // namespace
