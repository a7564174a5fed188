// Small inline helpers over the SSE intrinsics, used by the 4-wide paths.
// Wider helpers (AVX2, AVX-512) live beside them behind the compiler's ISA
// macros, so a kernel compiled per level picks up what its level allows.
#pragma once

#include <immintrin.h>

#include <cstdint>
#include <cstring>

#include "core/isa.h"

namespace vekr {
VEKR_LEVEL_BEGIN
namespace simd {

// ---- 4 x float -------------------------------------------------------------

struct F4 {
    __m128 v;
    F4() = default;
    F4(__m128 x) : v(x) {}
    explicit F4(float s) : v(_mm_set1_ps(s)) {}
    operator __m128() const { return v; }
};

inline F4 load4(const float* p) { return _mm_load_ps(p); }
inline F4 loadu4(const float* p) { return _mm_loadu_ps(p); }
inline void store4(float* p, F4 a) { _mm_store_ps(p, a); }
inline void storeu4(float* p, F4 a) { _mm_storeu_ps(p, a); }
inline F4 zero4() { return _mm_setzero_ps(); }
inline F4 set4(float a, float b, float c, float d) { return _mm_setr_ps(a, b, c, d); }

inline F4 operator+(F4 a, F4 b) { return _mm_add_ps(a, b); }
inline F4 operator-(F4 a, F4 b) { return _mm_sub_ps(a, b); }
inline F4 operator*(F4 a, F4 b) { return _mm_mul_ps(a, b); }
inline F4 operator/(F4 a, F4 b) { return _mm_div_ps(a, b); }
inline F4 operator&(F4 a, F4 b) { return _mm_and_ps(a, b); }
inline F4 operator|(F4 a, F4 b) { return _mm_or_ps(a, b); }
inline F4 operator^(F4 a, F4 b) { return _mm_xor_ps(a, b); }
inline F4 andnot(F4 a, F4 b) { return _mm_andnot_ps(a, b); }  // ~a & b
inline F4 min(F4 a, F4 b) { return _mm_min_ps(a, b); }
inline F4 max(F4 a, F4 b) { return _mm_max_ps(a, b); }
inline F4 sqrt(F4 a) { return _mm_sqrt_ps(a); }
inline F4 abs(F4 a) { return _mm_andnot_ps(_mm_set1_ps(-0.0f), a); }

// Comparisons give all-ones lanes where true.
inline F4 operator<(F4 a, F4 b) { return _mm_cmplt_ps(a, b); }
inline F4 operator<=(F4 a, F4 b) { return _mm_cmple_ps(a, b); }
inline F4 operator>(F4 a, F4 b) { return _mm_cmpgt_ps(a, b); }
inline F4 operator>=(F4 a, F4 b) { return _mm_cmpge_ps(a, b); }
inline F4 operator==(F4 a, F4 b) { return _mm_cmpeq_ps(a, b); }

// mask ? a : b, lane by lane (mask lanes all-ones or all-zeros).
inline F4 select(F4 mask, F4 a, F4 b) { return _mm_blendv_ps(b, a, mask); }
inline int movemask(F4 m) { return _mm_movemask_ps(m); }
inline bool any(F4 m) { return _mm_movemask_ps(m) != 0; }
inline bool all(F4 m) { return _mm_movemask_ps(m) == 0xF; }

// Reciprocal from the hardware approximation refined by one Newton step:
// r = 2*y0 - x*y0*y0, evaluated in that association.
inline F4 rcpNewton(F4 x)
{
    const __m128 y0 = _mm_rcp_ps(x);
    return _mm_sub_ps(_mm_add_ps(y0, y0), _mm_mul_ps(_mm_mul_ps(x, y0), y0));
}

// Reciprocal square root refined by one Newton step: -0.5*r0*(s*r0^2 - 3),
// evaluated as (-0.5*r0) * (s*(r0*r0) - 3): the square of r0 is formed first.
inline F4 rsqrtNewton(F4 s)
{
    const __m128 r0 = _mm_rsqrt_ps(s);
    const __m128 t = _mm_sub_ps(_mm_mul_ps(s, _mm_mul_ps(r0, r0)), _mm_set1_ps(3.0f));
    return _mm_mul_ps(_mm_mul_ps(_mm_set1_ps(-0.5f), r0), t);
}

// ---- 4 x int32 -------------------------------------------------------------

struct I4 {
    __m128i v;
    I4() = default;
    I4(__m128i x) : v(x) {}
    explicit I4(int32_t s) : v(_mm_set1_epi32(s)) {}
    operator __m128i() const { return v; }
};

inline I4 loadi4(const int32_t* p) { return _mm_load_si128(reinterpret_cast<const __m128i*>(p)); }
inline I4 loadui4(const int32_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void storei4(int32_t* p, I4 a) { _mm_store_si128(reinterpret_cast<__m128i*>(p), a); }
inline void storeui4(int32_t* p, I4 a) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), a); }
inline F4 asFloat(I4 a) { return _mm_castsi128_ps(a); }
inline I4 asInt(F4 a) { return _mm_castps_si128(a); }
inline I4 operator+(I4 a, I4 b) { return _mm_add_epi32(a, b); }
inline I4 operator-(I4 a, I4 b) { return _mm_sub_epi32(a, b); }
inline I4 operator&(I4 a, I4 b) { return _mm_and_si128(a, b); }
inline I4 operator|(I4 a, I4 b) { return _mm_or_si128(a, b); }
inline I4 operator>(I4 a, I4 b) { return _mm_cmpgt_epi32(a, b); }
inline I4 operator==(I4 a, I4 b) { return _mm_cmpeq_epi32(a, b); }
inline I4 select(I4 mask, I4 a, I4 b) { return _mm_blendv_epi8(b, a, mask); }

