// Spherical-harmonic throughput on one thread (directions per second,
// median of several runs): vekrSH_32f with both methods, the transforms,
// beside a plain double-precision recurrence written the obvious way and
// beside the memory-bandwidth limit of the output (a memset of as many
// bytes as the basis fills).  Times are the calling thread's CPU time.
//
//   bench_sh [runs]
#include <algorithm>
#include <ctime>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "testutil.h"
#include "vekr.h"

namespace {

// CPU time of the calling thread: the machine is shared with compilers, so
// wall time would mostly measure them.
double threadSeconds()
{
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + 1e-9 * double(ts.tv_nsec);
}

double medianSeconds(int runs, const std::function<void()>& fn)
{
    fn();  // warm-up
    std::vector<double> t;
    for (int i = 0; i < runs; ++i) {
        const double a = threadSeconds();
        fn();
        t.push_back(threadSeconds() - a);
    }
    std::sort(t.begin(), t.end());
    return t[t.size() / 2];
}

// The peer: associated Legendre functions by the usual recurrence in l with
// precomputed normalised factors, the azimuthal part from powers of x + iy,
// everything in double, stored as float.
struct PlainRecurrence {
    int L;
    std::vector<double> a, b, k;  // per (l, m): recurrence factors; per m: sectoral factor
    explicit PlainRecurrence(int order) : L(order), a((order + 1) * (order + 1)), b(a.size()), k(order + 1)
    {
        const double pi = 3.14159265358979323846;
        for (int m = 0; m <= L; ++m) {
            double kk = std::sqrt(1.0 / (4 * pi));
            for (int i = 1; i <= m; ++i) kk *= -std::sqrt((2.0 * i + 1) / (2.0 * i));
            k[m] = m ? kk * std::sqrt(2.0) : kk;
            for (int l = m + 1; l <= L; ++l) {
                a[l * l + m] = std::sqrt((4.0 * l * l - 1) / (double(l) * l - double(m) * m));
                b[l * l + m] = -std::sqrt(((l - 1.0) * (l - 1) - double(m) * m) /
                                          (4.0 * (l - 1) * (l - 1) - 1));
            }
        }
    }
    void eval(const float* x, const float* y, const float* z, int count, float* out) const
    {
        const int n = (L + 1) * (L + 1);
        for (int i = 0; i < count; ++i) {
            const double xi = x[i], yi = y[i], zi = z[i];
            float* o = out + size_t(i) * n;
            double cr = 1, ci = 0;  // (x + iy)^m
            for (int m = 0; m <= L; ++m) {
                double p2 = 0, p1 = k[m];
                for (int l = m; l <= L; ++l) {
                    double p = p1;
                    if (l > m) {
                        p = a[l * l + m] * (zi * p1 + b[l * l + m] * p2);
                        p2 = p1;
                        p1 = p;
                    }
                    if (m == 0) {
                        o[l * l + l] = float(p);
                    } else {
                        o[l * l + l + m] = float(p * cr);
                        o[l * l + l - m] = float(p * ci);
                    }
                }
                const double r = cr * xi - ci * yi;
                ci = cr * yi + ci * xi;
                cr = r;
            }
        }
    }
};

struct Dirs {
    vekr::test::Aligned<float> x, y, z;
    explicit Dirs(int n) : x(n), y(n), z(n)
    {
        std::mt19937 rng(1);
        std::normal_distribution<double> g;
        for (int i = 0; i < n; ++i) {
            double a = g(rng), b = g(rng), c = g(rng);
            const double r = std::sqrt(a * a + b * b + c * c);
            x[i] = float(a / r);
            y[i] = float(b / r);
            z[i] = float(c / r);
        }
    }
};

struct State {
    std::vector<unsigned char> raw;
    VekrSHState* st;
    State(uint32_t order, VekrSHType type)
    {
        uint32_t size = 0;
        vekrSHGetSize_32f(order, type, &size);
        raw.resize(size + 16);
        st = reinterpret_cast<VekrSHState*>((uintptr_t(raw.data()) + 15) & ~uintptr_t(15));
        vekrSHInit_32f(st, order, type);
    }
};

}  // namespace

