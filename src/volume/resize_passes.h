// The resize kernels, written once over the layout (BlockVolume or
// SliceVolume) and the element type.
//
// Nearest: per destination slice, either a copy of the previous destination
// slice (same source slice) or a row-by-row pick through the x table.
//
// Linear and cubic (K = 2 or 4 taps per axis) are separable, x then y then z:
//  - x pass: a source row resampled to the destination columns into a ring
//    of K row buffers, keyed by source row so rows shared by consecutive
//    destination rows are resampled once;
//  - y pass: the K ring rows of a destination row combined into one row of
//    an intermediate plane (one plane per source slice, K planes kept and
//    reused by consecutive destination slices);
//  - z pass: the K planes of a destination slice combined and converted.
// Every combination has the same association in all three passes:
//   linear  (1 - t) * a + b * t
//   cubic   (p0 * w0 + p1 * w1) + (p2 * w2 + p3 * w3)
// in 32-bit float; the 4-wide loops compute exactly these per lane.
#pragma once

#include <immintrin.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "volume/convert.h"
#include "volume/interp.h"
#include "volume/layout.h"
#include "volume/resize_plan.h"

namespace vekr::volume {

template <class SrcL, class DstL>
void resizeNearest(const SrcL& src, const DstL& dst, const ResizePlan& plan,
                   const ResizeWork& w, int zBegin, int zEnd)
{
    using D = typename DstL::Element;
    const int W = w.x.count, H = w.y.count;
    const int X0 = plan.x.d0, Y0 = plan.y.d0, Z0 = plan.z.d0;
    const int32_t* xi = w.x.index;
    const size_t rowBytes = static_cast<size_t>(W) * sizeof(D);
    for (int k = zBegin; k < zEnd; ++k) {
        const int zd = Z0 + k;
        const int zs = w.z.index[k];
        if (k > zBegin && zs == w.z.index[k - 1]) {
            for (int j = 0; j < H; ++j)
                std::memcpy(dst.row(Y0 + j, zd) + X0, dst.row(Y0 + j, zd - 1) + X0, rowBytes);
            continue;
        }
        for (int j = 0; j < H; ++j) {
            D* out = dst.row(Y0 + j, zd) + X0;
            if (j > 0 && w.y.index[j] == w.y.index[j - 1]) {
                std::memcpy(out, dst.row(Y0 + j - 1, zd) + X0, rowBytes);
                continue;
            }
            const auto* in = src.row(w.y.index[j], zs);
            int i = 0;
            for (; i + 4 <= W; i += 4) {
                const D a = in[xi[i]], b = in[xi[i + 1]], c = in[xi[i + 2]], e = in[xi[i + 3]];
                out[i] = a;
                out[i + 1] = b;
                out[i + 2] = c;
                out[i + 3] = e;
            }
            for (; i < W; ++i) out[i] = in[xi[i]];
        }
    }
}

// ---- row combinations ------------------------------------------------------

// out[i] = (1 - t) * a[i] + b[i] * t over n floats.
inline void blend2(float* out, const float* a, const float* b, float t, int n) noexcept
{
    const float u = 1.0f - t;
    const __m128 vu = _mm_set1_ps(u), vt = _mm_set1_ps(t);
    int i = 0;
    for (; i + 4 <= n; i += 4)
        _mm_storeu_ps(out + i, _mm_add_ps(_mm_mul_ps(vu, _mm_loadu_ps(a + i)),
                                          _mm_mul_ps(_mm_loadu_ps(b + i), vt)));
    for (; i < n; ++i) out[i] = u * a[i] + b[i] * t;
}

// 4 lanes of (p0 * w0 + p1 * w1) + (p2 * w2 + p3 * w3).
inline __m128 combine4(const float* const p[4], const __m128 w[4], int i) noexcept
{
    return _mm_add_ps(
        _mm_add_ps(_mm_mul_ps(_mm_loadu_ps(p[0] + i), w[0]), _mm_mul_ps(_mm_loadu_ps(p[1] + i), w[1])),
        _mm_add_ps(_mm_mul_ps(_mm_loadu_ps(p[2] + i), w[2]), _mm_mul_ps(_mm_loadu_ps(p[3] + i), w[3])));
}

inline float combine1(const float* const p[4], const float* w, int i) noexcept
{
    return (p[0][i] * w[0] + p[1][i] * w[1]) + (p[2][i] * w[2] + p[3][i] * w[3]);
}

inline void blend4(float* out, const float* const p[4], const float* w, int n) noexcept
{
    const __m128 vw[4] = {_mm_set1_ps(w[0]), _mm_set1_ps(w[1]), _mm_set1_ps(w[2]),
                          _mm_set1_ps(w[3])};
    int i = 0;
    for (; i + 4 <= n; i += 4) _mm_storeu_ps(out + i, combine4(p, vw, i));
    for (; i < n; ++i) out[i] = combine1(p, w, i);
}

// ---- x pass ------------------------------------------------------------------

// Two consecutive source voxels at p and two at q as floats [p0, p1, q0, q1].
inline __m128 load2x2AsFloat(const float* p, const float* q) noexcept
{
    const __m128i a = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
    const __m128i b = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(q));
    return _mm_castsi128_ps(_mm_unpacklo_epi64(a, b));
}
inline __m128 load2x2AsFloat(const uint8_t* p, const uint8_t* q) noexcept
{
    uint16_t a, b;
    std::memcpy(&a, p, 2);
    std::memcpy(&b, q, 2);
    return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(int32_t(a) | (int32_t(b) << 16))));
}
inline __m128 load2x2AsFloat(const uint16_t* p, const uint16_t* q) noexcept
{
    int32_t a, b;
    std::memcpy(&a, p, 4);
    std::memcpy(&b, q, 4);
    return _mm_cvtepi32_ps(_mm_cvtepu16_epi32(_mm_insert_epi32(_mm_cvtsi32_si128(a), b, 1)));
}

