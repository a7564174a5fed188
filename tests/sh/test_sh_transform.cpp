// Forward and inverse transforms: accumulation, layouts, special samples,
// a round trip of a band-limited function, and the checks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "sh_reference.h"
#include "sh_state_fixture.h"
#include "vekr.h"

namespace {

using shtest::State;

constexpr VekrSHType kTypes[] = {vekrSHDirect, vekrSHRecurrence};

std::vector<float> randomValues(int n, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> u(-2.0f, 2.0f);
    std::vector<float> v(n);
    for (float& f : v) f = u(rng);
    return v;
}

// The forward sum written out direction by direction from vekrSH_32f.
std::vector<float> forwardByHand(const shref::Directions& d, const float* s, int stride,
                                 std::vector<float> coef, uint32_t L, const VekrSHState* st)
{
    const int n = int((L + 1) * (L + 1));
    std::vector<float> Y(n);
    for (int i = 0; i < d.size(); ++i) {
        vekrSH_32f(&d.x[i], &d.y[i], &d.z[i], 1, Y.data(), L, st);
        const float si = s[size_t(i) * stride];
        for (int k = 0; k < n; ++k)
            coef[k] = coef[k] + (si == 1.0f ? Y[k] : si == 0.0f ? 0.0f : si * Y[k]);
    }
    return coef;
}

TEST(SHTransform, ForwardIsThePlainSum)
{
    const shref::Directions d(37, 4);
    for (VekrSHType type : kTypes) {
        State st(15, type);
        for (uint32_t L : {0u, 2u, 3u, 7u, 15u}) {
            const int n = int((L + 1) * (L + 1));
            auto samples = randomValues(d.size(), 9);
            samples[0] = 0.0f;  // the two special values
            samples[1] = 1.0f;
            samples[5] = 1.0f;
            samples[6] = -0.0f;
            // Start from values of both signs, one coefficient misaligned.
            std::vector<float> start = randomValues(n + 1, 3);
            start[1] = -0.0f;
            std::vector<float> coef(start.begin() + 1, start.end());
            const auto want = forwardByHand(d, samples.data(), 1, coef, L, st.get());
            ASSERT_EQ(vekrSHTFwd_32f_C1I(d.x.data(), d.y.data(), d.z.data(), samples.data(),
                                         d.size(), start.data() + 1, L, st.get()),
                      vekStsOk);
            EXPECT_EQ(std::memcmp(start.data() + 1, want.data(), n * 4), 0) << "L=" << L;
        }
    }
}

// One channel three times equals the interleaved and the planar variants.
TEST(SHTransform, LayoutsAgree)
{
    const shref::Directions d(29, 6);
    for (VekrSHType type : kTypes) {
        State st(15, type);
        for (uint32_t L : {1u, 3u, 15u}) {
            const int n = int((L + 1) * (L + 1)), N = d.size();
            std::vector<float> planes[3], inter(size_t(3) * N);
            for (int c = 0; c < 3; ++c) {
                planes[c] = randomValues(N, 20 + c);
                planes[c][c] = 1.0f;
                planes[c][c + 3] = 0.0f;
                for (int i = 0; i < N; ++i) inter[size_t(3) * i + c] = planes[c][i];
            }
            std::vector<float> one[3], c3[3], p3[3];
            for (int c = 0; c < 3; ++c) {
                one[c] = c3[c] = p3[c] = randomValues(n, 40 + c);
                ASSERT_EQ(vekrSHTFwd_32f_C1I(d.x.data(), d.y.data(), d.z.data(),
                                             planes[c].data(), N, one[c].data(), L, st.get()),
                          vekStsOk);
            }
            float* const c3p[3] = {c3[0].data(), c3[1].data(), c3[2].data()};
            float* const p3p[3] = {p3[0].data(), p3[1].data(), p3[2].data()};
            const float* const src[3] = {planes[0].data(), planes[1].data(), planes[2].data()};
            ASSERT_EQ(vekrSHTFwd_32f_C3P3I(d.x.data(), d.y.data(), d.z.data(), inter.data(), N,
                                           c3p, L, st.get()),
                      vekStsOk);
            ASSERT_EQ(vekrSHTFwd_32f_P3I(d.x.data(), d.y.data(), d.z.data(), src, N, p3p, L,
                                         st.get()),
                      vekStsOk);
            for (int c = 0; c < 3; ++c) {
                EXPECT_EQ(one[c], c3[c]);
                EXPECT_EQ(one[c], p3[c]);
            }

            // Inverse: C1 per channel, P3 and P3C3.
            const float* const coefs[3] = {one[0].data(), one[1].data(), one[2].data()};
            std::vector<float> inv1[3], invP[3], invC(size_t(3) * N);
            for (int c = 0; c < 3; ++c) {
                inv1[c].resize(N);
                invP[c].resize(N);
                ASSERT_EQ(vekrSHTInv_32f_C1(coefs[c], L, d.x.data(), d.y.data(), d.z.data(),
                                            inv1[c].data(), N, st.get()),
                          vekStsOk);
            }
            float* const outP[3] = {invP[0].data(), invP[1].data(), invP[2].data()};
            ASSERT_EQ(vekrSHTInv_32f_P3(coefs, L, d.x.data(), d.y.data(), d.z.data(), outP, N,
                                        st.get()),
                      vekStsOk);
            ASSERT_EQ(vekrSHTInv_32f_P3C3(coefs, L, d.x.data(), d.y.data(), d.z.data(),
                                          invC.data(), N, st.get()),
                      vekStsOk);
            std::vector<float> Y(n);
            for (int c = 0; c < 3; ++c) {
                EXPECT_EQ(inv1[c], invP[c]);
                for (int i = 0; i < N; ++i) {
                    EXPECT_EQ(inv1[c][i], invC[size_t(3) * i + c]);
                    vekrSH_32f(&d.x[i], &d.y[i], &d.z[i], 1, Y.data(), L, st.get());
                    double dot = 0, mag = 0;
                    for (int k = 0; k < n; ++k) {
                        dot += double(coefs[c][k]) * Y[k];
                        mag += std::fabs(double(coefs[c][k]) * Y[k]);
                    }
                    EXPECT_NEAR(inv1[c][i], dot, 1e-6 * mag + 1e-30);
                }
            }
        }
    }
}

// Spherical Fibonacci points: nearly uniform samples of the sphere.
shref::Directions fibonacci(int n)
{
    shref::Directions d(0);
    const double golden = shref::kPi * (3.0 - std::sqrt(5.0));
    for (int i = 0; i < n; ++i) {
        const double z = 1.0 - (2.0 * i + 1.0) / n;
        const double r = std::sqrt(1.0 - z * z);
        d.x.push_back(float(r * std::cos(golden * i)));
        d.y.push_back(float(r * std::sin(golden * i)));
        d.z.push_back(float(z));
    }
    return d;
}

TEST(SHTransform, RoundTripOfBandLimitedFunction)
{
    const uint32_t L = 4;
    const int n = 25, N = 20000;
    const auto d = fibonacci(N);
    const auto truth = randomValues(n, 77);
    for (VekrSHType type : kTypes) {
        State st(L, type);
        std::vector<float> samples(N);
        ASSERT_EQ(vekrSHTInv_32f_C1(truth.data(), L, d.x.data(), d.y.data(), d.z.data(),
                                    samples.data(), N, st.get()),
                  vekStsOk);
        std::vector<float> coef(n, 0.0f);
        ASSERT_EQ(vekrSHTFwd_32f_C1I(d.x.data(), d.y.data(), d.z.data(), samples.data(), N,
                                     coef.data(), L, st.get()),
                  vekStsOk);
        double worst = 0;
        for (int k = 0; k < n; ++k)
            worst = std::max(worst, std::fabs(coef[k] * (4 * shref::kPi / N) - truth[k]));
        EXPECT_LT(worst, 1e-4);
    }
}

// An order above 15 passes the transforms' own checks with a recurrence
// state that large; the basis cannot be formed, but nothing goes astray.
TEST(SHTransform, OrderAboveFifteenStaysInBounds)
{
    State st(16, vekrSHRecurrence);
    const float v[4] = {1.0f, 0.0f, 0.0f, 0.0f};
    std::vector<float> c(289, 0.0f);
    float o[3];
    float* cs[3] = {c.data(), c.data(), c.data()};
    const float* ccs[3] = {c.data(), c.data(), c.data()};
    float* os[3] = {o, o + 1, o + 2};
    EXPECT_EQ(vekrSHTFwd_32f_C1I(v, v, v, v, 1, c.data(), 16, st.get()), vekStsOk);
    EXPECT_EQ(vekrSHTFwd_32f_C3P3I(v, v, v, v, 1, cs, 16, st.get()), vekStsOk);
    EXPECT_EQ(vekrSHTInv_32f_P3(ccs, 16, v, v, v, os, 1, st.get()), vekStsOk);
}

}  // namespace
