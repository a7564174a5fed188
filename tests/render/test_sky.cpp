// The sky and the sample directions used to project it.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "environment.h"

TEST(Sky, DirectionsAreUnitAndEvenlySpread)
{
    const int n = 2000;
    std::vector<float> x(n), y(n), z(n);
    render::sphereDirections(n, x.data(), y.data(), z.data());
    double mean[3] = {0, 0, 0};
    int upper = 0, positiveX = 0;
    for (int i = 0; i < n; ++i) {
        EXPECT_NEAR(std::sqrt(double(x[i]) * x[i] + double(y[i]) * y[i] + double(z[i]) * z[i]), 1.0, 1e-6);
        mean[0] += x[i];
        mean[1] += y[i];
        mean[2] += z[i];
        upper += y[i] > 0;
        positiveX += x[i] > 0;
    }
    for (double m : mean) EXPECT_NEAR(m / n, 0.0, 1e-3);
    EXPECT_EQ(upper, n / 2);
    EXPECT_NEAR(positiveX, n / 2, n / 50);
    // Second moments of a uniform distribution are 1/3 on every axis.
    double yy = 0, xx = 0;
    for (int i = 0; i < n; ++i) {
        yy += y[i] * y[i];
        xx += x[i] * x[i];
    }
    EXPECT_NEAR(yy / n, 1.0 / 3.0, 1e-3);
    EXPECT_NEAR(xx / n, 1.0 / 3.0, 1e-2);
}

TEST(Sky, ZenithHorizonGroundAndContinuity)
{
    const render::Sky sky;
    float c[3];
    render::skyRadiance(sky, 0, 5, 0, c);  // any length
    for (int k = 0; k < 3; ++k) EXPECT_FLOAT_EQ(c[k], sky.zenith[k]);
    render::skyRadiance(sky, 1, 0, 0, c);
    for (int k = 0; k < 3; ++k) EXPECT_FLOAT_EQ(c[k], sky.horizon[k]);
    render::skyRadiance(sky, 0, -1, 0.1f, c);
    for (int k = 0; k < 3; ++k) EXPECT_FLOAT_EQ(c[k], sky.ground[k]);
    // No jump across the horizon.
    float above[3], below[3];
    render::skyRadiance(sky, 1, 1e-6f, 0, above);
    render::skyRadiance(sky, 1, -1e-6f, 0, below);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(above[k], below[k], 0.01f);
    // The sky is brighter in blue overhead and the ground darker than the horizon.
    render::skyRadiance(sky, 0.2f, 1, 0, c);
    EXPECT_GT(c[2], c[0]);
    render::skyRadiance(sky, 0, -1, 0, below);
    render::skyRadiance(sky, 1, 0, 0, above);
    EXPECT_LT(below[0] + below[1] + below[2], above[0] + above[1] + above[2]);
}
