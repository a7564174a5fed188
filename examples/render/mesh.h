// Triangle meshes with materials, the procedural shapes of the built-in
// scene, and the per-vertex normals the renderer shades with.
#pragma once

#include <string>
#include <vector>

namespace render {

struct Material {
    float albedo[3] = {0.8f, 0.8f, 0.8f};  // diffuse reflectance per channel
    float reflect = 0.0f;                  // share of a mirror bounce, 0..1
};

// Vertices are x, y, z per vertex; triangles are four ints per triangle in
// the library's layout.  The library never reads the fourth int, so the
// renderer keeps the triangle's material number there.
struct Mesh {
    std::vector<float> vertices;
    std::vector<int> triangles;
    std::vector<Material> materials;

    int vertexCount() const { return static_cast<int>(vertices.size() / 3); }
    int triangleCount() const { return static_cast<int>(triangles.size() / 4); }
    int addMaterial(const Material& m);
    int addVertex(float x, float y, float z);
    void addTriangle(int a, int b, int c, int material);
    // Appends another mesh; its vertex and material numbers are shifted.
    void append(const Mesh& other);
};

// Axis-aligned bounds of the vertices (an empty mesh gives min > max).
struct Bounds {
    float min[3];
    float max[3];
};
Bounds meshBounds(const Mesh& mesh);

// A square ground grid in the plane y = height, centred on the origin, of
// cells x cells squares that alternate between two materials.
void addGround(Mesh& mesh, float halfSize, float height, int cells, int materialA, int materialB);
// A sphere of latitude rings x longitude segments; the poles are closed by
// triangle fans, so no triangle is degenerate.  Counter-clockwise seen from
// outside.
void addSphere(Mesh& mesh, const float centre[3], float radius, int rings, int segments,
               int material);
// A torus lying in a plane y = const around the vertical axis through centre.
void addTorus(Mesh& mesh, const float centre[3], float majorRadius, float minorRadius,
              int majorSegments, int minorSegments, int material);

// Scales and moves a mesh so that its largest extent is `size`, it is
// centred on the y axis and it rests on the plane y = 0.  Empty meshes stay.
void fitOnGround(Mesh& mesh, float size);

// Per-vertex normals: the sum of the unit normals of the triangles around a
// vertex, normalised.  triangleNormals holds x, y, z per triangle; a vertex
// that no triangle uses, or whose normals cancel, gets (0, 0, 0).
std::vector<float> vertexNormals(const Mesh& mesh, const std::vector<float>& triangleNormals);

}  // namespace render