// Border columns through the clamped tap table; the middle run reads each
// pair i, i+1 together, multiplies by (1 - t, t) and adds the two products
// with a horizontal add: (1 - t) * a + b * t, as the scalar form.
template <class S>
void xPassLinear(float* out, const S* in, const ResizeWork& w) noexcept
{
    const int W = w.x.count;
    const int32_t* tap = w.xTaps;
    const float* t = w.x.frac;
    const float* pw = w.xPairWeights;
    auto one = [&](int i) {
        const float a = static_cast<float>(in[tap[2 * i]]);
        const float b = static_cast<float>(in[tap[2 * i + 1]]);
        out[i] = (1.0f - t[i]) * a + b * t[i];
    };
    int i = 0;
    for (; i < w.xMidBegin; ++i) one(i);
    for (; i + 4 <= w.xMidEnd; i += 4) {
        const __m128 m01 = _mm_mul_ps(load2x2AsFloat(in + tap[2 * i], in + tap[2 * i + 2]),
                                      _mm_loadu_ps(pw + 2 * i));
        const __m128 m23 = _mm_mul_ps(load2x2AsFloat(in + tap[2 * i + 4], in + tap[2 * i + 6]),
                                      _mm_loadu_ps(pw + 2 * i + 4));
        _mm_storeu_ps(out + i, _mm_hadd_ps(m01, m23));
    }
    for (; i < W; ++i) one(i);
}

