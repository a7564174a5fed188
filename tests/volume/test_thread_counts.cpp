// Results do not depend on the thread count: the threaded volume functions
// (every element type and mode), the filter and the triangle normals give
// the same bytes on 1, 2 and 3 threads.  (The KD build fixes its own thread
// counts; tests/accel compares it with and without nested threads.)  And
// the resize's per-thread shares of the work buffer, as the resize computes
// them, are disjoint and lie inside the size the query reports.
#include <gtest/gtest.h>
#include <omp.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "vekr.h"
#include "volume/bufsize.h"
#include "volume/resize_plan.h"

namespace {

// The bytes that run() leaves in its output, on 1, 2 and 3 threads.
void expectSameOnThreads(const std::function<std::vector<uint8_t>()>& run, const char* what)
{
    const int saved = omp_get_max_threads();
    std::vector<uint8_t> out[3];
    for (int t = 1; t <= 3; ++t) {
        omp_set_num_threads(t);
        out[t - 1] = run();
    }
    omp_set_num_threads(saved);
    EXPECT_FALSE(out[0].empty());
    EXPECT_EQ(out[0], out[1]) << what;
    EXPECT_EQ(out[0], out[2]) << what;
}

// A volume of w x h x d elements with padded rows, as slice pointers, filled
// with values in [lo, hi).
template <class T>
struct Vol {
    int w, h, d, row;
    std::vector<T> data;
    std::vector<T*> slices;
    Vol(int w_, int h_, int d_, unsigned seed, float lo = 0, float hi = 250)
        : w(w_), h(h_), d(d_), row(w_ + 3), data(size_t(row) * h * d)
    {
        std::mt19937 rng(seed);
        for (T& v : data) v = T(std::uniform_real_distribution<float>(lo, hi)(rng));
        for (int z = 0; z < d; ++z) slices.push_back(&data[size_t(z) * row * h]);
    }
    int step() const { return row * int(sizeof(T)); }
    const T* const* src() const { return slices.data(); }
    std::vector<uint8_t> bytes() const
    {
        const auto* p = reinterpret_cast<const uint8_t*>(data.data());
        return std::vector<uint8_t>(p, p + data.size() * sizeof(T));
    }
};

// The warp and the remap of one element type, every mode; the maps point
// partly outside the source.
template <class T, class Warp, class Remap>
void warpAndRemapOnThreads(Warp warp, Remap remap)
{
    const Vol<T> src(23, 21, 19, 5);
    const VekVolumeSize vol{23, 21, 19}, roi{18, 17, 20};
    const VekCuboid sv{1, 0, 2, 21, 21, 16}, dv{0, 0, 1, 18, 17, 19};
    const Vol<float> mx(18, 17, 20, 6, -1, 24), my(18, 17, 20, 7, -1, 22), mz(18, 17, 20, 8, -1, 20);
    const double c[3][4] = {{0.9, 0.2, 0.0, 1.5}, {-0.15, 1.05, 0.1, -0.5}, {0.05, 0.0, 0.95, 0.7}};
    for (int mode : {1, 2, 4, 5, 6, 7}) {
        expectSameOnThreads([&] {
            Vol<T> dst(18, 17, 20, 9);
            EXPECT_EQ(warp(src.src(), &vol, src.step(), &sv, dst.slices.data(), dst.step(), &dv, c, mode), vekStsOk);
            return dst.bytes();
        }, "warp");
        expectSameOnThreads([&] {
            Vol<T> dst(18, 17, 20, 9);
            EXPECT_EQ(remap(src.src(), &vol, src.step(), &sv, mx.src(), my.src(), mz.src(), mx.step(),
                            dst.slices.data(), dst.step(), &roi, mode),
                      vekStsOk);
            return dst.bytes();
        }, "remap");
    }
}

TEST(ThreadCounts, WarpAndRemapEveryTypeAndMode)
{
    warpAndRemapOnThreads<uint8_t>(vekrWarpAffine_8u_C1PV, vekrRemap_8u_C1PV);
    warpAndRemapOnThreads<uint16_t>(vekrWarpAffine_16u_C1PV, vekrRemap_16u_C1PV);
    warpAndRemapOnThreads<float>(vekrWarpAffine_32f_C1PV, vekrRemap_32f_C1PV);
}

TEST(ThreadCounts, ResizeFilterAndNormals)
{
    const Vol<float> src(24, 20, 19, 11);
    const VekVolumeSize vol{24, 20, 19};
    const VekCuboid sv{0, 0, 0, 24, 20, 19}, dv{2, 1, 0, 38, 33, 35};
    const int dstRow = 41, dstSlice = 41 * 34;
    for (int mode : {1, 2, 4, 5, 6, 7}) {
        expectSameOnThreads([&] {
            int size = 0;
            EXPECT_EQ(vekrResizeGetBufSize(&sv, &dv, 1, mode, &size), vekStsOk);
            std::vector<uint8_t> buf(size);
            std::vector<float> dst(size_t(dstSlice) * 35, -3.0f);
            EXPECT_EQ(vekrResize_32f_C1V(src.data.data(), &vol, src.step(), src.step() * 20, &sv,
                                         dst.data(), dstRow * 4, dstSlice * 4, &dv, 1.6, 1.5, 1.7,
                                         0.25, 0, -0.4, mode, buf.data()),
                      vekStsOk);
            const auto* p = reinterpret_cast<const uint8_t*>(dst.data());
            return std::vector<uint8_t>(p, p + dst.size() * 4);
        }, "resize");
    }
    const Vol<int16_t> fsrc(30, 24, 22, 12);
    const int32_t kernel[27] = {1, -2, 3, 4, 5, 6, -7, 8, 9, 1, 2, 3, 4, 50, 6, 7, 8, 9,
                                -1, 2, 3, 4, 5, 6, 7, 8, 9};
    const VekVolumeSize roi{26, 20, 18}, ks{3, 3, 3};
    const int32_t anchor[3] = {1, 1, 1};
    expectSameOnThreads([&] {
        Vol<int16_t> dst(26, 20, 18, 13);
        int size = 0;
        EXPECT_EQ(vekrFilterGetBufSize(&roi, &ks, 1, &size), vekStsOk);
        std::vector<uint8_t> buf(size);
        std::vector<const int16_t*> s;
        for (int z = -1; z < 19; ++z) s.push_back(fsrc.slices[z + 2] + 2 * fsrc.row + 2);
        EXPECT_EQ(vekrFilter_16s_C1PV(s.data() + 1, fsrc.step(), dst.slices.data(), dst.step(), &roi,
                                      kernel, &ks, anchor, 7, buf.data()),
                  vekStsOk);
        return dst.bytes();
    }, "filter");
    std::mt19937 rng(3);
    std::vector<float> vertices(3 * 2000);
    for (float& v : vertices) v = std::uniform_real_distribution<float>(-1.0f, 1.0f)(rng);
    std::vector<int> tri(4 * 5001);
    for (int& i : tri) i = int(rng() % 2000);
    expectSameOnThreads([&] {
        std::vector<float> n(3 * 5001);
        EXPECT_EQ(vekrTriangleNormal_32f(vertices.data(), tri.data(), n.data(), 5001), vekStsOk);
        const auto* p = reinterpret_cast<const uint8_t*>(n.data());
        return std::vector<uint8_t>(p, p + n.size() * 4);
    }, "normals");
}

// For plans of every mode and buffers at every address mod 64: a share
// never needs more than the per-thread size of its box, and with the size
// the query reports for up to 4 threads every team of up to 4 gets shares
// that are disjoint and inside the buffer.
TEST(ThreadCounts, ResizeSharesAreDisjointAndInsideTheBuffer)
{
    using namespace vekr::volume;
    const VekVolumeSize vol{40, 30, 20};
    const VekCuboid src{0, 0, 0, 40, 30, 20};
    const int saved = omp_get_max_threads();
    const double factors[][3] = {{1, 1, 1}, {0.4, 2.5, 1.3}, {3.1, 0.2, 0.9}};
    int plans = 0;
    for (const auto& f : factors)
        for (const VekCuboid& dst : {VekCuboid{0, 0, 0, 17, 16, 33}, VekCuboid{3, 5, 1, 130, 61, 19},
                                     VekCuboid{0, 0, 0, 1, 1, 1}})
            for (int mode : {1, 2, 4, 5, 6, 7}) {
                const double shift[3] = {0.5, 1.25, 0};
                ResizePlan plan;
                const VekStatus st =
                    planResize(&vol, &vol, &src, &vol, &dst, f, shift, mode, &vol, plan);
                if (st == vekStsEmptyDestination) continue;
                ASSERT_EQ(st, vekStsOk);
                ++plans;
                const int64_t perBox = resizeBufferPerThread(plan.x.count(), plan.y.count(),
                                                             plan.z.count(), mode);
                for (uintptr_t base = 4096; base < 4096 + 64; ++base)
                    ASSERT_LE(resizeWorkBytes(base, plan), perBox) << mode;
                for (int threads = 1; threads <= 4; ++threads) {
                    omp_set_num_threads(threads);
                    int total = 0;
                    ASSERT_EQ(vekrResizeGetBufSize(&src, &dst, 1, mode, &total), vekStsOk);
                    for (int team = 1; team <= threads; ++team)
                        for (uintptr_t base : {uintptr_t{4096}, uintptr_t{4096 + 17}}) {
                            int64_t previousEnd = 0;
                            for (int t = 0; t < team; ++t) {
                                const ShareSpan s = resizeShare(base, total, t, team, plan);
                                EXPECT_GE(s.begin, previousEnd);
                                EXPECT_LE(s.end, total);
                                previousEnd = s.end;
                            }
                            EXPECT_TRUE(sharesFit(base, total, team, plan));
                        }
                }
            }
    omp_set_num_threads(saved);
    EXPECT_EQ(plans, 36);
}

}  // namespace
