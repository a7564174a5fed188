// The shared volume building blocks: buffer-size queries, modes and cubic
// kernels, conversions, layouts.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "vekcore.h"
#include "vekr.h"
#include "volume/bufsize.h"
#include "volume/convert.h"
#include "volume/interp.h"
#include "volume/layout.h"

using namespace vekr::volume;

namespace {

const VekCuboid kGood{0, 0, 0, 10, 10, 10};

// The size formula written out with plain integer division.
int64_t roundDown(int64_t n, int64_t m) { return n / m * m; }
int64_t expectedPerThread(int64_t w, int64_t h, int64_t d, int mode)
{
    auto a16 = [](int64_t n) { return roundDown(n + 15, 16); };
    auto a64 = [](int64_t n) { return roundDown(n + 63, 64); };
    auto r = [](int64_t n) { return roundDown(n + 127, 64); };
    auto q = [](int64_t n) { return roundDown(n + 255, 64); };
    const int64_t base = 4 * (a16(w) + a16(h) + a16(d));
    if (mode == 1) return base + 64;
    const int64_t b64 = base + 4 * (a64(w) + a64(h) + a64(d));
    if (mode == 2) return b64 + 4 * r(2 * w) + 4 * 2 * h * a64(w) + 4 * r(8 * (w + h)) + 64;
    return b64 + 4 * q(4 * w) + 4 * 4 * h * a64(w) + 4 * q(4 * w) + 4 * q(4 * h) + 4 * q(4 * d) +
           4 * q(48 * (w + h)) + 64;
}

}  // namespace

TEST(VolumeBufSize, FollowsThreadCount)
{
    const int saved = omp_get_max_threads();
    const VekCuboid d{0, 0, 0, 20, 30, 40};
    int one = 0, two = 0;
    omp_set_num_threads(1);
    const int t1 = ownGetNumThreads();
    ASSERT_EQ(vekrResizeGetBufSize(&kGood, &d, 1, 6, &one), vekStsOk);
    omp_set_num_threads(2);
    const int t2 = ownGetNumThreads();
    ASSERT_EQ(vekrResizeGetBufSize(&kGood, &d, 1, 6, &two), vekStsOk);
    omp_set_num_threads(saved);
    EXPECT_EQ(int64_t{one} * t2, int64_t{two} * t1);
}

TEST(VolumeKernels, AtZeroFraction)
{
    float w[4];
    cubicWeights(4, 0.0f, w);
    EXPECT_EQ(w[0], 0.0f);
    EXPECT_EQ(w[1], 1.0f);
    EXPECT_EQ(w[2], 0.0f);
    EXPECT_EQ(w[3], 0.0f);
    cubicWeights(6, 0.0f, w);
    EXPECT_EQ(w[0], 0.0f);
    EXPECT_EQ(w[1], 1.0f);
    EXPECT_EQ(w[2], 0.0f);
    EXPECT_EQ(w[3], 0.0f);
    cubicWeights(5, 0.0f, w);
    EXPECT_EQ(w[0], static_cast<float>(1.0 / 6));
    EXPECT_EQ(w[1], static_cast<float>(2.0 / 3));
    EXPECT_EQ(w[2], static_cast<float>(1.0 / 6));
    EXPECT_EQ(w[3], 0.0f);
    cubicWeights(7, 0.0f, w);
    EXPECT_FLOAT_EQ(w[0], 1.0f / 12);
    EXPECT_FLOAT_EQ(w[1], 5.0f / 6);
    EXPECT_FLOAT_EQ(w[2], 1.0f / 12);
    EXPECT_EQ(w[3], 0.0f);
}

// The kernels against the expanded polynomials, evaluated in long double.
TEST(VolumeKernels, MatchPolynomials)
{
    const long double c[8][2][4] = {
        {}, {}, {}, {},
        {{0.5L, -1, -0.5L, 1}, {-1.0L / 6, 1, -11.0L / 6, 1}},
        {{0.5L, -1, 0, 2.0L / 3}, {-1.0L / 6, 1, -2, 4.0L / 3}},
        {{1.5L, -2.5L, 0, 1}, {-0.5L, 2.5L, -4, 2}},
        {{0.95L, -1.7L, 0, 5.0L / 6}, {-23.0L / 60, 2, -3.4L, 28.0L / 15}},
    };
    for (int mode = 4; mode <= 7; ++mode) {
        for (int k = 0; k <= 260; ++k) {
            const long double d = k / 100.0L;
            long double ref = 0;
            if (d < 2) {
                const auto& p = c[mode][d < 1 ? 0 : 1];
                ref = ((p[0] * d + p[1]) * d + p[2]) * d + p[3];
            }
            EXPECT_NEAR(cubicKernel(mode, static_cast<double>(d)), static_cast<double>(ref), 1e-14)
                << mode << " " << k;
        }
        EXPECT_EQ(cubicKernel(mode, std::nan("")), 1.0);
        // Weights sum to 1 within float rounding, at many fractions.
        for (int k = 0; k < 1000; ++k) {
            float w[4];
            cubicWeights(mode, k / 1000.0f, w);
            EXPECT_NEAR(w[0] + w[1] + w[2] + w[3], 1.0f, 4e-7f);
        }
    }
    float w[4];
    cubicWeights(6, std::nanf(""), w);
    for (float v : w) EXPECT_EQ(v, 1.0f);
}

