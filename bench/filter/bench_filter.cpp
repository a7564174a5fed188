// Speed of vekrFilter_16s_C1PV on a 256^3 int16 volume with 3x3x3 and 5x5x5
// binomial kernels, one thread, beside scipy.ndimage.convolve on the same
// data in the same run.  Reports voxels per second and multiply-adds per TSC
// cycle, medians of several runs, for the export and for each instruction-set
// level of the pair kernels.
//
//   build/bench/filter/bench_filter [size] [runs]
#include <unistd.h>
#include <x86intrin.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "core/isa.h"
#include "vekr.h"
#include "volume/filter.h"

namespace {

constexpr int kBorder = 2;  // enough for 5x5x5 with the centre as anchor

// Time this thread actually ran: other work on the shared cores then slows
// the figures less than wall time would.
double threadSeconds()
{
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return ts.tv_sec + ts.tv_nsec * 1e-9;
}

// Cycles are counted at the constant TSC rate of the machine (2.25 GHz).
double tscHz()
{
    const unsigned long long c0 = __rdtsc();
    const auto t0 = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - t0 < std::chrono::milliseconds(50)) {
    }
    const unsigned long long c1 = __rdtsc();
    return double(c1 - c0) / std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}
double kTscHz = 0;

struct Timing {
    double seconds;
    double tscCycles;
};

template <class F>
Timing median(int runs, F&& f)
{
    std::vector<Timing> t;
    for (int r = 0; r < runs; ++r) {
        const double t0 = threadSeconds();
        f();
        const double t1 = threadSeconds();
        t.push_back({t1 - t0, (t1 - t0) * kTscHz});
    }
    std::sort(t.begin(), t.end(), [](const Timing& a, const Timing& b) { return a.seconds < b.seconds; });
    return t[t.size() / 2];
}

double scipySeconds(const std::string& vol, int n, const std::vector<int32_t>& kernel, int k, int runs)
{
    const std::string ker = vol + ".kernel";
    FILE* f = std::fopen(ker.c_str(), "wb");
    if (!f) return -1;
    std::fwrite(kernel.data(), 4, kernel.size(), f);
    std::fclose(f);
    const std::string cmd = "OMP_NUM_THREADS=1 /usr/bin/python3 " VEKR_SCIPY_SCRIPT " " + vol + " " +
                            std::to_string(n) + " " + ker + " " + std::to_string(k) + " " +
                            std::to_string(runs) + " 2>/dev/null";
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return -1;
    double s = -1;
    if (std::fscanf(p, "%lf", &s) != 1) s = -1;
    pclose(p);
    std::remove(ker.c_str());
    return s;
}

std::vector<int32_t> binomialCube(int k)
{
    const std::vector<int32_t> row = k == 3 ? std::vector<int32_t>{1, 2, 1}
                                            : std::vector<int32_t>{1, 4, 6, 4, 1};
    std::vector<int32_t> out;
    for (int z = 0; z < k; ++z)
        for (int y = 0; y < k; ++y)
            for (int x = 0; x < k; ++x) out.push_back(row[z] * row[y] * row[x]);
    return out;
}

}  // namespace

int main(int argc, char** argv)
{
    const int n = argc > 1 ? std::atoi(argv[1]) : 256;
    const int runs = argc > 2 ? std::atoi(argv[2]) : 5;
    const int padded = n + 2 * kBorder;
    kTscHz = tscHz();

    // Source with a border of 2 voxels on every side, one block per slice.
    std::mt19937 rng(1);
    std::uniform_int_distribution<int> val(-2000, 2000);
    std::vector<std::vector<int16_t>> slices(padded, std::vector<int16_t>(size_t(padded) * padded));
    for (auto& s : slices)
        for (auto& v : s) v = static_cast<int16_t>(val(rng));
    std::vector<const int16_t*> srcPtr(padded);
    for (int z = 0; z < padded; ++z) srcPtr[z] = slices[z].data() + kBorder * padded + kBorder;
    const int16_t* const* src = srcPtr.data() + kBorder;

    std::vector<std::vector<int16_t>> out(n, std::vector<int16_t>(size_t(n) * n));
    std::vector<int16_t*> dstPtr(n);
    for (int z = 0; z < n; ++z) dstPtr[z] = out[z].data();

    // The interior n^3 block for scipy.
    const std::string volPath = "/tmp/vekr_bench_filter_" + std::to_string(getpid()) + ".raw";
    {
        FILE* f = std::fopen(volPath.c_str(), "wb");
        for (int z = 0; z < n; ++z)
            for (int y = 0; y < n; ++y) std::fwrite(src[z] + size_t(y) * padded, 2, n, f);
        std::fclose(f);
    }

    std::printf("volume %d^3 int16, one thread, median of %d runs\n", n, runs);
    std::printf("%-8s %-10s %12s %14s %12s %10s\n", "kernel", "code", "Mvox/s", "madd/TSCcycle",
                "scipy Mvox/s", "x scipy");
    const double voxels = double(n) * n * n;
    for (int k : {3, 5}) {
        const std::vector<int32_t> kernel = binomialCube(k);
        const int divisor = k == 3 ? 64 : 4096;
        const int32_t anchor[3] = {k / 2, k / 2, k / 2};
        const VekVolumeSize roi{n, n, n}, ks{k, k, k};
        int size = 0;
        vekrFilterGetBufSize(&roi, &ks, 1, &size);
        std::vector<uint8_t> buffer(size);

        const double scipy = scipySeconds(volPath, n, kernel, k, runs);
        const double scipyRate = scipy > 0 ? voxels / scipy / 1e6 : 0;

        auto report = [&](const char* code, Timing t) {
            const double rate = voxels / t.seconds / 1e6;
            std::printf("%dx%dx%d    %-10s %12.1f %14.2f %12.1f %10.1f\n", k, k, k, code, rate,
                        voxels * k * k * k / t.tscCycles, scipyRate,
                        scipyRate > 0 ? rate / scipyRate : 0.0);
        };
        report("export", median(runs, [&] {
                   vekrFilter_16s_C1PV(src, padded * 2, dstPtr.data(), n * 2, &roi, kernel.data(),
                                       &ks, anchor, divisor, buffer.data());
               }));
        for (vekr::Isa isa : {vekr::Isa::Sse41, vekr::Isa::Avx2, vekr::Isa::Avx512}) {
            if (!vekr::isaSupported(isa)) continue;
            report(vekr::isaName(isa), median(runs, [&] {
                       vekr::filter::run(src, padded, dstPtr.data(), n, roi, kernel.data(), ks,
                                         anchor, divisor, buffer.data(), isa);
                   }));
        }
        if (scipy <= 0) std::printf("(scipy not available)\n");
    }
    std::remove(volPath.c_str());
    return 0;
}
