// Ray-tracing benchmark: one camera framing a mesh and one point light;
// build, primary rays, shadow segments and mirror reflections, each beside
// Embree 3 on the same rays.  1024 x 1024 image in 64 x 64 blocks shared by
// the threads as a caller would (static split of the block list).
#include <omp.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "synthetic.h"
#include "testutil.h"
#include "vekr.h"
#ifdef VEKR_HAVE_EMBREE
#include <embree3/rtcore_ray.h>

#include "embree_peer.h"
#endif

namespace {

using vekr::test::Aligned;
using vekr::test::Mesh;

constexpr int kImage = 1024, kBlock = 64, kBlocks = (kImage / kBlock) * (kImage / kBlock);
constexpr int kPerBlock = kBlock * kBlock;
constexpr int kRuns = 5;

double medianSeconds(int runs, const std::function<void()>& fn)
{
    std::vector<double> t;
    for (int i = 0; i < runs; ++i) {
        const auto a = std::chrono::steady_clock::now();
        fn();
        t.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - a).count());
    }
    std::sort(t.begin(), t.end());
    return t[t.size() / 2];
}

// All per-ray arrays of the image, block after block (each block contiguous,
// row order inside), so that every block is one aligned call.
struct Frame {
    size_t n = static_cast<size_t>(kImage) * kImage;
    Aligned<float> d[3], dist, u, v, p[3], rd[3], rdist, ru, rv;
    Aligned<int> tri, mask, stri, rtri;
    float eye[3], light[3];
    Frame()
    {
        for (int c = 0; c < 3; ++c) d[c].resize(n), p[c].resize(n), rd[c].resize(n);
        dist.resize(n), u.resize(n), v.resize(n), rdist.resize(n), ru.resize(n), rv.resize(n);
        tri.resize(n), mask.resize(n), stri.resize(n), rtri.resize(n);
    }
};

template <class Fn>
void forBlocks(int threads, Fn&& fn)
{
#pragma omp parallel for num_threads(threads) schedule(static)
    for (int b = 0; b < kBlocks; ++b) fn(b, static_cast<size_t>(b) * kPerBlock);
}

struct Row {
    std::string mesh, stage;
    int threads;
    double vekr, peer1, peerPacket;
    const char* packetName;
};

void printRow(const Row& r)
{
    std::printf("| %-9s | %-10s | %d | %8.2f | %8.2f | %8.2f (%s) | %5.2f | %5.2f |\n", r.mesh.c_str(),
                r.stage.c_str(), r.threads, r.vekr, r.peer1, r.peerPacket, r.packetName,
                r.peer1 > 0 ? r.vekr / r.peer1 : 0.0, r.peerPacket > 0 ? r.vekr / r.peerPacket : 0.0);
}

std::vector<int> threadCounts = {1, 2};

