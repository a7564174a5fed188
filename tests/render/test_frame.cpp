// The whole frame, end to end, on small pictures: something is drawn, shadows
// fall where an occluder stands, mirrors show what they face, and the
// picture does not depend on the number of threads.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "camera.h"
#include "environment.h"
#include "film.h"
#include "scene.h"
#include "tracer.h"

namespace {

struct Rendered {
    render::Film film;
    render::RenderStats stats;
};

Rendered renderScene(const render::Scene& scene, int w, int h, int threads, int samples = 1,
                     bool flat = false)
{
    render::Accel accel;
    std::string error;
    EXPECT_TRUE(accel.build(scene.mesh, error)) << error;
    render::Environment env;
    EXPECT_TRUE(env.init(scene.sky, 1024, error)) << error;
    render::RenderSettings s;
    s.width = w;
    s.height = h;
    s.threads = threads;
    s.samples = samples;
    s.flat = flat;
    Rendered r{render::Film(w, h), {}};
    int calls = 0, last = 0;
    r.stats = render::renderFrame(scene, accel, env, s, r.film, [&](int done, int total) {
        ++calls;
        EXPECT_EQ(done, last + 1);
        last = done;
        EXPECT_EQ(total, ((w + 63) / 64) * ((h + 63) / 64));
    });
    EXPECT_EQ(calls, ((w + 63) / 64) * ((h + 63) / 64));
    EXPECT_EQ(r.stats.status, vekStsOk) << r.stats.failedCall;
    return r;
}

float luminance(const render::Film& f, int x, int y, int samples = 1)
{
    return 0.2126f * f.value(x, y, 0, samples) + 0.7152f * f.value(x, y, 1, samples) +
           0.0722f * f.value(x, y, 2, samples);
}

// Pixel under a world point, which must be inside the picture.
void pixelOf(const render::Scene& s, int w, int h, const float p[3], int& x, int& y)
{
    float px, py;
    ASSERT_TRUE(render::projectToPixel(s.camera, w, h, p, px, py));
    x = static_cast<int>(px);
    y = static_cast<int>(py);
    ASSERT_TRUE(x >= 0 && x < w && y >= 0 && y < h) << px << ", " << py;
}

// One grey ground square, a floating sphere and a light straight above it,
// seen from above and in front.
render::Scene shadowScene(float reflect)
{
    render::Scene s;
    render::Material grey;
    grey.albedo[0] = grey.albedo[1] = grey.albedo[2] = 0.6f;
    render::Material ball = grey;
    ball.reflect = reflect;
    const int g = s.mesh.addMaterial(grey);
    const int b = s.mesh.addMaterial(ball);
    render::addGround(s.mesh, 10.0f, 0.0f, 1, g, g);
    const float centre[3] = {0.0f, 1.0f, 0.0f};
    render::addSphere(s.mesh, centre, 0.5f, 24, 48, b);
    const float light[3] = {0.0f, 6.0f, 0.0f}, white[3] = {1, 1, 1};
    s.lights.push_back(render::makeLight(light, 40.0f, white));
    const float eye[3] = {0.0f, 5.0f, 5.0f}, target[3] = {0.0f, 0.0f, 0.0f};
    for (int c = 0; c < 3; ++c) {
        s.camera.eye[c] = eye[c];
        s.camera.target[c] = target[c];
    }
    s.camera.fov = 50.0f;
    return s;
}

}  // namespace

TEST(Frame, PictureDoesNotDependOnThreadCount)
{
    const render::Scene scene = render::defaultScene(1);
    const int w = 150, h = 100;
    const Rendered one = renderScene(scene, w, h, 1, 2);
    const Rendered two = renderScene(scene, w, h, 2, 2);
    int same = 0;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            for (int c = 0; c < 3; ++c) {
                const float a = one.film.value(x, y, c, 2), b = two.film.value(x, y, c, 2);
                same += std::memcmp(&a, &b, sizeof a) == 0;
            }
        }
    }
    EXPECT_EQ(same, w * h * 3);
    EXPECT_EQ(one.stats.totalRays(), two.stats.totalRays());
    EXPECT_EQ(one.film.toRgb8(2, 1.0f), two.film.toRgb8(2, 1.0f));
}

TEST(Frame, OccluderCastsAShadow)
{
    const render::Scene scene = shadowScene(0.0f);
    const int w = 128, h = 96;
    const Rendered r = renderScene(scene, w, h, 2);
    // Straight under the sphere the light is blocked; 2 units aside it is not.
    const float under[3] = {0.0f, 0.0f, 0.0f}, aside[3] = {2.0f, 0.0f, 0.0f};
    int ux, uy, ax, ay;
    pixelOf(scene, w, h, under, ux, uy);
    pixelOf(scene, w, h, aside, ax, ay);
    const float shadowed = luminance(r.film, ux, uy), lit = luminance(r.film, ax, ay);
    EXPECT_GT(shadowed, 0.0f) << "the ambient light still reaches the shadow";
    EXPECT_LT(shadowed, 0.5f * lit);
    // The top of the sphere faces the light and is brighter than its shadow.
    const float top[3] = {0.0f, 1.5f, 0.0f};
    int tx, ty;
    pixelOf(scene, w, h, top, tx, ty);
    EXPECT_GT(luminance(r.film, tx, ty + 1), 2.0f * shadowed);
    // Without a light only the ambient term is left: both spots alike.
    render::Scene dark = scene;
    dark.lights.clear();
    const Rendered d = renderScene(dark, w, h, 1);
    EXPECT_NEAR(luminance(d.film, ux, uy), luminance(d.film, ax, ay), 0.1f * luminance(d.film, ax, ay));
    EXPECT_EQ(d.stats.shadowRays, 0u);
}
