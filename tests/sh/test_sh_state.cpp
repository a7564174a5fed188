// Where the state puts its tables, and that nothing is written past the
// size the library reports.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "vekr.h"

namespace {

TEST(SHState, DirectStateWritesSixteenBytes)
{
    alignas(16) unsigned char block[32];
    std::memset(block, 0xAB, sizeof block);
    auto* st = reinterpret_cast<VekrSHState*>(block);
    ASSERT_EQ(vekrSHInit_32f(st, 15, vekrSHDirect), vekStsOk);
    EXPECT_EQ(st->order, 15u);
    EXPECT_EQ(st->type, 0u);
    for (int i = 8; i < 16; ++i) EXPECT_EQ(block[i], 0) << i;
    for (int i = 16; i < 32; ++i) EXPECT_EQ(block[i], 0xAB) << i;
}

// The recurrence state at several offsets from a 16-byte boundary: tables at
// the first aligned addresses, zeros elsewhere, nothing written past the end.
TEST(SHState, RecurrenceLayout)
{
    for (uint32_t L : {0u, 1u, 2u, 5u, 15u, 20u}) {
        for (size_t shift : {0u, 8u}) {
            uint32_t size = 0;
            ASSERT_EQ(vekrSHGetSize_32f(L, vekrSHRecurrence, &size), vekStsOk);
            std::vector<unsigned char> raw(size + 64 + 16, 0xAB);
            unsigned char* base = reinterpret_cast<unsigned char*>(
                (reinterpret_cast<uintptr_t>(raw.data()) + 15) & ~uintptr_t(15));
            unsigned char* block = base + shift;
            auto* st = reinterpret_cast<VekrSHState*>(block);
            ASSERT_EQ(vekrSHInit_32f(st, L, vekrSHRecurrence), vekStsOk);
            EXPECT_EQ(st->order, L);
            EXPECT_EQ(st->type, 1u);
            const auto a = reinterpret_cast<uintptr_t>(st->pTableA);
            const auto b = reinterpret_cast<uintptr_t>(st->pTableB);
            const auto s = reinterpret_cast<uintptr_t>(block);
            EXPECT_EQ(a % 16, 0u);
            EXPECT_GE(a, s + 24);
            EXPECT_LT(a, s + 24 + 16);
            EXPECT_GE(b, a + (L + 1) * (L + 2) / 2 * 4);
            EXPECT_EQ(b % 16, 0u);
            EXPECT_LE(b + (L + 1) * (L + 2) / 2 * 4, s + size);
            for (unsigned char* p = block + size; p < raw.data() + raw.size(); ++p)
                ASSERT_EQ(*p, 0xAB) << "L=" << L;
            for (uint32_t l = 0; l <= L; ++l)  // B(l, l) stays zero
                EXPECT_EQ(st->pTableB[l * (l + 1) / 2 + l], 0.0f);
        }
    }
}

}  // namespace
