#include "core/isa.h"

#include <cpuid.h>

namespace vekr {
namespace {

// Feature bits, one word per CPUID register that holds them.
struct Cpu {
    unsigned l1c = 0, l7b = 0, l7c = 0, e1c = 0;  // leaf 1 ECX, leaf 7 EBX/ECX, leaf 0x80000001 ECX
    unsigned long long xcr0 = 0;                  // state the OS saves on a context switch
};

constexpr unsigned kLzcnt = bit_LZCNT;  // leaf 0x80000001 ECX

unsigned long long xgetbv0() noexcept
{
    unsigned lo, hi;
    __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return (static_cast<unsigned long long>(hi) << 32) | lo;
}

Cpu readCpu() noexcept
{
    Cpu cpu;
    unsigned a, b, c, d;
    if (!__get_cpuid(1, &a, &b, &c, &d)) return cpu;
    cpu.l1c = c;
    if (c & bit_OSXSAVE) cpu.xcr0 = xgetbv0();
    if (__get_cpuid_max(0, nullptr) >= 7) {
        __cpuid_count(7, 0, a, b, c, d);
        cpu.l7b = b;
        cpu.l7c = c;
    }
    if (__get_cpuid(0x80000001u, &a, &b, &c, &d)) cpu.e1c = c;
    return cpu;
}

bool has(unsigned word, unsigned bits) noexcept { return (word & bits) == bits; }

// A level runs only where the processor has every feature its files are
// compiled with (cmake/VekrIsa.cmake) and the OS saves the registers it uses.
bool detect(Isa isa, const Cpu& cpu) noexcept
{
    const bool sse = has(cpu.l1c, bit_SSE3 | bit_SSSE3 | bit_SSE4_1 | bit_SSE4_2 | bit_POPCNT);
    if (isa == Isa::Sse41 || !sse) return sse;
    const bool avx2 = has(cpu.l1c, bit_OSXSAVE | bit_AVX | bit_FMA | bit_F16C) &&
                      has(cpu.l7b, bit_AVX2 | bit_BMI | bit_BMI2) && has(cpu.e1c, kLzcnt) &&
                      (cpu.xcr0 & 0x6) == 0x6;  // XMM and YMM state
    if (isa == Isa::Avx2 || !avx2) return avx2;
    return has(cpu.l7b, bit_AVX512F | bit_AVX512BW | bit_AVX512DQ | bit_AVX512VL | bit_AVX512CD) &&
           has(cpu.l7c, bit_AVX512VNNI) &&
           (cpu.xcr0 & 0xE6) == 0xE6;  // and opmask, upper ZMM halves, ZMM16-31
}

}  // namespace

bool isaSupported(Isa isa) noexcept
{
    return detect(isa, readCpu());
}

Isa bestIsa() noexcept
{
    static const Isa best = [] {
        const Cpu cpu = readCpu();
        return detect(Isa::Avx512, cpu) ? Isa::Avx512 : detect(Isa::Avx2, cpu) ? Isa::Avx2 : Isa::Sse41;
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
