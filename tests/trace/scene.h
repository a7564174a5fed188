// Test scenes for the tracing functions: a mesh with its acceleration
// records, box and a KD-tree, made either by a small median-split builder
// written here (so the traversal tests do not depend on the library's
// builder) or by the library's cost-driven build, and brute-force references
// that test every triangle.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "accel/kdnode.h"
#include "testutil.h"
#include "vekr.h"

namespace vekr::test {

// Median-split KD-tree in the library's node format.  Triangles are sorted
// into children by their bounds, so a triangle touching the plane is in both.
class MedianTree {
public:
    MedianTree() = default;
    MedianTree(const Mesh& m, int maxDepth, int leafSize) { build(m, maxDepth, leafSize); }
    const VekrKDTreeNode* root() const { return reinterpret_cast<const VekrKDTreeNode*>(words_.data()); }
    int depth() const { return depth_; }

    // One leaf holding every triangle (as the single-leaf build makes it).
    static MedianTree singleLeaf(int n)
    {
        MedianTree t;
        t.words_.assign(4 + static_cast<size_t>(n), 0);
        t.words_[0] = -16;
        t.words_[1] = n;
        for (int i = 0; i < n; ++i) t.words_[4 + i] = i;
        return t;
    }

private:
    struct Node {
        int axis = 3;
        float split = 0;
        int child = -1;  // first of two consecutive build nodes
        std::vector<int32_t> tris;
    };
    std::vector<Node> nodes_;
    std::vector<int32_t> words_;
    int depth_ = 0;

    void build(const Mesh& m, int maxDepth, int leafSize)
    {
        const int n = m.triangleCount();
        std::vector<float> lo(3 * n), hi(3 * n);
        float blo[3] = {1e30f, 1e30f, 1e30f}, bhi[3] = {-1e30f, -1e30f, -1e30f};
        for (int t = 0; t < n; ++t) {
            for (int c = 0; c < 3; ++c) {
                float a = 1e30f, b = -1e30f;
                for (int v = 0; v < 3; ++v) {
                    const float x = m.vertices[3 * m.triangles[4 * t + v] + c];
                    a = std::min(a, x);
                    b = std::max(b, x);
                }
                lo[3 * t + c] = a;
                hi[3 * t + c] = b;
                blo[c] = std::min(blo[c], a);
                bhi[c] = std::max(bhi[c], b);
            }
        }
        nodes_.assign(1, Node{});
        for (int t = 0; t < n; ++t) nodes_[0].tris.push_back(t);
        split(0, blo, bhi, lo, hi, 0, maxDepth, leafSize);
        pack();
    }

    void split(int idx, const float* blo, const float* bhi, const std::vector<float>& lo,
               const std::vector<float>& hi, int depth, int maxDepth, int leafSize)
    {
        depth_ = std::max(depth_, depth);
        std::vector<int32_t> tris = nodes_[idx].tris;
        if (depth >= maxDepth || static_cast<int>(tris.size()) <= leafSize) return;
        int ax = 0;
        for (int c = 1; c < 3; ++c)
            if (bhi[c] - blo[c] > bhi[ax] - blo[ax]) ax = c;
        std::vector<float> centres;
        for (int t : tris) centres.push_back(0.5f * (lo[3 * t + ax] + hi[3 * t + ax]));
        std::nth_element(centres.begin(), centres.begin() + centres.size() / 2, centres.end());
        float s = centres[centres.size() / 2];
        if (!(s > blo[ax] && s < bhi[ax])) s = 0.5f * (blo[ax] + bhi[ax]);
        std::vector<int32_t> below, above;
        for (int t : tris) {
            if (lo[3 * t + ax] <= s) below.push_back(t);
            if (hi[3 * t + ax] >= s) above.push_back(t);
        }
        if (below.size() == tris.size() || above.size() == tris.size()) return;
        const int child = static_cast<int>(nodes_.size());
        nodes_[idx].axis = ax;
        nodes_[idx].split = s;
        nodes_[idx].child = child;
        nodes_[idx].tris.clear();
        nodes_.resize(nodes_.size() + 2);
        nodes_[child].tris = below;
        nodes_[child + 1].tris = above;
        float h0[3] = {bhi[0], bhi[1], bhi[2]}, l1[3] = {blo[0], blo[1], blo[2]};
        h0[ax] = s;
        l1[ax] = s;
        split(child, blo, h0, lo, hi, depth + 1, maxDepth, leafSize);
        split(child + 1, l1, bhi, lo, hi, depth + 1, maxDepth, leafSize);
    }

    size_t nodeCount() const { return nodes_.size(); }

    void pack()
    {
        std::vector<int32_t> lists;
        const size_t nodeWords = 4 + 2 * (nodeCount() - 1);
        words_.assign(nodeWords, 0);
        size_t nextPair = 16;
        write(0, 0, nextPair, lists);
        // Listed leaves were written with offsets relative to the list area start.
        words_.insert(words_.end(), lists.begin(), lists.end());
    }

