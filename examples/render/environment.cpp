#include "environment.h"

#include <algorithm>
#include <cmath>

namespace render {

namespace {
constexpr double kPi = 3.14159265358979323846;
}

bool Environment::init(const Sky& sky, int samples, std::string& error)
{
    sky_ = sky;
    uint32_t size = 0;
    VekStatus st = vekrSHGetSize_32f(kBands, vekrSHDirect, &size);
    if (st != vekStsOk) {
        error = "spherical-harmonic state size query failed (status " + std::to_string(st) + ")";
        return false;
    }
    stateBlock_.assign((size + sizeof(double) - 1) / sizeof(double), 0.0);
    st = vekrSHInit_32f(reinterpret_cast<VekrSHState*>(stateBlock_.data()), kBands, vekrSHDirect);
    if (st != vekStsOk) {
        error = "spherical-harmonic state set-up failed (status " + std::to_string(st) + ")";
        return false;
    }

    std::vector<float> x(samples), y(samples), z(samples);
    std::vector<float> value[3] = {std::vector<float>(samples), std::vector<float>(samples),
                                   std::vector<float>(samples)};
    sphereDirections(samples, x.data(), y.data(), z.data());
    for (int i = 0; i < samples; ++i) {
        float rgb[3];
        skyRadiance(sky, x[i], y[i], z[i], rgb);
        for (int c = 0; c < 3; ++c) value[c][i] = rgb[c];
    }
    const float* planes[3] = {value[0].data(), value[1].data(), value[2].data()};
    float* coeffs[3] = {radiance_[0], radiance_[1], radiance_[2]};
    for (auto& ch : radiance_) {
        for (float& v : ch) v = 0.0f;
    }
    st = vekrSHTFwd_32f_P3I(x.data(), y.data(), z.data(), planes, samples, coeffs, kBands, state());
    if (st != vekStsOk) {
        error = "spherical-harmonic projection failed (status " + std::to_string(st) + ")";
        return false;
    }
    // The transform sums sample * basis; even samples over the sphere each
    // stand for a solid angle of 4 pi / n.  Convolving with the clamped
    // cosine scales band l by A_l = pi, 2 pi / 3, pi / 4; dividing by pi
    // gives the radiance a white diffuse surface sends out.
    const float weight = static_cast<float>(4.0 * kPi / samples);
    const float lobe[kBands + 1] = {1.0f, 2.0f / 3.0f, 0.25f};
    for (int c = 0; c < 3; ++c) {
        for (int l = 0; l <= static_cast<int>(kBands); ++l) {
            for (int k = l * l; k < (l + 1) * (l + 1); ++k) {
                radiance_[c][k] *= weight;
                diffuse_[c][k] = radiance_[c][k] * lobe[l];
            }
        }
    }
    return true;
}

}  // namespace render
