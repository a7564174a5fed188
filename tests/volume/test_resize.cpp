// Resize against the direct per-voxel reference, for all element types,
// both layouts and every mode; checks, warnings, identity, slice copies,
// saturation, the threaded path and a real volume.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "resize_reference.h"
#include "testutil.h"
#include "volume_calls.h"
#include "vekr.h"

namespace {

using vekr::test::Vol;

const int kModes[] = {1, 2, 4, 5, 6, 7};

template <class T>
Vol<T> randomVolume(int w, int h, int d, unsigned seed)
{
    Vol<T> v(w, h, d);
    std::mt19937 rng(seed);
    v.fill([&] { return vekr::test::randomValue<T>(rng); });
    return v;
}

template <class T>
T sentinel()
{
    if constexpr (std::is_same_v<T, float>) return -777.25f;
    return T(0x5A5A);
}

struct Call {
    VekCuboid srcVoi, dstVoi;
    double f[3], sh[3];
    int mode;
};

// Runs one call through the block layout or the pointer layout (slices
// stored in reverse), with a work buffer of exactly the queried size at an
// odd offset, so the resize has to align its parts itself (ASan sees any
// overrun).  The destination starts as the sentinel, padding included.
template <class T>
Vol<T> runResize(const Vol<T>& src0, VekVolumeSize dsz, const Call& c, bool block, VekStatus& st)
{
    Vol<T> s(src0.size().width, src0.size().height, src0.size().depth, 3, 5, !block);
    s.copyVoxels(src0);
    Vol<T> d(dsz.width, dsz.height, dsz.depth, 1, 7, !block);
    d.fill(sentinel<T>);
    int size = 0;
    EXPECT_EQ(vekrResizeGetBufSize(&c.srcVoi, &c.dstVoi, 1, c.mode, &size), vekStsOk);
    std::vector<uint8_t> mem(size_t(size) + 3);
    const VekVolumeSize vol = src0.size();
    if (block)
        st = vekr::test::resizeV(s.base(), &vol, s.step(), s.sliceStep(), &c.srcVoi, d.base(), d.step(),
                                 d.sliceStep(), &c.dstVoi, c.f[0], c.f[1], c.f[2], c.sh[0], c.sh[1], c.sh[2],
                                 c.mode, mem.data() + 3);
    else
        st = vekr::test::resizePV(s.cslices(), &vol, s.step(), &c.srcVoi, d.slices(), d.step(), &c.dstVoi,
                                  c.f[0], c.f[1], c.f[2], c.sh[0], c.sh[1], c.sh[2], c.mode, mem.data() + 3);
    return d;
}

template <class T>
void expectMatchesReference(const Vol<T>& src, int dw, int dh, int dd, const Call& c)
{
    for (bool block : {true, false}) {
        Vol<T> expect(dw, dh, dd, 1, 7, !block);
        expect.fill(sentinel<T>);
        const auto b = vekr::test::refResize(src, c.srcVoi, expect, c.dstVoi, c.f, c.sh, c.mode);
        VekStatus st = -100;
        const Vol<T> got = runResize(src, {dw, dh, dd}, c, block, st);
        ASSERT_EQ(st, b.empty() ? vekStsEmptyDestination : vekStsOk);
        ASSERT_TRUE(got == expect) << "mode " << c.mode << (block ? " block" : " slices") << " f " << c.f[0]
                                   << "," << c.f[1] << "," << c.f[2] << " sh " << c.sh[0] << "," << c.sh[1]
                                   << "," << c.sh[2];
    }
}

template <class T>
void sweep(unsigned seed)
{
    const Vol<T> src = randomVolume<T>(11, 9, 7, seed);
    std::mt19937 rng(seed * 7 + 1);
    const double factors[] = {0.5, 1.0, 1.5, 0.37, 2.3, 3.0, 0.8};
    const double shifts[] = {0.0, 0.3, -2.7, 1.5};
    for (int mode : kModes) {
        for (int trial = 0; trial < 12; ++trial) {
            Call c;
            c.mode = mode;
            for (int a = 0; a < 3; ++a) {
                c.f[a] = factors[rng() % 7];
                c.sh[a] = shifts[rng() % 4];
            }
            // Source regions that start inside and may run past the volume.
            c.srcVoi = {int(rng() % 3), int(rng() % 2), int(rng() % 2), 5 + int(rng() % 12),
                        4 + int(rng() % 10), 3 + int(rng() % 8)};
            // Destination regions that may cut the mapped box on either side.
            c.dstVoi = {int(rng() % 4), int(rng() % 3), int(rng() % 3), 6 + int(rng() % 30),
                        5 + int(rng() % 25), 4 + int(rng() % 20)};
            expectMatchesReference(src, 40, 32, 26, c);
            if (::testing::Test::HasFatalFailure()) return;
        }
    }
}

}  // namespace

