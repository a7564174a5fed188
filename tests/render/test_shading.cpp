// Colour accumulation with the masked arithmetic, against a scalar reference
// in double precision, on the 4-wide layout and on the element-by-element
// one.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "shading.h"
#include "testutil.h"

using vekr::test::Aligned;

namespace {

struct Planes {
    Aligned<float> p[3];
    explicit Planes(int n) : p{Aligned<float>(n), Aligned<float>(n), Aligned<float>(n)} {}
    float* ptr(int c, int shift) { return p[c].offset(shift); }
};

}  // namespace

class Accumulate : public ::testing::TestWithParam<std::pair<int, int>> {};

// (count, shift): shift 0 keeps every plane 16-byte aligned, 1 does not.
INSTANTIATE_TEST_SUITE_P(Layouts, Accumulate,
                         ::testing::Values(std::make_pair(256, 0), std::make_pair(37, 0),
                                           std::make_pair(64, 1)));

TEST_P(Accumulate, LightMatchesReference)
{
    const auto [n, k] = GetParam();
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> u(-3.0f, 3.0f), pos(0.0f, 1.0f);
    render::Light light{{0.5f, 2.0f, -1.0f}, {30.0f, 20.0f, 5.0f}};
    Planes points(n), albedo(n), colour(n);
    Aligned<float> cosine(n), dist(n), scratch(n);
    Aligned<int> mask(n);
    std::vector<double> ref(3 * n);
    for (int i = 0; i < n; ++i) {
        for (int c = 0; c < 3; ++c) {
            points.p[c][i + k] = u(rng);
            albedo.p[c][i + k] = pos(rng);
            colour.p[c][i + k] = pos(rng);
        }
        // Some points within distance 1 of the light, where d is clamped.
        if (i % 9 == 0) {
            for (int c = 0; c < 3; ++c) points.p[c][i + k] = light.position[c] + 0.3f * pos(rng);
        }
        mask[i + k] = (i % 5 == 2) ? -1 : (i % 7 == 3 ? -7 : i);
        double d2 = 0;
        for (int c = 0; c < 3; ++c) d2 += std::pow(double(points.p[c][i + k]) - light.position[c], 2);
        const double dist = std::sqrt(d2);
        cosine[i + k] = static_cast<float>(dist * pos(rng));  // |N . V| <= |V|
        const double d = std::max(1.0, dist);
        for (int c = 0; c < 3; ++c) {
            ref[3 * i + c] = colour.p[c][i + k];
            if (mask[i + k] >= 0) {
                ref[3 * i + c] += double(light.power[c]) * albedo.p[c][i + k] * cosine[i + k] / (d * d * d);
            }
        }
    }
    const float* P[3] = {points.ptr(0, k), points.ptr(1, k), points.ptr(2, k)};
    const float* A[3] = {albedo.ptr(0, k), albedo.ptr(1, k), albedo.ptr(2, k)};
    float* C[3] = {colour.ptr(0, k), colour.ptr(1, k), colour.ptr(2, k)};
    ASSERT_EQ(render::addLight(light, P, mask.offset(k), cosine.offset(k), dist.offset(k),
                               scratch.offset(k), A, C, n),
              vekStsOk);
    for (int i = 0; i < n; ++i) {
        for (int c = 0; c < 3; ++c) {
            EXPECT_NEAR(C[c][i], ref[3 * i + c], 1e-5 * std::fabs(ref[3 * i + c]) + 1e-6)
                << "ray " << i << " channel " << c;
        }
    }
}

TEST_P(Accumulate, AmbientAndMirrorBlendMatchReference)
{
    const auto [n, k] = GetParam();
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> pos(0.0f, 1.0f);
    Planes ambient(n), albedo(n), colour(n), mirrored(n);
    Aligned<int> mask(n), mirror(n), every(n, 0);
    Aligned<float> share(n), scale(n);
    std::vector<double> ref(3 * n);
    for (int i = 0; i < n; ++i) {
        for (int c = 0; c < 3; ++c) {
            ambient.p[c][i + k] = pos(rng);
            albedo.p[c][i + k] = pos(rng);
            colour.p[c][i + k] = pos(rng);
            mirrored.p[c][i + k] = pos(rng);
        }
        mask[i + k] = i % 3 == 1 ? -1 : 0;
        mirror[i + k] = i % 4 == 0 ? 0 : -1;
        share[i + k] = pos(rng);
        for (int c = 0; c < 3; ++c) {
            double v = colour.p[c][i + k];
            if (mask[i + k] >= 0) v += double(ambient.p[c][i + k]) * albedo.p[c][i + k];
            if (mirror[i + k] >= 0) {
                v = (1.0 - share[i + k]) * v + double(share[i + k]) * mirrored.p[c][i + k];
            }
            ref[3 * i + c] = v;
        }
    }
    const float* Am[3] = {ambient.ptr(0, k), ambient.ptr(1, k), ambient.ptr(2, k)};
    const float* Al[3] = {albedo.ptr(0, k), albedo.ptr(1, k), albedo.ptr(2, k)};
    const float* M[3] = {mirrored.ptr(0, k), mirrored.ptr(1, k), mirrored.ptr(2, k)};
    float* C[3] = {colour.ptr(0, k), colour.ptr(1, k), colour.ptr(2, k)};
    ASSERT_EQ(render::addAmbient(Am, Al, mask.offset(k), C, n), vekStsOk);
    ASSERT_EQ(render::blendMirror(share.offset(k), mirror.offset(k), every.offset(k), scale.offset(k),
                                  M, C, n),
              vekStsOk);
    for (int i = 0; i < n; ++i) {
        for (int c = 0; c < 3; ++c) {
            EXPECT_NEAR(C[c][i], ref[3 * i + c], 1e-6 + 1e-6 * ref[3 * i + c])
                << "ray " << i << " channel " << c;
        }
    }
}