void benchMesh(const std::string& name, const Mesh& m)
{
    const int nt = m.triangleCount();
    VekrBox3D box;
    vekrSetBoundBox_32f(m.vertices.data(), m.vertexCount(), &box);
    std::vector<VekrTriangleAccel> accel(nt);
    vekrTriangleAccelInit(accel.data(), m.vertices.data(), m.triangles.data(), nt);
    VekrKDTreeBuildParams params{VEKR_KDTREE_SAH_MAGIC, 50, 0.0f, 4000u, nullptr};
    VekrKDTreeNode* tree = nullptr;
    int size = 0;
    const double tBuild = medianSeconds(3, [&] {
        vekrKDTreeFree(tree);
        tree = nullptr;
        vekrKDTreeBuildAlloc(&tree, m.vertices.data(), m.triangles.data(), m.vertexCount(), nt, &size, &params);
    });
    const VekrIntersectContext ctx{&box, accel.data(), tree};

    // Camera on +z looking at the box centre, the image just covering the box.
    Frame f;
    const float cx = 0.5f * (box.minX + box.maxX), cy = 0.5f * (box.minY + box.maxY),
                cz = 0.5f * (box.minZ + box.maxZ);
    const float ext = std::max({box.maxX - box.minX, box.maxY - box.minY, box.maxZ - box.minZ});
    f.eye[0] = cx, f.eye[1] = cy, f.eye[2] = cz + 2.0f * ext;
    f.light[0] = cx + ext, f.light[1] = cy + 1.5f * ext, f.light[2] = cz + ext;
    const float half = 0.3f;  // image plane at distance 1, 2 * half wide
    const float corner[3] = {-half, half, -1.0f}, sx[3] = {2 * half / kImage, 0, 0},
                sy[3] = {0, -2 * half / kImage, 0};
    for (int b = 0; b < kBlocks; ++b) {
        const size_t at = static_cast<size_t>(b) * kPerBlock;
        float* const out[3] = {f.d[0].offset(at), f.d[1].offset(at), f.d[2].offset(at)};
        vekrCastEye_32f(corner, sx, sy, b % (kImage / kBlock), b / (kImage / kBlock),
                        VekSize{kBlock, kBlock}, out, VekSize{kBlock, kBlock});
    }
    const size_t n = f.n;

#ifdef VEKR_HAVE_EMBREE
    vekr::bench::EmbreeDevice dev(0);
    vekr::bench::EmbreeScene es(dev, m);
    const double tEmbree = medianSeconds(3, [&] { es.build(RTC_BUILD_QUALITY_MEDIUM); });
    RTCScene scene = es.get();
#else
    const double tEmbree = 0;
#endif
    std::printf("| %-9s | build      | %d tris | vekr %.3f s | Embree %.3f s | ratio %.2f |\n", name.c_str(), nt,
                tBuild, tEmbree, tEmbree > 0 ? tEmbree / tBuild : 0.0);

    for (int threads : threadCounts) {
        // ---- primary rays ----
        const double tv = medianSeconds(kRuns, [&] {
            forBlocks(threads, [&](int, size_t at) {
                for (size_t k = at; k < at + kPerBlock; ++k) f.dist[k] = 1e30f;
                const float* dirs[3] = {f.d[0].offset(at), f.d[1].offset(at), f.d[2].offset(at)};
                float* hits[2] = {f.u.offset(at), f.v.offset(at)};
                vekrIntersectEyeSO_32f(f.eye, dirs, f.dist.offset(at), hits, f.tri.offset(at), &ctx,
                                       VekSize{kBlock, kBlock});
            });
        });
        size_t hitCount = 0;
        for (size_t k = 0; k < n; ++k) hitCount += f.tri[k] >= 0;
        double e1 = 0, e8 = 0, e16 = 0;
        size_t agree = 0;
#ifdef VEKR_HAVE_EMBREE
        std::vector<int> eprim(n);
        e1 = medianSeconds(kRuns, [&] {
            forBlocks(threads, [&](int, size_t at) {
                RTCIntersectContext ic;
                rtcInitIntersectContext(&ic);
                for (size_t k = at; k < at + kPerBlock; ++k) {
                    RTCRayHit rh{};
                    rh.ray.org_x = f.eye[0], rh.ray.org_y = f.eye[1], rh.ray.org_z = f.eye[2];
                    rh.ray.dir_x = f.d[0][k], rh.ray.dir_y = f.d[1][k], rh.ray.dir_z = f.d[2][k];
                    rh.ray.tnear = 0, rh.ray.tfar = 1e30f, rh.ray.mask = ~0u;
                    rh.hit.geomID = RTC_INVALID_GEOMETRY_ID;
                    rtcIntersect1(scene, &ic, &rh);
                    eprim[k] = rh.hit.geomID == RTC_INVALID_GEOMETRY_ID ? -1 : static_cast<int>(rh.hit.primID);
                }
            });
        });
        for (size_t k = 0; k < n; ++k) agree += eprim[k] == f.tri[k];
        auto packets = [&](auto width) {
            constexpr int W = decltype(width)::value;
            using RH = std::conditional_t<W == 8, RTCRayHit8, RTCRayHit16>;
            return medianSeconds(kRuns, [&] {
                forBlocks(threads, [&](int, size_t at) {
                    RTCIntersectContext ic;
                    rtcInitIntersectContext(&ic);
                    alignas(64) int valid[W];
                    for (int i = 0; i < W; ++i) valid[i] = -1;
                    for (int ty = 0; ty < kBlock; ty += 4)
                        for (int tx = 0; tx < kBlock; tx += 4)
                            for (int r0 = 0; r0 < 4; r0 += W / 4) {
                                alignas(64) RH rh;
                                for (int i = 0; i < W; ++i) {
                                    const size_t k = at + static_cast<size_t>(ty + r0 + i / 4) * kBlock + tx + i % 4;
                                    rh.ray.org_x[i] = f.eye[0], rh.ray.org_y[i] = f.eye[1], rh.ray.org_z[i] = f.eye[2];
                                    rh.ray.dir_x[i] = f.d[0][k], rh.ray.dir_y[i] = f.d[1][k], rh.ray.dir_z[i] = f.d[2][k];
                                    rh.ray.tnear[i] = 0, rh.ray.tfar[i] = 1e30f, rh.ray.mask[i] = ~0u;
                                    rh.ray.time[i] = 0, rh.ray.flags[i] = 0;
                                    rh.hit.geomID[i] = RTC_INVALID_GEOMETRY_ID;
                                }
                                if constexpr (W == 8) rtcIntersect8(valid, scene, &ic, &rh);
                                else rtcIntersect16(valid, scene, &ic, &rh);
                            }
                });
            });
        };
        e8 = packets(std::integral_constant<int, 8>{});
        e16 = packets(std::integral_constant<int, 16>{});
#endif
        const double mr = n / 1e6;
        const double best = std::max(mr / e8, mr / e16);
        printRow({name, "primary", threads, mr / tv, e1 > 0 ? mr / e1 : 0, e1 > 0 ? best : 0,
                  e8 < e16 ? "x8" : "x16"});
        // The single-ray path: blocks 63 rays wide (the same arrays, one
        // column fewer per block) miss the packet conditions.
        const double tSingle = medianSeconds(kRuns, [&] {
            forBlocks(threads, [&](int, size_t at) {
                for (size_t k = at; k < at + kPerBlock; ++k) f.dist[k] = 1e30f;
                const float* dirs[3] = {f.d[0].offset(at), f.d[1].offset(at), f.d[2].offset(at)};
                float* hits[2] = {f.u.offset(at), f.v.offset(at)};
                vekrIntersectEyeSO_32f(f.eye, dirs, f.dist.offset(at), hits, f.tri.offset(at), &ctx,
                                       VekSize{kBlock - 1, kBlock});
            });
        });
        printRow({name, "primary 1", threads, kBlocks * (kBlock - 1) * kBlock / 1e6 / tSingle, e1 > 0 ? mr / e1 : 0, 0,
                  "-"});
        // Back to the packet path's results for the secondary rays.
        for (int b = 0; b < kBlocks; ++b) {
            const size_t at = static_cast<size_t>(b) * kPerBlock;
            for (size_t k = at; k < at + kPerBlock; ++k) f.dist[k] = 1e30f;
            const float* dirs[3] = {f.d[0].offset(at), f.d[1].offset(at), f.d[2].offset(at)};
            float* hits[2] = {f.u.offset(at), f.v.offset(at)};
            vekrIntersectEyeSO_32f(f.eye, dirs, f.dist.offset(at), hits, f.tri.offset(at), &ctx, VekSize{kBlock, kBlock});
        }
        if (threads == 1)
            std::printf("|   hits %.1f%%, same triangle as rtcIntersect1: %.3f%% |\n", 100.0 * hitCount / n,
                        100.0 * agree / n);

        // Hit points just in front of the surface, for the secondary rays.
        for (size_t k = 0; k < n; ++k) f.mask[k] = f.tri[k] >= 0 ? 0 : -1;
        {
            const float* dirs[3] = {f.d[0].data(), f.d[1].data(), f.d[2].data()};
            float* pts[3] = {f.p[0].data(), f.p[1].data(), f.p[2].data()};
            vekrHitPoint3DEpsS0_32f_M(f.eye, dirs, f.dist.data(), f.mask.data(), pts, static_cast<int>(n), 0.9999f);
        }
        // ---- shadow segments from the light to every hit ----
        for (int c = 0; c < 3; ++c)
            for (size_t k = 0; k < n; ++k) f.rd[c][k] = f.p[c][k] - f.light[c];
        Aligned<int> smask(n);
        const double ts = medianSeconds(kRuns, [&] {
            forBlocks(threads, [&](int, size_t at) {
                for (size_t k = at; k < at + kPerBlock; ++k) smask[k] = f.mask[k];
                const float* dirs[3] = {f.rd[0].offset(at), f.rd[1].offset(at), f.rd[2].offset(at)};
                vekrIntersectAnySO_32f(f.light, dirs, f.stri.offset(at), smask.offset(at), VekSize{kBlock, kBlock}, &ctx);
            });
        });
        double s1 = 0, s8 = 0, s16 = 0;
#ifdef VEKR_HAVE_EMBREE
        s1 = medianSeconds(kRuns, [&] {
            forBlocks(threads, [&](int, size_t at) {
                RTCIntersectContext ic;
                rtcInitIntersectContext(&ic);
                for (size_t k = at; k < at + kPerBlock; ++k) {
                    if (f.mask[k] < 0) continue;
                    RTCRay r{};
                    r.org_x = f.light[0], r.org_y = f.light[1], r.org_z = f.light[2];
                    r.dir_x = f.rd[0][k], r.dir_y = f.rd[1][k], r.dir_z = f.rd[2][k];
                    r.tnear = 0, r.tfar = 1.0f, r.mask = ~0u;
                    rtcOccluded1(scene, &ic, &r);
                }
            });
        });
        auto occluded = [&](auto width) {
            constexpr int W = decltype(width)::value;
            using R = std::conditional_t<W == 8, RTCRay8, RTCRay16>;
            return medianSeconds(kRuns, [&] {
                forBlocks(threads, [&](int, size_t at) {
                    RTCIntersectContext ic;
                    rtcInitIntersectContext(&ic);
                    for (int ty = 0; ty < kBlock; ty += 4)
                        for (int tx = 0; tx < kBlock; tx += 4)
                            for (int r0 = 0; r0 < 4; r0 += W / 4) {
                                alignas(64) int valid[W];
                                alignas(64) R r;
                                int any = 0;
                                for (int i = 0; i < W; ++i) {
                                    const size_t k = at + static_cast<size_t>(ty + r0 + i / 4) * kBlock + tx + i % 4;
                                    valid[i] = f.mask[k] < 0 ? 0 : -1;
                                    any |= valid[i];
                                    r.org_x[i] = f.light[0], r.org_y[i] = f.light[1], r.org_z[i] = f.light[2];
                                    r.dir_x[i] = f.rd[0][k], r.dir_y[i] = f.rd[1][k], r.dir_z[i] = f.rd[2][k];
                                    r.tnear[i] = 0, r.tfar[i] = 1.0f, r.mask[i] = ~0u, r.time[i] = 0, r.flags[i] = 0;
                                }
                                if (!any) continue;
                                if constexpr (W == 8) rtcOccluded8(valid, scene, &ic, &r);
                                else rtcOccluded16(valid, scene, &ic, &r);
                            }
                });
            });
        };
        s8 = occluded(std::integral_constant<int, 8>{});
        s16 = occluded(std::integral_constant<int, 16>{});
#endif
        const double hr = hitCount / 1e6;
        printRow({name, "shadow", threads, hr / ts, s1 > 0 ? hr / s1 : 0, s8 > 0 ? std::max(hr / s8, hr / s16) : 0,
                  s8 < s16 ? "x8" : "x16"});

        // ---- mirror reflections from the hit points ----
        for (size_t k = 0; k < n; ++k) {
            if (f.tri[k] < 0) {
                for (int c = 0; c < 3; ++c) f.rd[c][k] = 0;
                continue;
            }
            const int* t = &m.triangles[4 * static_cast<size_t>(f.tri[k])];
            const float* a = &m.vertices[3 * t[0]];
            const float* b = &m.vertices[3 * t[1]];
            const float* c = &m.vertices[3 * t[2]];
            const float e1[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]}, e2[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
            float nn[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2], e1[0] * e2[1] - e1[1] * e2[0]};
            const float l = std::sqrt(nn[0] * nn[0] + nn[1] * nn[1] + nn[2] * nn[2]) + 1e-30f;
            const float dn = (f.d[0][k] * nn[0] + f.d[1][k] * nn[1] + f.d[2][k] * nn[2]) / (l * l);
            for (int c2 = 0; c2 < 3; ++c2) f.rd[c2][k] = f.d[c2][k] - 2.0f * dn * nn[c2];
        }
        const double tr = medianSeconds(kRuns, [&] {
            forBlocks(threads, [&](int, size_t at) {
                for (size_t k = at; k < at + kPerBlock; ++k) f.rdist[k] = f.mask[k] < 0 ? 0.0f : 1e30f;
                const float* org[3] = {f.p[0].offset(at), f.p[1].offset(at), f.p[2].offset(at)};
                const float* dirs[3] = {f.rd[0].offset(at), f.rd[1].offset(at), f.rd[2].offset(at)};
                float* hits[2] = {f.ru.offset(at), f.rv.offset(at)};
                vekrIntersectMO_32f(org, dirs, f.rdist.offset(at), hits, f.rtri.offset(at), &ctx,
                                    VekSize{kBlock, kBlock});
            });
        });
        double r1 = 0;
#ifdef VEKR_HAVE_EMBREE
        r1 = medianSeconds(kRuns, [&] {
            forBlocks(threads, [&](int, size_t at) {
                RTCIntersectContext ic;
                rtcInitIntersectContext(&ic);
                for (size_t k = at; k < at + kPerBlock; ++k) {
                    if (f.mask[k] < 0) continue;
                    RTCRayHit rh{};
                    rh.ray.org_x = f.p[0][k], rh.ray.org_y = f.p[1][k], rh.ray.org_z = f.p[2][k];
                    rh.ray.dir_x = f.rd[0][k], rh.ray.dir_y = f.rd[1][k], rh.ray.dir_z = f.rd[2][k];
                    rh.ray.tnear = 0, rh.ray.tfar = 1e30f, rh.ray.mask = ~0u;
                    rh.hit.geomID = RTC_INVALID_GEOMETRY_ID;
                    rtcIntersect1(scene, &ic, &rh);
                }
            });
        });
#endif
        printRow({name, "reflection", threads, hr / tr, r1 > 0 ? hr / r1 : 0, 0, "-"});
    }
    vekrKDTreeFree(tree);
}

}  // namespace

int main(int argc, char** argv)
{
    std::printf("| mesh | stage | threads | vekr Mrays/s | Embree x1 | Embree packet | vekr/x1 | vekr/packet |\n");
    std::printf("|---|---|---|---|---|---|---|---|\n");
    const std::string only = argc > 1 ? argv[1] : "";  // one mesh, or "" for all
    if (argc > 2) threadCounts = {std::atoi(argv[2])};   // one thread count
    for (const char* file : {"bunny00.off", "armadillo.off"}) {
        if (!only.empty() && only != file) continue;
        const std::string path = vekr::test::dataFile(file);
        if (path.empty()) {
            std::printf("# %s not found (bash scripts/fetch-data.sh)\n", file);
            continue;
        }
        benchMesh(std::string(file).substr(0, std::string(file).find('.')), vekr::test::loadOff(path));
    }
    if (only.empty() || only == "sphere") benchMesh("sphere1M", vekr::bench::bumpySphere(500, 1000));
    return 0;
}
