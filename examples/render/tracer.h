// The ray-traced frame: acceleration structures built once per mesh, then
// per image block of 64 x 64 rays eye rays, nearest hits, shading with
// shadows from every light, a mirror bounce and the ambient light of the
// environment, on every core.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "vekr.h"

#include "environment.h"
#include "film.h"
#include "scene.h"

namespace render {

// What the intersection functions need, built from a mesh; owns the tree.
class Accel {
public:
    Accel() = default;
    Accel(const Accel&) = delete;
    Accel& operator=(const Accel&) = delete;
    ~Accel() { vekrKDTreeFree(tree_); }

    // Bounding box, acceleration records, cost-driven KD-tree, triangle and
    // vertex normals.  False with a message on failure.
    bool build(const Mesh& mesh, std::string& error);

    const VekrIntersectContext& context() const { return context_; }
    const std::vector<float>& triangleNormals() const { return triangleNormals_; }
    const std::vector<float>& vertexNormals() const { return vertexNormals_; }
    int treeBytes() const { return treeSize_; }
    int treeDepth() const { return depth_; }
    double buildSeconds() const { return seconds_; }

private:
    VekrBox3D box_{};
    std::vector<VekrTriangleAccel> records_;
    VekrKDTreeNode* tree_ = nullptr;
    int treeSize_ = 0;
    int depth_ = 0;
    std::vector<float> triangleNormals_, vertexNormals_;
    VekrIntersectContext context_{};
    double seconds_ = 0;
};

struct RenderSettings {
    int width = 640;
    int height = 480;
    int samples = 1;
    int threads = 0;  // 0: every core
    bool flat = false;
};

struct RenderStats {
    uint64_t primaryRays = 0;
    uint64_t shadowRays = 0;
    uint64_t reflectionRays = 0;
    double seconds = 0;
    VekStatus status = vekStsOk;  // the first failing library call, if any
    std::string failedCall;

    uint64_t totalRays() const { return primaryRays + shadowRays + reflectionRays; }
};

constexpr int kBlockSize = 64;

// Renders the scene into the film.  `blockDone` (optional) is called once
// per finished block, never concurrently.  The picture does not depend on
// the thread count.
RenderStats renderFrame(const Scene& scene, const Accel& accel, const Environment& env,
                        const RenderSettings& settings, Film& film,
                        const std::function<void(int done, int total)>& blockDone = {});

}  // namespace render
