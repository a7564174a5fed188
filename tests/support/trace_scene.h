// A mesh ready to trace (acceleration records, box and a tree from the
// library's own builds), the scenes the tracing and shading tests share, and
// the instruction-set levels this processor runs.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/isa.h"
#include "isa_levels.h"
#include "testutil.h"
#include "vekr.h"

namespace vekr::test {

struct TreeParams {
    uint32_t magic = VEKR_KDTREE_SAH_MAGIC;
    int depth = 50;
    float threshold = 0.0f;
    uint32_t memoryMB = 256;
};

class Scene {
public:
    Scene(Mesh m, const TreeParams& p) : mesh_(std::move(m))
    {
        const int n = mesh_.triangleCount();
        accel_.resize(std::max(n, 1));
        vekrTriangleAccelInit(accel_.data(), mesh_.vertices.data(), mesh_.triangles.data(), n);
        vekrSetBoundBox_32f(mesh_.vertices.data(), mesh_.vertexCount(), &box_);
        const VekrKDTreeBuildParams params{p.magic, p.depth, p.threshold, p.memoryMB, nullptr};
        VekrKDTreeNode* root = nullptr;
        int size = 0;
        static const int none[4] = {0, 0, 0, 0};  // an empty mesh still passes its pointers
        status_ = vekrKDTreeBuildAlloc(&root, mesh_.vertices.data(), n ? mesh_.triangles.data() : none,
                                       mesh_.vertexCount(), n, &size, &params);
        tree_.reset(root);
        ctx_ = VekrIntersectContext{&box_, accel_.data(), root};
    }
    Scene(const Scene&) = delete;  // the context points into the scene
    Scene& operator=(const Scene&) = delete;

    const Mesh& mesh() const { return mesh_; }
    const VekrBox3D& box() const { return box_; }
    const VekrIntersectContext& ctx() const { return ctx_; }
    VekStatus status() const { return status_; }

private:
    struct FreeTree {
        void operator()(VekrKDTreeNode* t) const { vekrKDTreeFree(t); }
    };
    Mesh mesh_;
    std::vector<VekrTriangleAccel> accel_;
    VekrBox3D box_{};
    std::unique_ptr<VekrKDTreeNode, FreeTree> tree_;
    VekStatus status_ = vekStsOk;
    VekrIntersectContext ctx_{};
};

// The real mesh, loaded once; null when the data file is not available.
inline const Mesh* bunnyMesh()
{
    static const Mesh* mesh = [] {
        const std::string path = dataFile("bunny00.off");
        return path.empty() ? static_cast<const Mesh*>(nullptr) : new Mesh(loadOff(path));
    }();
    return mesh;
}

}  // namespace vekr::test
