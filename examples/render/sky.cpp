#include <algorithm>
#include <cmath>

#include "environment.h"

namespace render {

namespace {
constexpr double kPi = 3.14159265358979323846;
}

void skyRadiance(const Sky& sky, float x, float y, float z, float out[3])
{
    const float len = std::sqrt(x * x + y * y + z * z);
    const float h = len > 0 ? y / len : 0.0f;
    if (h >= 0) {
        const float t = std::sqrt(h);
        for (int c = 0; c < 3; ++c) out[c] = sky.horizon[c] + (sky.zenith[c] - sky.horizon[c]) * t;
    } else {
        const float t = std::min(1.0f, -h * 8.0f);
        for (int c = 0; c < 3; ++c) out[c] = sky.horizon[c] + (sky.ground[c] - sky.horizon[c]) * t;
    }
}

void sphereDirections(int n, float* x, float* y, float* z)
{
    const double golden = kPi * (3.0 - std::sqrt(5.0));
    for (int i = 0; i < n; ++i) {
        const double yy = 1.0 - (2.0 * i + 1.0) / n;
        const double r = std::sqrt(std::max(0.0, 1.0 - yy * yy));
        const double phi = golden * i;
        x[i] = static_cast<float>(r * std::cos(phi));
        y[i] = static_cast<float>(yy);
        z[i] = static_cast<float>(r * std::sin(phi));
    }
}

}  // namespace render