// Lanes whose mask value is negative (inactive), as a 4-bit pattern.
inline int negativeLanes(I4 m) { return _mm_movemask_ps(_mm_castsi128_ps(m)); }

// ---- scalar bit casts ------------------------------------------------------

inline float bitsToFloat(uint32_t u)
{
    float f;
    std::memcpy(&f, &u, 4);
    return f;
}

inline uint32_t floatToBits(float f)
{
    uint32_t u;
    std::memcpy(&u, &f, 4);
    return u;
}

// ---- 8 x float (AVX) -------------------------------------------------------

#if defined(__AVX2__)
struct F8 {
    __m256 v;
    F8() = default;
    F8(__m256 x) : v(x) {}
    explicit F8(float s) : v(_mm256_set1_ps(s)) {}
    operator __m256() const { return v; }
};

inline F8 load8(const float* p) { return _mm256_load_ps(p); }
inline F8 loadu8(const float* p) { return _mm256_loadu_ps(p); }
inline void store8(float* p, F8 a) { _mm256_store_ps(p, a); }
inline void storeu8(float* p, F8 a) { _mm256_storeu_ps(p, a); }
inline F8 operator+(F8 a, F8 b) { return _mm256_add_ps(a, b); }
inline F8 operator-(F8 a, F8 b) { return _mm256_sub_ps(a, b); }
inline F8 operator*(F8 a, F8 b) { return _mm256_mul_ps(a, b); }
inline F8 operator/(F8 a, F8 b) { return _mm256_div_ps(a, b); }
inline F8 operator&(F8 a, F8 b) { return _mm256_and_ps(a, b); }
inline F8 operator|(F8 a, F8 b) { return _mm256_or_ps(a, b); }
inline F8 min(F8 a, F8 b) { return _mm256_min_ps(a, b); }
inline F8 max(F8 a, F8 b) { return _mm256_max_ps(a, b); }
inline F8 operator<(F8 a, F8 b) { return _mm256_cmp_ps(a, b, _CMP_LT_OQ); }
inline F8 operator<=(F8 a, F8 b) { return _mm256_cmp_ps(a, b, _CMP_LE_OQ); }
inline F8 operator>(F8 a, F8 b) { return _mm256_cmp_ps(a, b, _CMP_GT_OQ); }
inline F8 operator>=(F8 a, F8 b) { return _mm256_cmp_ps(a, b, _CMP_GE_OQ); }
inline F8 andnot(F8 a, F8 b) { return _mm256_andnot_ps(a, b); }  // ~a & b
inline F8 abs(F8 a) { return _mm256_andnot_ps(_mm256_set1_ps(-0.0f), a); }
inline F8 select(F8 mask, F8 a, F8 b) { return _mm256_blendv_ps(b, a, mask); }
inline int movemask(F8 m) { return _mm256_movemask_ps(m); }
inline bool any(F8 m) { return _mm256_movemask_ps(m) != 0; }
inline F8 rcpNewton(F8 x)
{
    const __m256 y0 = _mm256_rcp_ps(x);
    return _mm256_sub_ps(_mm256_add_ps(y0, y0), _mm256_mul_ps(_mm256_mul_ps(x, y0), y0));
}
#endif

