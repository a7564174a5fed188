// The divisor rule of the volume filter: a 32-bit sum becomes an int16 voxel
// by saturation (divisor 1), by a shift that rounds half to even (powers of
// two), or by a float product with the reciprocal rounded to even (others).
#include <immintrin.h>

#include "volume/filter.h"

namespace vekr::filter {

Divisor makeDivisor(int32_t divisor) noexcept
{
    Divisor d;
    if (divisor == 1) {
        d.rule = DivRule::One;
    } else if (divisor > 1 && (divisor & (divisor - 1)) == 0) {
        d.rule = DivRule::Shift;
        d.shift = __builtin_ctz(static_cast<unsigned>(divisor));
    } else {
        d.rule = DivRule::Float;
        d.recip = 1.0f / static_cast<float>(divisor);
    }
    return d;
}

namespace {

inline int16_t saturate16(int32_t v) noexcept
{
    return static_cast<int16_t>(v < -32768 ? -32768 : v > 32767 ? 32767 : v);
}

// (s + 2^(n-1) - 1 + ((s >> n) & 1)) >> n, exact for every 32-bit s: with
// s = q * 2^n + r (0 <= r < 2^n) it is q + ((r + 2^(n-1) - 1 + (q & 1)) >> n),
// and neither sum can leave 32 bits (n <= 30).
inline int32_t shiftHalfEven(int32_t s, int n) noexcept
{
    const int32_t q = s >> n;
    const int32_t r = s & ((1 << n) - 1);
    return q + ((r + (1 << (n - 1)) - 1 + (q & 1)) >> n);
}

// float(s) * recip, clamped to the int16 range while still a float (the
// bounds are integers, so clamping commutes with the rounding) and rounded to
// the nearest integer, ties to even, by the processor's default mode.
inline int32_t floatRound(int32_t s, float recip) noexcept
{
    __m128 f = _mm_mul_ss(_mm_cvtsi32_ss(_mm_setzero_ps(), s), _mm_set_ss(recip));
    f = _mm_min_ss(_mm_max_ss(f, _mm_set_ss(-32768.0f)), _mm_set_ss(32767.0f));
    return _mm_cvtss_si32(f);
}

// Four sums converted, still as 32-bit lanes (the caller packs with
// saturation).
template <DivRule R>
struct Scale4 {
    __m128i shiftCount, half, one, low;
    __m128 recip, lo, hi;

    explicit Scale4(const Divisor& d)
        : shiftCount(_mm_cvtsi32_si128(d.shift)),
          half(_mm_set1_epi32(d.rule == DivRule::Shift ? (1 << (d.shift - 1)) - 1 : 0)),
          one(_mm_set1_epi32(1)),
          low(_mm_set1_epi32(d.rule == DivRule::Shift ? (1 << d.shift) - 1 : 0)),
          recip(_mm_set1_ps(d.recip)),
          lo(_mm_set1_ps(-32768.0f)),
          hi(_mm_set1_ps(32767.0f))
    {
    }

    __m128i operator()(__m128i s) const noexcept
    {
        if constexpr (R == DivRule::One) {
            return s;
        } else if constexpr (R == DivRule::Shift) {
            // As shiftHalfEven: quotient plus the rounded remainder.
            const __m128i q = _mm_sra_epi32(s, shiftCount);
            const __m128i r = _mm_and_si128(s, low);
            const __m128i t = _mm_add_epi32(_mm_add_epi32(r, half), _mm_and_si128(q, one));
            return _mm_add_epi32(q, _mm_sra_epi32(t, shiftCount));
        } else {
            __m128 f = _mm_mul_ps(_mm_cvtepi32_ps(s), recip);
            f = _mm_min_ps(_mm_max_ps(f, lo), hi);
            return _mm_cvtps_epi32(f);
        }
    }
};

template <DivRule R>
void scaleRowAs(const int32_t* sums, int16_t* dst, int width, const Divisor& d) noexcept
{
    const Scale4<R> sc(d);
    auto s4 = [&](int x) { return sc(_mm_load_si128(reinterpret_cast<const __m128i*>(sums + x))); };
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const __m128i a = _mm_packs_epi32(s4(x), s4(x + 4));
        const __m128i b = _mm_packs_epi32(s4(x + 8), s4(x + 12));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), a);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x + 8), b);
    }
    if (x + 8 <= width) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), _mm_packs_epi32(s4(x), s4(x + 4)));
        x += 8;
    }
    if (x + 4 <= width) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + x), _mm_packs_epi32(s4(x), s4(x)));
        x += 4;
    }
    for (; x < width; ++x) dst[x] = scaleSum(sums[x], d);
}

}  // namespace

int16_t scaleSum(int32_t sum, const Divisor& d) noexcept
{
    switch (d.rule) {
    case DivRule::One:
        return saturate16(sum);
    case DivRule::Shift:
        return saturate16(shiftHalfEven(sum, d.shift));
    case DivRule::Float:
    default:
        return static_cast<int16_t>(floatRound(sum, d.recip));
    }
}

void scaleRow(const int32_t* sums, int16_t* dst, int width, const Divisor& d) noexcept
{
    switch (d.rule) {
    case DivRule::One:
        scaleRowAs<DivRule::One>(sums, dst, width, d);
        break;
    case DivRule::Shift:
        scaleRowAs<DivRule::Shift>(sums, dst, width, d);
        break;
    case DivRule::Float:
        scaleRowAs<DivRule::Float>(sums, dst, width, d);
        break;
    }
}

}  // namespace vekr::filter
