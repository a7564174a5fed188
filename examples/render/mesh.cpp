#include "mesh.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace render {

namespace {
constexpr double kPi = 3.14159265358979323846;
}

int Mesh::addMaterial(const Material& m)
{
    materials.push_back(m);
    return static_cast<int>(materials.size()) - 1;
}

int Mesh::addVertex(float x, float y, float z)
{
    vertices.insert(vertices.end(), {x, y, z});
    return vertexCount() - 1;
}

void Mesh::addTriangle(int a, int b, int c, int material)
{
    triangles.insert(triangles.end(), {a, b, c, material});
}

void Mesh::append(const Mesh& other)
{
    const int vbase = vertexCount();
    const int mbase = static_cast<int>(materials.size());
    vertices.insert(vertices.end(), other.vertices.begin(), other.vertices.end());
    materials.insert(materials.end(), other.materials.begin(), other.materials.end());
    for (size_t t = 0; t < other.triangles.size(); t += 4) {
        addTriangle(other.triangles[t] + vbase, other.triangles[t + 1] + vbase,
                    other.triangles[t + 2] + vbase, other.triangles[t + 3] + mbase);
    }
}

Bounds meshBounds(const Mesh& mesh)
{
    Bounds b{{FLT_MAX, FLT_MAX, FLT_MAX}, {-FLT_MAX, -FLT_MAX, -FLT_MAX}};
    for (size_t i = 0; i < mesh.vertices.size(); i += 3) {
        for (int c = 0; c < 3; ++c) {
            b.min[c] = std::min(b.min[c], mesh.vertices[i + c]);
            b.max[c] = std::max(b.max[c], mesh.vertices[i + c]);
        }
    }
    return b;
}

void addGround(Mesh& mesh, float halfSize, float height, int cells, int materialA, int materialB)
{
    const int first = mesh.vertexCount();
    const float step = 2.0f * halfSize / static_cast<float>(cells);
    for (int j = 0; j <= cells; ++j) {
        for (int i = 0; i <= cells; ++i) {
            mesh.addVertex(-halfSize + step * static_cast<float>(i), height,
                           -halfSize + step * static_cast<float>(j));
        }
    }
    const int row = cells + 1;
    for (int j = 0; j < cells; ++j) {
        for (int i = 0; i < cells; ++i) {
            const int a = first + j * row + i;
            const int m = ((i + j) & 1) ? materialB : materialA;
            // Counter-clockwise seen from above (+y).
            mesh.addTriangle(a, a + row, a + 1, m);
            mesh.addTriangle(a + 1, a + row, a + row + 1, m);
        }
    }
}

void addSphere(Mesh& mesh, const float centre[3], float radius, int rings, int segments,
               int material)
{
    rings = std::max(rings, 2);
    segments = std::max(segments, 3);
    const int top = mesh.addVertex(centre[0], centre[1] + radius, centre[2]);
    const int first = mesh.vertexCount();
    for (int r = 1; r < rings; ++r) {
        const double theta = kPi * r / rings;
        for (int s = 0; s < segments; ++s) {
            const double phi = 2.0 * kPi * s / segments;
            mesh.addVertex(static_cast<float>(centre[0] + radius * std::sin(theta) * std::cos(phi)),
                           static_cast<float>(centre[1] + radius * std::cos(theta)),
                           static_cast<float>(centre[2] - radius * std::sin(theta) * std::sin(phi)));
        }
    }
    const int bottom = mesh.addVertex(centre[0], centre[1] - radius, centre[2]);
    auto at = [&](int r, int s) { return first + (r - 1) * segments + (s % segments); };
    for (int s = 0; s < segments; ++s) mesh.addTriangle(top, at(1, s), at(1, s + 1), material);
    for (int r = 1; r + 1 < rings; ++r) {
        for (int s = 0; s < segments; ++s) {
            mesh.addTriangle(at(r, s), at(r + 1, s), at(r + 1, s + 1), material);
            mesh.addTriangle(at(r, s), at(r + 1, s + 1), at(r, s + 1), material);
        }
    }
    for (int s = 0; s < segments; ++s) {
        mesh.addTriangle(bottom, at(rings - 1, s + 1), at(rings - 1, s), material);
    }
}

void addTorus(Mesh& mesh, const float centre[3], float majorRadius, float minorRadius,
              int majorSegments, int minorSegments, int material)
{
    majorSegments = std::max(majorSegments, 3);
    minorSegments = std::max(minorSegments, 3);
    const int first = mesh.vertexCount();
    for (int i = 0; i < majorSegments; ++i) {
        const double a = 2.0 * kPi * i / majorSegments;
        for (int j = 0; j < minorSegments; ++j) {
            const double b = 2.0 * kPi * j / minorSegments;
            const double ring = majorRadius + minorRadius * std::cos(b);
            mesh.addVertex(static_cast<float>(centre[0] + ring * std::cos(a)),
                           static_cast<float>(centre[1] + minorRadius * std::sin(b)),
                           static_cast<float>(centre[2] - ring * std::sin(a)));
        }
    }
    auto at = [&](int i, int j) {
        return first + (i % majorSegments) * minorSegments + (j % minorSegments);
    };
    for (int i = 0; i < majorSegments; ++i) {
        for (int j = 0; j < minorSegments; ++j) {
            mesh.addTriangle(at(i, j), at(i + 1, j), at(i + 1, j + 1), material);
            mesh.addTriangle(at(i, j), at(i + 1, j + 1), at(i, j + 1), material);
        }
    }
}

void fitOnGround(Mesh& mesh, float size)
{
    if (mesh.vertices.empty()) return;
    const Bounds b = meshBounds(mesh);
    const float extent = std::max({b.max[0] - b.min[0], b.max[1] - b.min[1], b.max[2] - b.min[2]});
    const float scale = extent > 0.0f ? size / extent : 1.0f;
    const float cx = 0.5f * (b.min[0] + b.max[0]);
    const float cz = 0.5f * (b.min[2] + b.max[2]);
    for (size_t i = 0; i < mesh.vertices.size(); i += 3) {
        mesh.vertices[i] = (mesh.vertices[i] - cx) * scale;
        mesh.vertices[i + 1] = (mesh.vertices[i + 1] - b.min[1]) * scale;
        mesh.vertices[i + 2] = (mesh.vertices[i + 2] - cz) * scale;
    }
}

std::vector<float> vertexNormals(const Mesh& mesh, const std::vector<float>& triangleNormals)
{
    const int nv = mesh.vertexCount();
    std::vector<double> sum(static_cast<size_t>(nv) * 3, 0.0);
    for (int t = 0; t < mesh.triangleCount(); ++t) {
        for (int k = 0; k < 3; ++k) {
            const int v = mesh.triangles[4 * static_cast<size_t>(t) + k];
            if (v < 0 || v >= nv) continue;
            for (int c = 0; c < 3; ++c) sum[3 * static_cast<size_t>(v) + c] += triangleNormals[3 * static_cast<size_t>(t) + c];
        }
    }
    std::vector<float> out(sum.size(), 0.0f);
    for (size_t v = 0; v < static_cast<size_t>(nv); ++v) {
        const double len = std::sqrt(sum[3 * v] * sum[3 * v] + sum[3 * v + 1] * sum[3 * v + 1] +
                                     sum[3 * v + 2] * sum[3 * v + 2]);
        if (len > 1e-12) {
            for (int c = 0; c < 3; ++c) out[3 * v + c] = static_cast<float>(sum[3 * v + c] / len);
        }
    }
    return out;
}

}  // namespace render
