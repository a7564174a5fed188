// Per-element throughput of the shading primitives on 1M-ray packets, each
// set against a plain streaming copy over the same arrays (same planes read,
// read-and-written in place, and written) measured in the same run: that
// copy is the memory-bandwidth limit of the function's own traffic.
//
// Usage: bench_shade [runs] [cpu|wall] [name filter]
//   default 15 runs, the median reported; single-threaded runs are timed in
//   thread CPU time unless "wall"; a filter runs only names containing it.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <string>
#include <ctime>
#include <vector>

#include "core/parallel.h"
#include "core/simd.h"
#include "synthetic.h"
#include "testutil.h"
#include "vekcore.h"
#include "vekr.h"

namespace {

using vekr::test::Aligned;
constexpr int kN = 1 << 20;

// Wall time, or, for single-threaded work, the calling thread's CPU time
// (the machine is shared, and time spent descheduled is not the function's).
bool g_cpuTime = true;
std::string g_filter;

double now(bool cpu)
{
    if (cpu) {
        timespec ts;
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
        return ts.tv_sec + ts.tv_nsec * 1e-9;
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double seconds(const std::function<void()>& f, bool cpu)
{
    const double t0 = now(cpu);
    f();
    return now(cpu) - t0;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

volatile int g_zero = 0;  // keeps the copy's reads alive without changing data

// The streaming copy: reads R planes, rewrites RW planes in place, writes W
// planes, over elements [begin, end).  The data written is the data read.
template <int R, int RW, int W>
void streamRange(float* const* planes, int begin, int end)
{
    using namespace vekr::simd;
    const F4 keep = asFloat(I4(g_zero));
    for (int i = begin; i < end; i += 4) {
        F4 acc = load4(planes[0] + i);
        for (int k = 1; k < R; ++k) acc = acc | (keep & load4(planes[k] + i));
        for (int k = R; k < R + RW; ++k) store4(planes[k] + i, load4(planes[k] + i) | (keep & acc));
        for (int k = R + RW; k < R + RW + W; ++k) store4(planes[k] + i, acc);
    }
}

struct Stream {
    int r, rw, w;
    void (*fn)(float* const*, int, int);
};

template <int R, int RW, int W>
Stream stream()
{
    return Stream{R, RW, W, &streamRange<R, RW, W>};
}

class Bench {
public:
    explicit Bench(int runs) : runs_(runs)
    {
        pool_.resize(16);
        for (auto& p : pool_) {
            p.resize(kN);
            for (int i = 0; i < kN; ++i) p[i] = 1.0f + (i % 7) * 0.125f;
        }
        std::printf("%-28s %10s %10s %10s %8s   %s\n", "function", "ns/elem", "GB/s", "copy GB/s",
                    "of limit", "planes r/rw/w");
    }

    // Times `fn` and the copy over the function's planes alternately.
    void run(const char* name, Stream s, int threads, const std::function<void()>& fn)
    {
        if (name[0] != ' ') last_ = name;
        if (!g_filter.empty() && (last_ + name).find(g_filter) == std::string::npos) return;
        float* planes[16];
        for (int k = 0; k < s.r + s.rw + s.w; ++k) planes[k] = pool_[k].data();
        auto copy = [&] {
            vekr::parallelFor(threads, kN / 4, vekr::staticBlock, [&](int b, int e, int, int) {
                s.fn(planes, 4 * b, 4 * e);
            });
        };
        fn();
        copy();
        std::vector<double> tf, tc;
        for (int k = 0; k < runs_; ++k) {
            tf.push_back(seconds(fn, threads == 1 && g_cpuTime));
            tc.push_back(seconds(copy, threads == 1 && g_cpuTime));
        }
        const double f = median(tf), c = median(tc);
        const double bytes = 4.0 * kN * (s.r + 2 * s.rw + s.w);
        std::printf("%-28s %10.3f %10.2f %10.2f %7.0f%%   %d/%d/%d\n", name, f * 1e9 / kN,
                    bytes / f * 1e-9, bytes / c * 1e-9, 100.0 * c / f, s.r, s.rw, s.w);
        std::fflush(stdout);
    }

private:
    int runs_;
    std::string last_;
    std::vector<Aligned<float>> pool_;
};

// Masks of a rendered packet: runs of active and inactive rays (as hit and
// shadow tests leave them), so most groups of four are all one or the other
// and mixed groups sit at run boundaries.  With `random` set, every group is
// drawn on its own instead (a worst case for the group branches).
void fillMask(int* m, std::mt19937& rng, bool random = false)
{
    if (random) {
        for (int g = 0; g < kN; g += 4) {
            const unsigned kind = rng() % 10;
            for (int i = g; i < g + 4; ++i) m[i] = (kind == 0 || (kind < 3 && (rng() & 1))) ? -1 : 0;
        }
        return;
    }
    bool on = true;
    for (int i = 0; i < kN;) {
        const int run = 1 + static_cast<int>(rng() % (on ? 96 : 24));
        for (int k = 0; k < run && i < kN; ++k, ++i) m[i] = on ? 0 : -1;
        on = !on;
    }
}

// Hit triangles of a rendered packet, scanline after scanline of 1024 rays:
// background rows and row ends miss; along a row the hit triangle stays the
// same for `run` rays on average and then moves to a nearby one.  With
// `random` set, every group of four is drawn on its own instead.
void fillHits(int* hit, int tris, std::mt19937& rng, int run, bool random = false)
{
    if (random) {
        for (int g = 0; g < kN; g += 4) {
            const unsigned kind = rng() % 10;
            const int t = static_cast<int>(rng() % tris);
            for (int i = g; i < g + 4; ++i)
                hit[i] = kind == 0 ? -1 : kind < 4 ? t : static_cast<int>(rng() % tris);
        }
        return;
    }
    for (int row = 0; row < kN; row += 1024) {
        const bool background = rng() % 10 == 0;
        const int lead = static_cast<int>(rng() % 100), tail = static_cast<int>(rng() % 100);
        int t = static_cast<int>(rng() % tris);
        for (int i = 0; i < 1024; ++i) {
            if (background || i < lead || i >= 1024 - tail) {
                hit[row + i] = -1;
                continue;
            }
            if (rng() % run == 0) t = (t + 1 + static_cast<int>(rng() % 3)) % tris;
            hit[row + i] = t;
        }
    }
}

struct P3 {
    Aligned<float> x, y, z;
    float* p[3];
    P3(std::mt19937& rng, float lo, float hi) : x(kN), y(kN), z(kN)
    {
        std::uniform_real_distribution<float> d(lo, hi);
        for (int i = 0; i < kN; ++i) x[i] = d(rng), y[i] = d(rng), z[i] = d(rng);
        p[0] = x.data(), p[1] = y.data(), p[2] = z.data();
    }
};

}  // namespace

int main(int argc, char** argv)
{
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 15;
    g_cpuTime = !(argc > 2 && std::string(argv[2]) == "wall");
    g_filter = argc > 3 ? argv[3] : "";
    std::printf("packets of %d elements, median of %d runs, %d threads for vekrTriangleNormal_32f\n\n",
                kN, runs, ownGetNumThreads());
    Bench b(runs);
    std::mt19937 rng(1);
    Aligned<int> mask(kN);
    fillMask(mask.data(), rng);
    P3 a(rng, -1, 1), c(rng, -1, 1), v(rng, -1, 1), out(rng, 0, 1);
    Aligned<float> s(kN), x(kN), d(kN), f(kN);
    for (int i = 0; i < kN; ++i) {
        s[i] = (rng() & 1) ? 1.0f : -1.0f;  // no drift over repeated in-place runs
        x[i] = 0.5f + (rng() % 100) * 0.01f;
        f[i] = (rng() & 1) ? 1.0f : -1.0f;
    }

    // Normals: per-ray lookups into a closed mesh of 100k triangles.
    const vekr::test::Mesh small = vekr::bench::bumpySphere(100, 500);
    const int tris = small.triangleCount();
    Aligned<float> triN(3 * tris), vertN(small.vertices.size());
    Aligned<int> rec(small.triangles.size()), hit(kN), hitLong(kN), hitRandom(kN);
    vekrTriangleNormal_32f(small.vertices.data(), small.triangles.data(), triN.data(), tris);
    std::copy(small.triangles.begin(), small.triangles.end(), rec.data());
    std::copy(small.vertices.begin(), small.vertices.end(), vertN.data());  // a sphere: position ~ normal
    fillHits(hit.data(), tris, rng, 6);       // small triangles: runs of ~6 rays
    fillHits(hitLong.data(), tris, rng, 48);  // large triangles: runs of ~48 rays
    fillHits(hitRandom.data(), tris, rng, 1, true);
    Aligned<float> u(kN), w(kN);
    for (int i = 0; i < kN; ++i) u[i] = 0.3f, w[i] = 0.25f;
    const float* uv[2] = {u.data(), w.data()};

    const vekr::test::Mesh mesh = vekr::bench::bumpySphere(512, 1024);
    std::vector<float> meshN(3 * mesh.triangleCount());
    std::printf("vekrTriangleNormal_32f: %d triangles (copy planes stand for 16 B read, 12 B written)\n",
                mesh.triangleCount());
    b.run("vekrTriangleNormal_32f", stream<4, 0, 3>(), ownGetNumThreads(), [&] {
        vekrTriangleNormal_32f(mesh.vertices.data(), mesh.triangles.data(), meshN.data(),
                               mesh.triangleCount());
    });
    b.run("vekrSurfFlatNormal_32f", stream<1, 0, 3>(), 1,
          [&] { vekrSurfFlatNormal_32f(triN.data(), hit.data(), out.p, kN); });
    b.run("  general path (count-1)", stream<1, 0, 3>(), 1,
          [&] { vekrSurfFlatNormal_32f(triN.data(), hit.data(), out.p, kN - 1); });
    b.run("  runs of ~48", stream<1, 0, 3>(), 1,
          [&] { vekrSurfFlatNormal_32f(triN.data(), hitLong.data(), out.p, kN); });
    b.run("  random hits", stream<1, 0, 3>(), 1,
          [&] { vekrSurfFlatNormal_32f(triN.data(), hitRandom.data(), out.p, kN); });
    b.run("vekrSurfSmoothNormal_32f", stream<3, 0, 3>(), 1, [&] {
        vekrSurfSmoothNormal_32f(vertN.data(), rec.data(), hit.data(), uv, out.p, kN, 4);
    });
    b.run("  general path (count-1)", stream<3, 0, 3>(), 1, [&] {
        vekrSurfSmoothNormal_32f(vertN.data(), rec.data(), hit.data(), uv, out.p, kN - 1, 4);
    });
    b.run("  runs of ~48", stream<3, 0, 3>(), 1, [&] {
        vekrSurfSmoothNormal_32f(vertN.data(), rec.data(), hitLong.data(), uv, out.p, kN, 4);
    });
    b.run("  random hits", stream<3, 0, 3>(), 1, [&] {
        vekrSurfSmoothNormal_32f(vertN.data(), rec.data(), hitRandom.data(), uv, out.p, kN, 4);
    });
    b.run("vekrCastReflectionRay_32f", stream<7, 0, 3>(), 1,
          [&] { vekrCastReflectionRay_32f(a.p, mask.data(), c.p, out.p, kN); });
    const float light[3] = {0.1f, 3.0f, -0.2f};
    b.run("vekrCastShadowSO_32f", stream<7, 1, 4>(), 1, [&] {
        vekrCastShadowSO_32f(light, f.data(), c.p, a.p, mask.data(), d.data(), out.p, kN);
    });
    fillMask(mask.data(), rng);  // the shadow rays switched many rays off
    b.run("vekrDistAttenuationSO_32f_M", stream<4, 0, 1>(), 1,
          [&] { vekrDistAttenuationSO_32f_M(light, a.p, mask.data(), d.data(), kN); });
    b.run("vekrDot_32f_P3C1M", stream<7, 0, 1>(), 1,
          [&] { vekrDot_32f_P3C1M(a.p, c.p, mask.data(), d.data(), kN); });
    b.run("vekrDotChangeNorm_32f_IM", stream<4, 3, 1>(), 1,
          [&] { vekrDotChangeNorm_32f_IM(a.p, mask.data(), v.p, d.data(), kN); });
    b.run("vekrMul_32f_C1P3IM", stream<2, 3, 0>(), 1,
          [&] { vekrMul_32f_C1P3IM(s.data(), mask.data(), v.p, kN); });
    Aligned<int> maskRandom(kN);
    fillMask(maskRandom.data(), rng, true);
    b.run("  random mask groups", stream<2, 3, 0>(), 1,
          [&] { vekrMul_32f_C1P3IM(s.data(), maskRandom.data(), v.p, kN); });
    const float k3[3] = {0.5f, 0.25f, 0.125f};
    b.run("vekrAddMulMul_32f_AC1P3IM", stream<5, 3, 0>(), 1,
          [&] { vekrAddMulMul_32f_AC1P3IM(k3, s.data(), a.p, mask.data(), c.p, kN); });
    std::printf("(no 4-wide path)\n");
    b.run("vekrMul_32f_C1IM", stream<2, 1, 0>(), 1,
          [&] { vekrMul_32f_C1IM(s.data(), mask.data(), x.data(), kN); });
    b.run("vekrDiv_32f_C1IM", stream<2, 1, 0>(), 1,
          [&] { vekrDiv_32f_C1IM(s.data(), mask.data(), x.data(), kN); });
    return 0;
}
