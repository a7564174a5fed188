// Work-buffer size and the argument checks of the filter.
#include <gtest/gtest.h>

#include <vector>

#include "filter_fixture.h"

namespace {

TEST(FilterBufSize, Formula)
{
    auto size = [](VekVolumeSize roi, VekVolumeSize ks) {
        int s = -1;
        EXPECT_EQ(vekrFilterGetBufSize(&roi, &ks, 1, &s), vekStsOk);
        return s;
    };
    // A16(W) * 4 + ((kw + 1) / 2) * 16 * kh * kd * 2
    EXPECT_EQ(size({1, 1, 1}, {1, 1, 1}), 16 * 4 + 1 * 16 * 1 * 1 * 2);
    EXPECT_EQ(size({16, 5, 5}, {3, 3, 3}), 16 * 4 + 2 * 16 * 3 * 3 * 2);
    EXPECT_EQ(size({17, 1, 1}, {3, 3, 3}), 32 * 4 + 2 * 16 * 9 * 2);
    EXPECT_EQ(size({256, 256, 256}, {5, 5, 5}), 256 * 4 + 3 * 16 * 25 * 2);
    EXPECT_EQ(size({100, 2, 3}, {4, 2, 7}), 112 * 4 + 2 * 16 * 14 * 2);
    EXPECT_EQ(size({33, 2, 3}, {6, 1, 1}), 48 * 4 + 3 * 16 * 2);
}

TEST(FilterBufSize, ChecksInOrder)
{
    VekVolumeSize roi{8, 8, 8}, ks{3, 3, 3};
    int s = 12345;
    EXPECT_EQ(vekrFilterGetBufSize(&roi, &ks, 1, nullptr), vekStsNullPtr);
    const VekVolumeSize badRoi[] = {{0, 1, 1}, {1, 0, 1}, {1, 1, 0}, {-3, 1, 1}};
    for (VekVolumeSize r : badRoi) {
        EXPECT_EQ(vekrFilterGetBufSize(&r, &ks, 2, &s), vekStsSize);
        EXPECT_EQ(vekrFilterGetBufSize(&roi, &r, 2, &s), vekStsSize);
    }
    EXPECT_EQ(vekrFilterGetBufSize(&roi, &ks, 3, &s), vekStsChannelCount);
    EXPECT_EQ(vekrFilterGetBufSize(&roi, &ks, 0, &s), vekStsChannelCount);
    EXPECT_EQ(s, 12345) << "a failed query wrote its output";
}

struct Args {
    vekr::test::FilterCase c;
    std::unique_ptr<vekr::test::BorderedSource> src;
    std::unique_ptr<vekr::test::PaddedDest> dst;
    std::vector<uint8_t> buf;
    Args()
    {
        c.roi = {20, 3, 2};
        c.ks = {3, 3, 3};
        c.anchor[0] = c.anchor[1] = c.anchor[2] = 1;
        c.kernel.assign(27, 1);
        src = std::make_unique<vekr::test::BorderedSource>(c);
        src->fill([] { return int16_t{7}; });
        dst = std::make_unique<vekr::test::PaddedDest>(c.roi, 0);
        buf.resize(4096);
    }
    VekStatus call(const int16_t* const* s, int16_t* const* d, const int32_t* k, uint8_t* b,
                   VekVolumeSize roi, VekVolumeSize ks, int divisor)
    {
        return vekrFilter_16s_C1PV(s, src->step(), d, dst->step(), &roi, k, &ks, c.anchor,
                                   divisor, b);
    }
    bool untouched() const
    {
        for (int z = 0; z < c.roi.depth; ++z)
            for (int y = 0; y < c.roi.height; ++y)
                for (int x = 0; x < c.roi.width; ++x)
                    if (dst->at(x, y, z) != vekr::test::PaddedDest::kSentinel) return false;
        return true;
    }
};

TEST(FilterChecks, NullPointersFirstThenSizesThenDivisor)
{
    Args a;
    auto* s = a.src->slices();
    auto* d = a.dst->slices();
    const int32_t* k = a.c.kernel.data();
    uint8_t* b = a.buf.data();
    const VekVolumeSize bad{0, 3, 2};
    // Null pointers win over bad sizes and a zero divisor.
    EXPECT_EQ(a.call(nullptr, d, k, b, bad, a.c.ks, 0), vekStsNullPtr);
    EXPECT_EQ(a.call(s, nullptr, k, b, bad, a.c.ks, 0), vekStsNullPtr);
    EXPECT_EQ(a.call(s, d, nullptr, b, bad, a.c.ks, 0), vekStsNullPtr);
    EXPECT_EQ(a.call(s, d, k, nullptr, bad, a.c.ks, 0), vekStsNullPtr);
    const VekVolumeSize badRoi[] = {{0, 3, 2}, {20, 0, 2}, {20, 3, 0}, {20, -1, 2}};
    for (VekVolumeSize r : badRoi) EXPECT_EQ(a.call(s, d, k, b, r, a.c.ks, 1), vekStsSize);
    const VekVolumeSize badKs[] = {{0, 3, 3}, {3, 0, 3}, {3, 3, 0}, {3, 3, -2}};
    for (VekVolumeSize r : badKs) EXPECT_EQ(a.call(s, d, k, b, a.c.roi, r, 1), vekStsSize);
    EXPECT_EQ(a.call(s, d, k, b, a.c.roi, a.c.ks, 0), vekStsSize);
    EXPECT_TRUE(a.untouched()) << "a failed call wrote the destination";
    EXPECT_EQ(a.call(s, d, k, b, a.c.roi, a.c.ks, 27), vekStsOk);
    EXPECT_EQ(a.dst->at(0, 0, 0), 7);
}

}  // namespace
