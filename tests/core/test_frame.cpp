// The parallel-region helper and the instruction-set detection.
#include <cpuid.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <atomic>
#include <vector>

#include "core/isa.h"
#include "core/parallel.h"
#include "vekcore.h"
#include "vekr.h"

namespace {

TEST(Parallel, PartitionsCoverTheRangeOnce)
{
    for (int count : {0, 1, 5, 16, 17, 100}) {
        for (int team = 1; team <= 5; ++team) {
            std::vector<int> hits(count, 0);
            for (int t = 0; t < team; ++t) {
                const vekr::Range a = vekr::lastTakesRest(count, t, team);
                for (int i = a.begin; i < a.end; ++i) hits[i]++;
            }
            for (int h : hits) EXPECT_EQ(h, 1);
            std::vector<int> hits2(count, 0);
            int prevEnd = 0;
            for (int t = 0; t < team; ++t) {
                const vekr::Range b = vekr::staticBlock(count, t, team);
                EXPECT_EQ(b.begin, prevEnd);
                prevEnd = b.end;
                for (int i = b.begin; i < b.end; ++i) hits2[i]++;
            }
            EXPECT_EQ(prevEnd, count);
            for (int h : hits2) EXPECT_EQ(h, 1);
        }
    }
    // The last thread takes the remainder: 17 over 3 is 5, 5, 7.
    EXPECT_EQ(vekr::lastTakesRest(17, 2, 3).begin, 10);
    EXPECT_EQ(vekr::lastTakesRest(17, 2, 3).end, 17);
    // The static schedule gives the first threads one more: 6, 6, 5.
    EXPECT_EQ(vekr::staticBlock(17, 1, 3).begin, 6);
    EXPECT_EQ(vekr::staticBlock(17, 2, 3).end, 17);
}

TEST(Parallel, SerializedInsideActiveRegion)
{
    // With nesting off the runtime does not fork inside a region: the body
    // must run once as a team of one and still cover the whole range.
    const int oldLevels = omp_get_max_active_levels();
    omp_set_max_active_levels(1);
    std::vector<int> out(64, 0);
    int seenTeam = -1;
#pragma omp parallel num_threads(2)
    {
#pragma omp master
        vekr::parallelFor(4, 64, vekr::lastTakesRest, [&](int b, int e, int, int team) {
            seenTeam = team;
            for (int i = b; i < e; ++i) out[i] += 1;
        });
    }
    omp_set_max_active_levels(oldLevels);
    EXPECT_EQ(seenTeam, 1);
    for (int v : out) EXPECT_EQ(v, 1);
}

TEST(Parallel, ExceptionsReachTheCaller)
{
    EXPECT_THROW(vekr::parallelRegion(2, [](int t, int) {
                     if (t == 0) throw std::bad_alloc();
                 }),
                 std::bad_alloc);
}

TEST(Isa, DetectionIsConsistent)
{
    EXPECT_TRUE(vekr::isaSupported(vekr::Isa::Sse41));
    EXPECT_TRUE(vekr::isaSupported(vekr::bestIsa()));
    if (vekr::isaSupported(vekr::Isa::Avx512)) {
        EXPECT_TRUE(vekr::isaSupported(vekr::Isa::Avx2));
    }
}

// Made-up processors: everything a level is compiled with, less one feature
// or one register state the OS does not save, gives the level below.
TEST(Isa, EveryCompiledFeatureAndSavedStateIsRequired)
{
    using vekr::Isa;
    const vekr::CpuWords all{bit_SSE3 | bit_SSSE3 | bit_SSE4_1 | bit_SSE4_2 | bit_POPCNT | bit_OSXSAVE | bit_AVX |
                                 bit_FMA | bit_F16C,
                             bit_AVX2 | bit_BMI | bit_BMI2 | bit_AVX512F | bit_AVX512BW | bit_AVX512DQ |
                                 bit_AVX512VL | bit_AVX512CD,
                             bit_AVX512VNNI, bit_LZCNT, 0xE7};
    struct Row {
        int word;  // 0-3: the CPUID words in order, 4: XCR0
        unsigned long long cleared;
        Isa best;
    };
    const Row rows[] = {{0, 0, Isa::Avx512},           {0, bit_POPCNT, Isa::Sse41},   {0, bit_F16C, Isa::Sse41},
                        {0, bit_FMA, Isa::Sse41},      {0, bit_OSXSAVE, Isa::Sse41},  {1, bit_BMI, Isa::Sse41},
                        {1, bit_BMI2, Isa::Sse41},     {3, bit_LZCNT, Isa::Sse41},    {4, 0x4, Isa::Sse41},
                        {1, bit_AVX512VL, Isa::Avx2},  {1, bit_AVX512DQ, Isa::Avx2},  {2, bit_AVX512VNNI, Isa::Avx2},
                        {4, 0x20, Isa::Avx2},          {4, 0x80, Isa::Avx2}};
    for (const Row& r : rows) {
        vekr::CpuWords cpu = all;
        unsigned* words[] = {&cpu.leaf1c, &cpu.leaf7b, &cpu.leaf7c, &cpu.ext1c};
        if (r.word < 4) *words[r.word] &= ~static_cast<unsigned>(r.cleared);
        else cpu.xcr0 &= ~r.cleared;
        Isa best = Isa::Sse41;
        for (Isa isa : {Isa::Avx2, Isa::Avx512})
            if (vekr::isaRuns(isa, cpu)) best = isa;
        EXPECT_EQ(best, r.best) << "word " << r.word << " without 0x" << std::hex << r.cleared;
        EXPECT_TRUE(vekr::isaRuns(Isa::Sse41, cpu) || r.cleared == bit_POPCNT);
    }
}

}  // namespace
