// Affine warp and remap: every mode and element type against direct
// per-voxel references on 1, 2 and 3 threads, the small-source mode rule,
// inclusive bounds, rounding ties, float bounds and NaN map values.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "volume/warp.h"
#include "volume_calls.h"
#include "volumes.h"

namespace {

using vekr::test::Box;
using vekr::test::Vol;


template <class T>
VekStatus warp(const Vol<T>& s, const VekCuboid& sv, Vol<T>& d, const VekCuboid& dv, const double c[3][4], int mode)
{
    const VekVolumeSize sz = s.size();
    return vekr::test::warpAffine(s.cslices(), &sz, s.step(), &sv, d.slices(), d.step(), &dv, c, mode);
}

// Walks the destination box exactly as stated: the point formed at the start
// of each slice, plus the second column per row and the first per voxel.
template <class T>
void warpReference(const Vol<T>& src, const VekCuboid& sv, Vol<T>& dst, const VekCuboid& dv,
                   const double c[3][4], int mode)
{
    const vekr::volume::AffineInverse inv = vekr::volume::invertAffine(c);
    const double* m = inv.m;
    const Box b = vekr::test::boxOf(src.size(), sv);
    for (int z = dv.z; z < dv.z + dv.depth; ++z) {
        double row[3];
        for (int a = 0; a < 3; ++a)
            row[a] = m[4 * a] * dv.x + m[4 * a + 1] * dv.y + m[4 * a + 2] * z + m[4 * a + 3];
        for (int y = dv.y; y < dv.y + dv.height; ++y) {
            double s[3] = {row[0], row[1], row[2]};
            for (int x = dv.x; x < dv.x + dv.width; ++x) {
                bool inside = true;
                for (int a = 0; a < 3; ++a) inside = inside && s[a] >= b.lo[a] && s[a] <= b.hi[a];
                if (inside)
                    dst.at(x, y, z) = vekr::test::convertResult<T>(
                        vekr::test::sampleReference(src, b, mode, s, 0));
                for (int a = 0; a < 3; ++a) s[a] += m[4 * a];
            }
            for (int a = 0; a < 3; ++a) row[a] += m[4 * a + 1];
        }
    }
}

// Rotation about z, a shear and a translation (forward, source to destination).
void rotationShear(double angle, double shear, const double t[3], double c[3][4])
{
    const double co = std::cos(angle), si = std::sin(angle);
    const double r[3][4] = {{co, -si, shear, t[0]}, {si, co, 0.1, t[1]}, {-0.05, shear, 1.02, t[2]}};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 4; ++j) c[i][j] = r[i][j];
}

template <class T>
void checkWarpModes(std::mt19937& rng)
{
    Vol<T> src(21, 19, 17);
    src.fill([&] { return vekr::test::randomValue<T>(rng); });
    const VekCuboid sv{1, 2, 0, 19, 30, 16};  // cut back to the volume along y
    const VekCuboid dv{2, 1, 1, 18, 17, 16};
    for (int mode : {1, 2, 4, 5, 6, 7}) {
        for (int trial = 0; trial < 2; ++trial) {
            double c[3][4];
            const double t[3] = {std::uniform_real_distribution<double>(-3, 3)(rng),
                                 std::uniform_real_distribution<double>(-3, 3)(rng), 0.7};
            rotationShear(std::uniform_real_distribution<double>(-0.6, 0.6)(rng), 0.15 * trial, t, c);
            Vol<T> want(22, 20, 18);
            want.fill([] { return T(7); });
            warpReference(src, sv, want, dv, c, mode);
            for (int threads : {1, 2, 3}) {  // slabs of slices per thread
                Vol<T> got(22, 20, 18);
                got.fill([] { return T(7); });
                vekr::test::withThreads(threads, [&] { EXPECT_EQ(warp(src, sv, got, dv, c, mode), vekStsOk); });
                EXPECT_TRUE(got == want) << "mode " << mode << " trial " << trial << " size " << sizeof(T)
                                         << " threads " << threads;
            }
        }
    }
}

TEST(WarpAffine, MatchesPerVoxelReferenceForEveryModeAndType)
{
    std::mt19937 rng(21);
    checkWarpModes<uint8_t>(rng);
    checkWarpModes<uint16_t>(rng);
    checkWarpModes<float>(rng);
}