// ---- 16 x float ------------------------------------------------------------
// One 4 x 4 tile of lanes.  With AVX-512 a single register and a 16-bit
// opmask; with AVX2 two 8-lane halves (lanes 0-7 and 8-15) whose masks are
// all-ones lanes, so the same kernel code runs, and is tested, on both.

#if defined(__AVX512F__)
struct M16 {
    __mmask16 k;
};
inline M16 operator&(M16 a, M16 b) { return {static_cast<__mmask16>(a.k & b.k)}; }
inline M16 operator|(M16 a, M16 b) { return {static_cast<__mmask16>(a.k | b.k)}; }
inline M16 andnot(M16 a, M16 b) { return {static_cast<__mmask16>(~a.k & b.k)}; }  // ~a & b
inline bool any(M16 m) { return m.k != 0; }
inline int movemask(M16 m) { return m.k; }

struct F16 {
    __m512 v;
    F16() = default;
    F16(__m512 x) : v(x) {}
    explicit F16(float s) : v(_mm512_set1_ps(s)) {}
    operator __m512() const { return v; }
};
inline F16 operator+(F16 a, F16 b) { return _mm512_add_ps(a, b); }
inline F16 operator-(F16 a, F16 b) { return _mm512_sub_ps(a, b); }
inline F16 operator*(F16 a, F16 b) { return _mm512_mul_ps(a, b); }
inline F16 operator/(F16 a, F16 b) { return _mm512_div_ps(a, b); }
// The zero-masking forms with every lane set compile to the plain
// instructions; the plain intrinsics trip GCC 12's uninitialised warnings.
constexpr __mmask16 kAll16 = 0xFFFF;
inline F16 min(F16 a, F16 b) { return _mm512_maskz_min_ps(kAll16, a, b); }
inline F16 max(F16 a, F16 b) { return _mm512_maskz_max_ps(kAll16, a, b); }
inline F16 abs(F16 a) { return _mm512_abs_ps(a); }
inline M16 operator<(F16 a, F16 b) { return {_mm512_cmp_ps_mask(a, b, _CMP_LT_OQ)}; }
inline M16 operator<=(F16 a, F16 b) { return {_mm512_cmp_ps_mask(a, b, _CMP_LE_OQ)}; }
inline M16 operator>(F16 a, F16 b) { return {_mm512_cmp_ps_mask(a, b, _CMP_GT_OQ)}; }
inline M16 operator>=(F16 a, F16 b) { return {_mm512_cmp_ps_mask(a, b, _CMP_GE_OQ)}; }
inline F16 select(M16 m, F16 a, F16 b) { return _mm512_mask_blend_ps(m.k, b, a); }
// The same bit patterns in both lanes (the lanes hold integers).
inline M16 sameBits(F16 a, F16 b)
{
    return {_mm512_cmpeq_epi32_mask(_mm512_castps_si512(a), _mm512_castps_si512(b))};
}
// Lanes whose sign bit is clear.
inline M16 signClear(F16 a) { return {static_cast<__mmask16>(~_mm512_movepi32_mask(_mm512_castps_si512(a)))}; }
inline M16 lanesOf(int bits) { return {static_cast<__mmask16>(bits)}; }
// The hardware approximation here is good to 14 bits; one Newton step as above.
inline F16 rcpNewton(F16 x)
{
    const __m512 y0 = _mm512_maskz_rcp14_ps(kAll16, x);
    return _mm512_sub_ps(_mm512_add_ps(y0, y0), _mm512_mul_ps(_mm512_mul_ps(x, y0), y0));
}
#elif defined(__AVX2__)
struct M16 {
    F8 lo, hi;
};
inline M16 operator&(M16 a, M16 b) { return {a.lo & b.lo, a.hi & b.hi}; }
inline M16 operator|(M16 a, M16 b) { return {a.lo | b.lo, a.hi | b.hi}; }
inline M16 andnot(M16 a, M16 b) { return {andnot(a.lo, b.lo), andnot(a.hi, b.hi)}; }
inline bool any(M16 m) { return !_mm256_testz_ps(_mm256_or_ps(m.lo, m.hi), _mm256_or_ps(m.lo, m.hi)); }
inline int movemask(M16 m) { return movemask(m.lo) | movemask(m.hi) << 8; }

