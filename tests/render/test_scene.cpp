// Scene set-up: the procedural shapes are closed, consistently wound and
// free of degenerate triangles, the default scene is what its facts say,
// and vertex normals follow the surfaces.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <map>
#include <utility>

#include "mesh.h"
#include "scene.h"

using render::Mesh;

namespace {

std::array<double, 3> corner(const Mesh& m, int t, int k)
{
    const int v = m.triangles[4 * t + k];
    return {m.vertices[3 * v], m.vertices[3 * v + 1], m.vertices[3 * v + 2]};
}

// Unit normal of triangle t by the right-hand rule, in double precision.
std::array<double, 3> faceNormal(const Mesh& m, int t, double* area = nullptr)
{
    const auto a = corner(m, t, 0), b = corner(m, t, 1), c = corner(m, t, 2);
    const double e1[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
    const double e2[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
    std::array<double, 3> n = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2],
                               e1[0] * e2[1] - e1[1] * e2[0]};
    const double len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    if (area) *area = 0.5 * len;
    if (len > 0) {
        for (double& x : n) x /= len;
    }
    return n;
}

std::vector<float> faceNormals(const Mesh& m)
{
    std::vector<float> out;
    for (int t = 0; t < m.triangleCount(); ++t) {
        const auto n = faceNormal(m, t);
        out.insert(out.end(), {float(n[0]), float(n[1]), float(n[2])});
    }
    return out;
}

// Every directed edge appears once and its reverse once: closed and
// consistently oriented.
void expectClosedAndOriented(const Mesh& m)
{
    std::map<std::pair<int, int>, int> edges;
    for (int t = 0; t < m.triangleCount(); ++t) {
        for (int k = 0; k < 3; ++k) {
            ++edges[{m.triangles[4 * t + k], m.triangles[4 * t + (k + 1) % 3]}];
        }
    }
    for (const auto& [e, count] : edges) {
        ASSERT_EQ(count, 1) << "edge " << e.first << "-" << e.second << " used twice one way";
        ASSERT_EQ(edges.count({e.second, e.first}), 1u) << "open edge " << e.first << "-" << e.second;
    }
}

}  // namespace

TEST(Shapes, SphereIsClosedOutwardAndNotDegenerate)
{
    Mesh m;
    const float c[3] = {1.0f, 2.0f, -3.0f};
    render::addSphere(m, c, 1.5f, 7, 11, 4);
    EXPECT_EQ(m.triangleCount(), 2 * 11 * (7 - 1));
    expectClosedAndOriented(m);
    double area = 0;
    for (int t = 0; t < m.triangleCount(); ++t) {
        double a = 0;
        const auto n = faceNormal(m, t, &a);
        EXPECT_GT(a, 1e-4);
        area += a;
        // Outward: the normal points away from the centre.
        const auto p = corner(m, t, 0);
        EXPECT_GT(n[0] * (p[0] - c[0]) + n[1] * (p[1] - c[1]) + n[2] * (p[2] - c[2]), 0.0);
        EXPECT_EQ(m.triangles[4 * t + 3], 4);
    }
    EXPECT_NEAR(area, 4 * M_PI * 1.5 * 1.5, 0.2 * 4 * M_PI * 1.5 * 1.5);
    for (int v = 0; v < m.vertexCount(); ++v) {
        const double d = std::hypot(m.vertices[3 * v] - c[0], m.vertices[3 * v + 1] - c[1],
                                    m.vertices[3 * v + 2] - c[2]);
        EXPECT_NEAR(d, 1.5, 1e-5);
    }
}

TEST(Shapes, TorusIsClosedAndOutward)
{
    Mesh m;
    const float c[3] = {0.0f, 0.5f, 0.0f};
    render::addTorus(m, c, 1.0f, 0.25f, 16, 8, 0);
    EXPECT_EQ(m.triangleCount(), 2 * 16 * 8);
    expectClosedAndOriented(m);
    for (int t = 0; t < m.triangleCount(); ++t) {
        const auto n = faceNormal(m, t);
        const auto p = corner(m, t, 0);
        // Nearest point of the tube's centre circle.
        const double r = std::hypot(p[0], p[2]);
        const double q[3] = {p[0] / r, c[1], p[2] / r};
        EXPECT_GT(n[0] * (p[0] - q[0]) + n[1] * (p[1] - q[1]) + n[2] * (p[2] - q[2]), 0.0);
    }
}

