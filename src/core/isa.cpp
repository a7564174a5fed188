#include "core/isa.h"

#include <cpuid.h>

namespace vekr {
namespace {

constexpr unsigned kLzcnt = bit_LZCNT;  // leaf 0x80000001 ECX

unsigned long long xgetbv0() noexcept
{
    unsigned lo, hi;
    __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return (static_cast<unsigned long long>(hi) << 32) | lo;
}

CpuWords readCpu() noexcept
{
    CpuWords cpu{};
    unsigned a, b, c, d;
    if (!__get_cpuid(1, &a, &b, &c, &d)) return cpu;
    cpu.leaf1c = c;
    if (c & bit_OSXSAVE) cpu.xcr0 = xgetbv0();
    if (__get_cpuid_max(0, nullptr) >= 7) {
        __cpuid_count(7, 0, a, b, c, d);
        cpu.leaf7b = b;
        cpu.leaf7c = c;
    }
    if (__get_cpuid(0x80000001u, &a, &b, &c, &d)) cpu.ext1c = c;
    return cpu;
}

bool has(unsigned word, unsigned bits) noexcept { return (word & bits) == bits; }

}  // namespace

// A level runs only where the processor has every feature its files are
// compiled with (cmake/VekrIsa.cmake) and the OS saves the registers it uses.
bool isaRuns(Isa isa, const CpuWords& cpu) noexcept
{
    const bool sse = has(cpu.leaf1c, bit_SSE3 | bit_SSSE3 | bit_SSE4_1 | bit_SSE4_2 | bit_POPCNT);
    if (isa == Isa::Sse41 || !sse) return sse;
    const bool avx2 = has(cpu.leaf1c, bit_OSXSAVE | bit_AVX | bit_FMA | bit_F16C) &&
                      has(cpu.leaf7b, bit_AVX2 | bit_BMI | bit_BMI2) && has(cpu.ext1c, kLzcnt) &&
                      (cpu.xcr0 & 0x6) == 0x6;  // XMM and YMM state
    if (isa == Isa::Avx2 || !avx2) return avx2;
    return has(cpu.leaf7b, bit_AVX512F | bit_AVX512BW | bit_AVX512DQ | bit_AVX512VL | bit_AVX512CD) &&
           has(cpu.leaf7c, bit_AVX512VNNI) &&
           (cpu.xcr0 & 0xE6) == 0xE6;  // and opmask, upper ZMM halves, ZMM16-31
}

bool isaSupported(Isa isa) noexcept
{
    return isaRuns(isa, readCpu());
}

Isa bestIsa() noexcept
{
    static const Isa best = [] {
        const CpuWords cpu = readCpu();
        return isaRuns(Isa::Avx512, cpu) ? Isa::Avx512 : isaRuns(Isa::Avx2, cpu) ? Isa::Avx2 : Isa::Sse41;
    }();
    return best;
}

const char* isaName(Isa isa) noexcept
{
    switch (isa) {
    case Isa::Avx512: return "avx512";
    case Isa::Avx2: return "avx2";
    default: return "sse41";
    }
}

}  // namespace vekr
