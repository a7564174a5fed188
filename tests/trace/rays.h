// Ray blocks for the tracing tests: planar aligned arrays of one block of
// rays with their outputs, and cameras that frame a scene.
#pragma once

#include <cmath>
#include <random>
#include <vector>

#include "core/isa.h"
#include "testutil.h"
#include "vekr.h"

namespace vekr::test {

struct RayBlock {
    int w = 0, h = 0;
    Aligned<float> d[3];
    Aligned<float> dist, u, v;
    Aligned<int> tri;
    float* dirs[3];
    float* hits[2];

    RayBlock(int width, int height, float limit = 1e30f) : w(width), h(height)
    {
        const size_t n = static_cast<size_t>(w) * h;
        for (int c = 0; c < 3; ++c) {
            d[c].resize(n);
            dirs[c] = d[c].data();
        }
        dist.resize(n, limit);
        u.resize(n, -7.0f);
        v.resize(n, -7.0f);
        tri.resize(n, 1234);
        hits[0] = u.data();
        hits[1] = v.data();
    }
    size_t size() const { return static_cast<size_t>(w) * h; }
    VekSize extent() const { return VekSize{w, h}; }
    const float* const* cdirs() const { return dirs; }
    void direction(size_t k, float out[3]) const
    {
        for (int c = 0; c < 3; ++c) out[c] = d[c][k];
    }
};

// A pinhole camera at eye looking at the centre of box, the image covering
// a little more than the box.  Fills the block with unnormalised directions.
inline void frameBox(const VekrBox3D& box, const float eye[3], RayBlock& b)
{
    const float c[3] = {0.5f * (box.minX + box.maxX), 0.5f * (box.minY + box.maxY),
                        0.5f * (box.minZ + box.maxZ)};
    const float r = 0.6f * std::sqrt((box.maxX - box.minX) * (box.maxX - box.minX) +
                                     (box.maxY - box.minY) * (box.maxY - box.minY) +
                                     (box.maxZ - box.minZ) * (box.maxZ - box.minZ));
    float f[3] = {c[0] - eye[0], c[1] - eye[1], c[2] - eye[2]};
    // Right and up vectors orthogonal to the view direction.
    float up[3] = {0, 1, 0};
    if (std::fabs(f[1]) > 0.9f * std::sqrt(f[0] * f[0] + f[1] * f[1] + f[2] * f[2])) up[1] = 0, up[2] = 1;
    float rt[3] = {f[1] * up[2] - f[2] * up[1], f[2] * up[0] - f[0] * up[2], f[0] * up[1] - f[1] * up[0]};
    const float lr = std::sqrt(rt[0] * rt[0] + rt[1] * rt[1] + rt[2] * rt[2]);
    float u2[3] = {rt[1] * f[2] - rt[2] * f[1], rt[2] * f[0] - rt[0] * f[2], rt[0] * f[1] - rt[1] * f[0]};
    const float lu = std::sqrt(u2[0] * u2[0] + u2[1] * u2[1] + u2[2] * u2[2]);
    for (int j = 0; j < b.h; ++j)
        for (int i = 0; i < b.w; ++i) {
            const float sx = r * (2.0f * (i + 0.5f) / b.w - 1.0f);
            const float sy = r * (1.0f - 2.0f * (j + 0.5f) / b.h);
            for (int k = 0; k < 3; ++k)
                b.d[k][static_cast<size_t>(j) * b.w + i] = f[k] + sx * rt[k] / lr + sy * u2[k] / lu;
        }
}

// Random directions (all octants) for rays from a common origin.
inline void randomDirections(RayBlock& b, uint32_t seed, float scale = 1.0f)
{
    std::mt19937 rng(seed);
    std::normal_distribution<float> g(0.0f, scale);
    for (size_t k = 0; k < b.size(); ++k)
        for (int c = 0; c < 3; ++c) b.d[c][k] = g(rng);
}

inline std::vector<Isa> supportedIsas()
{
    std::vector<Isa> out;
    for (int i = 0; i < kIsaCount; ++i)
        if (isaSupported(static_cast<Isa>(i))) out.push_back(static_cast<Isa>(i));
    return out;
}

}  // namespace vekr::test
