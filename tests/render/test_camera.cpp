// Camera: the eye-ray frame and the projection back to pixels agree, and the
// sample offsets stay inside the pixel.
#include <gtest/gtest.h>

#include <cmath>

#include "camera.h"

using render::Camera;

namespace {

Camera someCamera()
{
    Camera c;
    const float eye[3] = {1.0f, 2.0f, 6.0f}, target[3] = {-0.5f, 0.3f, 0.2f};
    for (int k = 0; k < 3; ++k) {
        c.eye[k] = eye[k];
        c.target[k] = target[k];
    }
    c.fov = 50.0f;
    return c;
}

}  // namespace

TEST(Camera, RayThroughPixelProjectsBackToIt)
{
    const Camera c = someCamera();
    const int w = 320, h = 200;
    const render::RayFrame f = render::rayFrame(c, w, h);
    for (int j : {0, 17, 100, 199}) {
        for (int i : {0, 5, 160, 319}) {
            float p[3];
            for (int k = 0; k < 3; ++k) {
                p[k] = c.eye[k] + 3.0f * (f.corner[k] + i * f.stepX[k] + j * f.stepY[k]);
            }
            float px, py;
            ASSERT_TRUE(render::projectToPixel(c, w, h, p, px, py));
            EXPECT_NEAR(px, i + 0.5f, 1e-3);
            EXPECT_NEAR(py, j + 0.5f, 1e-3);
        }
    }
    float behind[3];
    for (int k = 0; k < 3; ++k) behind[k] = 2 * c.eye[k] - c.target[k];
    float px, py;
    EXPECT_FALSE(render::projectToPixel(c, w, h, behind, px, py));
}

TEST(Camera, CentreLooksAtTargetAndFieldOfViewHolds)
{
    const Camera c = someCamera();
    const int w = 64, h = 64;
    float px, py;
    ASSERT_TRUE(render::projectToPixel(c, w, h, c.target, px, py));
    EXPECT_NEAR(px, 32.0f, 1e-3);
    EXPECT_NEAR(py, 32.0f, 1e-3);
    // Top and bottom edges of the picture are fov apart.
    const render::RayFrame f = render::rayFrame(c, w, h, 0.0f, -0.5f);
    double top[3], bottom[3];
    for (int k = 0; k < 3; ++k) {
        top[k] = f.corner[k] + 31.5 * f.stepX[k];
        bottom[k] = top[k] + h * f.stepY[k];
    }
    const double dot = top[0] * bottom[0] + top[1] * bottom[1] + top[2] * bottom[2];
    const double angle = std::acos(dot / std::sqrt((top[0] * top[0] + top[1] * top[1] + top[2] * top[2]) *
                                                   (bottom[0] * bottom[0] + bottom[1] * bottom[1] +
                                                    bottom[2] * bottom[2])));
    EXPECT_NEAR(angle * 180.0 / M_PI, 50.0, 1e-3);
    // Image rows run downwards: up in the world is up in the picture.
    EXPECT_LT(f.stepY[1], 0.0f);
}

TEST(Camera, SampleOffsetsStartAtCentreAndStayInside)
{
    float dx, dy;
    render::sampleOffset(0, dx, dy);
    EXPECT_EQ(dx, 0.0f);
    EXPECT_EQ(dy, 0.0f);
    double sx = 0, sy = 0;
    const int n = 256;
    for (int s = 0; s < n; ++s) {
        render::sampleOffset(s, dx, dy);
        EXPECT_GE(dx, -0.5f);
        EXPECT_LT(dx, 0.5f);
        EXPECT_GE(dy, -0.5f);
        EXPECT_LT(dy, 0.5f);
        sx += dx;
        sy += dy;
    }
    EXPECT_NEAR(sx / n, 0.0, 0.01);
    EXPECT_NEAR(sy / n, 0.0, 0.01);
}
