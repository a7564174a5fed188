// Filter results against exact integer convolution followed by the divisor
// rule, on every path and instruction-set level, with sources that hold
// exactly the neighbourhood the kernel needs.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "core/isa.h"
#include "filter_fixture.h"
#include "volume/filter.h"

namespace {

using vekr::Isa;
using vekr::filter::Path;
using vekr::test::BorderedSource;
using vekr::test::FilterCase;
using vekr::test::PaddedDest;

std::vector<Isa> levels()
{
    std::vector<Isa> out;
    for (Isa i : {Isa::Sse41, Isa::Avx2, Isa::Avx512})
        if (vekr::isaSupported(i)) out.push_back(i);
    return out;
}

// A work buffer of exactly the reported size starting `misalign` bytes past a
// 16-byte boundary, so the end of the block is the end of the buffer.
struct WorkBuffer {
    std::unique_ptr<uint8_t[]> block;
    uint8_t* data = nullptr;
    WorkBuffer(const FilterCase& c, int misalign)
    {
        int size = -1;
        EXPECT_EQ(vekrFilterGetBufSize(&c.roi, &c.ks, 1, &size), vekStsOk);
        block.reset(new uint8_t[size + misalign]);
        data = block.get() + misalign;
    }
};

enum class Via { Export, Forced };

// Runs the case and compares every voxel with the reference; also checks that
// the destination's padding was left alone.
void expectMatches(const FilterCase& c, const BorderedSource& src, Via via = Via::Export,
                   Path path = Path::General, Isa isa = Isa::Sse41, int misalign = 0)
{
    PaddedDest dst(c.roi, 5);
    WorkBuffer buf(c, misalign);
    if (via == Via::Export) {
        ASSERT_EQ(vekrFilter_16s_C1PV(src.slices(), src.step(), dst.slices(), dst.step(), &c.roi,
                                      c.kernel.data(), &c.ks, c.anchor, c.divisor, buf.data),
                  vekStsOk);
    } else {
        vekr::filter::runPath(path, src.slices(), src.step() / 2, dst.slices(), dst.step() / 2,
                              c.roi, c.kernel.data(), c.ks, c.anchor, c.divisor, buf.data, isa);
    }
    int bad = 0;
    for (int z = 0; z < c.roi.depth; ++z)
        for (int y = 0; y < c.roi.height; ++y) {
            for (int x = 0; x < c.roi.width; ++x) {
                const int16_t want =
                    vekr::test::referenceScale(vekr::test::referenceSum(c, src, x, y, z), c.divisor);
                if (dst.at(x, y, z) != want && bad++ < 5) {
                    ADD_FAILURE() << "voxel (" << x << "," << y << "," << z << ") got "
                                  << dst.at(x, y, z) << " want " << want << " kernel "
                                  << c.ks.width << "x" << c.ks.height << "x" << c.ks.depth
                                  << " width " << c.roi.width << " divisor " << c.divisor;
                }
            }
            for (int x = c.roi.width; x < c.roi.width + 5; ++x)
                ASSERT_EQ(dst.at(x, y, z), PaddedDest::kSentinel) << "padding written";
        }
}

FilterCase makeCase(std::mt19937& rng, VekVolumeSize roi, VekVolumeSize ks, int divisor,
                    int coeffRange)
{
    FilterCase c;
    c.roi = roi;
    c.ks = ks;
    c.divisor = divisor;
    std::uniform_int_distribution<int> coeff(-coeffRange, coeffRange);
    c.kernel.resize(static_cast<size_t>(ks.width) * ks.height * ks.depth);
    for (auto& k : c.kernel) k = coeff(rng);
    c.anchor[0] = std::uniform_int_distribution<int>(0, ks.width - 1)(rng);
    c.anchor[1] = std::uniform_int_distribution<int>(0, ks.height - 1)(rng);
    c.anchor[2] = std::uniform_int_distribution<int>(0, ks.depth - 1)(rng);
    return c;
}

void fillRandom(BorderedSource& src, std::mt19937& rng, int lo = -32768, int hi = 32767)
{
    std::uniform_int_distribution<int> v(lo, hi);
    src.fill([&] { return static_cast<int16_t>(v(rng)); });
}

const int kDivisors[] = {1, 2, 4, 1024, 1 << 20, 3, 7, -1, -2, -5, 100, 65535};

TEST(FilterCubes, MatchReferenceForEveryWidthDivisorAndLevel)
{
    std::mt19937 rng(11);
    // Widths exercise whole blocks, the overlapping last block and every
    // output group (16, 8, 4, single voxels).
    const int widths[] = {16, 17, 20, 23, 24, 28, 31, 32, 33, 45, 61};
    for (int k : {3, 5}) {
        for (int w : widths) {
            const int divisor = kDivisors[rng() % std::size(kDivisors)];
            FilterCase c = makeCase(rng, {w, 3, 2}, {k, k, k}, divisor, 250);
            ASSERT_EQ(vekr::filter::choosePath(c.kernel.data(), c.ks, w),
                      k == 3 ? Path::Cube3 : Path::Cube5);
            BorderedSource src(c);
            fillRandom(src, rng);
            expectMatches(c, src);
            for (Isa isa : levels())
                expectMatches(c, src, Via::Forced, k == 3 ? Path::Cube3 : Path::Cube5, isa,
                              static_cast<int>(rng() % 16));
        }
    }
}

TEST(FilterGeneral, OtherShapesAnchorsAndWidths)
{
    std::mt19937 rng(13);
    const VekVolumeSize shapes[] = {{1, 1, 1}, {2, 1, 1}, {1, 4, 1}, {1, 1, 3}, {2, 3, 4},
                                    {4, 4, 4}, {7, 1, 2}, {3, 3, 1}, {3, 3, 3}, {5, 5, 5},
                                    {6, 2, 3}};
    for (const VekVolumeSize& ks : shapes) {
        for (int w : {1, 3, 4, 5, 8, 12, 15, 16, 21, 29}) {
            const int divisor = kDivisors[rng() % std::size(kDivisors)];
            FilterCase c = makeCase(rng, {w, 2, 2}, ks, divisor, 250);
            BorderedSource src(c);
            fillRandom(src, rng);
            expectMatches(c, src, Via::Export, Path::General, Isa::Sse41,
                          static_cast<int>(rng() % 16));
        }
    }
}

TEST(FilterGeneral, AnchorOutsideTheKernel)
{
    // The anchor is not range-checked: it only moves the neighbourhood.
    std::mt19937 rng(14);
    for (int k : {1, 3}) {
        FilterCase c = makeCase(rng, {18, 3, 2}, {k, k, k}, 1, 100);
        c.anchor[0] = 4;
        c.anchor[1] = -2;
        c.anchor[2] = 3;
        BorderedSource src(c);
        fillRandom(src, rng, -1000, 1000);
        expectMatches(c, src);
    }
}

TEST(FilterGeneral, LargeCoefficientTakesGeneralPathAndStaysExact)
{
    std::mt19937 rng(15);
    FilterCase c = makeCase(rng, {20, 2, 2}, {3, 3, 3}, 1, 5);
    c.kernel[13] = 40000;
    EXPECT_EQ(vekr::filter::choosePath(c.kernel.data(), c.ks, 20), Path::General);
    BorderedSource src(c);
    fillRandom(src, rng, -3, 3);
    expectMatches(c, src);
    // The same kernel with a representable coefficient on the fast path.
    c.kernel[13] = 30000;
    EXPECT_EQ(vekr::filter::choosePath(c.kernel.data(), c.ks, 20), Path::Cube3);
    expectMatches(c, src);
}

TEST(FilterPaths, PairPathsEqualGeneralPathEvenWhenSumsWrap)
{
    // Full-range coefficients and sources: the sums leave 32 bits, and every
    // path must wrap them the same way.
    std::mt19937 rng(16);
    for (int k : {3, 5}) {
        for (int w : {16, 27, 40}) {
            FilterCase c = makeCase(rng, {w, 2, 2}, {k, k, k}, 1, 32767);
            for (auto& v : c.kernel) v = std::min(v, 32766);
            BorderedSource src(c);
            fillRandom(src, rng);
            std::vector<std::vector<int16_t>> outs;
            std::vector<std::pair<Path, Isa>> runs{{Path::General, Isa::Sse41}};
            for (Isa isa : levels()) runs.push_back({k == 3 ? Path::Cube3 : Path::Cube5, isa});
            for (auto [path, isa] : runs) {
                PaddedDest dst(c.roi, 0);
                WorkBuffer buf(c, 3);
                vekr::filter::runPath(path, src.slices(), src.step() / 2, dst.slices(),
                                      dst.step() / 2, c.roi, c.kernel.data(), c.ks, c.anchor,
                                      c.divisor, buf.data, isa);
                std::vector<int16_t> flat;
                for (int z = 0; z < 2; ++z)
                    for (int y = 0; y < 2; ++y)
                        for (int x = 0; x < w; ++x) flat.push_back(dst.at(x, y, z));
                outs.push_back(flat);
            }
            for (size_t r = 1; r < outs.size(); ++r) EXPECT_EQ(outs[r], outs[0]) << "run " << r;
            // And they equal the 64-bit convolution reduced modulo 2^32.
            expectMatches(c, src);
        }
    }
}

TEST(FilterDivisor, RoundingTiesAndSaturation)
{
    // A 1x1x1 kernel {s} over a source of ones gives the sum s directly.
    auto one = [](int32_t coeff, int32_t divisor, int width = 1) {
        FilterCase c;
        c.roi = {width, 1, 1};
        c.ks = {1, 1, 1};
        c.divisor = divisor;
        c.kernel = {coeff};
        BorderedSource src(c);
        src.fill([] { return int16_t{1}; });
        PaddedDest dst(c.roi, 0);
        WorkBuffer buf(c, 0);
        EXPECT_EQ(vekrFilter_16s_C1PV(src.slices(), src.step(), dst.slices(), dst.step(), &c.roi,
                                      c.kernel.data(), &c.ks, c.anchor, c.divisor, buf.data),
                  vekStsOk);
        for (int x = 1; x < width; ++x) EXPECT_EQ(dst.at(x, 0, 0), dst.at(0, 0, 0));
        return static_cast<int>(dst.at(0, 0, 0));
    };
    for (int width : {1, 4, 8, 16, 29}) {
        EXPECT_EQ(one(3, 2, width), 2);
        EXPECT_EQ(one(5, 2, width), 2);
        EXPECT_EQ(one(-3, 2, width), -2);
        EXPECT_EQ(one(-5, 2, width), -2);
        EXPECT_EQ(one(7, 2, width), 4);
        EXPECT_EQ(one(4, 3, width), 1);
        EXPECT_EQ(one(70000, 1, width), 32767);
        EXPECT_EQ(one(-70000, 1, width), -32768);
        EXPECT_EQ(one(2000000, 4, width), 32767);
        EXPECT_EQ(one(-2000000, -3, width), 32767);
        EXPECT_EQ(one(2000000, -3, width), -32768);
        EXPECT_EQ(one(5, -2, width), -2);    // float rule: -2.5 rounds to -2
        EXPECT_EQ(one(-7, -2, width), 4);    // 3.5 rounds to 4
        EXPECT_EQ(one(24, 16, width), 2);    // 1.5 rounds to 2
        EXPECT_EQ(one(40, 16, width), 2);    // 2.5 rounds to 2
        EXPECT_EQ(one(41, 16, width), 3);
        EXPECT_EQ(one(12345, 1, width), 12345);
    }
    // A large float-rule product well beyond int32 saturates with the right sign.
    EXPECT_EQ(one(std::numeric_limits<int32_t>::min(), -1), 32767);
    EXPECT_EQ(one(std::numeric_limits<int32_t>::max(), 3), 32767);
}

}  // namespace