// Four consecutive source voxels from p as floats.
inline __m128 load4AsFloat(const float* p) noexcept { return _mm_loadu_ps(p); }
inline __m128 load4AsFloat(const uint8_t* p) noexcept
{
    int32_t v;
    std::memcpy(&v, p, 4);
    return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(v)));
}
inline __m128 load4AsFloat(const uint16_t* p) noexcept
{
    return _mm_cvtepi32_ps(_mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
}

template <class S>
inline float xCubicOne(const S* in, const int32_t* k, const float* c) noexcept
{
    return (static_cast<float>(in[k[0]]) * c[0] + static_cast<float>(in[k[1]]) * c[1]) +
           (static_cast<float>(in[k[2]]) * c[2] + static_cast<float>(in[k[3]]) * c[3]);
}

// Border columns through the clamped tap table; the middle run reads its
// four taps i-1 .. i+2 as one vector and sums the products pairwise with
// horizontal adds: (p0 w0 + p1 w1) + (p2 w2 + p3 w3), as the scalar form.
template <class S>
void xPassCubic(float* out, const S* in, const ResizeWork& w) noexcept
{
    const int W = w.x.count;
    const int32_t* tap = w.xTaps;
    const float* wt = w.x.weight;
    int i = 0;
    for (; i < w.xMidBegin; ++i) out[i] = xCubicOne(in, tap + 4 * i, wt + 4 * i);
    for (; i + 4 <= w.xMidEnd; i += 4) {
        const __m128 m0 = _mm_mul_ps(load4AsFloat(in + tap[4 * i]), _mm_loadu_ps(wt + 4 * i));
        const __m128 m1 = _mm_mul_ps(load4AsFloat(in + tap[4 * i + 4]), _mm_loadu_ps(wt + 4 * i + 4));
        const __m128 m2 = _mm_mul_ps(load4AsFloat(in + tap[4 * i + 8]), _mm_loadu_ps(wt + 4 * i + 8));
        const __m128 m3 = _mm_mul_ps(load4AsFloat(in + tap[4 * i + 12]), _mm_loadu_ps(wt + 4 * i + 12));
        _mm_storeu_ps(out + i, _mm_hadd_ps(_mm_hadd_ps(m0, m1), _mm_hadd_ps(m2, m3)));
    }
    for (; i < W; ++i) out[i] = xCubicOne(in, tap + 4 * i, wt + 4 * i);
}

// ---- keyed slots (ring rows and planes) ------------------------------------

// K slots, each remembering which source row or slice it holds.  acquire()
// returns the slot of a key, filling a free one (not among the keys the
// current step needs) through fill(slot, key) when the key is not held.
template <int K>
struct Slots {
    int key[K];
    Slots() noexcept
    {
        for (int s = 0; s < K; ++s) key[s] = -1;
    }
    void clear() noexcept
    {
        for (int s = 0; s < K; ++s) key[s] = -1;
    }
    template <class Fill>
    void acquire(const int32_t (&need)[K], int (&slot)[K], Fill&& fill)
    {
        for (int q = 0; q < K; ++q) {
            slot[q] = -1;
            for (int s = 0; s < K; ++s)
                if (key[s] == need[q]) slot[q] = s;
        }
        for (int q = 0; q < K; ++q) {
            if (slot[q] >= 0) continue;
            int s = 0;
            for (; s < K; ++s) {  // a slot whose key this step does not need
                bool needed = false;
                for (int r = 0; r < K; ++r) needed = needed || key[s] == need[r];
                if (!needed) break;
            }
            key[s] = need[q];
            fill(s, need[q]);
            for (int r = q; r < K; ++r)
                if (need[r] == need[q]) slot[r] = s;
        }
    }
};

// ---- linear and cubic driver -------------------------------------------------

template <int K>
inline void taps(int i, int n, int32_t (&t)[K]) noexcept
{
    if constexpr (K == 2)
        linearTaps(i, n, t);
    else
        cubicTaps(i, n, t);
}

template <class D>
void zPassRow(D* out, const float* const p[4], const float* w, int n) noexcept
{
    const __m128 vw[4] = {_mm_set1_ps(w[0]), _mm_set1_ps(w[1]), _mm_set1_ps(w[2]),
                          _mm_set1_ps(w[3])};
    int i = 0;
    for (; i + 4 <= n; i += 4) resizeConvertStore4<D>(out + i, combine4(p, vw, i));
    for (; i < n; ++i) out[i] = resizeConvert<D>(combine1(p, w, i));
}

template <class D>
void zPassRowLinear(D* out, const float* a, const float* b, float t, int n) noexcept
{
    const float u = 1.0f - t;
    const __m128 vu = _mm_set1_ps(u), vt = _mm_set1_ps(t);
    int i = 0;
    for (; i + 4 <= n; i += 4)
        resizeConvertStore4<D>(out + i, _mm_add_ps(_mm_mul_ps(vu, _mm_loadu_ps(a + i)),
                                                   _mm_mul_ps(_mm_loadu_ps(b + i), vt)));
    for (; i < n; ++i) out[i] = resizeConvert<D>(u * a[i] + b[i] * t);
}

template <int K, class SrcL, class DstL>
void resizeSeparable(const SrcL& src, const DstL& dst, const ResizePlan& plan,
                     const ResizeWork& w, int zBegin, int zEnd)
{
    using S = std::remove_const_t<typename SrcL::Element>;
    using D = typename DstL::Element;
    const int W = w.x.count, H = w.y.count;
    const int X0 = plan.x.d0, Y0 = plan.y.d0, Z0 = plan.z.d0;

    Slots<K> rows, planes;
    auto ringRow = [&](int s) { return w.ring + s * w.rowStride; };
    auto plane = [&](int s) { return w.planes + s * w.planeStride; };

    // Resamples source slice zs in x and y into plane slot ps.
    auto makePlane = [&](int ps, int zs) {
        rows.clear();
        float* out = plane(ps);
        for (int j = 0; j < H; ++j, out += w.rowStride) {
            int32_t need[K];
            taps<K>(w.y.index[j], w.y.n, need);
            int slot[K];
            rows.acquire(need, slot, [&](int s, int ys) {
                const S* in = src.row(ys, zs);
                if constexpr (K == 2)
                    xPassLinear(ringRow(s), in, w);
                else
                    xPassCubic(ringRow(s), in, w);
            });
            if constexpr (K == 2) {
                blend2(out, ringRow(slot[0]), ringRow(slot[1]), w.y.frac[j], W);
            } else {
                const float* p[4] = {ringRow(slot[0]), ringRow(slot[1]), ringRow(slot[2]),
                                     ringRow(slot[3])};
                blend4(out, p, w.y.weight + 4 * j, W);
            }
        }
    };

    for (int k = zBegin; k < zEnd; ++k) {
        int32_t need[K];
        taps<K>(w.z.index[k], w.z.n, need);
        int slot[K];
        planes.acquire(need, slot, makePlane);
        const int zd = Z0 + k;
        for (int j = 0; j < H; ++j) {
            D* out = dst.row(Y0 + j, zd) + X0;
            const std::ptrdiff_t r = j * w.rowStride;
            if constexpr (K == 2) {
                zPassRowLinear(out, plane(slot[0]) + r, plane(slot[1]) + r, w.z.frac[k], W);
            } else {
                const float* p[4] = {plane(slot[0]) + r, plane(slot[1]) + r, plane(slot[2]) + r,
                                     plane(slot[3]) + r};
                zPassRow(out, p, w.z.weight + 4 * k, W);
            }
        }
    }
}

// One thread's work on destination slices [zBegin, zEnd) of the box
// (indexes relative to the box).
template <class SrcL, class DstL>
void resizeSlab(const SrcL& src, const DstL& dst, const ResizePlan& plan, const ResizeWork& w,
                int zBegin, int zEnd)
{
    if (plan.mode == kNearest)
        resizeNearest(src, dst, plan, w, zBegin, zEnd);
    else if (plan.mode == kLinear)
        resizeSeparable<2>(src, dst, plan, w, zBegin, zEnd);
    else
        resizeSeparable<4>(src, dst, plan, w, zBegin, zEnd);
}

}  // namespace vekr::volume