TEST(VolumeKernels, Split)
{
    for (double s : {-0.75, -0.5, -1e-12, 0.0, 0.25, 1.0, 2.5, 3.9999999, 1e6 + 0.5}) {
        const Split sp = splitCoordinate(s);
        EXPECT_EQ(sp.i, static_cast<int>(std::floor(s))) << s;
        EXPECT_EQ(sp.t, static_cast<float>(s - std::floor(s))) << s;
    }
}

TEST(VolumeConvert, Rules)
{
    EXPECT_EQ(resizeConvert<uint8_t>(254.49f), 254);
    EXPECT_EQ(resizeConvert<uint8_t>(254.5f), 255);
    EXPECT_EQ(resizeConvert<uint8_t>(-3.2f), 0);
    EXPECT_EQ(resizeConvert<uint8_t>(300.7f), 255);
    EXPECT_EQ(resizeConvert<uint16_t>(65535.4f), 65535);
    EXPECT_EQ(resizeConvert<uint16_t>(70000.0f), 65535);
    EXPECT_EQ(resizeConvert<uint16_t>(-0.9f), 0);
    EXPECT_EQ(resizeConvert<float>(-3.25f), -3.25f);
    EXPECT_EQ(warpConvert<uint8_t>(254.5f), 254);
    EXPECT_EQ(warpConvert<uint8_t>(253.5f), 254);
    EXPECT_EQ(warpConvert<uint8_t>(-3.2f), 0);
    EXPECT_EQ(warpConvert<uint8_t>(300.7f), 255);
    EXPECT_EQ(warpConvert<uint16_t>(2.5f), 2);
    EXPECT_EQ(warpConvert<uint16_t>(65536.0f), 65535);
}

template <class T>
void checkConvert4()
{
    std::vector<float> v;
    for (int k = -400; k < 400; ++k) v.push_back(k * 0.5f + 0.25f * (k % 3));
    for (float x : {254.49f, 254.5f, 65535.4f, 65535.5f, 1e12f, -1e12f, std::nanf("")})
        v.push_back(x);
    while (v.size() % 4) v.push_back(0.0f);
    for (size_t i = 0; i < v.size(); i += 4) {
        T a[4], b[4];
        resizeConvertStore4<T>(a, _mm_loadu_ps(&v[i]));
        warpConvertStore4<T>(b, _mm_loadu_ps(&v[i]));
        for (int k = 0; k < 4; ++k) {
            EXPECT_EQ(a[k], resizeConvert<T>(v[i + k])) << v[i + k];
            EXPECT_EQ(b[k], warpConvert<T>(v[i + k])) << v[i + k];
        }
    }
}

TEST(VolumeConvert, FourLanesMatchScalar)
{
    checkConvert4<uint8_t>();
    checkConvert4<uint16_t>();
}

TEST(VolumeLayout, BothLayoutsAddressTheSameVoxels)
{
    const int w = 5, h = 4, d = 3, rowBytes = 8 * 2, sliceBytes = rowBytes * h + 6;
    std::vector<uint8_t> block(sliceBytes * d);
    auto* base = reinterpret_cast<uint16_t*>(block.data());
    std::vector<uint16_t*> slices;
    for (int z = 0; z < d; ++z)
        slices.push_back(reinterpret_cast<uint16_t*>(block.data() + z * sliceBytes));
    BlockVolume<uint16_t> a(base, rowBytes, sliceBytes);
    SliceVolume<uint16_t> b(slices.data(), rowBytes);
    for (int z = 0; z < d; ++z)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const auto* expect = reinterpret_cast<const uint16_t*>(
                    block.data() + z * sliceBytes + y * rowBytes + x * 2);
                EXPECT_EQ(a.row(y, z) + x, expect);
                EXPECT_EQ(b.row(y, z) + x, expect);
            }
    EXPECT_EQ(rowStepElements<float>(13), 3);
    EXPECT_EQ(rowStepElements<uint16_t>(13), 6);
    EXPECT_EQ(rowStepElements<uint8_t>(13), 13);
}
