// The environment's projection: the library's transform of the sky matches a
// projection written out in double precision, and the diffuse coefficients
// reproduce the cosine-weighted integral of the sky.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "environment.h"

namespace {

// The nine real spherical harmonics of bands 0..2 at a unit direction, in
// the order l*l + l + m.
void basis9(double x, double y, double z, double out[9])
{
    const double c0 = 0.5 / std::sqrt(M_PI);
    const double c1 = std::sqrt(3.0 / (4.0 * M_PI));
    const double c2 = 0.5 * std::sqrt(15.0 / M_PI);
    const double c20 = 0.25 * std::sqrt(5.0 / M_PI);
    out[0] = c0;
    out[1] = -c1 * y;
    out[2] = c1 * z;
    out[3] = -c1 * x;
    out[4] = c2 * x * y;
    out[5] = -c2 * y * z;
    out[6] = c20 * (3 * z * z - 1);
    out[7] = -c2 * x * z;
    out[8] = 0.5 * c2 * (x * x - y * y);
}

}  // namespace

TEST(Environment, ProjectionMatchesADirectSum)
{
    render::Environment env;
    std::string error;
    const int n = 1500;
    ASSERT_TRUE(env.init(render::Sky{}, n, error)) << error;
    std::vector<float> x(n), y(n), z(n);
    render::sphereDirections(n, x.data(), y.data(), z.data());
    double expect[3][9] = {};
    for (int i = 0; i < n; ++i) {
        float rgb[3];
        render::skyRadiance(render::Sky{}, x[i], y[i], z[i], rgb);
        double b[9];
        basis9(x[i], y[i], z[i], b);
        for (int c = 0; c < 3; ++c) {
            for (int k = 0; k < 9; ++k) expect[c][k] += rgb[c] * b[k] * 4.0 * M_PI / n;
        }
    }
    for (int c = 0; c < 3; ++c) {
        for (int k = 0; k < 9; ++k) {
            EXPECT_NEAR(env.radiance(c)[k], expect[c][k], 2e-4 + 1e-4 * std::fabs(expect[c][k]))
                << "channel " << c << " coefficient " << k;
        }
    }
    // The sky is the same all around the vertical y axis, so every term odd
    // in x or z vanishes (up to the lattice's spread), and the sky above
    // outshines the ground.
    for (int c = 0; c < 3; ++c) {
        for (int k : {2, 3, 4, 5, 7}) EXPECT_NEAR(env.radiance(c)[k], 0.0f, 0.01f);
    }
    EXPECT_LT(env.radiance(2)[1], 0.0f);  // Y(1,-1) = -c y: more light from +y
}
