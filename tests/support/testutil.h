// Helpers shared by the tests and the benchmarks: aligned arrays, meshes
// (OFF files, random triangle soups, squares in shared planes) and the
// location of the real data files fetched by scripts/fetch-data.sh.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace vekr::test {

// A std::vector-like buffer with 64-byte aligned storage; offset() gives a
// pointer shifted by a number of elements to test misaligned paths.
template <class T>
class Aligned {
public:
    Aligned() = default;
    explicit Aligned(size_t n, T fill = T()) { resize(n, fill); }
    void resize(size_t n, T fill = T())
    {
        size_ = n;
        const size_t bytes = ((n + 32) * sizeof(T) + 63) / 64 * 64;
        data_.reset(static_cast<T*>(std::aligned_alloc(64, bytes)));
        for (size_t i = 0; i < n + 32; ++i) data_.get()[i] = fill;
    }
    T* data() { return data_.get(); }
    const T* data() const { return data_.get(); }
    T* offset(size_t k) { return data_.get() + k; }
    size_t size() const { return size_; }
    T& operator[](size_t i) { return data_.get()[i]; }
    const T& operator[](size_t i) const { return data_.get()[i]; }

private:
    struct Free {
        void operator()(T* p) const { std::free(p); }
    };
    std::unique_ptr<T, Free> data_;
    size_t size_ = 0;
};

struct Mesh {
    std::vector<float> vertices;  // x, y, z per vertex
    std::vector<int> triangles;   // 4 ints per triangle, the 4th unused
    int vertexCount() const { return static_cast<int>(vertices.size() / 3); }
    int triangleCount() const { return static_cast<int>(triangles.size() / 4); }
};

// Reads an OFF file (polygons are fanned into triangles).  Empty on failure.
inline Mesh loadOff(const std::string& path)
{
    Mesh m;
    std::ifstream in(path);
    if (!in) return m;
    std::string tok;
    in >> tok;
    if (tok != "OFF") return m;
    long nv = 0, nf = 0, ne = 0;
    in >> nv >> nf >> ne;
    m.vertices.resize(static_cast<size_t>(nv) * 3);
    for (long i = 0; i < nv * 3; ++i) in >> m.vertices[i];
    for (long f = 0; f < nf; ++f) {
        int k = 0;
        in >> k;
        std::vector<int> idx(k);
        for (int& x : idx) in >> x;
        std::string rest;
        std::getline(in, rest);
        for (int j = 1; j + 1 < k; ++j) {
            m.triangles.insert(m.triangles.end(), {idx[0], idx[j], idx[j + 1], -1});
        }
    }
    if (!in && !in.eof()) return Mesh{};
    return m;
}

// Path of a real data file, or "" when it is not available.
inline std::string dataFile(const std::string& name)
{
#ifdef VEKR_TEST_DATA_DIR
    for (const std::string& dir : {std::string(VEKR_TEST_DATA_DIR), std::string(VEKR_SHARED_DATA_DIR)}) {
        std::ifstream f(dir + "/" + name);
        if (f.good()) return dir + "/" + name;
    }
#else
    (void)name;
#endif
    return "";
}

// n random triangles of random size inside the cube [-1, 1]^3.
inline Mesh randomTriangles(int n, uint32_t seed, float size = 0.3f)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> pos(-1.0f, 1.0f), off(-size, size);
    Mesh m;
    for (int t = 0; t < n; ++t) {
        const float cx = pos(rng), cy = pos(rng), cz = pos(rng);
        for (int v = 0; v < 3; ++v) {
            m.vertices.insert(m.vertices.end(), {cx + off(rng), cy + off(rng), cz + off(rng)});
        }
        m.triangles.insert(m.triangles.end(), {3 * t, 3 * t + 1, 3 * t + 2, 0});
    }
    return m;
}

// A mesh of axis-aligned unit squares on a grid in three orientations (many
// triangles flat on one axis, lying exactly in shared planes) plus a few
// degenerate ones (a point and a segment).
inline Mesh gridOfSquares(int n)
{
    Mesh m;
    auto quad = [&](float x, float y, float z, int axis) {
        const int base = m.vertexCount();
        for (int k = 0; k < 4; ++k) {
            float d[3] = {0, 0, 0};
            d[(axis + 1) % 3] = float(k & 1);
            d[(axis + 2) % 3] = float(k >> 1);
            m.vertices.insert(m.vertices.end(), {x + d[0], y + d[1], z + d[2]});
        }
        m.triangles.insert(m.triangles.end(), {base, base + 1, base + 3, 0});
        m.triangles.insert(m.triangles.end(), {base, base + 3, base + 2, 0});
    };
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) quad(float(i), float(j), float((i * 7 + j * 3) % 5), (i + j) % 3);
    const int b = m.vertexCount();
    m.vertices.insert(m.vertices.end(), {2.5f, 2.5f, 2.5f, 2.5f, 2.5f, 2.5f, 3.5f, 2.5f, 2.5f});
    m.triangles.insert(m.triangles.end(), {b, b, b, 0});
    m.triangles.insert(m.triangles.end(), {b, b + 1, b + 2, 0});
    return m;
}

}  // namespace vekr::test
