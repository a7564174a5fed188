// The shared volume building blocks: the work buffer follows the thread
// count, and the interpolation kernels are their polynomials.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "vekr.h"
#include "volume/bufsize.h"
#include "volume/convert.h"
#include "volume/interp.h"
#include "volume/layout.h"

using namespace vekr::volume;

namespace {

const VekCuboid kGood{0, 0, 0, 10, 10, 10};

}  // namespace

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
