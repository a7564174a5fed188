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

// The query keeps its 32-bit arithmetic (order 65535 gives 262176 bytes);
// Init refuses every order whose true size does not fit in 32 bits and
// writes nothing into the block.
TEST(SHHostile, HugeOrdersAreRefusedByInit)
{
    uint32_t size = 0;
    ASSERT_EQ(vekrSHGetSize_32f(65535, vekrSHRecurrence, &size), vekStsOk);
    EXPECT_EQ(size, 262176u);
    for (uint32_t order : {32767u, 40000u, 65535u, 1u << 20, UINT32_MAX}) {
        Block b(262176, 3);
        EXPECT_EQ(vekrSHInit_32f(b.state(), order, vekrSHRecurrence), vekStsSize) << order;
        EXPECT_TRUE(b.guardsIntact(true)) << order;
    }
}

// Types other than 0 and 1, passed as the integers a C caller passes, are
// refused by the size query and Init without writing.
TEST(SHHostile, TypesOutsideTheEnumeration)
{
    for (int32_t t : {2, 3, 7, -1, INT_MAX, INT_MIN}) {
        const VekrSHType type = static_cast<VekrSHType>(t);
        uint32_t size = 77;
        EXPECT_EQ(vekrSHGetSize_32f(3, type, &size), vekStsSelector) << t;
        EXPECT_EQ(size, 77u);
        Block b(64, 0);
        EXPECT_EQ(vekrSHInit_32f(b.state(), 3, type), vekStsSelector) << t;
        EXPECT_TRUE(b.guardsIntact(true)) << t;
    }
}

// A state whose type field is neither 0 nor 1 is refused with -7 by the
// basis and by all six transforms (also for a negative count), and the
// outputs stay untouched.  The header sits at an odd address on purpose.
TEST(SHHostile, TransformsRefuseABadStateType)
{
    Block b(64, 5);
    const uint32_t header[2] = {4, 2};
    std::memcpy(b.p, header, sizeof header);
    std::memset(b.p + 8, 0, 16);
    const VekrSHState* st = b.state();
    const float x[2] = {0, 1}, y[2] = {0, 0}, z[2] = {1, 0}, s[6] = {1, 2, 3, 4, 5, 6};
    std::vector<float> c0(25, 9.0f), c1(25, 9.0f), c2(25, 9.0f), out(6, 9.0f), o1(2, 9.0f),
        o2(2, 9.0f);
    float* const coef[3] = {c0.data(), c1.data(), c2.data()};
    const float* const ccoef[3] = {c0.data(), c1.data(), c2.data()};
    const float* const planes[3] = {s, s + 2, s + 4};
    float* const outPlanes[3] = {out.data(), o1.data(), o2.data()};
    for (int count : {2, -3}) {
        EXPECT_EQ(vekrSH_32f(x, y, z, uint32_t(count), out.data(), 2, st), vekStsSelector);
        EXPECT_EQ(vekrSHTFwd_32f_C1I(x, y, z, s, count, c0.data(), 2, st), vekStsSelector);
        EXPECT_EQ(vekrSHTFwd_32f_C3P3I(x, y, z, s, count, coef, 2, st), vekStsSelector);
        EXPECT_EQ(vekrSHTFwd_32f_P3I(x, y, z, planes, count, coef, 2, st), vekStsSelector);
        EXPECT_EQ(vekrSHTInv_32f_C1(c0.data(), 2, x, y, z, out.data(), count, st), vekStsSelector);
        EXPECT_EQ(vekrSHTInv_32f_P3(ccoef, 2, x, y, z, outPlanes, count, st), vekStsSelector);
        EXPECT_EQ(vekrSHTInv_32f_P3C3(ccoef, 2, x, y, z, out.data(), count, st), vekStsSelector);
    }
    for (const auto* v : {&c0, &c1, &c2, &out, &o1, &o2})
        for (float f : *v) EXPECT_EQ(f, 9.0f);
}

}  // namespace
