// Results do not depend on the thread count: the resize (every mode), the
// filter and the triangle normals give the same bytes on 1, 2 and 3 threads
// (the warp and the remap meet their references on each).  And the resize's
// per-thread shares of the work buffer, as the resize computes
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
#include "volumes.h"

namespace {

using vekr::test::Vol;

// The bytes that run() leaves in its output, on 1, 2 and 3 threads.
void expectSameOnThreads(const std::function<std::vector<uint8_t>()>& run, const char* what)
{
    std::vector<uint8_t> out[3];
    for (int t = 1; t <= 3; ++t) vekr::test::withThreads(t, [&] { out[t - 1] = run(); });
    EXPECT_FALSE(out[0].empty());
    EXPECT_EQ(out[0], out[1]) << what;
    EXPECT_EQ(out[0], out[2]) << what;
}

template <class T>
Vol<T> randomVol(int w, int h, int d, unsigned seed)
{
    Vol<T> v(w, h, d);
    std::mt19937 rng(seed);
    v.fill([&] { return T(std::uniform_real_distribution<float>(0, 250)(rng)); });
    return v;
}

TEST(ThreadCounts, ResizeFilterAndNormals)
{
    const Vol<float> src = randomVol<float>(24, 20, 19, 11);
    const VekVolumeSize vol{24, 20, 19};
    const VekCuboid sv{0, 0, 0, 24, 20, 19}, dv{2, 1, 0, 38, 33, 35};
    for (int mode : {1, 2, 4, 5, 6, 7}) {
        expectSameOnThreads([&] {
            int size = 0;
            EXPECT_EQ(vekrResizeGetBufSize(&sv, &dv, 1, mode, &size), vekStsOk);
            std::vector<uint8_t> buf(size);
            Vol<float> dst(41, 34, 35, 0);
            dst.fill([] { return -3.0f; });
            EXPECT_EQ(vekrResize_32f_C1V(src.cslices()[0], &vol, src.step(), src.sliceStep(), &sv, dst.base(),
                                         dst.step(), dst.sliceStep(), &dv, 1.6, 1.5, 1.7, 0.25, 0, -0.4, mode,
                                         buf.data()),
                      vekStsOk);
            return dst.bytes();
        }, "resize");
    }
    Vol<int16_t> fsrc = randomVol<int16_t>(30, 24, 22, 12);
    const int32_t kernel[27] = {1, -2, 3, 4, 5, 6, -7, 8, 9, 1, 2, 3, 4, 50, 6, 7, 8, 9,
                                -1, 2, 3, 4, 5, 6, 7, 8, 9};
    const VekVolumeSize roi{26, 20, 18}, ks{3, 3, 3};
    const int32_t anchor[3] = {1, 1, 1};
    expectSameOnThreads([&] {
        Vol<int16_t> dst = randomVol<int16_t>(26, 20, 18, 13);
        int size = 0;
        EXPECT_EQ(vekrFilterGetBufSize(&roi, &ks, 1, &size), vekStsOk);
        std::vector<uint8_t> buf(size);
        std::vector<const int16_t*> s;
        for (int z = -1; z < 19; ++z) s.push_back(&fsrc.at(2, 2, z + 2));
        EXPECT_EQ(vekrFilter_16s_C1PV(s.data() + 1, fsrc.step(), dst.slices(), dst.step(), &roi,
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
