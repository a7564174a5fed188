#include "tracer.h"

#include <omp.h>

#include <algorithm>
#include <cfloat>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "shading.h"

namespace render {

namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point t0)
{
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

// Hit points are pulled back along their rays by this share of the hit
// distance, so that rays leaving them do not meet their own surface.
constexpr float kHitPull = 1.0f - 2.0e-4f;

// KD-tree depth for n triangles: deep enough for small leaves, within the
// traversal's stack of 50 entries.
int treeDepthFor(int n)
{
    const double d = 8.0 + 1.3 * std::log2(std::max(n, 2));
    return std::min(45, static_cast<int>(d));
}

// Work arrays of one thread: planes of kBlockSize^2 values, 64-byte aligned.
class Workspace {
public:
    static constexpr int kRays = kBlockSize * kBlockSize;

    Workspace() : memory_(static_cast<float*>(std::aligned_alloc(64, kBytes)))
    {
        if (!memory_) throw std::bad_alloc();
        std::memset(memory_, 0, kBytes);
    }
    ~Workspace() { std::free(memory_); }
    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;

    float* plane() { return memory_ + (next_++) * kRays; }
    int* ints() { return reinterpret_cast<int*>(plane()); }
    void planes3(float* p[3])
    {
        for (int c = 0; c < 3; ++c) p[c] = plane();
    }

private:
    static constexpr int kPlanes = 64;
    static constexpr size_t kBytes = size_t(kPlanes) * kRays * sizeof(float);
    float* memory_;
    int next_ = 0;
};

// The arrays of one generation of rays (eye rays or mirror rays) and the
// shading results at their hits.
struct Surface {
    float* dir[3];
    float* dist;
    float* uv[2];
    int* tri;
    int* hit;     // 0 where the ray hit, -1 elsewhere
    float* point[3];
    float* normal[3];
    float* facing;  // direction . normal after turning the normal, <= 0
    float* albedo[3];
    float* share;   // mirror share of the hit material
    float* colour[3];

    explicit Surface(Workspace& ws)
    {
        ws.planes3(dir);
        dist = ws.plane();
        uv[0] = ws.plane();
        uv[1] = ws.plane();
        tri = ws.ints();
        hit = ws.ints();
        ws.planes3(point);
        ws.planes3(normal);
        facing = ws.plane();
        ws.planes3(albedo);
        share = ws.plane();
        ws.planes3(colour);
    }
};

// Arrays shared by both generations.
struct Scratch {
    int* lit;
    int* blocker;
    float* cosine;
    float* shadow[3];
    float* dist;
    float* tmp;
    float* ambient[3];
    int* mirror;
    int* every;
    float* scale;

    explicit Scratch(Workspace& ws)
    {
        lit = ws.ints();
        blocker = ws.ints();
        cosine = ws.plane();
        ws.planes3(shadow);
        dist = ws.plane();
        tmp = ws.plane();
        ws.planes3(ambient);
        mirror = ws.ints();
        every = ws.ints();
        scale = ws.plane();
        std::fill(every, every + Workspace::kRays, 0);
    }
};

struct Counters {
    uint64_t primary = 0, shadow = 0, reflection = 0;
    VekStatus status = vekStsOk;
    const char* failed = nullptr;

    bool ok(VekStatus st, const char* call)
    {
        if (st < 0 && status == vekStsOk) {
            status = st;
            failed = call;
        }
        return st >= 0;
    }
};

uint64_t countActive(const int* mask, int n)
{
    uint64_t k = 0;
    for (int i = 0; i < n; ++i) k += mask[i] >= 0;
    return k;
}

class BlockTracer {
public:
    BlockTracer(const Scene& scene, const Accel& accel, const Environment& env,
                const RenderSettings& settings)
        : scene_(scene), accel_(accel), env_(env), settings_(settings), eye_(ws_), bounce_(ws_),
          scratch_(ws_)
    {
    }

    // Traces every sample of block (bx, by) and adds them to the film.
    void run(int bx, int by, Film& film, Counters& count)
    {
        const int w = roundUp4(std::min(kBlockSize, settings_.width - bx * kBlockSize));
        const int h = roundUp4(std::min(kBlockSize, settings_.height - by * kBlockSize));
        const VekSize extent{w, h};
        for (int s = 0; s < settings_.samples; ++s) {
            float dx, dy;
            sampleOffset(s, dx, dy);
            const RayFrame f = rayFrame(scene_.camera, settings_.width, settings_.height, dx, dy);
            traceSample(f, bx, by, extent, count);
            film.addBlock(bx * kBlockSize, by * kBlockSize, w, h, w, eye_.colour[0],
                          eye_.colour[1], eye_.colour[2]);
        }
    }

private:
    static int roundUp4(int v) { return (v + 3) & ~3; }

    void traceSample(const RayFrame& f, int bx, int by, VekSize extent, Counters& count)
    {
        const int n = extent.width * extent.height;
        const VekrIntersectContext* ctx = &accel_.context();
        const float* eye = scene_.camera.eye;
        count.ok(vekrCastEye_32f(f.corner, f.stepX, f.stepY, bx, by, VekSize{kBlockSize, kBlockSize},
                                 eye_.dir, extent),
                 "vekrCastEye_32f");
        std::fill(eye_.dist, eye_.dist + n, FLT_MAX);
        count.ok(vekrIntersectEyeSO_32f(eye, eye_.dir, eye_.dist, eye_.uv, eye_.tri, ctx, extent),
                 "vekrIntersectEyeSO_32f");
        count.primary += static_cast<uint64_t>(n);
        for (int i = 0; i < n; ++i) eye_.hit[i] = eye_.tri[i] >= 0 ? 0 : -1;
        count.ok(vekrHitPoint3DEpsS0_32f_M(eye, eye_.dir, eye_.dist, eye_.hit, eye_.point, n,
                                           kHitPull),
                 "vekrHitPoint3DEpsS0_32f_M");
        shade(eye_, scratch_.every, extent, count);

        // One mirror bounce from the hits on reflective materials.
        int* mirror = scratch_.mirror;
        bool any = false;
        for (int i = 0; i < n; ++i) {
            mirror[i] = eye_.hit[i] >= 0 && eye_.share[i] > 0.0f ? 0 : -1;
            any = any || mirror[i] >= 0;
        }
        if (!any) return;
        count.ok(vekrCastReflectionRay_32f(eye_.dir, mirror, eye_.normal, bounce_.dir, n),
                 "vekrCastReflectionRay_32f");
        // A limit of 0 keeps the rays without a mirror out of the tracing.
        for (int i = 0; i < n; ++i) bounce_.dist[i] = mirror[i] >= 0 ? FLT_MAX : 0.0f;
        count.ok(vekrIntersectMO_32f(eye_.point, bounce_.dir, bounce_.dist, bounce_.uv, bounce_.tri,
                                     ctx, extent),
                 "vekrIntersectMO_32f");
        count.reflection += countActive(mirror, n);
        for (int i = 0; i < n; ++i) {
            bounce_.hit[i] = mirror[i] >= 0 && bounce_.tri[i] >= 0 ? 0 : -1;
        }
        count.ok(vekrHitPoint3DEpsM0_32f_M(eye_.point, bounce_.dir, bounce_.dist, bounce_.hit,
                                           bounce_.point, n, kHitPull),
                 "vekrHitPoint3DEpsM0_32f_M");
        shade(bounce_, mirror, extent, count);
        count.ok(blendMirror(eye_.share, mirror, scratch_.every, scratch_.scale, bounce_.colour,
                             eye_.colour, n),
                 "mirror blend");
    }

    // Colour of every ray of a generation: the sky where a ray in `active`
    // missed, ambient and direct light where it hit, 0 for inactive rays.
    void shade(Surface& s, const int* active, VekSize extent, Counters& count)
    {
        const int n = extent.width * extent.height;
        const VekrIntersectContext* ctx = &accel_.context();
        const Mesh& mesh = scene_.mesh;
        if (settings_.flat) {
            count.ok(vekrSurfFlatNormal_32f(accel_.triangleNormals().data(), s.tri, s.normal, n),
                     "vekrSurfFlatNormal_32f");
        } else {
            count.ok(vekrSurfSmoothNormal_32f(accel_.vertexNormals().data(), mesh.triangles.data(),
                                              s.tri, s.uv, s.normal, n, 4),
                     "vekrSurfSmoothNormal_32f");
        }
        count.ok(vekrDotChangeNorm_32f_IM(s.dir, s.hit, s.normal, s.facing, n),
                 "vekrDotChangeNorm_32f_IM");

        for (int i = 0; i < n; ++i) {
            if (s.hit[i] >= 0) {
                const Material& m = mesh.materials[mesh.triangles[4 * static_cast<size_t>(s.tri[i]) + 3]];
                for (int c = 0; c < 3; ++c) {
                    s.albedo[c][i] = m.albedo[c];
                    s.colour[c][i] = 0.0f;
                }
                s.share[i] = m.reflect;
            } else {
                float sky[3] = {0.0f, 0.0f, 0.0f};
                if (active[i] >= 0) {
                    skyRadiance(env_.sky(), s.dir[0][i], s.dir[1][i], s.dir[2][i], sky);
                }
                for (int c = 0; c < 3; ++c) {
                    s.albedo[c][i] = 0.0f;
                    s.colour[c][i] = sky[c];
                }
                s.share[i] = 0.0f;
            }
        }

        count.ok(vekrSHTInv_32f_P3(env_.diffuse(), Environment::kBands, s.normal[0], s.normal[1],
                                   s.normal[2], scratch_.ambient, n, env_.state()),
                 "vekrSHTInv_32f_P3");
        count.ok(addAmbient(scratch_.ambient, s.albedo, s.hit, s.colour, n), "ambient light");

        for (const Light& light : scene_.lights) {
            int* lit = scratch_.lit;
            std::copy(s.hit, s.hit + n, lit);
            count.ok(vekrCastShadowSO_32f(light.position, s.facing, s.normal, s.point, lit,
                                          scratch_.cosine, scratch_.shadow, n),
                     "vekrCastShadowSO_32f");
            count.shadow += countActive(lit, n);
            count.ok(vekrIntersectAnySO_32f(light.position, scratch_.shadow, scratch_.blocker, lit,
                                            extent, ctx),
                     "vekrIntersectAnySO_32f");
            count.ok(addLight(light, s.point, lit, scratch_.cosine, scratch_.dist, scratch_.tmp,
                              s.albedo, s.colour, n),
                     "light accumulation");
        }
    }

    const Scene& scene_;
    const Accel& accel_;
    const Environment& env_;
    const RenderSettings& settings_;
    Workspace ws_;
    Surface eye_, bounce_;
    Scratch scratch_;
};

}  // namespace

