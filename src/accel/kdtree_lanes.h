// Lane traits of the KD build's wide kernels: one 16-lane register per
// block on AVX-512, one 8-lane register on AVX2; costs in double precision
// in two halves.  Only the per-level kernel files include this.
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "core/isa.h"

namespace vekr {
VEKR_LEVEL_BEGIN
namespace kd {

#if defined(__AVX512F__)
// One 16-lane register per block; doubles in two halves of 8.
struct Lanes {
    static constexpr int L = 16;
    using I = __m512i;
    using F = __m512;
    using D = __m512d;
    static I loadI(const int32_t* p) { return _mm512_loadu_si512(p); }
    static I splatI(int32_t v) { return _mm512_set1_epi32(v); }
    static I laneIndex() { return _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15); }
    static I add(I a, I b) { return _mm512_add_epi32(a, b); }
    static I sub(I a, I b) { return _mm512_sub_epi32(a, b); }
    static I kinds(I e) { return _mm512_and_si512(e, _mm512_set1_epi32(1)); }
    static F splat(float v) { return _mm512_set1_ps(v); }
    static F gatherClamped(const float* base, I idx, F lo, F hi)
    {
        return _mm512_min_ps(_mm512_max_ps(_mm512_i32gather_ps(idx, base, 4), lo), hi);
    }
    // Lanes 1..15 of x, then `after`.
    static F nextLanes(F x, float after)
    {
        return _mm512_castsi512_ps(_mm512_alignr_epi32(_mm512_castps_si512(_mm512_set1_ps(after)),
                                                       _mm512_castps_si512(x), 1));
    }
    // Inclusive prefix sum over the lanes.
    static I prefix(I v)
    {
        const I z = _mm512_setzero_si512();
        v = _mm512_add_epi32(v, _mm512_alignr_epi32(v, z, 15));
        v = _mm512_add_epi32(v, _mm512_alignr_epi32(v, z, 14));
        v = _mm512_add_epi32(v, _mm512_alignr_epi32(v, z, 12));
        return _mm512_add_epi32(v, _mm512_alignr_epi32(v, z, 8));
    }
    static uint32_t equal(F a, F b) { return _mm512_cmp_ps_mask(a, b, _CMP_EQ_OQ); }
    static uint32_t equal(I a, I b) { return _mm512_cmpeq_epi32_mask(a, b); }
    static D half(I v, int h)
    {
        if (h == 1) v = _mm512_shuffle_i64x2(v, v, 0xEE);  // the upper 8 lanes down
        return _mm512_cvtepi32_pd(_mm512_castsi512_si256(v));
    }
    static D half(F v, int h)
    {
        if (h == 1) v = _mm512_shuffle_f32x4(v, v, 0xEE);
        return _mm512_cvtps_pd(_mm512_castps512_ps256(v));
    }
    static D splatD(double v) { return _mm512_set1_pd(v); }
    static uint32_t less(D a, D b) { return _mm512_cmp_pd_mask(a, b, _CMP_LT_OQ); }
    // The least of the costs of the lanes in `lanes` (not empty), and the
    // first lane that holds it.
    static int firstLeast(const D c[2], uint32_t lanes, double& least)
    {
        const D inf = _mm512_set1_pd(__builtin_inf());
        const D v0 = _mm512_mask_blend_pd(static_cast<__mmask8>(lanes), inf, c[0]);
        const D v1 = _mm512_mask_blend_pd(static_cast<__mmask8>(lanes >> 8), inf, c[1]);
        least = _mm512_reduce_min_pd(_mm512_min_pd(v0, v1));
        const D m = _mm512_set1_pd(least);
        const uint32_t at = _mm512_cmp_pd_mask(v0, m, _CMP_EQ_OQ) |
                            (static_cast<uint32_t>(_mm512_cmp_pd_mask(v1, m, _CMP_EQ_OQ)) << 8);
        return __builtin_ctz(at);
    }
    static void store(double* p, D v) { _mm512_storeu_pd(p, v); }
    static void store(float* p, F v) { _mm512_storeu_ps(p, v); }
    static void store(int32_t* p, I v) { _mm512_storeu_si512(p, v); }
    static I shiftRight(I v, int s) { return _mm512_srli_epi32(v, s); }
    static F gather(const float* base, I idx) { return _mm512_i32gather_ps(idx, base, 4); }
    // max and min give their second operand when the first is NaN.
    static F max(F a, F b) { return _mm512_max_ps(a, b); }
    static F min(F a, F b) { return _mm512_min_ps(a, b); }
    static uint32_t less(F a, F b) { return _mm512_cmp_ps_mask(a, b, _CMP_LT_OQ); }
    // Four bytes from base + v per lane.
    static I gatherBytes(const uint8_t* base, I v) { return _mm512_i32gather_epi32(v, base, 1); }
    static uint32_t hasBit(I v, int32_t bit) { return _mm512_test_epi32_mask(v, _mm512_set1_epi32(bit)); }
    // Writes the lanes of `keep`, in order, to dst; nothing past them.
    static void compressStore(int32_t* dst, I v, uint32_t keep)
    {
        const __mmask16 k = static_cast<__mmask16>(keep);
        const __mmask16 first = static_cast<__mmask16>((1u << __builtin_popcount(keep)) - 1u);
        _mm512_mask_storeu_epi32(dst, first, _mm512_maskz_compress_epi32(k, v));
    }
};
#elif defined(__AVX2__)
// One 8-lane register per block; doubles in two halves of 4.
struct Lanes {
    static constexpr int L = 8;
    using I = __m256i;
    using F = __m256;
    using D = __m256d;
    static I loadI(const int32_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static I splatI(int32_t v) { return _mm256_set1_epi32(v); }
    static I laneIndex() { return _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7); }
    static I add(I a, I b) { return _mm256_add_epi32(a, b); }
    static I sub(I a, I b) { return _mm256_sub_epi32(a, b); }
    static I kinds(I e) { return _mm256_and_si256(e, _mm256_set1_epi32(1)); }
    static F splat(float v) { return _mm256_set1_ps(v); }
    static F gatherClamped(const float* base, I idx, F lo, F hi)
    {
        return _mm256_min_ps(_mm256_max_ps(_mm256_i32gather_ps(base, idx, 4), lo), hi);
    }
    static F nextLanes(F x, float after)
    {
        const F shifted = _mm256_permutevar8x32_ps(x, _mm256_setr_epi32(1, 2, 3, 4, 5, 6, 7, 7));
        return _mm256_blend_ps(shifted, _mm256_set1_ps(after), 0x80);
    }
    // Lane l plus lane l - s (zero below s), for s = 1, 2, 4.
    static I prefix(I v)
    {
        const I lane = laneIndex();
        for (int s = 1; s < 8; s *= 2) {
            const I from = _mm256_sub_epi32(lane, _mm256_set1_epi32(s));
            const I moved = _mm256_permutevar8x32_epi32(v, from);
            v = _mm256_add_epi32(v, _mm256_and_si256(moved, _mm256_cmpgt_epi32(lane, _mm256_set1_epi32(s - 1))));
        }
        return v;
    }
    static uint32_t equal(F a, F b) { return _mm256_movemask_ps(_mm256_cmp_ps(a, b, _CMP_EQ_OQ)); }
    static uint32_t equal(I a, I b) { return _mm256_movemask_ps(_mm256_castsi256_ps(_mm256_cmpeq_epi32(a, b))); }
    static D half(I v, int h)
    {
        return _mm256_cvtepi32_pd(h == 0 ? _mm256_castsi256_si128(v) : _mm256_extracti128_si256(v, 1));
    }
    static D half(F v, int h)
    {
        return _mm256_cvtps_pd(h == 0 ? _mm256_castps256_ps128(v) : _mm256_extractf128_ps(v, 1));
    }
    static D splatD(double v) { return _mm256_set1_pd(v); }
    static uint32_t less(D a, D b) { return _mm256_movemask_pd(_mm256_cmp_pd(a, b, _CMP_LT_OQ)); }
    static int firstLeast(const D c[2], uint32_t lanes, double& least)
    {
        const __m256i bit = _mm256_setr_epi64x(1, 2, 4, 8);
        const D inf = _mm256_set1_pd(__builtin_inf());
        D v[2];
        for (int h = 0; h < 2; ++h) {
            const __m256i sel = _mm256_and_si256(_mm256_set1_epi64x((lanes >> (4 * h)) & 15u), bit);
            v[h] = _mm256_blendv_pd(inf, c[h], _mm256_castsi256_pd(_mm256_cmpeq_epi64(sel, bit)));
        }
        D t = _mm256_min_pd(v[0], v[1]);
        t = _mm256_min_pd(t, _mm256_permute4x64_pd(t, 0x4E));  // swap the 128-bit halves
        t = _mm256_min_pd(t, _mm256_permute_pd(t, 0x5));       // swap within them
        least = _mm256_cvtsd_f64(t);
        const uint32_t at = static_cast<uint32_t>(_mm256_movemask_pd(_mm256_cmp_pd(v[0], t, _CMP_EQ_OQ))) |
                            (static_cast<uint32_t>(_mm256_movemask_pd(_mm256_cmp_pd(v[1], t, _CMP_EQ_OQ))) << 4);
        return __builtin_ctz(at);
    }
    static void store(double* p, D v) { _mm256_storeu_pd(p, v); }
    static void store(float* p, F v) { _mm256_storeu_ps(p, v); }
    static void store(int32_t* p, I v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
    static I shiftRight(I v, int s) { return _mm256_srli_epi32(v, s); }
    static F gather(const float* base, I idx) { return _mm256_i32gather_ps(base, idx, 4); }
    static F max(F a, F b) { return _mm256_max_ps(a, b); }
    static F min(F a, F b) { return _mm256_min_ps(a, b); }
    static uint32_t less(F a, F b) { return _mm256_movemask_ps(_mm256_cmp_ps(a, b, _CMP_LT_OQ)); }
    static I gatherBytes(const uint8_t* base, I v)
    {
        return _mm256_i32gather_epi32(reinterpret_cast<const int*>(base), v, 1);
    }
    static uint32_t hasBit(I v, int32_t bit)
    {
        const I b = _mm256_set1_epi32(bit);
        return equal(_mm256_and_si256(v, b), b);
    }
    // The lanes of `keep` moved to the front by a permutation built from
    // the mask (one index byte per lane, picked with pext), then stored
    // under a mask of as many lanes.
    static void compressStore(int32_t* dst, I v, uint32_t keep)
    {
        const uint64_t spread = _pdep_u64(keep, 0x0101010101010101ull) * 0xFFu;
        const uint64_t picks = _pext_u64(0x0706050403020100ull, spread);
        const I order = _mm256_cvtepu8_epi32(_mm_cvtsi64_si128(static_cast<long long>(picks)));
        const I count = _mm256_set1_epi32(__builtin_popcount(keep));
        _mm256_maskstore_epi32(dst, _mm256_cmpgt_epi32(count, laneIndex()), _mm256_permutevar8x32_epi32(v, order));
    }
};
#endif


}  // namespace kd
VEKR_LEVEL_END
}  // namespace vekr
