// Remap: every mode and element type against a direct per-voxel reference,
// identity maps, the float bound test, NaN map values, the checks, the
// small-source rule and the threaded slab split.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "volume_calls.h"
#include "volumes.h"

namespace {

using vekr::test::Box;
using vekr::test::Vol;

struct Maps {
    Vol<float> x, y, z;
    explicit Maps(VekVolumeSize d) : x(d.width, d.height, d.depth), y(d.width, d.height, d.depth), z(d.width, d.height, d.depth) {}
    void set(int i, int j, int k, float a, float b, float c)
    {
        x.at(i, j, k) = a;
        y.at(i, j, k) = b;
        z.at(i, j, k) = c;
    }
};

template <class T>
VekStatus remapCall(const Vol<T>& s, const VekCuboid& sv, const Maps& m, Vol<T>& d, VekVolumeSize roi, int mode)
{
    const VekVolumeSize sz = s.size();
    return vekr::test::remap(s.cslices(), &sz, s.step(), &sv, m.x.cslices(), m.y.cslices(), m.z.cslices(), m.x.step(),
                             d.slices(), d.step(), &roi, mode);
}

template <class T>
void remapReference(const Vol<T>& src, const VekCuboid& sv, const Maps& m, Vol<T>& dst,
                    VekVolumeSize roi, int mode)
{
    const Box b = vekr::test::boxOf(src.size(), sv);
    for (int k = 0; k < roi.depth; ++k)
        for (int j = 0; j < roi.height; ++j)
            for (int i = 0; i < roi.width; ++i) {
                const float c[3] = {m.x.at(i, j, k), m.y.at(i, j, k), m.z.at(i, j, k)};
                bool inside = true;
                for (int a = 0; a < 3; ++a)
                    inside = inside && c[a] >= static_cast<float>(b.lo[a]) && c[a] <= static_cast<float>(b.hi[a]);
                if (!inside) continue;
                const double s[3] = {c[0], c[1], c[2]};
                dst.at(i, j, k) = vekr::test::convertResult<T>(vekr::test::sampleReference(src, b, mode, s, 1));
            }
}

// Smooth random maps over the source, with some voxels outside and some NaN.
Maps smoothMaps(std::mt19937& rng, VekVolumeSize d, VekVolumeSize s)
{
    Maps m(d);
    std::uniform_real_distribution<float> ph(0, 6.28f);
    const float p[3] = {ph(rng), ph(rng), ph(rng)};
    const float nan = std::numeric_limits<float>::quiet_NaN();
    std::uniform_int_distribution<int> pick(0, 60);
    for (int k = 0; k < d.depth; ++k)
        for (int j = 0; j < d.height; ++j)
            for (int i = 0; i < d.width; ++i) {
                float a = (s.width - 1) * (i + 0.5f) / d.width + 2.5f * std::sin(0.3f * j + p[0]);
                float b = (s.height - 1) * (j + 0.5f) / d.height + 2.0f * std::sin(0.2f * k + p[1]);
                float c = (s.depth - 1) * (k + 0.5f) / d.depth + 1.5f * std::sin(0.25f * i + p[2]);
                const int r = pick(rng);
                if (r == 0) a = nan;
                if (r == 1) c = nan;
                if (r == 2) b = -3.0f;
                m.set(i, j, k, a, b, c);
            }
    return m;
}

template <class T>
void checkAllModes(std::mt19937& rng)
{
    Vol<T> src(19, 17, 15);
    src.fill([&] { return vekr::test::randomValue<T>(rng); });
    const VekVolumeSize roi{18, 17, 16};
    for (const VekCuboid& sv : {VekCuboid{0, 0, 0, 19, 17, 15}, VekCuboid{2, 1, 3, 12, 40, 9}}) {
        const Maps m = smoothMaps(rng, roi, src.size());
        for (int mode : {1, 2, 4, 5, 6, 7}) {
            Vol<T> want(18, 17, 16);
            want.fill([] { return T(3); });
            remapReference(src, sv, m, want, roi, mode);
            for (int threads : {1, 2, 3}) {  // slabs of slices per thread
                Vol<T> got(18, 17, 16);
                got.fill([] { return T(3); });
                vekr::test::withThreads(threads, [&] { EXPECT_EQ(remapCall(src, sv, m, got, roi, mode), vekStsOk); });
                EXPECT_TRUE(got == want) << "mode " << mode << " size " << sizeof(T) << " threads " << threads;
            }
        }
    }
}

TEST(Remap, MatchesPerVoxelReferenceForEveryModeAndType)
{
    std::mt19937 rng(31);
    checkAllModes<uint8_t>(rng);
    checkAllModes<uint16_t>(rng);
    checkAllModes<float>(rng);
}

TEST(Remap, BoundsInFloatTiesToEvenAndNaN)
{
    Vol<float> src(8, 4, 4);
    for (int z = 0; z < 4; ++z)
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 8; ++x) src.at(x, y, z) = float(x);
    const VekCuboid sv{0, 0, 0, 8, 4, 4};
    const VekVolumeSize roi{6, 1, 1};
    Maps m(roi);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    m.set(0, 0, 0, -0.0001f, 1, 1);  // below lo: skipped
    m.set(1, 0, 0, 0.0f, 1, 1);      // on lo: computed
    m.set(2, 0, 0, 2.5f, 1, 1);      // nearest: column 2
    m.set(3, 0, 0, 3.5f, 1, 1);      // nearest: column 4
    m.set(4, 0, 0, nan, 1, 1);       // NaN: skipped
    m.set(5, 0, 0, 7.0f, 3, 3);      // on hi: computed
    Vol<float> dst(6, 1, 1);
    dst.fill([] { return -9.0f; });
    ASSERT_EQ(remapCall(src, sv, m, dst, roi, 1), vekStsOk);
    EXPECT_EQ(dst.at(0, 0, 0), -9.0f);
    EXPECT_EQ(dst.at(1, 0, 0), 0.0f);
    EXPECT_EQ(dst.at(2, 0, 0), 2.0f);
    EXPECT_EQ(dst.at(3, 0, 0), 4.0f);
    EXPECT_EQ(dst.at(4, 0, 0), -9.0f);
    EXPECT_EQ(dst.at(5, 0, 0), 7.0f);
    // NaN on other axes and in other modes is skipped as well.
    for (int mode : {2, 4, 7}) {
        Maps n(roi);
        for (int i = 0; i < 6; ++i) n.set(i, 0, 0, 1.5f, i == 1 ? nan : 1.5f, i == 2 ? nan : 1.5f);
        n.set(0, 0, 0, nan, 1.5f, 1.5f);
        dst.fill([] { return -9.0f; });
        ASSERT_EQ(remapCall(src, sv, n, dst, roi, mode), vekStsOk);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(dst.at(i, 0, 0), -9.0f) << mode;
        EXPECT_NE(dst.at(3, 0, 0), -9.0f);
    }
}

