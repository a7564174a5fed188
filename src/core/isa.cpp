#include "core/isa.h"

#include <cpuid.h>

namespace vekr {
namespace {

unsigned long long xgetbv0() noexcept
{
    unsigned lo, hi;
    __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return (static_cast<unsigned long long>(hi) << 32) | lo;
}

bool detect(Isa isa) noexcept
{
    unsigned a, b, c, d;
    if (!__get_cpuid(1, &a, &b, &c, &d)) return false;
    const bool sse42 = (c & bit_SSE4_2) && (c & bit_SSE4_1) && (c & bit_POPCNT);
    if (isa == Isa::Sse41) return sse42;
    const bool osxsave = c & bit_OSXSAVE;
    const bool fma = c & bit_FMA;
    if (!sse42 || !osxsave || !fma) return false;
    const unsigned long long xcr0 = xgetbv0();
    if ((xcr0 & 0x6) != 0x6) return false;  // XMM and YMM state enabled
    if (__get_cpuid_max(0, nullptr) < 7) return false;
    __cpuid_count(7, 0, a, b, c, d);
    const bool avx2 = (b & bit_AVX2) && (b & bit_BMI) && (b & bit_BMI2);
    if (isa == Isa::Avx2) return avx2;
    if ((xcr0 & 0xE6) != 0xE6) return false;  // opmask and ZMM state enabled
    return avx2 && (b & bit_AVX512F) && (b & bit_AVX512BW) && (b & bit_AVX512DQ) &&
           (b & bit_AVX512VL) && (b & bit_AVX512CD) && (c & bit_AVX512VNNI);
}

}  // namespace

bool isaSupported(Isa isa) noexcept
{
    return detect(isa);
}

Isa bestIsa() noexcept
{
    static const Isa best = detect(Isa::Avx512) ? Isa::Avx512
                            : detect(Isa::Avx2) ? Isa::Avx2
                                                : Isa::Sse41;
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