struct F16 {
    F8 lo, hi;
    F16() = default;
    F16(F8 a, F8 b) : lo(a), hi(b) {}
    explicit F16(float s) : lo(s), hi(lo) {}
};
inline F16 operator+(F16 a, F16 b) { return {a.lo + b.lo, a.hi + b.hi}; }
inline F16 operator-(F16 a, F16 b) { return {a.lo - b.lo, a.hi - b.hi}; }
inline F16 operator*(F16 a, F16 b) { return {a.lo * b.lo, a.hi * b.hi}; }
inline F16 operator/(F16 a, F16 b) { return {a.lo / b.lo, a.hi / b.hi}; }
inline F16 min(F16 a, F16 b) { return {min(a.lo, b.lo), min(a.hi, b.hi)}; }
inline F16 max(F16 a, F16 b) { return {max(a.lo, b.lo), max(a.hi, b.hi)}; }
inline F16 abs(F16 a) { return {abs(a.lo), abs(a.hi)}; }
inline M16 operator<(F16 a, F16 b) { return {a.lo < b.lo, a.hi < b.hi}; }
inline M16 operator<=(F16 a, F16 b) { return {a.lo <= b.lo, a.hi <= b.hi}; }
inline M16 operator>(F16 a, F16 b) { return {a.lo > b.lo, a.hi > b.hi}; }
inline M16 operator>=(F16 a, F16 b) { return {a.lo >= b.lo, a.hi >= b.hi}; }
inline F16 select(M16 m, F16 a, F16 b) { return {select(m.lo, a.lo, b.lo), select(m.hi, a.hi, b.hi)}; }
inline F8 sameBits(F8 a, F8 b)
{
    return _mm256_castsi256_ps(_mm256_cmpeq_epi32(_mm256_castps_si256(a), _mm256_castps_si256(b)));
}
inline M16 sameBits(F16 a, F16 b) { return {sameBits(a.lo, b.lo), sameBits(a.hi, b.hi)}; }
inline F8 signClear(F8 a)
{
    return _mm256_castsi256_ps(_mm256_cmpgt_epi32(_mm256_castps_si256(a), _mm256_set1_epi32(-1)));
}
inline M16 signClear(F16 a) { return {signClear(a.lo), signClear(a.hi)}; }
inline F8 lanesOf8(int bits)
{
    const __m256i sel = _mm256_setr_epi32(1, 2, 4, 8, 16, 32, 64, 128);
    return _mm256_castsi256_ps(_mm256_cmpeq_epi32(_mm256_and_si256(_mm256_set1_epi32(bits), sel), sel));
}
inline M16 lanesOf(int bits) { return {lanesOf8(bits), lanesOf8(bits >> 8)}; }
inline F16 rcpNewton(F16 x) { return {rcpNewton(x.lo), rcpNewton(x.hi)}; }
#endif

}  // namespace simd
VEKR_LEVEL_END
}  // namespace vekr
