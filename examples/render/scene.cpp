#include "scene.h"

#include <algorithm>
#include <cmath>

namespace render {

namespace {

const float kMatteCentre[3] = {0.9f, 0.55f, -1.3f};
const float kMatteRadius = 0.55f;

void defaultLights(Scene& s)
{
    const float keyPos[3] = {4.0f, 7.0f, 4.0f}, keyColour[3] = {1.0f, 0.95f, 0.88f};
    const float fillPos[3] = {-6.0f, 4.0f, 2.5f}, fillColour[3] = {0.75f, 0.85f, 1.0f};
    s.lights.push_back(makeLight(keyPos, 55.0f, keyColour));
    s.lights.push_back(makeLight(fillPos, 12.0f, fillColour));
}

Material material(float r, float g, float b, float reflect = 0.0f)
{
    Material m;
    m.albedo[0] = r;
    m.albedo[1] = g;
    m.albedo[2] = b;
    m.reflect = reflect;
    return m;
}

}  // namespace

Light makeLight(const float position[3], float intensity, const float colour[3])
{
    Light l;
    for (int c = 0; c < 3; ++c) {
        l.position[c] = position[c];
        l.power[c] = intensity * colour[c];
    }
    return l;
}

DefaultSceneFacts defaultSceneFacts()
{
    DefaultSceneFacts f;
    for (int c = 0; c < 3; ++c) f.matteCentre[c] = kMatteCentre[c];
    f.matteRadius = kMatteRadius;
    f.keyLight = 0;
    return f;
}

Scene defaultScene(int detail)
{
    detail = std::max(1, detail);
    Scene s;
    Mesh& m = s.mesh;
    const int light = m.addMaterial(material(0.75f, 0.75f, 0.72f));
    const int dark = m.addMaterial(material(0.25f, 0.27f, 0.30f));
    const int mirror = m.addMaterial(material(0.9f, 0.9f, 0.9f, 0.85f));
    const int matte = m.addMaterial(material(0.15f, 0.35f, 0.80f));
    const int torus = m.addMaterial(material(0.85f, 0.35f, 0.12f, 0.15f));

    addGround(m, 12.0f, 0.0f, 24, light, dark);
    const float mirrorCentre[3] = {-1.0f, 1.0f, -0.3f};
    addSphere(m, mirrorCentre, 1.0f, 24 * detail, 48 * detail, mirror);
    addSphere(m, kMatteCentre, kMatteRadius, 12 * detail, 24 * detail, matte);
    const float torusCentre[3] = {1.3f, 0.3f, 0.9f};
    addTorus(m, torusCentre, 0.75f, 0.3f, 48 * detail, 24 * detail, torus);

    defaultLights(s);
    const float eye[3] = {0.6f, 2.6f, 6.2f}, target[3] = {0.0f, 0.6f, 0.0f};
    for (int c = 0; c < 3; ++c) {
        s.camera.eye[c] = eye[c];
        s.camera.target[c] = target[c];
    }
    s.camera.fov = 45.0f;
    return s;
}

Scene meshScene(Mesh mesh, bool ground)
{
    Scene s;
    fitOnGround(mesh, 2.0f);
    if (ground) {
        Mesh floor;
        const int a = floor.addMaterial(material(0.75f, 0.75f, 0.72f));
        const int b = floor.addMaterial(material(0.25f, 0.27f, 0.30f));
        addGround(floor, 12.0f, 0.0f, 24, a, b);
        mesh.append(floor);
    }
    s.mesh = std::move(mesh);
    defaultLights(s);
    const float eye[3] = {0.0f, 1.6f, 4.2f}, target[3] = {0.0f, 0.7f, 0.0f};
    for (int c = 0; c < 3; ++c) {
        s.camera.eye[c] = eye[c];
        s.camera.target[c] = target[c];
    }
    return s;
}

void applyOptions(Scene& scene, const Options& o)
{
    for (int c = 0; c < 3; ++c) {
        if (o.hasEye) scene.camera.eye[c] = o.eye[c];
        if (o.hasTarget) scene.camera.target[c] = o.target[c];
        scene.camera.up[c] = o.up[c];
    }
    scene.camera.fov = o.fov;
    if (!o.lights.empty()) {
        scene.lights.clear();
        for (const LightOption& l : o.lights) {
            scene.lights.push_back(makeLight(l.position, l.intensity, l.colour));
        }
    }
}

}  // namespace render