bool Accel::build(const Mesh& mesh, std::string& error)
{
    const auto t0 = Clock::now();
    const int nv = mesh.vertexCount(), nt = mesh.triangleCount();
    const float* v = mesh.vertices.data();
    const int* t = mesh.triangles.data();
    auto fail = [&](const char* call, VekStatus st) {
        error = std::string(call) + " failed with status " + std::to_string(st);
        return false;
    };
    VekStatus st = vekrSetBoundBox_32f(v, nv, &box_);
    if (st != vekStsOk) return fail("vekrSetBoundBox_32f", st);

    int recordSize = 0;
    st = vekrTriangleAccelGetSize(&recordSize);
    if (st != vekStsOk) return fail("vekrTriangleAccelGetSize", st);
    if (recordSize != static_cast<int>(sizeof(VekrTriangleAccel))) {
        error = "unexpected acceleration record size " + std::to_string(recordSize);
        return false;
    }
    records_.assign(static_cast<size_t>(nt), VekrTriangleAccel{});
    st = vekrTriangleAccelInit(records_.data(), v, t, nt);
    if (st != vekStsOk) return fail("vekrTriangleAccelInit", st);

    depth_ = treeDepthFor(nt);
    VekrKDTreeBuildParams params{VEKR_KDTREE_SAH_MAGIC, depth_, 1.0f, 1024u, nullptr};
    // The budget only caps the build's working memory; grow it if the mesh
    // needs more.
    for (;;) {
        st = vekrKDTreeBuildAlloc(&tree_, v, t, nv, nt, &treeSize_, &params);
        if (st != vekStsMemBudget || params.memoryMB >= 4000u) break;
        params.memoryMB = std::min(4000u, params.memoryMB * 2u);
    }
    if (st != vekStsOk) {
        tree_ = nullptr;
        return fail("vekrKDTreeBuildAlloc", st);
    }

    triangleNormals_.assign(static_cast<size_t>(nt) * 3, 0.0f);
    st = vekrTriangleNormal_32f(v, t, triangleNormals_.data(), nt);
    if (st != vekStsOk) return fail("vekrTriangleNormal_32f", st);
    vertexNormals_ = render::vertexNormals(mesh, triangleNormals_);

    context_.pBound = &box_;
    context_.pAccel = records_.data();
    context_.pRootNode = tree_;
    seconds_ = since(t0);
    return true;
}