TEST(VolumeResize, MatchesReference8u) { sweep<uint8_t>(1); }
TEST(VolumeResize, MatchesReference16u) { sweep<uint16_t>(2); }
TEST(VolumeResize, MatchesReference32f) { sweep<float>(3); }

// Every destination row is wide enough for the 4-wide loops and their
// scalar tails; both scaling directions on every axis.
TEST(VolumeResize, WideRowsMatchReference)
{
    const Vol<float> f = randomVolume<float>(37, 23, 9, 4);
    const Vol<uint8_t> b = randomVolume<uint8_t>(37, 23, 9, 5);
    for (int mode : kModes)
        for (double fx : {0.45, 1.7}) {
            Call c{{0, 0, 0, 37, 23, 9}, {1, 2, 0, 70, 40, 20}, {fx, 1.0 / fx, 1.3}, {0.1, 0, -0.2}, mode};
            expectMatchesReference(f, 72, 44, 21, c);
            expectMatchesReference(b, 72, 44, 21, c);
        }
}

// Start and end of the destination box: a start exactly half way rounds
// down, an end exactly half way rounds up.
TEST(VolumeResize, BoxBiases)
{
    const Vol<float> src = randomVolume<float>(4, 4, 4, 13);
    // Source 0..4 scaled by 1.25 and shifted 0.5: x from 0.5 to 5.5.
    Call c{{0, 0, 0, 4, 4, 4}, {0, 0, 0, 10, 4, 4}, {1.25, 1, 1}, {0.5, 0, 0}, 1};
    VekStatus st;
    const Vol<float> got = runResize(src, {10, 4, 4}, c, true, st);
    ASSERT_EQ(st, vekStsOk);
    for (int x = 0; x < 10; ++x)
        EXPECT_EQ(got.at(x, 0, 0) != sentinel<float>(), x >= 0 && x < 6) << x;
}

// The real volume: skull_2.9.inr (256-byte header, 64^3 little-endian floats).
TEST(VolumeResize, RealVolume)
{
    std::ifstream in(vekr::test::dataFile("skull_2.9.inr"), std::ios::binary);
    if (!in) GTEST_SKIP() << "skull_2.9.inr not present (scripts/fetch-data.sh)";
    Vol<float> vol(64, 64, 64, 0);
    in.seekg(256);
    in.read(reinterpret_cast<char*>(vol.base()), 64 * 64 * 64 * 4);
    ASSERT_TRUE(in);
    const float top = *std::max_element(vol.base(), vol.base() + 64 * 64 * 64);
    Vol<uint8_t> vol8(64, 64, 64, 0);
    for (int k = 0; k < 64 * 64 * 64; ++k) vol8.base()[k] = uint8_t(vol.base()[k] / top * 255.0f);
    for (int mode : {1, 2, 6}) {
        // A 40^3 region around the middle, scaled up, and the whole volume scaled down.
        Call up{{12, 12, 12, 40, 40, 40}, {0, 0, 0, 48, 48, 48}, {1.5, 1.5, 1.5}, {-12, -12, -12}, mode};
        expectMatchesReference(vol, 48, 48, 48, up);
        expectMatchesReference(vol8, 48, 48, 48, up);
        Call down{{0, 0, 0, 64, 64, 64}, {0, 0, 0, 29, 29, 29}, {0.45, 0.45, 0.45}, {0, 0, 0}, mode};
        expectMatchesReference(vol, 29, 29, 29, down);
    }
}