TEST(WarpAffine, InclusiveBoundsAndTiesToEven)
{
    Vol<uint8_t> src(8, 4, 4);
    for (int z = 0; z < 4; ++z)
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 8; ++x) src.at(x, y, z) = static_cast<uint8_t>(10 * x);
    const VekCuboid sv{0, 0, 0, 8, 4, 4};
    // Shift by half a voxel: nearest reads columns rint(x + 0.5), ties to even.
    {
        const double c[3][4] = {{1, 0, 0, -0.5}, {0, 1, 0, 0}, {0, 0, 1, 0}};
        Vol<uint8_t> dst(8, 4, 4);
        const VekCuboid dv{0, 0, 0, 7, 1, 1};
        ASSERT_EQ(warp(src, sv, dst, dv, c, 1), vekStsOk);
        const int cols[7] = {0, 2, 2, 4, 4, 6, 6};
        for (int x = 0; x < 7; ++x) EXPECT_EQ(dst.at(x, 0, 0), 10 * cols[x]) << x;
    }
    // Linear halfway between 250 and 255 -> 252.5 -> 252; between 245 and 250 -> 247.5 -> 248.
    {
        Vol<uint8_t> s2(4, 4, 4);
        s2.fill([] { return uint8_t{0}; });
        for (int z = 0; z < 4; ++z)
            for (int y = 0; y < 4; ++y) {
                s2.at(0, y, z) = 245;
                s2.at(1, y, z) = 250;
                s2.at(2, y, z) = 255;
            }
        const double c[3][4] = {{1, 0, 0, -0.5}, {0, 1, 0, 0}, {0, 0, 1, 0}};
        Vol<uint8_t> dst(4, 4, 4);
        const VekCuboid dv{0, 0, 0, 2, 1, 1};
        ASSERT_EQ(warp(s2, VekCuboid{0, 0, 0, 4, 4, 4}, dst, dv, c, 2), vekStsOk);
        EXPECT_EQ(dst.at(0, 0, 0), 248);
        EXPECT_EQ(dst.at(1, 0, 0), 252);
    }
    // A point exactly on hi is computed, one 1e-9 beyond is passed over.
    for (double beyond : {0.0, 1e-9}) {
        const double c[3][4] = {{1, 0, 0, -(7 + beyond)}, {0, 1, 0, 0}, {0, 0, 1, 0}};
        Vol<uint8_t> dst(8, 4, 4);
        dst.fill([] { return uint8_t{1}; });
        const VekCuboid dv{0, 0, 0, 1, 1, 1};
        ASSERT_EQ(warp(src, sv, dst, dv, c, 2), vekStsOk);
        EXPECT_EQ(dst.at(0, 0, 0), beyond == 0.0 ? 70 : 1);
    }
}



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
void checkRemapModes(std::mt19937& rng)
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
    checkRemapModes<uint8_t>(rng);
    checkRemapModes<uint16_t>(rng);
    checkRemapModes<float>(rng);
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

// A source under two voxels on an axis downgrades every mode to nearest;
// otherwise the cubic modes to linear.  Both functions, as one rule.
TEST(WarpAndRemap, SmallSourceDowngradesTheMode)
{
    std::mt19937 rng(23);
    const double c[3][4] = {{0.8, 0.1, 0, 0.3}, {-0.1, 0.9, 0, 0.2}, {0, 0, 0.9, 0.1}};
    for (VekVolumeSize v : {VekVolumeSize{3, 9, 9}, VekVolumeSize{1, 9, 9}, VekVolumeSize{9, 9, 2}, VekVolumeSize{9, 3, 9},
                            VekVolumeSize{9, 9, 1}}) {
        Vol<float> src(v.width, v.height, v.depth);
        src.fill([&] { return vekr::test::randomValue<float>(rng); });
        const VekCuboid sv{0, 0, 0, v.width, v.height, v.depth};
        const VekVolumeSize roi{9, 9, 9};
        const Maps m = smoothMaps(rng, roi, v);
        const int expected = (v.width < 2 || v.height < 2 || v.depth < 2) ? 1 : 2;
        EXPECT_EQ(vekr::volume::smallSourceMode(v, 4), expected);
        for (int mode : {4, 5, 6, 7, 2}) {
            Vol<float> got(9, 9, 9), want(9, 9, 9), gotR(9, 9, 9), wantR(9, 9, 9);
            ASSERT_EQ(warp(src, sv, got, VekCuboid{0, 0, 0, 9, 9, 9}, c, mode), vekStsOk);
            ASSERT_EQ(warp(src, sv, want, VekCuboid{0, 0, 0, 9, 9, 9}, c, expected), vekStsOk);
            ASSERT_EQ(remapCall(src, sv, m, gotR, roi, mode), vekStsOk);
            ASSERT_EQ(remapCall(src, sv, m, wantR, roi, expected), vekStsOk);
            EXPECT_TRUE(got == want && gotR == wantR) << v.width << "x" << v.height << "x" << v.depth << " mode " << mode;
        }
    }
}

}  // namespace
