// Volume functions given absurd sizes, non-finite factors and extreme sums:
// the buffer queries wrap as 32-bit arithmetic does (checked against exact
// big-integer values), the resize and the filter refuse work that would not
// fit in the size the query reports, and the filter's power-of-two rounding
// is exact for every 32-bit sum.
#include <gtest/gtest.h>
#include <omp.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "vekr.h"

namespace {

// Runs f with the library on one thread (the queries multiply by it).
template <class F>
void onOneThread(F&& f)
{
    const int saved = omp_get_max_threads();
    omp_set_num_threads(1);
    f();
    omp_set_num_threads(saved);
}

// Values computed with exact integers, reduced to signed 32 bits; the filter
// refuses work beyond what its wrapped size reports.
TEST(VolumeHostile, BufferQueriesWrapAs32BitArithmetic)
{
    struct Case { int w, h, d, mode, bytes; };
    const Case resize[] = {{1 << 30, 1 << 30, 1, 4, 4480},
                           {(1 << 30) - 1, (1 << 30) + 5, 7, 2, 1472},
                           {INT_MAX, INT_MAX, INT_MAX, 6, 3648},
                           {INT_MAX, 3, 3, 1, 192},
                           {1000, 1 << 30, 3, 5, 236864}};
    onOneThread([&] {
        const VekCuboid src{0, 0, 0, 4, 4, 4};
        for (const Case& c : resize) {
            const VekCuboid dst{0, 0, 0, c.w, c.h, c.d};
            int size = 0;
            ASSERT_EQ(vekrResizeGetBufSize(&src, &dst, 1, c.mode, &size), vekStsOk);
            EXPECT_EQ(size, c.bytes) << c.w << " " << c.h;
        }
    });
    const Case filter[] = {{16, INT_MAX, 1, 1, 64}, {INT_MAX, INT_MAX, INT_MAX, INT_MAX, 0},
                           {100, 3, 3, 3, 1024}, {1 << 30, 1, 1, 1, 32}};
    for (const Case& c : filter) {
        const VekVolumeSize roi{c.w, 5, 5}, ks{c.h, c.d, c.mode};
        int size = 0;
        ASSERT_EQ(vekrFilterGetBufSize(&roi, &ks, 1, &size), vekStsOk);
        EXPECT_EQ(size, c.bytes) << c.w << " " << c.h;
    }
    // The filter refuses a row whose sums need more than the 32 bytes its
    // wrapped size gives, before it reads or writes anything.
    const VekVolumeSize roi{1 << 30, 1, 1}, ks{1, 1, 1};
    int16_t one = 0;
    const int16_t* s[1] = {&one};
    int16_t* d[1] = {&one};
    const int32_t k = 1, anchor[3] = {0, 0, 0};
    std::vector<uint8_t> buf(32, 0xEE);
    EXPECT_EQ(vekrFilter_16s_C1PV(s, 2, d, 2, &roi, &k, &ks, anchor, 1, buf.data()), vekStsSize);
    for (uint8_t b : buf) EXPECT_EQ(b, 0xEE);
}

// A destination region of width 2^31 - 1 around a 32^3 mapped box: the
// query wraps to less than the box needs; the resize members refuse with
// vekStsSize and touch neither buffer nor destination.  So do they for a
// box that would end past voxel 2^31 - 1.
TEST(VolumeHostile, ResizeNeverUsesMoreThanTheQueryReports)
{
    const VekVolumeSize vol{4, 4, 4};
    const VekCuboid src{0, 0, 0, 4, 4, 4};
    std::vector<float> in(64, 1.0f), out(32 * 32 * 32, -5.0f);
    const float* inSlices[4] = {&in[0], &in[16], &in[32], &in[48]};
    std::vector<float*> outSlices(32);
    for (int z = 0; z < 32; ++z) outSlices[z] = &out[z * 1024];
    onOneThread([&] {
        for (int mode : {1, 2, 4}) {
            for (int far : {0, 1}) {
                const VekCuboid dst = far ? VekCuboid{INT_MAX - 2, 0, 0, 10, 32, 32}
                                          : VekCuboid{0, 0, 0, INT_MAX, 32, 32};
                const double f = far ? 1.0 : 8.0, xShift = far ? INT_MAX - 2.0 : 0.0;
                int size = 0;
                ASSERT_EQ(vekrResizeGetBufSize(&src, &dst, 1, mode, &size), vekStsOk);
                ASSERT_GT(size, 0);
                std::vector<uint8_t> buf(size, 0xEE);
                SCOPED_TRACE(testing::Message() << "mode " << mode << " far " << far);
                EXPECT_EQ(vekrResize_32f_C1V(in.data(), &vol, 16, 64, &src, out.data(), 128,
                                             4096, &dst, f, f, f, xShift, 0, 0, mode, buf.data()),
                          vekStsSize);
                EXPECT_EQ(vekrResize_32f_C1PV(inSlices, &vol, 16, &src, outSlices.data(), 128,
                                              &dst, f, f, f, xShift, 0, 0, mode, buf.data()),
                          vekStsSize);
                for (uint8_t b : buf) ASSERT_EQ(b, 0xEE);
                for (float v : out) ASSERT_EQ(v, -5.0f);
            }
        }
    });
}

// Power-of-two divisors round half to even exactly, also where the old
// rounding step wrapped (sums above 2^31 - 1 - divisor / 2), on the scalar
// and the vector conversion (a row of 23 voxels: 16 + 4 + 3).
TEST(VolumeHostile, FilterShiftRoundingIsExactForEverySum)
{
    const int16_t values[] = {32767, -32768, 32766, -32767, 1, -1, 0, 12345};
    for (int32_t coeff : {65535, 65536, 65537, -65536, 32768})
        for (int n : {1, 2, 15, 29, 30}) {
            const int32_t divisor = int32_t{1} << n;
            std::vector<int16_t> src(23), dst(23, 0);
            for (int x = 0; x < 23; ++x) src[x] = values[x % 8];
            const int16_t* s[1] = {src.data()};
            int16_t* d[1] = {dst.data()};
            const VekVolumeSize roi{23, 1, 1}, ks{1, 1, 1};
            const int32_t anchor[3] = {0, 0, 0};
            std::vector<uint8_t> buf(256);
            ASSERT_EQ(vekrFilter_16s_C1PV(s, 46, d, 46, &roi, &coeff, &ks, anchor, divisor,
                                          buf.data()),
                      vekStsOk);
            for (int x = 0; x < 23; ++x) {
                const int64_t sum = int64_t{coeff} * src[x];
                if (sum != int32_t(sum)) continue;  // beyond 32 bits: not defined
                int64_t q = sum >= 0 ? sum / divisor : -((-sum + divisor - 1) / divisor);
                const int64_t r2 = 2 * (sum - q * divisor);
                if (r2 > divisor || (r2 == divisor && (q & 1))) ++q;
                const int64_t want = q < -32768 ? -32768 : q > 32767 ? 32767 : q;
                EXPECT_EQ(dst[x], want) << "sum " << sum << " divisor " << divisor;
            }
        }
}

}  // namespace
