#include "camera.h"

#include <cmath>

namespace render {

namespace {

struct Basis {
    double forward[3], right[3], up[3];
};

void normalise(double v[3])
{
    const double len = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    if (len > 0) {
        for (int c = 0; c < 3; ++c) v[c] /= len;
    }
}

void cross(const double a[3], const double b[3], double out[3])
{
    out[0] = a[1] * b[2] - a[2] * b[1];
    out[1] = a[2] * b[0] - a[0] * b[2];
    out[2] = a[0] * b[1] - a[1] * b[0];
}

Basis basis(const Camera& cam)
{
    Basis b;
    for (int c = 0; c < 3; ++c) b.forward[c] = double(cam.target[c]) - cam.eye[c];
    normalise(b.forward);
    double up[3] = {cam.up[0], cam.up[1], cam.up[2]};
    cross(b.forward, up, b.right);
    if (b.right[0] * b.right[0] + b.right[1] * b.right[1] + b.right[2] * b.right[2] < 1e-12) {
        // Looking along the up direction: any perpendicular will do.
        const double alt[3] = {1, 0, 0};
        cross(b.forward, alt, b.right);
    }
    normalise(b.right);
    cross(b.right, b.forward, b.up);
    return b;
}

double pixelSize(const Camera& cam, int height)
{
    const double halfAngle = cam.fov * 0.5 * 3.14159265358979323846 / 180.0;
    return 2.0 * std::tan(halfAngle) / height;
}

}  // namespace

RayFrame rayFrame(const Camera& cam, int width, int height, float dx, float dy)
{
    const Basis b = basis(cam);
    const double p = pixelSize(cam, height);
    const double x0 = (0.5 + dx - 0.5 * width) * p;   // pixel (0, 0), to the left
    const double y0 = (0.5 * height - 0.5 - dy) * p;  // and at the top
    RayFrame f;
    for (int c = 0; c < 3; ++c) {
        f.corner[c] = static_cast<float>(b.forward[c] + x0 * b.right[c] + y0 * b.up[c]);
        f.stepX[c] = static_cast<float>(p * b.right[c]);
        f.stepY[c] = static_cast<float>(-p * b.up[c]);
    }
    return f;
}

bool projectToPixel(const Camera& cam, int width, int height, const float point[3], float& px,
                    float& py)
{
    const Basis b = basis(cam);
    double d[3];
    for (int c = 0; c < 3; ++c) d[c] = double(point[c]) - cam.eye[c];
    const double z = d[0] * b.forward[0] + d[1] * b.forward[1] + d[2] * b.forward[2];
    if (z <= 0) return false;
    const double x = (d[0] * b.right[0] + d[1] * b.right[1] + d[2] * b.right[2]) / z;
    const double y = (d[0] * b.up[0] + d[1] * b.up[1] + d[2] * b.up[2]) / z;
    const double p = pixelSize(cam, height);
    px = static_cast<float>(x / p + 0.5 * width);
    py = static_cast<float>(0.5 * height - y / p);
    return true;
}

void sampleOffset(int s, float& dx, float& dy)
{
    // The plastic-number sequence: well spread for every sample count.
    const double a1 = 0.7548776662466927, a2 = 0.5698402909980532;
    dx = static_cast<float>(std::fmod(0.5 + a1 * s, 1.0) - 0.5);
    dy = static_cast<float>(std::fmod(0.5 + a2 * s, 1.0) - 0.5);
}

}  // namespace render
