// What is rendered: one mesh with its materials, the point lights, the camera
// and the environment.
#pragma once

#include <string>
#include <vector>

#include "camera.h"
#include "environment.h"
#include "mesh.h"
#include "options.h"

namespace render {

struct Light {
    float position[3];
    float power[3];  // colour times intensity: irradiance at distance 1
};

struct Scene {
    Mesh mesh;
    std::vector<Light> lights;
    Camera camera;
    Sky sky;
};

// The built-in scene: a checkered ground, a mirror sphere, a matt sphere and
// a torus, lit by two lights.  About 1 150 + 5 200 * detail^2 triangles:
// 6 300 at detail 1, 48 000 at 3, 333 000 at 8.
Scene defaultScene(int detail);

// Known facts of the built-in scene that tests rely on: the centre and
// radius of the matt sphere, and the light that the key shadow belongs to.
struct DefaultSceneFacts {
    float matteCentre[3];
    float matteRadius;
    int keyLight;
};
DefaultSceneFacts defaultSceneFacts();

// A loaded mesh set on the ground (when `ground`), with the camera looking at
// it from the front and above, and the default lights.
Scene meshScene(Mesh mesh, bool ground);

// Applies the camera and light options to a scene.
void applyOptions(Scene& scene, const Options& options);

Light makeLight(const float position[3], float intensity, const float colour[3]);

}  // namespace render
