// Race check, built with ThreadSanitizer (scripts/tsan.sh): several threads
// share what the library promises may be shared and run its threaded
// functions at the same time.  Every result must equal the one computed
// first on a single thread; TSan must report nothing.
//  - tracing through one tree with every intersection function,
//  - building trees concurrently from one mesh,
//  - the threaded volume functions and triangle normals from two threads,
//  - the SH basis and transforms from one state.
#include <omp.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "vekr.h"

namespace {

int failures = 0;

using Bytes = std::vector<uint8_t>;
template <class T>
void append(Bytes& out, const std::vector<T>& v)
{
    const auto* p = reinterpret_cast<const uint8_t*>(v.data());
    out.insert(out.end(), p, p + v.size() * sizeof(T));
}

// Runs each job once alone on one thread (the reference), then all of them
// `copies` times on concurrent threads, each with the library's full thread
// count, and compares.
void concurrently(const char* what, const std::vector<std::function<Bytes()>>& jobs, int copies)
{
    std::vector<Bytes> ref;
    const int team = omp_get_max_threads();
    omp_set_num_threads(1);
    for (const auto& j : jobs) ref.push_back(j());
    omp_set_num_threads(team);
    std::vector<Bytes> got(jobs.size() * copies);
    std::vector<std::thread> threads;
    for (size_t k = 0; k < got.size(); ++k) threads.emplace_back([&, k] { got[k] = jobs[k % jobs.size()](); });
    for (auto& t : threads) t.join();
    for (size_t k = 0; k < got.size(); ++k)
        if (got[k] != ref[k % jobs.size()] || got[k].empty()) {
            std::fprintf(stderr, "%s: job %zu differs from its single-threaded run\n", what, k % jobs.size());
            ++failures;
        }
}

struct Mesh {
    std::vector<float> v;
    std::vector<int> t;
    int triangles() const { return int(t.size() / 4); }
};

Mesh randomMesh(int n, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> u(-1, 1), s(-0.08f, 0.08f);
    Mesh m;
    for (int i = 0; i < n; ++i) {
        const float c[3] = {u(rng), u(rng), u(rng)};
        for (int k = 0; k < 3; ++k)
            for (int a = 0; a < 3; ++a) m.v.push_back(c[a] + s(rng));
        m.t.insert(m.t.end(), {3 * i, 3 * i + 1, 3 * i + 2, 0});
    }
    return m;
}

Bytes buildTree(const Mesh& m, VekrKDTreeNode** keep = nullptr)
{
    VekrKDTreeBuildParams p{VEKR_KDTREE_SAH_MAGIC, 40, 0.0f, 256, nullptr};
    VekrKDTreeNode* tree = nullptr;
    int size = 0;
    if (vekrKDTreeBuildAlloc(&tree, m.v.data(), m.t.data(), int(m.v.size() / 3), m.triangles(), &size, &p) != vekStsOk)
        return {};
    const auto* b = reinterpret_cast<const uint8_t*>(tree);
    Bytes out(b, b + size);
    if (keep) *keep = tree;
    else vekrKDTreeFree(tree);
    return out;
}

// Every intersection function on one shared context; 64 x 64 rays (the
// packet paths) or 63 x 64 (ray by ray).
Bytes trace(const VekrIntersectContext& ctx, int which, int width)
{
    const int h = 64, n = width * h;
    alignas(64) static const float eye[3] = {0.1f, -0.2f, 3.0f};
    std::vector<float> dx(n), dy(n), dz(n), ox(n), oy(n), oz(n);
    float* dirs[3] = {dx.data(), dy.data(), dz.data()};
    const float corner[3] = {-0.6f, -0.6f, -1}, sx[3] = {1.2f / width, 0, 0}, sy[3] = {0, 1.2f / h, 0};
    vekrCastEye_32f(corner, sx, sy, 0, 0, VekSize{width, h}, dirs, VekSize{width, h});
    const int layers = which == 1 ? 3 : 1;
    std::vector<float> dist(size_t(n) * layers, 100.0f), u(dist.size()), v(dist.size());
    std::vector<int> tri(dist.size()), mask(n, 0);
    float* hits[2] = {u.data(), v.data()};
    const float* cd[3] = {dx.data(), dy.data(), dz.data()};
    switch (which) {
    case 0: vekrIntersectEyeSO_32f(eye, cd, dist.data(), hits, tri.data(), &ctx, VekSize{width, h}); break;
    case 1: vekrIntersectMultipleSO_32f(eye, cd, dist.data(), hits, tri.data(), VekrHitBlockSize{width, h, 3}, &ctx); break;
    case 2: vekrIntersectAnySO_32f(eye, cd, tri.data(), mask.data(), VekSize{width, h}, &ctx); break;
    default: {
        for (int i = 0; i < n; ++i) ox[i] = eye[0] + 0.001f * (i % 7), oy[i] = eye[1], oz[i] = eye[2];
        const float* org[3] = {ox.data(), oy.data(), oz.data()};
        vekrIntersectMO_32f(org, cd, dist.data(), hits, tri.data(), &ctx, VekSize{width, h});
    }
    }
    Bytes out;
    append(out, dist), append(out, u), append(out, v), append(out, tri), append(out, mask);
    return out;
}

Bytes volumes(int which)
{
    const int W = 40, H = 36, D = 33;
    std::vector<float> src(size_t(W) * H * D);
    std::mt19937 rng(7);
    for (float& s : src) s = std::uniform_real_distribution<float>(0, 200)(rng);
    std::vector<const float*> slices;
    for (int z = 0; z < D; ++z) slices.push_back(&src[size_t(z) * W * H]);
    const VekVolumeSize vol{W, H, D};
    const VekCuboid voi{0, 0, 0, W, H, D};
    std::vector<float> dst(src.size(), -1.0f);
    std::vector<float*> ds;
    for (int z = 0; z < D; ++z) ds.push_back(&dst[size_t(z) * W * H]);
    const int mode = 1 + which % 2 * 3;  // nearest or cubic
    if (which < 2) {
        int size = 0;
        vekrResizeGetBufSize(&voi, &voi, 1, mode, &size);
        std::vector<uint8_t> buf(size);
        vekrResize_32f_C1V(src.data(), &vol, W * 4, W * H * 4, &voi, dst.data(), W * 4, W * H * 4, &voi, 0.9,
                           1.1, 0.8, 0.5, -1, 2, mode, buf.data());
    } else if (which < 4) {
        const double c[3][4] = {{0.95, 0.1, 0, 1}, {-0.1, 0.95, 0, 0.5}, {0, 0.05, 1, -0.5}};
        vekrWarpAffine_32f_C1PV(slices.data(), &vol, W * 4, &voi, ds.data(), W * 4, &voi, c, mode);
    } else if (which < 6) {
        std::vector<float> mx(src.size()), my(src.size()), mz(src.size());
        std::vector<const float*> px, py, pz;
        for (size_t i = 0; i < src.size(); ++i)
            mx[i] = float(i % W) * 0.9f + 1, my[i] = float(i / W % H) * 1.05f, mz[i] = float(i / (W * H)) * 0.97f;
        for (int z = 0; z < D; ++z)
            px.push_back(&mx[size_t(z) * W * H]), py.push_back(&my[size_t(z) * W * H]), pz.push_back(&mz[size_t(z) * W * H]);
        vekrRemap_32f_C1PV(slices.data(), &vol, W * 4, &voi, px.data(), py.data(), pz.data(), W * 4, ds.data(), W * 4,
                           &vol, mode);
    } else {
        const Mesh m = randomMesh(3000, 5);
        dst.assign(size_t(3) * m.triangles(), 0);
        vekrTriangleNormal_32f(m.v.data(), m.t.data(), dst.data(), m.triangles());
    }
    Bytes out;
    append(out, dst);
    return out;
}

Bytes sphericalHarmonics(const VekrSHState* st, int which)
{
    const int n = 301;
    const uint32_t L = 9;
    std::vector<float> x(n), y(n), z(n), s(3 * n);
    for (int i = 0; i < n; ++i) {
        const float t = 0.02f * i, p = 0.05f * i;
        x[i] = std::sin(t) * std::cos(p), y[i] = std::sin(t) * std::sin(p), z[i] = std::cos(t), s[i] = 0.5f + 0.01f * i;
    }
    std::vector<float> out(size_t(n) * 100, 0.0f), c0(100, 0.0f), c1(100, 0.0f), c2(100, 0.0f);
    float* coef[3] = {c0.data(), c1.data(), c2.data()};
    if (which == 0) vekrSH_32f(x.data(), y.data(), z.data(), n, out.data(), L, st);
    else if (which == 1) vekrSHTFwd_32f_C3P3I(x.data(), y.data(), z.data(), s.data(), n, coef, L, st);
    else vekrSHTInv_32f_C1(s.data(), L, x.data(), y.data(), z.data(), out.data(), n, st);
    Bytes b;
    append(b, out), append(b, c0), append(b, c1), append(b, c2);
    return b;
}

}  // namespace