RenderStats renderFrame(const Scene& scene, const Accel& accel, const Environment& env,
                        const RenderSettings& settings, Film& film,
                        const std::function<void(int, int)>& blockDone)
{
    const int bw = (settings.width + kBlockSize - 1) / kBlockSize;
    const int bh = (settings.height + kBlockSize - 1) / kBlockSize;
    const int blocks = bw * bh;
    const int threads = settings.threads > 0 ? settings.threads : omp_get_max_threads();
    RenderStats stats;
    int done = 0;
    const auto t0 = Clock::now();
#pragma omp parallel num_threads(threads)
    {
        BlockTracer tracer(scene, accel, env, settings);
        Counters count;
        // Blocks write disjoint parts of the film, so the order in which
        // threads take them does not change the picture.
#pragma omp for schedule(dynamic, 1)
        for (int b = 0; b < blocks; ++b) {
            tracer.run(b % bw, b / bw, film, count);
#pragma omp critical(vekr_render_progress)
            {
                ++done;
                if (blockDone) blockDone(done, blocks);
            }
        }
#pragma omp critical(vekr_render_stats)
        {
            stats.primaryRays += count.primary;
            stats.shadowRays += count.shadow;
            stats.reflectionRays += count.reflection;
            if (count.status != vekStsOk && stats.status == vekStsOk) {
                stats.status = count.status;
                stats.failedCall = count.failed;
            }
        }
    }
    stats.seconds = since(t0);
    return stats;
}

}  // namespace render
