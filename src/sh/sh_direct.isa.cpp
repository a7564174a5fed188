// Closed-form spherical harmonics for four directions at once, in 64-bit
// arithmetic (four doubles per operation), rounded to 32-bit on store.
#include <immintrin.h>

#include "sh/sh_basis.h"

namespace vekr {
namespace VEKR_ISA_NS {
namespace {

#if defined(__AVX__)
struct D4 {
    __m256d v;
    D4() = default;
    explicit D4(double s) : v(_mm256_set1_pd(s)) {}
    explicit D4(__m256d a) : v(a) {}
};
inline D4 operator+(D4 a, D4 b) { return D4(_mm256_add_pd(a.v, b.v)); }
inline D4 operator-(D4 a, D4 b) { return D4(_mm256_sub_pd(a.v, b.v)); }
inline D4 operator*(D4 a, D4 b) { return D4(_mm256_mul_pd(a.v, b.v)); }
inline D4 operator-(D4 a) { return D4(_mm256_xor_pd(a.v, _mm256_set1_pd(-0.0))); }
inline D4 widen(const float* p) { return D4(_mm256_cvtps_pd(_mm_load_ps(p))); }
inline __m128 narrow(D4 a) { return _mm256_cvtpd_ps(a.v); }
#else
struct D4 {
    __m128d lo, hi;
    D4() = default;
    explicit D4(double s) : lo(_mm_set1_pd(s)), hi(lo) {}
    D4(__m128d a, __m128d b) : lo(a), hi(b) {}
};
inline D4 operator+(D4 a, D4 b) { return D4(_mm_add_pd(a.lo, b.lo), _mm_add_pd(a.hi, b.hi)); }
inline D4 operator-(D4 a, D4 b) { return D4(_mm_sub_pd(a.lo, b.lo), _mm_sub_pd(a.hi, b.hi)); }
inline D4 operator*(D4 a, D4 b) { return D4(_mm_mul_pd(a.lo, b.lo), _mm_mul_pd(a.hi, b.hi)); }
inline D4 operator-(D4 a)
{
    const __m128d s = _mm_set1_pd(-0.0);
    return D4(_mm_xor_pd(a.lo, s), _mm_xor_pd(a.hi, s));
}
inline D4 widen(const float* p)
{
    const __m128 f = _mm_load_ps(p);
    return D4(_mm_cvtps_pd(f), _mm_cvtps_pd(_mm_movehl_ps(f, f)));
}
inline __m128 narrow(D4 a) { return _mm_movelh_ps(_mm_cvtpd_ps(a.lo), _mm_cvtpd_ps(a.hi)); }
#endif

#include "sh/sh_closed_forms.inc"

struct LaneStore {
    float* soa;
    void operator()(int k, D4 v) const { _mm_store_ps(soa + 4 * k, narrow(v)); }
};

}  // namespace

void shDirectLanes(const float* x, const float* y, const float* z, unsigned L, float* soa)
{
    alignas(16) float px[4] = {x[0], x[1], x[2], x[3]};
    alignas(16) float py[4] = {y[0], y[1], y[2], y[3]};
    alignas(16) float pz[4] = {z[0], z[1], z[2], z[3]};
    ShTerms<D4> t;
    shTerms(t, widen(px), widen(py), widen(pz), L);
    LaneStore out{soa};
    shAllBands(t, L, out);
}

void shBandLanes(const float* x, const float* y, const float* z, unsigned l, float* soa)
{
    alignas(16) float px[4] = {x[0], x[1], x[2], x[3]};
    alignas(16) float py[4] = {y[0], y[1], y[2], y[3]};
    alignas(16) float pz[4] = {z[0], z[1], z[2], z[3]};
    ShTerms<D4> t;
    shTerms(t, widen(px), widen(py), widen(pz), l);
    LaneStore out{soa};
    shOneBand(t, l, out);
}

}  // namespace VEKR_ISA_NS
}  // namespace vekr