int main(int argc, char** argv)
{
    const int runs = argc > 1 ? std::atoi(argv[1]) : 7;
    const int N = 1 << 16;
    Dirs d(N);
    vekr::test::Aligned<float> out(size_t(N) * 256);
    const State direct(15, vekrSHDirect), rec(15, vekrSHRecurrence);

    std::printf("one thread, %d directions, median of %d runs, M directions/s\n", N, runs);
    std::printf("%-4s %10s %10s %12s %12s %12s\n", "L", "direct", "recurrence", "plain double",
                "memset", "memset GB/s");
    for (int L : {3, 7, 15}) {
        const int n = (L + 1) * (L + 1);
        const double tDirect = medianSeconds(runs, [&] {
            vekrSH_32f(d.x.data(), d.y.data(), d.z.data(), N, out.data(), L, direct.st);
        });
        const double tRec = medianSeconds(runs, [&] {
            vekrSH_32f(d.x.data(), d.y.data(), d.z.data(), N, out.data(), L, rec.st);
        });
        const PlainRecurrence plain(L);
        const double tPlain =
            medianSeconds(runs, [&] { plain.eval(d.x.data(), d.y.data(), d.z.data(), N, out.data()); });
        const double tSet = medianSeconds(runs, [&] {
            std::memset(out.data(), runs & 1, size_t(N) * n * 4);
            asm volatile("" ::"r"(out.data()) : "memory");
        });
        std::printf("%-4d %10.2f %10.2f %12.2f %12.2f %12.2f\n", L, N / tDirect * 1e-6,
                    N / tRec * 1e-6, N / tPlain * 1e-6, N / tSet * 1e-6,
                    double(N) * n * 4 / tSet * 1e-9);
    }

    {  // the peer computes the same functions
        const PlainRecurrence plain(15);
        std::vector<float> a(size_t(1024) * 256), b(a.size());
        plain.eval(d.x.data(), d.y.data(), d.z.data(), 1024, a.data());
        vekrSH_32f(d.x.data(), d.y.data(), d.z.data(), 1024, b.data(), 15, direct.st);
        double worst = 0;
        for (size_t i = 0; i < a.size(); ++i) worst = std::max(worst, double(std::fabs(a[i] - b[i])));
        std::printf("largest difference between the peer and the direct method: %.2g\n", worst);
    }

    std::printf("\ntransforms, M directions/s\n");
    std::printf("%-4s %-10s %10s %10s %10s %10s\n", "L", "method", "Fwd_C1I", "Fwd_C3P3I",
                "Inv_C1", "Inv_P3C3");
    std::vector<float> samples(size_t(3) * N, 0.5f), result(size_t(3) * N);
    std::vector<float> coef[3];
    for (auto& c : coef) c.assign(256, 0.0f);
    float* const cs[3] = {coef[0].data(), coef[1].data(), coef[2].data()};
    const float* const ccs[3] = {coef[0].data(), coef[1].data(), coef[2].data()};
    for (int L : {3, 7, 15}) {
        for (const State* s : {&direct, &rec}) {
            const double f1 = medianSeconds(runs, [&] {
                vekrSHTFwd_32f_C1I(d.x.data(), d.y.data(), d.z.data(), samples.data(), N, cs[0],
                                   L, s->st);
            });
            const double f3 = medianSeconds(runs, [&] {
                vekrSHTFwd_32f_C3P3I(d.x.data(), d.y.data(), d.z.data(), samples.data(), N, cs,
                                     L, s->st);
            });
            const double i1 = medianSeconds(runs, [&] {
                vekrSHTInv_32f_C1(ccs[0], L, d.x.data(), d.y.data(), d.z.data(), result.data(),
                                  N, s->st);
            });
            const double i3 = medianSeconds(runs, [&] {
                vekrSHTInv_32f_P3C3(ccs, L, d.x.data(), d.y.data(), d.z.data(), result.data(), N,
                                    s->st);
            });
            std::printf("%-4d %-10s %10.2f %10.2f %10.2f %10.2f\n", L,
                        s == &direct ? "direct" : "recurrence", N / f1 * 1e-6, N / f3 * 1e-6,
                        N / i1 * 1e-6, N / i3 * 1e-6);
        }
    }
    return 0;
}