TEST(Shapes, GroundFacesUpAndAlternatesMaterials)
{
    Mesh m;
    render::addGround(m, 2.0f, -1.0f, 4, 7, 9);
    EXPECT_EQ(m.triangleCount(), 32);
    int a = 0, b = 0;
    for (int t = 0; t < m.triangleCount(); ++t) {
        const auto n = faceNormal(m, t);
        EXPECT_NEAR(n[1], 1.0, 1e-12);
        (m.triangles[4 * t + 3] == 7 ? a : b)++;
    }
    EXPECT_EQ(a, 16);
    EXPECT_EQ(b, 16);
    const render::Bounds bounds = render::meshBounds(m);
    EXPECT_FLOAT_EQ(bounds.min[0], -2.0f);
    EXPECT_FLOAT_EQ(bounds.max[2], 2.0f);
    EXPECT_FLOAT_EQ(bounds.min[1], -1.0f);
    EXPECT_FLOAT_EQ(bounds.max[1], -1.0f);
}

TEST(Shapes, AppendShiftsVerticesAndMaterials)
{
    Mesh a, b;
    a.addMaterial({});
    a.addVertex(0, 0, 0);
    a.addVertex(1, 0, 0);
    a.addVertex(0, 1, 0);
    a.addTriangle(0, 1, 2, 0);
    b.addMaterial({});
    b.addMaterial({});
    b.addVertex(5, 5, 5);
    b.addVertex(6, 5, 5);
    b.addVertex(5, 6, 5);
    b.addTriangle(2, 1, 0, 1);
    a.append(b);
    ASSERT_EQ(a.triangleCount(), 2);
    EXPECT_EQ(a.materials.size(), 3u);
    EXPECT_EQ(a.triangles[4], 5);
    EXPECT_EQ(a.triangles[6], 3);
    EXPECT_EQ(a.triangles[7], 2);
}

TEST(Shapes, FitOnGroundScalesAndCentres)
{
    Mesh m;
    m.addVertex(10, 20, 30);
    m.addVertex(14, 21, 31);
    m.addVertex(12, 22, 38);
    render::fitOnGround(m, 2.0f);
    const render::Bounds b = render::meshBounds(m);
    EXPECT_FLOAT_EQ(b.min[1], 0.0f);
    EXPECT_NEAR(b.max[2] - b.min[2], 2.0f, 1e-6);  // z had the largest extent (8)
    EXPECT_NEAR(b.max[0] - b.min[0], 1.0f, 1e-6);
    EXPECT_NEAR(b.min[0] + b.max[0], 0.0f, 1e-6);
    EXPECT_NEAR(b.min[2] + b.max[2], 0.0f, 1e-6);
}

TEST(VertexNormals, FollowTheSphereAndSkipUnusedVertices)
{
    Mesh m;
    const float c[3] = {0.0f, 0.0f, 0.0f};
    render::addSphere(m, c, 2.0f, 16, 32, 0);
    const int unused = m.addVertex(9, 9, 9);
    const std::vector<float> n = render::vertexNormals(m, faceNormals(m));
    ASSERT_EQ(n.size(), m.vertices.size());
    for (int v = 0; v < unused; ++v) {
        const double dot = (n[3 * v] * m.vertices[3 * v] + n[3 * v + 1] * m.vertices[3 * v + 1] +
                            n[3 * v + 2] * m.vertices[3 * v + 2]) / 2.0;
        EXPECT_GT(dot, 0.99) << "vertex " << v;
        EXPECT_NEAR(std::hypot(n[3 * v], n[3 * v + 1], n[3 * v + 2]), 1.0, 1e-6);
    }
    EXPECT_EQ(n[3 * unused], 0.0f);
    EXPECT_EQ(n[3 * unused + 1], 0.0f);
    EXPECT_EQ(n[3 * unused + 2], 0.0f);
}

TEST(VertexNormals, OpposedTrianglesCancelToZero)
{
    Mesh m;
    m.addVertex(0, 0, 0);
    m.addVertex(1, 0, 0);
    m.addVertex(0, 1, 0);
    m.addTriangle(0, 1, 2, 0);
    m.addTriangle(0, 2, 1, 0);
    const std::vector<float> n = render::vertexNormals(m, faceNormals(m));
    for (float x : n) EXPECT_EQ(x, 0.0f);
}