int main()
{
    const Mesh mesh = randomMesh(4000, 1);
    VekrKDTreeNode* tree = nullptr;
    buildTree(mesh, &tree);
    std::vector<VekrTriangleAccel> acc(mesh.triangles());
    vekrTriangleAccelInit(acc.data(), mesh.v.data(), mesh.t.data(), mesh.triangles());
    VekrBox3D box;
    vekrSetBoundBox_32f(mesh.v.data(), int(mesh.v.size() / 3), &box);
    const VekrIntersectContext ctx{&box, acc.data(), tree};

    std::vector<std::function<Bytes()>> jobs;
    for (int which = 0; which < 4; ++which)
        for (int width : {64, 63}) jobs.push_back([&, which, width] { return trace(ctx, which, width); });
    concurrently("tracing", jobs, 1);
    concurrently("tree builds", {[&] { return buildTree(mesh); }}, 3);
    jobs.clear();
    for (int which = 0; which < 7; ++which) jobs.push_back([which] { return volumes(which); });
    concurrently("volumes", jobs, 2);
    for (VekrSHType type : {vekrSHDirect, vekrSHRecurrence}) {
        uint32_t size = 0;
        vekrSHGetSize_32f(12, type, &size);
        std::vector<uint8_t> block(size);
        const auto* st = reinterpret_cast<VekrSHState*>(block.data());
        vekrSHInit_32f(const_cast<VekrSHState*>(st), 12, type);
        jobs.clear();
        for (int which = 0; which < 3; ++which) jobs.push_back([st, which] { return sphericalHarmonics(st, which); });
        concurrently("SH", jobs, 2);
    }
    vekrKDTreeFree(tree);
    std::printf("race stress: %s (%d threads per region)\n", failures ? "FAILED" : "all results equal",
                omp_get_max_threads());
    return failures ? 1 : 0;
}
