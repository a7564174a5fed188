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

using vekr::test::Box;
using vekr::test::Dense;

namespace {

const int kModes[] = {1, 2, 4, 5, 6, 7};

template <class T>
Dense<T> randomVolume(int w, int h, int d, unsigned seed)
{
    Dense<T> v(w, h, d);
    std::mt19937 rng(seed);
    for (auto& e : v.data) {
        if constexpr (std::is_same_v<T, float>)
            e = std::uniform_real_distribution<float>(-1.0f, 2.0f)(rng);
        else if constexpr (std::is_same_v<T, uint8_t>)
            e = T(rng() & 0xFF);
        else
            e = T(rng() & 0xFFFF);
    }
    return v;
}

template <class T>
T sentinel()
{
    if constexpr (std::is_same_v<T, float>) return -777.25f;
    return T(0x5A5A);
}

// A dense volume placed in caller memory with padded rows and slices, seen
// through either layout.  Slices of the pointer layout are stored in
// reverse order so that no slice follows its predecessor.
template <class T>
struct Placed {
    int w, h, d, rowBytes, sliceBytes;
    std::vector<uint8_t> mem;
    std::vector<T*> slices;
    Placed(const Dense<T>& v, int padRow, int padSlice, bool reversed)
        : w(v.w), h(v.h), d(v.d), rowBytes(int((v.w + padRow) * sizeof(T))),
          sliceBytes(rowBytes * v.h + padSlice * int(sizeof(T)))
    {
        mem.assign(size_t(sliceBytes) * d + 64, 0xEE);
        for (int z = 0; z < d; ++z)
            slices.push_back(reinterpret_cast<T*>(mem.data() + size_t(reversed ? d - 1 - z : z) * sliceBytes));
        for (int z = 0; z < d; ++z)
            for (int y = 0; y < h; ++y)
                std::memcpy(row(y, z), &v.at(0, y, z), w * sizeof(T));
    }
    T* base() { return reinterpret_cast<T*>(mem.data()); }
    T* row(int y, int z) { return reinterpret_cast<T*>(reinterpret_cast<uint8_t*>(slices[z]) + size_t(y) * rowBytes); }
    Dense<T> dense()
    {
        Dense<T> v(w, h, d);
        for (int z = 0; z < d; ++z)
            for (int y = 0; y < h; ++y) std::memcpy(&v.at(0, y, z), row(y, z), w * sizeof(T));
        return v;
    }
};

struct Call {
    VekCuboid srcVoi, dstVoi;
    double f[3], sh[3];
    int mode;
};

template <class T>
VekStatus callV(const T* s, const VekVolumeSize* vs, int ss, int sp, const VekCuboid* sv, T* d, int ds, int dp,
                const VekCuboid* dv, const Call& c, uint8_t* b)
{
    return vekr::test::resizeV(s, vs, ss, sp, sv, d, ds, dp, dv, c.f[0], c.f[1], c.f[2], c.sh[0], c.sh[1], c.sh[2],
                               c.mode, b);
}
template <class T>
VekStatus callPV(const T* const* s, const VekVolumeSize* vs, int ss, const VekCuboid* sv, T* const* d, int ds,
                 const VekCuboid* dv, const Call& c, uint8_t* b)
{
    return vekr::test::resizePV(s, vs, ss, sv, d, ds, dv, c.f[0], c.f[1], c.f[2], c.sh[0], c.sh[1], c.sh[2], c.mode, b);
}

// The work buffer: exactly the queried size, placed at an odd offset so the
// resize has to align its parts itself (ASan sees any overrun).
struct WorkBuffer {
    std::vector<uint8_t> mem;
    uint8_t* p = nullptr;
    WorkBuffer(const Call& c, int offset = 3)
    {
        int size = 0;
        EXPECT_EQ(vekrResizeGetBufSize(&c.srcVoi, &c.dstVoi, 1, c.mode, &size), vekStsOk);
        mem.assign(size_t(size) + offset, 0);
        p = mem.data() + offset;
    }
};

// Runs one call through the given layout and returns the destination and
// the status; the destination starts as the sentinel.
template <class T>
Dense<T> runResize(const Dense<T>& src, Dense<T> dst0, const Call& c, bool block, VekStatus& st)
{
    Placed<T> s(src, 3, 5, !block);
    Placed<T> d(dst0, 1, 7, !block);
    WorkBuffer buf(c);
    const VekVolumeSize vol{src.w, src.h, src.d};
    if (block)
        st = callV(s.base(), &vol, s.rowBytes, s.sliceBytes, &c.srcVoi, d.base(), d.rowBytes,
                   d.sliceBytes, &c.dstVoi, c, buf.p);
    else
        st = callPV(const_cast<const T* const*>(s.slices.data()), &vol, s.rowBytes, &c.srcVoi,
                    d.slices.data(), d.rowBytes, &c.dstVoi, c, buf.p);
    return d.dense();
}

template <class T>
void expectMatchesReference(const Dense<T>& src, int dw, int dh, int dd, const Call& c)
{
    Dense<T> dst0(dw, dh, dd, sentinel<T>());
    Dense<T> expect = dst0;
    const Box b = vekr::test::refResize(src, c.srcVoi, expect, c.dstVoi, c.f, c.sh, c.mode);
    for (bool block : {true, false}) {
        VekStatus st = -100;
        const Dense<T> got = runResize(src, dst0, c, block, st);
        ASSERT_EQ(st, b.empty() ? vekStsEmptyDestination : vekStsOk);
        size_t bad = 0, first = 0;
        for (size_t k = 0; k < got.data.size(); ++k)
            if (std::memcmp(&got.data[k], &expect.data[k], sizeof(T)) != 0 && bad++ == 0) first = k;
        ASSERT_EQ(bad, 0u) << "mode " << c.mode << (block ? " block" : " slices") << " f "
                           << c.f[0] << "," << c.f[1] << "," << c.f[2] << " sh " << c.sh[0] << ","
                           << c.sh[1] << "," << c.sh[2] << " first index " << first << " got "
                           << double(got.data[first]) << " want " << double(expect.data[first]);
    }
}

template <class T>
void sweep(unsigned seed)
{
    const Dense<T> src = randomVolume<T>(11, 9, 7, seed);
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
    const Dense<float> f = randomVolume<float>(37, 23, 9, 4);
    const Dense<uint8_t> b = randomVolume<uint8_t>(37, 23, 9, 5);
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
    const Dense<float> src = randomVolume<float>(4, 4, 4, 13);
    // Source 0..4 scaled by 1.25 and shifted 0.5: x from 0.5 to 5.5.
    Call c{{0, 0, 0, 4, 4, 4}, {0, 0, 0, 10, 4, 4}, {1.25, 1, 1}, {0.5, 0, 0}, 1};
    VekStatus st;
    const Dense<float> got = runResize(src, Dense<float>(10, 4, 4, sentinel<float>()), c, true, st);
    ASSERT_EQ(st, vekStsOk);
    for (int x = 0; x < 10; ++x)
        EXPECT_EQ(got.at(x, 0, 0) != sentinel<float>(), x >= 0 && x < 6) << x;
}

// The real volume: skull_2.9.inr (256-byte header, 64^3 little-endian floats).
TEST(VolumeResize, RealVolume)
{
    std::ifstream in(vekr::test::dataFile("skull_2.9.inr"), std::ios::binary);
    if (!in) GTEST_SKIP() << "skull_2.9.inr not present (scripts/fetch-data.sh)";
    Dense<float> vol(64, 64, 64);
    in.seekg(256);
    in.read(reinterpret_cast<char*>(vol.data.data()), std::streamsize(vol.data.size() * 4));
    ASSERT_TRUE(in);
    Dense<uint8_t> vol8(64, 64, 64);
    float top = 0;
    for (float v : vol.data) top = std::max(top, v);
    for (size_t k = 0; k < vol.data.size(); ++k) vol8.data[k] = uint8_t(vol.data[k] / top * 255.0f);
    for (int mode : {1, 2, 6}) {
        // A 40^3 region around the middle, scaled up, and the whole volume scaled down.
        Call up{{12, 12, 12, 40, 40, 40}, {0, 0, 0, 48, 48, 48}, {1.5, 1.5, 1.5}, {-12, -12, -12}, mode};
        expectMatchesReference(vol, 48, 48, 48, up);
        expectMatchesReference(vol8, 48, 48, 48, up);
        Call down{{0, 0, 0, 64, 64, 64}, {0, 0, 0, 29, 29, 29}, {0.45, 0.45, 0.45}, {0, 0, 0}, mode};
        expectMatchesReference(vol, 29, 29, 29, down);
    }
}
