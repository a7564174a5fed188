// The cost sweep over a node's event stream, a block of lanes at a time.
//
// Per block: the bounds are gathered and kept inside the cell; the counts
// below and above every event come from a prefix sum of the event kinds;
// whether an event is a position comes from comparing it with its
// neighbours (a tie: the same kind at the same place); the costs are
// evaluated in double precision in the same order as the one-event loop.
// The lanes that beat the best cost so far are then taken in stream order,
// so the result is the loop's to the bit.
#include <immintrin.h>

// GCC 12 reports the AVX-512 intrinsics' deliberately undefined pass-through
// operands as maybe uninitialized once they are inlined into this loop.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

#include "accel/kdtree_cost.h"

namespace vekr {
namespace VEKR_ISA_NS {

namespace {

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
};
#endif

#if defined(__AVX2__)
template <class W>
int32_t sweepBlocks(const ::vekr::kd::EventInput& in, double r, ::vekr::kd::SweepState& st)
{
    using I = typename W::I;
    using F = typename W::F;
    using D = typename W::D;
    constexpr int L = W::L, H = L / 2;
    constexpr uint32_t kAll = (1u << L) - 1u;
    const int32_t m = in.m, total = 2 * m;
    const int32_t* ev = in.events;
    const float* bound = in.bounds;
    const float lo = in.lo, hi = in.hi;
    const F vlo = W::splat(lo), vhi = W::splat(hi);
    const D dlo = W::splatD(lo), dhi = W::splatD(hi), dr = W::splatD(r);
    const I lane = W::laneIndex();
    alignas(64) float place[L];
    alignas(64) int32_t below[L], above[L];
    uint32_t carry = 0;  // the last event of the block before ties with the first of this one
    int32_t k = 0;
    for (; k + L < total; k += L) {
        const I e = W::loadI(ev + k);
        const I kind = W::kinds(e);  // 1: an end
        const F x = W::gatherClamped(bound, e, vlo, vhi);
        const int32_t after = ev[k + L];
        const F xNext = W::nextLanes(x, kd::clampEvent(bound[after], lo, hi));
        const I kindNext = W::kinds(W::loadI(ev + k + 1));
        const uint32_t ends = W::equal(kind, W::splatI(1));
        const uint32_t tieNext = W::equal(x, xNext) & W::equal(kind, kindNext);
        const uint32_t tiePrev = ((tieNext << 1) | carry) & kAll;
        carry = tieNext >> (L - 1);
        // An end is a position unless an end at its place follows; a start
        // unless a start at its place precedes.
        const uint32_t exact = (ends & ~tieNext) | (~ends & ~tiePrev & kAll);
        // Ends up to and including each lane; starts strictly before it.
        const I endsTo = W::prefix(kind);
        const I b = W::add(W::splatI(st.i), W::add(W::sub(lane, endsTo), kind));
        const I a = W::sub(W::splatI(m - st.j), endsTo);
        const D best = W::splatD(st.bestCost);
        uint32_t better = 0;
        D c[2];
        for (int h = 0; h < 2; ++h) {
            const D xd = W::half(x, h);
            c[h] = W::half(b, h) * ((xd - dlo) + dr) + W::half(a, h) * ((dhi - xd) + dr);
            better |= W::less(c[h], best) << (h * H);
        }
        better &= exact;
        // The loop would take the better lanes in turn, each only when it
        // beats the last: it ends on the first lane of the least cost.
        if (better) {
            double least;
            const int l = W::firstLeast(c, better, least);
            W::store(place, x);
            W::store(below, b);
            W::store(above, a);
            st.bestCost = least;
            st.bestX = place[l];
            st.bestBelow = below[l];
            st.bestAbove = above[l];
        }
        const int32_t endCount = __builtin_popcount(ends);
        st.j += endCount;
        st.i += L - endCount;
    }
    if (k > 0) {
        st.prevX = kd::clampEvent(bound[ev[k - 1]], lo, hi);
        st.prevStart = (ev[k - 1] & 1) ^ 1;
    }
    return k;
}
#endif

}  // namespace

int32_t sweepEventBlocks(const ::vekr::kd::EventInput& in, double r, ::vekr::kd::SweepState& st)
{
#if defined(__AVX2__)
    return sweepBlocks<Lanes>(in, r, st);
#else
    (void)in;
    (void)r;
    (void)st;
    return 0;
#endif
}

}  // namespace VEKR_ISA_NS
}  // namespace vekr
