// Speed of the affine warp (256^3, rotation about z with a shear and a
// translation) and the remap (a 256^3 source read through smooth random maps
// into a 128^3 block), nearest, linear and cubic B-spline, uint8 and float32,
// on 1 and 2 threads, beside scipy.ndimage.affine_transform and
// map_coordinates (orders 0, 1, 3 with prefilter=False) on the same data in
// the same run.  One-thread figures are process CPU time, two-thread figures
// wall time; medians of several runs.
//
//   build/bench/warp/bench_warp [warpSize] [remapSize] [runs] [scipyRuns]
#include <omp.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "vekr.h"
#include "volume/warp.h"

namespace {

double processSeconds()
{
    timespec ts;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return ts.tv_sec + ts.tv_nsec * 1e-9;
}

double wallSeconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

template <class F>
double median(int runs, bool cpu, F&& f)
{
    std::vector<double> t;
    for (int r = 0; r < runs; ++r) {
        const double t0 = cpu ? processSeconds() : wallSeconds();
        f();
        t.push_back((cpu ? processSeconds() : wallSeconds()) - t0);
    }
    std::sort(t.begin(), t.end());
    return t[t.size() / 2];
}

double runScipy(const std::string& args)
{
    const std::string cmd = "OMP_NUM_THREADS=1 /usr/bin/python3 " VEKR_SCIPY_SCRIPT " " + args + " 2>/dev/null";
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return -1;
    double s = -1;
    if (std::fscanf(p, "%lf", &s) != 1) s = -1;
    pclose(p);
    return s;
}

template <class T>
struct Volume {
    int n;
    std::vector<T> data;
    std::vector<T*> slices;
    explicit Volume(int size) : n(size), data(size_t(size) * size * size), slices(size)
    {
        for (int z = 0; z < n; ++z) slices[z] = data.data() + size_t(z) * n * n;
    }
    void save(const std::string& path) const
    {
        FILE* f = std::fopen(path.c_str(), "wb");
        std::fwrite(data.data(), sizeof(T), data.size(), f);
        std::fclose(f);
    }
};

// A smooth random volume (sum of a few waves), values 0..255.
template <class T>
void fillSmooth(Volume<T>& v, std::mt19937& rng)
{
    std::uniform_real_distribution<float> ph(0, 6.28f), fr(0.02f, 0.2f);
    const float p[3] = {ph(rng), ph(rng), ph(rng)}, f[3] = {fr(rng), fr(rng), fr(rng)};
    for (int z = 0; z < v.n; ++z)
        for (int y = 0; y < v.n; ++y)
            for (int x = 0; x < v.n; ++x) {
                const float s = std::sin(f[0] * x + p[0]) + std::sin(f[1] * y + p[1]) + std::sin(f[2] * z + p[2]);
                v.data[(size_t(z) * v.n + y) * v.n + x] = static_cast<T>(127.5f + 42.0f * s);
            }
}

const char* typeName(uint8_t*) { return "uint8"; }
const char* typeName(float*) { return "float32"; }

VekStatus warpCall(const Volume<uint8_t>& s, Volume<uint8_t>& d, const double c[3][4], int mode)
{
    const VekVolumeSize vs{s.n, s.n, s.n};
    const VekCuboid sv{0, 0, 0, s.n, s.n, s.n}, dv{0, 0, 0, d.n, d.n, d.n};
    return vekrWarpAffine_8u_C1PV(s.slices.data(), &vs, s.n, &sv, d.slices.data(), d.n, &dv, c, mode);
}
VekStatus warpCall(const Volume<float>& s, Volume<float>& d, const double c[3][4], int mode)
{
    const VekVolumeSize vs{s.n, s.n, s.n};
    const VekCuboid sv{0, 0, 0, s.n, s.n, s.n}, dv{0, 0, 0, d.n, d.n, d.n};
    return vekrWarpAffine_32f_C1PV(s.slices.data(), &vs, s.n * 4, &sv, d.slices.data(), d.n * 4, &dv, c, mode);
}
VekStatus remapCall(const Volume<uint8_t>& s, const std::vector<Volume<float>>& m, Volume<uint8_t>& d, int mode)
{
    const VekVolumeSize vs{s.n, s.n, s.n}, roi{d.n, d.n, d.n};
    const VekCuboid sv{0, 0, 0, s.n, s.n, s.n};
    return vekrRemap_8u_C1PV(s.slices.data(), &vs, s.n, &sv, m[0].slices.data(), m[1].slices.data(),
                             m[2].slices.data(), d.n * 4, d.slices.data(), d.n, &roi, mode);
}
VekStatus remapCall(const Volume<float>& s, const std::vector<Volume<float>>& m, Volume<float>& d, int mode)
{
    const VekVolumeSize vs{s.n, s.n, s.n}, roi{d.n, d.n, d.n};
    const VekCuboid sv{0, 0, 0, s.n, s.n, s.n};
    return vekrRemap_32f_C1PV(s.slices.data(), &vs, s.n * 4, &sv, m[0].slices.data(), m[1].slices.data(),
                              m[2].slices.data(), d.n * 4, d.slices.data(), d.n * 4, &roi, mode);
}

struct Row {
    const char* what;
    const char* type;
    const char* mode;
    double one, two, scipy;
};

void print(const Row& r)
{
    std::printf("%-7s %-8s %-8s %10.1f %10.1f %10.1f %8.1f\n", r.what, r.type, r.mode, r.one, r.two,
                r.scipy, r.scipy > 0 ? r.one / r.scipy : 0.0);
    std::fflush(stdout);
}

const int kModes[3] = {vekInterNearest, vekInterLinear, vekInterCubicBSpline};
const int kOrders[3] = {0, 1, 3};
const char* kModeNames[3] = {"nearest", "linear", "cubic"};

template <class T>
void benchType(int nw, int nr, int runs, int scipyRuns, std::mt19937& rng)
{
    const std::string tag = "/tmp/vekr_bench_warp_" + std::to_string(getpid());
    const double voxW = double(nw) * nw * nw, voxR = double(nr) * nr * nr;
    T* tp = nullptr;
    const char* tn = typeName(tp);
    const int saved = omp_get_max_threads();

    // Affine warp of an nw^3 volume onto itself.
    Volume<T> src(nw), dst(nw);
    fillSmooth(src, rng);
    src.save(tag + ".src");
    const double a = 0.35, c0 = std::cos(a), s0 = std::sin(a), h = nw / 2.0;
    // Rotation about z around the centre, a shear of x by z, a small translation.
    const double coeffs[3][4] = {{c0, -s0, 0.12, h - c0 * h + s0 * h - 0.12 * h + 3.3},
                                 {s0, c0, 0.0, h - s0 * h - c0 * h - 2.1},
                                 {0.0, 0.05, 1.0, -0.05 * h + 0.7}};
    const vekr::volume::AffineInverse inv = vekr::volume::invertAffine(coeffs);
    std::string margs;
    for (double v : inv.m) margs += " " + std::to_string(v);
    for (int k = 0; k < 3; ++k) {
        Row r{"affine", tn, kModeNames[k], 0, 0, 0};
        omp_set_num_threads(1);
        r.one = voxW / median(runs, true, [&] { warpCall(src, dst, coeffs, kModes[k]); }) / 1e6;
        omp_set_num_threads(2);
        r.two = voxW / median(runs, false, [&] { warpCall(src, dst, coeffs, kModes[k]); }) / 1e6;
        const double sp = runScipy(std::string("affine ") + tn + " " + std::to_string(nw) + " " +
                                   std::to_string(kOrders[k]) + " " + std::to_string(scipyRuns) +
                                   " " + tag + ".src" + margs);
        r.scipy = sp > 0 ? voxW / sp / 1e6 : 0;
        print(r);
    }

    // Remap: the same source read through smooth random maps into nr^3.
    std::vector<Volume<float>> maps;
    for (int a2 = 0; a2 < 3; ++a2) maps.emplace_back(nr);
    std::uniform_real_distribution<float> ph(0, 6.28f);
    const float p[3] = {ph(rng), ph(rng), ph(rng)};
    const float scale = float(nw - 1) / float(nr);
    for (int k = 0; k < nr; ++k)
        for (int j = 0; j < nr; ++j)
            for (int i = 0; i < nr; ++i) {
                const size_t at = (size_t(k) * nr + j) * nr + i;
                maps[0].data[at] = i * scale + 3.0f * std::sin(0.05f * j + p[0]) + 2.0f;
                maps[1].data[at] = j * scale + 3.0f * std::sin(0.04f * k + p[1]) + 2.0f;
                maps[2].data[at] = k * scale + 3.0f * std::sin(0.06f * i + p[2]) + 2.0f;
            }
    {
        FILE* f = std::fopen((tag + ".maps").c_str(), "wb");
        for (auto& m : maps) std::fwrite(m.data.data(), 4, m.data.size(), f);
        std::fclose(f);
    }
    Volume<T> rdst(nr);
    for (int k = 0; k < 3; ++k) {
        Row r{"remap", tn, kModeNames[k], 0, 0, 0};
        omp_set_num_threads(1);
        r.one = voxR / median(runs, true, [&] { remapCall(src, maps, rdst, kModes[k]); }) / 1e6;
        omp_set_num_threads(2);
        r.two = voxR / median(runs, false, [&] { remapCall(src, maps, rdst, kModes[k]); }) / 1e6;
        const double sp = runScipy(std::string("remap ") + tn + " " + std::to_string(nw) + " " +
                                   std::to_string(kOrders[k]) + " " + std::to_string(scipyRuns) +
                                   " " + tag + ".src " + tag + ".maps " + std::to_string(nr));
        r.scipy = sp > 0 ? voxR / sp / 1e6 : 0;
        print(r);
    }
    omp_set_num_threads(saved);
    std::remove((tag + ".src").c_str());
    std::remove((tag + ".maps").c_str());
}

}  // namespace

int main(int argc, char** argv)
{
    const int nw = argc > 1 ? std::atoi(argv[1]) : 256;
    const int nr = argc > 2 ? std::atoi(argv[2]) : 128;
    const int runs = argc > 3 ? std::atoi(argv[3]) : 5;
    const int scipyRuns = argc > 4 ? std::atoi(argv[4]) : 3;
    std::printf("affine warp %d^3 -> %d^3, remap %d^3 source -> %d^3; Mvox/s (medians)\n", nw, nw, nw, nr);
    std::printf("%-7s %-8s %-8s %10s %10s %10s %8s\n", "kind", "type", "mode", "1 thread", "2 threads",
                "scipy", "x scipy");
    std::mt19937 rng(5);
    benchType<uint8_t>(nw, nr, runs, scipyRuns, rng);
    benchType<float>(nw, nr, runs, scipyRuns, rng);
    return 0;
}