TEST(Remap, RegionOneVoxelWideAtTheOrigin)
{
    // Linear at the upper edge of a one-voxel region steps down to tap -1 with
    // weight 0: the result is the voxel itself and nothing below 0 is read.
    std::mt19937 rng(35);
    Vol<float> src(6, 6, 6);
    src.fill([&] { return vekr::test::randomValue<float>(rng); });
    const VekCuboid sv{0, 0, 0, 1, 1, 6};
    const VekVolumeSize roi{9, 1, 1};
    Maps m(roi);
    for (int i = 0; i < 9; ++i) m.set(i, 0, 0, 0.0f, 0.0f, 0.5f * (i % 6));
    Vol<float> got(9, 1, 1), want(9, 1, 1);
    ASSERT_EQ(remapCall(src, sv, m, got, roi, 2), vekStsOk);
    remapReference(src, sv, m, want, roi, 2);
    EXPECT_TRUE(got == want);
}

TEST(Remap, SmallSourceDowngradesTheMode)
{
    std::mt19937 rng(33);
    for (VekVolumeSize v : {VekVolumeSize{9, 3, 9}, VekVolumeSize{9, 9, 1}}) {
        Vol<float> src(v.width, v.height, v.depth);
        src.fill([&] { return vekr::test::randomValue<float>(rng); });
        const VekCuboid sv{0, 0, 0, v.width, v.height, v.depth};
        const VekVolumeSize roi{9, 9, 9};
        const Maps m = smoothMaps(rng, roi, v);
        const int expected = (v.width < 2 || v.height < 2 || v.depth < 2) ? 1 : 2;
        for (int mode : {4, 6, 2}) {
            Vol<float> got(9, 9, 9), want(9, 9, 9);
            ASSERT_EQ(remapCall(src, sv, m, got, roi, mode), vekStsOk);
            ASSERT_EQ(remapCall(src, sv, m, want, roi, mode == 2 && expected == 2 ? 2 : expected), vekStsOk);
            EXPECT_TRUE(got == want) << "mode " << mode;
        }
    }
}

}  // namespace