TEST(DefaultScene, SizeMaterialsAndFacts)
{
    for (int detail : {1, 3}) {
        const render::Scene s = render::defaultScene(detail);
        const Mesh& m = s.mesh;
        EXPECT_GE(m.triangleCount(), 2000);
        EXPECT_LE(m.triangleCount(), 500000);
        EXPECT_GE(s.lights.size(), 1u);
        bool mirror = false;
        for (const auto& mat : m.materials) mirror = mirror || mat.reflect > 0.5f;
        EXPECT_TRUE(mirror) << "the built-in scene shows a mirror";
        for (int t = 0; t < m.triangleCount(); ++t) {
            for (int k = 0; k < 3; ++k) {
                ASSERT_GE(m.triangles[4 * t + k], 0);
                ASSERT_LT(m.triangles[4 * t + k], m.vertexCount());
            }
            ASSERT_GE(m.triangles[4 * t + 3], 0);
            ASSERT_LT(m.triangles[4 * t + 3], static_cast<int>(m.materials.size()));
            double area = 0;
            faceNormal(m, t, &area);
            ASSERT_GT(area, 1e-7) << "degenerate triangle " << t;
        }
    }
    EXPECT_GT(render::defaultScene(3).mesh.triangleCount(),
              3 * render::defaultScene(1).mesh.triangleCount());

    // The matte sphere of the facts is in the mesh: some vertex lies on it.
    const render::Scene s = render::defaultScene(1);
    const render::DefaultSceneFacts f = render::defaultSceneFacts();
    int onSphere = 0;
    for (int v = 0; v < s.mesh.vertexCount(); ++v) {
        const double d = std::hypot(s.mesh.vertices[3 * v] - f.matteCentre[0],
                                    s.mesh.vertices[3 * v + 1] - f.matteCentre[1],
                                    s.mesh.vertices[3 * v + 2] - f.matteCentre[2]);
        onSphere += std::fabs(d - f.matteRadius) < 1e-5;
    }
    EXPECT_GT(onSphere, 100);
    // It rests on the ground, and its key light is above it.
    EXPECT_NEAR(f.matteCentre[1], f.matteRadius, 1e-6);
    EXPECT_GT(s.lights[f.keyLight].position[1], f.matteCentre[1] + f.matteRadius);
}

TEST(DefaultScene, OptionsReplaceCameraAndLights)
{
    render::Scene s = render::defaultScene(1);
    render::Options o;
    o.hasEye = true;
    o.eye[0] = 7;
    o.fov = 30;
    o.lights.push_back({{1, 2, 3}, 10.0f, {1.0f, 0.5f, 0.0f}});
    const float targetBefore = s.camera.target[1];
    render::applyOptions(s, o);
    EXPECT_EQ(s.camera.eye[0], 7.0f);
    EXPECT_EQ(s.camera.target[1], targetBefore);
    EXPECT_EQ(s.camera.fov, 30.0f);
    ASSERT_EQ(s.lights.size(), 1u);
    EXPECT_EQ(s.lights[0].power[0], 10.0f);
    EXPECT_EQ(s.lights[0].power[1], 5.0f);
    EXPECT_EQ(s.lights[0].power[2], 0.0f);
}

TEST(MeshScene, PutsTheMeshOnTheGround)
{
    Mesh m;
    m.addMaterial({});
    m.addVertex(0, 5, 0);
    m.addVertex(4, 5, 0);
    m.addVertex(0, 9, 0);
    m.addTriangle(0, 1, 2, 0);
    const render::Scene with = render::meshScene(m, true);
    const render::Scene without = render::meshScene(m, false);
    EXPECT_EQ(without.mesh.triangleCount(), 1);
    EXPECT_GT(with.mesh.triangleCount(), 1);
    EXPECT_EQ(render::meshBounds(without.mesh).min[1], 0.0f);
    EXPECT_FLOAT_EQ(render::meshBounds(without.mesh).max[1], 2.0f);
    EXPECT_EQ(with.mesh.materials.size(), 3u);
}
