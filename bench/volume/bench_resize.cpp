// Volume resize benchmark: 256^3 volumes of uint8, uint16 and float32
// scaled by 1.5 and 0.5 with nearest, linear and Catmull-Rom cubic on 1 and
// 2 threads; beside scipy.ndimage.zoom on the same data and beside the time
// a single-thread memset bandwidth needs to read the source and write the
// destination.  Also the real volume skull_2.9.inr.
//
// usage: bench_volume [--no-scipy] [--reps N] [--type uint8|uint16|float32] [--mode 1|2|6]
//                     [--no-skull]
#include <omp.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <cmath>
#include <unistd.h>
#include <string>
#include <vector>

#include "testutil.h"
#include "vekr.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::time_point a, Clock::time_point b)
{
    return std::chrono::duration<double>(b - a).count();
}

template <class F>
double median(int reps, F&& f)
{
    std::vector<double> t;
    for (int r = 0; r < reps; ++r) {
        const auto a = Clock::now();
        f();
        t.push_back(seconds(a, Clock::now()));
    }
    std::sort(t.begin(), t.end());
    return t[t.size() / 2];
}

// Single-thread memset bandwidth over a block much larger than the caches.
double memsetBandwidth()
{
    const size_t bytes = size_t(256) << 20;
    vekr::test::Aligned<uint8_t> buf(bytes);
    int k = 0;
    const double t = median(5, [&] { std::memset(buf.data(), ++k, bytes); });
    return bytes / t;
}

VekStatus resize(const uint8_t* s, const VekVolumeSize& v, const VekCuboid& sv, uint8_t* d,
                 const VekCuboid& dv, double f, int mode, uint8_t* b)
{
    return vekrResize_8u_C1V(s, &v, v.width, v.width * v.height, &sv, d, dv.width,
                             dv.width * dv.height, &dv, f, f, f, 0, 0, 0, mode, b);
}
VekStatus resize(const uint16_t* s, const VekVolumeSize& v, const VekCuboid& sv, uint16_t* d,
                 const VekCuboid& dv, double f, int mode, uint8_t* b)
{
    return vekrResize_16u_C1V(s, &v, 2 * v.width, 2 * v.width * v.height, &sv, d, 2 * dv.width,
                              2 * dv.width * dv.height, &dv, f, f, f, 0, 0, 0, mode, b);
}
VekStatus resize(const float* s, const VekVolumeSize& v, const VekCuboid& sv, float* d,
                 const VekCuboid& dv, double f, int mode, uint8_t* b)
{
    return vekrResize_32f_C1V(s, &v, 4 * v.width, 4 * v.width * v.height, &sv, d, 4 * dv.width,
                              4 * dv.width * dv.height, &dv, f, f, f, 0, 0, 0, mode, b);
}

const char* modeName(int m) { return m == 1 ? "nearest" : m == 2 ? "linear" : "catmull-rom"; }
int scipyOrder(int m) { return m == 1 ? 0 : m == 2 ? 1 : 3; }
template <class T>
const char* typeName()
{
    return sizeof(T) == 1 ? "uint8" : sizeof(T) == 2 ? "uint16" : "float32";
}

double scipyTime(const std::string& file, const char* dtype, int n, double zoom, int order, int reps)
{
    const std::string cmd = std::string("/usr/bin/python3 ") + VEKR_SCIPY_SCRIPT + " " + file +
                            " " + dtype + " " + std::to_string(n) + " " + std::to_string(zoom) +
                            " " + std::to_string(order) + " " + std::to_string(reps);
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return 0;
    char line[128] = {};
    const bool ok = std::fgets(line, sizeof line, p) != nullptr;
    pclose(p);
    return ok ? std::atof(line) : 0;
}

struct Options {
    bool scipy = true;
    int reps = 5;
    std::string type;  // only this type ("uint8", ...) when set
    int mode = 0;      // only this mode when set
    bool skull = true;
};

