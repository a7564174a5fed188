// Spherical-harmonic states in hostile hands: blocks at every address, huge
// orders, state types outside 0 and 1.  Nothing may be written outside the
// block the library sized, and a refused call writes nothing at all.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <vector>

#include "vekr.h"

namespace {

constexpr unsigned char kGuard = 0xA5;
constexpr int kPad = 64;

// A block of the reported size at `offset` bytes past a 16-byte boundary,
// with guard bytes on both sides.
struct Block {
    std::vector<unsigned char> raw;
    unsigned char* p;
    uint32_t size;
    Block(uint32_t bytes, int offset) : raw(bytes + 2 * kPad + 16, kGuard), size(bytes)
    {
        const auto a = (reinterpret_cast<uintptr_t>(raw.data()) + kPad + 15) & ~uintptr_t{15};
        p = reinterpret_cast<unsigned char*>(a) + offset;
    }
    VekrSHState* state() { return reinterpret_cast<VekrSHState*>(p); }
    bool guardsIntact(bool inside = false) const
    {
        for (const unsigned char* q = raw.data(); q < raw.data() + raw.size(); ++q) {
            const bool in = q >= p && q < p + size;
            if ((!in || inside) && *q != kGuard) return false;
        }
        return true;
    }
};

template <class T>
T field(const VekrSHState* s, size_t offset)
{
    T v;
    std::memcpy(&v, reinterpret_cast<const unsigned char*>(s) + offset, sizeof v);
    return v;
}

std::vector<float> basisOf(const VekrSHState* st, uint32_t L)
{
    const float x[3] = {0.48f, -0.6f, 0.0f}, y[3] = {0.6f, 0.0f, 1.0f}, z[3] = {0.64f, 0.8f, 0.0f};
    std::vector<float> out(3 * (L + 1) * (L + 1), -1.0f);
    EXPECT_EQ(vekrSH_32f(x, y, z, 3, out.data(), L, st), vekStsOk);
    return out;
}

// Every order up to 24 at every address mod 16: the block of the reported
// size holds the header and both tables, nothing is written outside it, the
// usual layout is kept for 16-byte-aligned blocks, and the tables and the
// evaluations equal those of an aligned block bit for bit.
TEST(SHHostile, RecurrenceStateAtAnyAddress)
{
    for (uint32_t order = 0; order <= 24; ++order) {
        uint32_t size = 0;
        ASSERT_EQ(vekrSHGetSize_32f(order, vekrSHRecurrence, &size), vekStsOk);
        const uint32_t entries = (order + 1) * (order + 2) / 2;
        Block ref(size, 0);
        ASSERT_EQ(vekrSHInit_32f(ref.state(), order, vekrSHRecurrence), vekStsOk);
        const auto refA = field<const float*>(ref.state(), offsetof(VekrSHState, pTableA));
        const auto refB = field<const float*>(ref.state(), offsetof(VekrSHState, pTableB));
        EXPECT_EQ(reinterpret_cast<const unsigned char*>(refA), ref.p + 32);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(refB) & 15, 0u);
        const uint32_t L = order < 15 ? order : 15;
        const std::vector<float> refBasis = basisOf(ref.state(), L);
        for (int offset = 1; offset < 16; ++offset) {
            SCOPED_TRACE(testing::Message() << "order " << order << " offset " << offset);
            Block b(size, offset);
            ASSERT_EQ(vekrSHInit_32f(b.state(), order, vekrSHRecurrence), vekStsOk);
            EXPECT_TRUE(b.guardsIntact());
            const auto A = field<const float*>(b.state(), offsetof(VekrSHState, pTableA));
            const auto B = field<const float*>(b.state(), offsetof(VekrSHState, pTableB));
            const auto* a = reinterpret_cast<const unsigned char*>(A);
            const auto* e = reinterpret_cast<const unsigned char*>(B) + 4 * entries;
            EXPECT_TRUE(a >= b.p + 24 && e <= b.p + size);
            EXPECT_TRUE(reinterpret_cast<const unsigned char*>(B) >= a + 4 * entries);
            EXPECT_EQ(std::memcmp(A, refA, 4 * entries), 0);
            EXPECT_EQ(std::memcmp(B, refB, 4 * entries), 0);
            EXPECT_EQ(basisOf(b.state(), L), refBasis);
        }
    }
}

}  // namespace
