// Cost-driven KD-tree build throughput (triangles per second, median of 5)
// on real and synthetic meshes, on 1 and 2 threads, beside Embree 3's BVH
// build at high and default quality on the same meshes in the same run.
//
//   bench_kdtree [runs] [mesh-name-filter]
//
// and, for the filter "scaling" or none, the growth of the build time from
// one armadillo to twenty on a grid (about 1M triangles).
//
// One thread: OpenMP regions are made inactive (max active levels 0), so the
// per-axis searches run one after the other on the calling thread.
#include <omp.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "synthetic.h"
#include "testutil.h"
#include "vekr.h"
#ifdef VEKR_HAVE_EMBREE
#include "embree_peer.h"
#endif

namespace {


using Clock = std::chrono::steady_clock;

template <class Fn>
double seconds(Fn&& fn)
{
    const auto a = Clock::now();
    fn();
    return std::chrono::duration<double>(Clock::now() - a).count();
}

double median(std::vector<double> t)
{
    if (t.empty()) return 0;
    std::sort(t.begin(), t.end());
    return t[t.size() / 2];
}

struct Named {
    std::string name;
    vekr::test::Mesh mesh;
};

void setThreads(int threads)
{
    omp_set_max_active_levels(threads > 1 ? 1 : 0);
    omp_set_num_threads(threads);
}

}  // namespace

int main(int argc, char** argv)
{
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
    const std::string filter = argc > 2 ? argv[2] : "";
    std::vector<Named> meshes;
    for (const char* f : {"bunny00.off", "armadillo.off"}) {
        if (std::string(f).find(filter) == std::string::npos) continue;
        const std::string path = vekr::test::dataFile(f);
        if (path.empty()) {
            std::printf("# %s not found (bash scripts/fetch-data.sh), skipped\n", f);
            continue;
        }
        meshes.push_back({f, vekr::test::loadOff(path)});
    }
    if (std::string("bumpySphere").find(filter) != std::string::npos)
        meshes.push_back({"bumpySphere 1M", vekr::bench::bumpySphere(500, 1000)});

    std::printf("%-16s %9s %3s %12s %12s %12s %8s %8s\n", "mesh", "tris", "thr", "vekr Mtri/s",
                "emb-high", "emb-default", "vs-high", "vs-def");
    for (const Named& nm : meshes) {
        const auto& m = nm.mesh;
        const double n = m.triangleCount();
        for (int threads : {1, 2}) {
            VekrKDTreeBuildParams p{VEKR_KDTREE_SAH_MAGIC, 50, 0.0f, 4000u, nullptr};
            int size = 0;
            VekStatus st = vekStsOk;
            auto vekrBuild = [&] {
                setThreads(threads);
                VekrKDTreeNode* tree = nullptr;
                st = vekrKDTreeBuildAlloc(&tree, m.vertices.data(), m.triangles.data(),
                                          m.vertexCount(), m.triangleCount(), &size, &p);
                vekrKDTreeFree(tree);
            };
            // The three builds take turns, so that a change of load on the
            // shared machine falls on all of them alike.
            std::vector<double> tv, th, td;
#ifdef VEKR_HAVE_EMBREE
            vekr::bench::EmbreeDevice dev(threads);
            vekr::bench::EmbreeScene scene(dev, m);
            scene.build(RTC_BUILD_QUALITY_HIGH);
#endif
            vekrBuild();
            for (int r = 0; r < runs; ++r) {
                tv.push_back(seconds(vekrBuild));
#ifdef VEKR_HAVE_EMBREE
                th.push_back(seconds([&] { scene.build(RTC_BUILD_QUALITY_HIGH); }));
                td.push_back(seconds([&] { scene.build(RTC_BUILD_QUALITY_MEDIUM); }));
#endif
            }
            if (st != vekStsOk) std::printf("# vekr build failed: %d\n", st);
            const double mv = median(tv), mh = median(th), md = median(td);
            const double rv = n / mv * 1e-6;
            const double rh = mh > 0 ? n / mh * 1e-6 : 0, rd = md > 0 ? n / md * 1e-6 : 0;
            std::printf("%-16s %9.0f %3d %12.3f %12.3f %12.3f %8.2f %8.2f   (vekr %.1f ms, embree high %.1f ms, tree %d B)\n",
                        nm.name.c_str(), n, threads, rv, rh, rd, rh > 0 ? rv / rh : 0,
                        rd > 0 ? rv / rd : 0, mv * 1e3, mh * 1e3, size);
            std::fflush(stdout);
        }
    }
    // Growth with size: copies of the armadillo on a grid, one thread; the
    // time per n log2 n against the single copy's (1.0: exactly n log n).
    const std::string arm = vekr::test::dataFile("armadillo.off");
    if (std::string("scaling").find(filter) != std::string::npos && !arm.empty()) {
        const vekr::test::Mesh one = vekr::test::loadOff(arm);
        std::printf("\n%-16s %9s %10s %12s %14s\n", "armadillo grid", "tris", "ms", "Mtri/s", "vs n log n");
        double unit = 0;
        for (int k : {1, 2, 4, 8, 20}) {
            const vekr::test::Mesh m = vekr::bench::gridCopies(one, k);
            const double n = m.triangleCount();
            VekrKDTreeBuildParams p{VEKR_KDTREE_SAH_MAGIC, 50, 0.0f, 4000u, nullptr};
            setThreads(1);
            std::vector<double> tv;
            for (int r = 0; r < runs; ++r)
                tv.push_back(seconds([&] {
                    VekrKDTreeNode* tree = nullptr;
                    int size = 0;
                    if (vekrKDTreeBuildAlloc(&tree, m.vertices.data(), m.triangles.data(), m.vertexCount(),
                                             m.triangleCount(), &size, &p) != vekStsOk)
                        std::printf("# vekr build failed\n");
                    vekrKDTreeFree(tree);
                }));
            const double t = median(tv), perNLogN = t / (n * std::log2(n));
            if (k == 1) unit = perNLogN;
            std::printf("%-16s %9.0f %10.1f %12.3f %14.2f\n", ("x" + std::to_string(k)).c_str(), n, t * 1e3,
                        n / t * 1e-6, perNLogN / unit);
            std::fflush(stdout);
        }
    }
    return 0;
}