    void write(int idx, size_t pos, size_t& nextPair, std::vector<int32_t>& lists)
    {
        const Node& n = nodes_[idx];
        VekrKDTreeNode out;
        if (n.child >= 0) {
            const size_t pair = nextPair;
            nextPair += 16;
            out = kd::makeInner(n.axis, n.split, static_cast<int64_t>(pair - pos));
            std::memcpy(&words_[pos / 4], &out, 8);
            write(n.child, pair, nextPair, lists);
            write(n.child + 1, pair + 8, nextPair, lists);
            return;
        }
        const int k = static_cast<int>(n.tris.size());
        if (!kd::tryPack(n.tris.data(), k, out)) {
            const size_t listPos = 4 * (4 + 2 * (nodeCount() - 1)) + 4 * lists.size();
            out = kd::makeListedLeaf(k, static_cast<int64_t>(k ? listPos - pos : 8));
            lists.insert(lists.end(), n.tris.begin(), n.tris.end());
        }
        std::memcpy(&words_[pos / 4], &out, 8);
    }
};

// Parameters of the library's cost-driven build.
struct CostBuild {
    int depth = 50;
    float threshold = 0.0f;
    uint32_t memoryMB = 256;
};

// The cost-driven builds the tracing tests run against: full and limited
// depth, both ends of the split threshold, a budget that fits.
inline std::vector<CostBuild> costBuilds()
{
    return {{50, 0.0f, 256}, {50, 1.0f, 256}, {12, 0.0f, 128}, {5, 1.0f, 64}};
}

// A mesh ready to trace: records, box and a tree.  A scene made by the
// cost-driven build keeps the build's status (check it before tracing) and
// falls back to a single leaf when the build failed.
struct Scene {
    struct FreeTree {
        void operator()(VekrKDTreeNode* t) const { vekrKDTreeFree(t); }
    };
    Mesh mesh;
    std::vector<VekrTriangleAccel> accel;
    VekrBox3D box{};
    MedianTree tree;
    std::unique_ptr<VekrKDTreeNode, FreeTree> built;
    VekStatus buildStatus = vekStsOk;
    VekrIntersectContext ctx{};

    Scene(Mesh m, MedianTree t) : mesh(std::move(m)), tree(std::move(t)) { prepare(); }
    Scene(Mesh m, const CostBuild& p) : mesh(std::move(m))
    {
        const VekrKDTreeBuildParams params{VEKR_KDTREE_SAH_MAGIC, p.depth, p.threshold, p.memoryMB,
                                           nullptr};
        VekrKDTreeNode* root = nullptr;
        int size = 0;
        buildStatus = vekrKDTreeBuildAlloc(&root, mesh.vertices.data(), mesh.triangles.data(),
                                           mesh.vertexCount(), mesh.triangleCount(), &size, &params);
        if (buildStatus == vekStsOk)
            built.reset(root);
        else
            tree = MedianTree::singleLeaf(mesh.triangleCount());
        prepare();
    }
    Scene(const Scene&) = delete;  // the context points into the scene
    Scene& operator=(const Scene&) = delete;

