// State sizes, checks, table placement and table values.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "vekr.h"

namespace {

uint32_t roundedTable(uint32_t L) { return ((L + 1) * (L + 2) / 2 * 4 + 15) / 16 * 16; }

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
            EXPECT_EQ(b, a + roundedTable(L));
            EXPECT_LE(b + (L + 1) * (L + 2) / 2 * 4, s + size);
            for (unsigned char* p = block + size; p < raw.data() + raw.size(); ++p)
                ASSERT_EQ(*p, 0xAB) << "L=" << L;
            for (uint32_t l = 0; l <= L; ++l)  // B(l, l) stays zero
                EXPECT_EQ(st->pTableB[l * (l + 1) / 2 + l], 0.0f);
        }
    }
}

float ulpDistance(float a, double exact)
{
    const float e = float(exact);
    const float ulp = std::nextafter(std::fabs(e), INFINITY) - std::fabs(e);
    return float(std::fabs(double(a) - exact) / ulp);
}

TEST(SHState, TableValues)
{
    const uint32_t L = 60;  // long bands exercise the four-at-a-time interior
    uint32_t size = 0;
    ASSERT_EQ(vekrSHGetSize_32f(L, vekrSHRecurrence, &size), vekStsOk);
    std::vector<unsigned char> raw(size + 16);
    auto* st = reinterpret_cast<VekrSHState*>(
        (reinterpret_cast<uintptr_t>(raw.data()) + 15) & ~uintptr_t(15));
    ASSERT_EQ(vekrSHInit_32f(st, L, vekrSHRecurrence), vekStsOk);
    const float* A = st->pTableA;
    const float* B = st->pTableB;

    uint32_t bits;
    std::memcpy(&bits, &A[0], 4);
    EXPECT_EQ(bits, 0x3E906EBBu);
    EXPECT_EQ(A[1], float(double(A[0]) * 1.7320508075688772));
    EXPECT_EQ(A[2], -A[1]);
    EXPECT_FLOAT_EQ(A[1], 0.4886025f);
    EXPECT_EQ(B[0], 0.0f);
    EXPECT_EQ(B[1], 0.0f);
    EXPECT_EQ(B[2], 0.0f);

    float worst = 0;
    for (int l = 2; l <= int(L); ++l) {
        const int o = l * (l + 1) / 2;
        const double d = l;
        EXPECT_EQ(A[o], float(std::sqrt(4 * d * d - 1) / d));
        EXPECT_EQ(A[o + l], float(-std::sqrt((2 * d + 1) / (2 * d))));
        EXPECT_LE(ulpDistance(B[o], -(d - 1) / d * std::sqrt((2 * d + 1) / (2 * d - 3))), 1.0f);
        EXPECT_EQ(B[o + l], 0.0f);
        EXPECT_EQ(B[o + l - 1], 0.0f);
        EXPECT_LE(ulpDistance(A[o + l - 1], std::sqrt(2 * d + 1)), 4.0f) << l;
        for (int m = 1; m <= l - 1; ++m) {
            const double mm = m;
            const double a = std::sqrt((4 * d * d - 1) / (d * d - mm * mm));
            worst = std::max(worst, ulpDistance(A[o + m], a));
            EXPECT_LE(ulpDistance(A[o + m], a), 4.0f) << l << " " << m;
            if (m < l - 1) {
                const double b = -std::sqrt(((d - 1) * (d - 1) - mm * mm) * (2 * d + 1) /
                                            ((d * d - mm * mm) * (2 * d - 3)));
                EXPECT_LE(ulpDistance(B[o + m], b), 4.0f) << l << " " << m;
            }
        }
    }
    std::printf("worst interior A entry: %.2f ulp\n", worst);
}

}  // namespace
