// Affine warp: every mode and element type against a direct per-voxel
// reference, identity copies, the coefficient checks, the small-source mode
// rule, inclusive bounds, rounding ties and the threaded slab split.
#include <gtest/gtest.h>

#include <cmath>
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
void checkAllModes(std::mt19937& rng)
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
    checkAllModes<uint8_t>(rng);
    checkAllModes<uint16_t>(rng);
    checkAllModes<float>(rng);
}

TEST(WarpAffine, SmallSourceDowngradesTheMode)
{
    std::mt19937 rng(23);
    for (VekVolumeSize v : {VekVolumeSize{3, 9, 9}, VekVolumeSize{1, 9, 9}, VekVolumeSize{9, 9, 2}}) {
        Vol<float> src(v.width, v.height, v.depth);
        src.fill([&] { return vekr::test::randomValue<float>(rng); });
        const VekCuboid sv{0, 0, 0, v.width, v.height, v.depth};
        const VekCuboid dv{0, 0, 0, 9, 9, 9};
        double c[3][4] = {{0.8, 0.1, 0, 0.3}, {-0.1, 0.9, 0, 0.2}, {0, 0, 0.9, 0.1}};
        const int expected = (v.width < 2 || v.height < 2 || v.depth < 2) ? 1 : 2;
        for (int mode : {4, 5, 6, 7, 2}) {
            Vol<float> got(9, 9, 9), want(9, 9, 9);
            ASSERT_EQ(warp(src, sv, got, dv, c, mode), vekStsOk);
            ASSERT_EQ(warp(src, sv, want, dv, c, expected), vekStsOk);
            EXPECT_TRUE(got == want) << v.width << "x" << v.height << "x" << v.depth << " mode " << mode;
        }
        EXPECT_EQ(vekr::volume::smallSourceMode(v, 4), expected);
    }
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

}  // namespace