template <class T>
void benchType(const Options& opt, double bandwidth)
{
    if (!opt.type.empty() && opt.type != typeName<T>()) return;
    const int n = 256;
    const VekVolumeSize vol{n, n, n};
    std::vector<T> src(size_t(n) * n * n);
    // Smooth content with some noise, in each type's range.
    std::mt19937 rng(7);
    for (int z = 0; z < n; ++z)
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x) {
                const double v = 0.5 + 0.25 * std::sin(x * 0.05) * std::cos(y * 0.07) +
                                 0.2 * std::sin(z * 0.03) + 0.05 * (rng() & 1023) / 1023.0;
                src[(size_t(z) * n + y) * n + x] =
                    sizeof(T) == 4 ? T(v * 1000) : T(v * (sizeof(T) == 1 ? 255 : 65535));
            }
    const std::string file = "/tmp/vekr_bench_volume_" + std::to_string(getpid()) + ".raw";
    if (opt.scipy) {
        std::ofstream out(file, std::ios::binary);
        out.write(reinterpret_cast<const char*>(src.data()), std::streamsize(src.size() * sizeof(T)));
    }
    for (double f : {1.5, 0.5}) {
        const int m = int(n * f);
        const VekCuboid sv{0, 0, 0, n, n, n}, dv{0, 0, 0, m, m, m};
        std::vector<T> dst(size_t(m) * m * m, T(1));  // touched once, reused
        const double outVox = double(m) * m * m;
        const double limit = (src.size() * sizeof(T) + outVox * sizeof(T)) / bandwidth;
        for (int mode : {1, 2, 6}) {
            if (opt.mode && mode != opt.mode) continue;
            double t[2] = {};
            for (int threads : {1, 2}) {
                omp_set_num_threads(threads);
                int size = 0;
                vekrResizeGetBufSize(&sv, &dv, 1, mode, &size);
                std::vector<uint8_t> buf(size);
                if (resize(src.data(), vol, sv, dst.data(), dv, f, mode, buf.data()) != vekStsOk)
                    std::printf("resize failed\n");
                t[threads - 1] = median(opt.reps, [&] {
                    resize(src.data(), vol, sv, dst.data(), dv, f, mode, buf.data());
                });
            }
            double ts = 0;
            if (opt.scipy && (mode != 6 || (sizeof(T) == 4) || f < 1))
                ts = scipyTime(file, typeName<T>(), n, f, scipyOrder(mode), mode == 6 && f > 1 ? 1 : 3);
            std::printf("| %-7s | %3.1f | %-11s | %7.1f | %7.1f | %7.1f | %5.1f | %6.2f | ", typeName<T>(), f,
                        modeName(mode), t[0] * 1e3, outVox / t[0] * 1e-6, outVox / t[1] * 1e-6,
                        limit * 1e3, t[0] / limit);
            if (ts > 0)
                std::printf("%7.1f | %6.1fx |\n", outVox / ts * 1e-6, ts / t[0]);
            else
                std::printf("      - |       - |\n");
            std::fflush(stdout);
        }
    }
    if (opt.scipy) std::remove(file.c_str());
}

void benchSkull(const Options& opt)
{
    std::ifstream in(vekr::test::dataFile("skull_2.9.inr"), std::ios::binary);
    if (!in) {
        std::printf("\nskull_2.9.inr not present (bash scripts/fetch-data.sh)\n");
        return;
    }
    const int n = 64;
    std::vector<float> src(size_t(n) * n * n);
    in.seekg(256);
    in.read(reinterpret_cast<char*>(src.data()), std::streamsize(src.size() * 4));
    const VekVolumeSize vol{n, n, n};
    std::printf("\nskull_2.9.inr (64^3 float32), 1 thread:\n\n");
    std::printf("| factor | mode | ms | Mvox/s |\n|---|---|---|---|\n");
    omp_set_num_threads(1);
    for (double f : {1.5, 0.5, 4.0})
        for (int mode : {1, 2, 6}) {
            const int m = int(n * f);
            const VekCuboid sv{0, 0, 0, n, n, n}, dv{0, 0, 0, m, m, m};
            std::vector<float> dst(size_t(m) * m * m);
            int size = 0;
            vekrResizeGetBufSize(&sv, &dv, 1, mode, &size);
            std::vector<uint8_t> buf(size);
            resize(src.data(), vol, sv, dst.data(), dv, f, mode, buf.data());
            const double t = median(opt.reps * 3, [&] {
                resize(src.data(), vol, sv, dst.data(), dv, f, mode, buf.data());
            });
            std::printf("| %3.1f | %s | %.2f | %.1f |\n", f, modeName(mode), t * 1e3,
                        double(m) * m * m / t * 1e-6);
        }
}

}  // namespace

int main(int argc, char** argv)
{
    Options opt;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--no-scipy")) opt.scipy = false;
        if (!std::strcmp(argv[i], "--reps") && i + 1 < argc) opt.reps = std::atoi(argv[++i]);
        if (!std::strcmp(argv[i], "--type") && i + 1 < argc) opt.type = argv[++i];
        if (!std::strcmp(argv[i], "--mode") && i + 1 < argc) opt.mode = std::atoi(argv[++i]);
        if (!std::strcmp(argv[i], "--no-skull")) opt.skull = false;
    }
    const double bw = memsetBandwidth();
    std::printf("memset bandwidth (1 thread): %.2f GB/s\n\n", bw * 1e-9);
    std::printf("| type | factor | mode | ms (1 thr) | Mvox/s 1 thr | Mvox/s 2 thr | bandwidth limit ms | "
                "x limit | scipy Mvox/s | vekr / scipy |\n|---|---|---|---|---|---|---|---|---|---|\n");
    benchType<uint8_t>(opt, bw);
    benchType<uint16_t>(opt, bw);
    benchType<float>(opt, bw);
    if (opt.skull) benchSkull(opt);
    return 0;
}
