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

}  // namespace simd
VEKR_LEVEL_END
}  // namespace vekr