    static Scene median(Mesh m, int maxDepth = 24, int leafSize = 3)
    {
        MedianTree t(m, maxDepth, leafSize);
        return Scene(std::move(m), std::move(t));
    }
    static Scene oneLeaf(Mesh m)
    {
        const int n = m.triangleCount();
        return Scene(std::move(m), MedianTree::singleLeaf(n));
    }

private:
    void prepare()
    {
        const int n = mesh.triangleCount();
        accel.resize(std::max(n, 1));
        vekrTriangleAccelInit(accel.data(), mesh.vertices.data(), mesh.triangles.data(), n);
        vekrSetBoundBox_32f(mesh.vertices.data(), mesh.vertexCount(), &box);
        ctx = VekrIntersectContext{&box, accel.data(), built ? built.get() : tree.root()};
    }
};

// The real mesh, loaded once per test program; null when the data file is
// not available.
inline const Mesh* bunnyMesh()
{
    static const Mesh* mesh = [] {
        const std::string path = dataFile("bunny00.off");
        return path.empty() ? static_cast<const Mesh*>(nullptr) : new Mesh(loadOff(path));
    }();
    return mesh;
}

// The real mesh with a median-split tree, prepared once; null without it.
inline const Scene* bunnyScene()
{
    static const Scene* scene = bunnyMesh() ? new Scene(Scene::median(*bunnyMesh())) : nullptr;
    return scene;
}

// The real mesh with a tree from the cost-driven build (full depth, strict
// threshold), prepared once; null without the data file.
inline const Scene* bunnyCostScene()
{
    static const Scene* scene = bunnyMesh() ? new Scene(*bunnyMesh(), CostBuild{}) : nullptr;
    return scene;
}

// The triangle test on one record, written out on its own: returns false for
// a degenerate record or a point outside; otherwise the numerators.
struct RefCandidate {
    float den, num, bu, bv;
};

inline bool refTriangle(const VekrTriangleAccel& r, const float o[3], const float d[3],
                        RefCandidate& c)
{
    if (r.axes == 0) return false;
    const int ia = r.axes & 3, ib = (r.axes >> 2) & 3, ic = (r.axes >> 4) & 3;
    c.den = d[ib] * r.nu + d[ia] * r.nv + d[ic];
    c.num = r.ck + r.nu * (r.cu - o[ib]) + r.nv * (r.cv - o[ia]) - o[ic];
    const float pa = d[ia] * c.num - (r.cv - o[ia]) * c.den;
    const float pb = d[ib] * c.num - (r.cu - o[ib]) * c.den;
    c.bu = r.e2v * pb - r.e2u * pa;
    c.bv = r.e1u * pa - r.e1v * pb;
    const float rest = c.den - c.bu - c.bv;
    return rest * c.bu >= 0 && c.bu * c.bv >= 0 && rest * c.bv >= 0;
}

// Brute-force nearest hit with strict 0 < t < limit.  Also reports whether
// the ray is "robust": its hit lies clearly inside its triangle, no other
// candidate lies within a relative 1e-4 of the nearest distance, and no
// candidate grazes an edge near the nearest distance.
struct RefHit {
    int tri = -1;
    float t = 0, u = 0, v = 0;
    bool robust = true;
};

inline RefHit refNearest(const Scene& s, const float o[3], const float d[3], float limit)
{
    RefHit best;
    best.t = limit;
    struct Cand {
        float t;
        double margin;
        int tri;
    };
    std::vector<Cand> cands;  // candidates inside or close to an edge
    const int n = s.mesh.triangleCount();
    for (int i = 0; i < n; ++i) {
        RefCandidate c;
        const VekrTriangleAccel& r = s.accel[i];
        if (r.axes == 0) continue;
        // Candidates that just miss an edge count as grazing too.
        const bool inside = refTriangle(r, o, d, c);
        const double u = double(c.bu) / c.den, v = double(c.bv) / c.den;
        const double margin = std::min({u, v, 1.0 - u - v});
        const float t = c.num / c.den;
        if (!(t > 0 && std::isfinite(t))) continue;
        if (std::fabs(margin) < 1e-4 || inside) cands.push_back({t, margin, i});
        if (inside && best.t > t) {
            best.t = t;
            best.u = c.bu / c.den;
            best.v = c.bv / c.den;
            best.tri = i;
        }
    }
    const float reach = best.t + 1e-4f * std::fabs(best.t) + 1e-6f;
    for (const Cand& c : cands) {
        if (c.t > reach || c.tri == best.tri) continue;
        if (std::fabs(c.margin) < 1e-4) best.robust = false;  // grazes an edge before or at the hit
        if (c.margin >= 0 && best.tri >= 0) best.robust = false;  // nearly the same distance
    }
    if (best.tri >= 0) {
        const double m = std::min({double(best.u), double(best.v), 1.0 - best.u - best.v});
        if (m < 1e-4) best.robust = false;
    }
    if (best.tri >= 0 && std::fabs(best.t - limit) <= 1e-4f * std::fabs(limit) + 1e-6f) best.robust = false;
    return best;
}

// Every triangle the line o + t d meets or nearly meets (t > 0 or near 0):
// distance, edge margin (negative outside), the triangle, den.
struct RefCross {
    float t;
    double margin;
    int tri;
    float den;
    bool inside;
};

inline std::vector<RefCross> refCrossings(const Scene& s, const float o[3], const float d[3])
{
    std::vector<RefCross> out;
    for (int i = 0; i < s.mesh.triangleCount(); ++i) {
        RefCandidate c;
        if (s.accel[i].axes == 0) continue;
        const bool inside = refTriangle(s.accel[i], o, d, c);
        const double u = double(c.bu) / c.den, v = double(c.bv) / c.den;
        const double margin = std::min({u, v, 1.0 - u - v});
        const float t = c.num / c.den;
        if (!std::isfinite(t) || !(inside || margin > -1e-4)) continue;
        out.push_back({t, margin, i, c.den, inside});
    }
    std::sort(out.begin(), out.end(), [](const RefCross& a, const RefCross& b) { return a.t < b.t; });
    return out;
}

// True when some crossing lies within tol (relative to scale) of distance t or
// grazes an edge (|margin| < 1e-4) in the range [from, to].
inline bool nearlyAt(const std::vector<RefCross>& cs, float t, float tol)
{
    for (const RefCross& c : cs)
        if (std::fabs(c.t - t) <= tol) return true;
    return false;
}

inline bool grazesWithin(const std::vector<RefCross>& cs, float from, float to)
{
    for (const RefCross& c : cs)
        if (c.t >= from && c.t <= to && std::fabs(c.margin) < 1e-4) return true;
    return false;
}

}  // namespace vekr::test
