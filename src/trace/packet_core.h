// The packet tracing core: rays of one 4 x 4 image tile that share a
// direction octant are traced together through the KD-tree, one SIMD lane per
// ray.  V is the lane vector: simd::F4 (a packet is one row of a tile) or,
// where AVX2 is compiled in, simd::F16 (the whole tile: one AVX-512 register,
// or two AVX2 halves); M = MaskOf<V> is its lane mask.  Each lane keeps its
// own interval; decisions at a split are taken for the whole packet without
// tolerance, and lanes whose interval does not reach a child are masked off
// inside it.
//
// A packet policy provides:
//   M skip(int tri, M mask);               lanes that test this triangle at all
//   M hit(int tri, M mask, M inside, V den, V num, V bu, V bv);
//                                          lanes inside the triangle; returns the
//                                          lanes that go on (any-hit drops its hits)
//   V limit();                             a lane stops at a pop once the entry
//                                          starts at or beyond it
#pragma once

#ifndef VEKR_ISA_NS
#error "packet_core.h belongs to the per-level kernels (*.isa.cpp)"
#endif

#include <cstddef>
#include <cstdint>

#include "accel/kdnode.h"
#include "core/simd.h"
#include "trace/ray_core.h"
#include "vekr.h"

namespace vekr {
VEKR_LEVEL_BEGIN
namespace trace {

using simd::F4;

template <class V>
using MaskOf = decltype(V(0.0f) < V(0.0f));

// Lane layouts: how many tile rows a vector holds, row loads, masked stores,
// masks from lane bits, and integer lane tests.
template <class V>
struct Lanes;

template <>
struct Lanes<F4> {
    static constexpr int kRows = 1;
    static F4 load(const float* p, size_t) { return simd::load4(p); }
    static void store(float* p, F4 v) { simd::store4(p, v); }
    static void blend(float* p, size_t, F4 v, F4 m) { simd::store4(p, simd::select(m, v, simd::load4(p))); }
    static F4 fromBits(int bits)
    {
        const __m128i sel = _mm_setr_epi32(1, 2, 4, 8);
        return _mm_castsi128_ps(_mm_cmpeq_epi32(_mm_and_si128(_mm_set1_epi32(bits), sel), sel));
    }
    static F4 eqInt(F4 a, F4 b)
    {
        return _mm_castsi128_ps(_mm_cmpeq_epi32(_mm_castps_si128(a), _mm_castps_si128(b)));
    }
    static F4 signClear(F4 a)
    {
        return _mm_castsi128_ps(_mm_cmpgt_epi32(_mm_castps_si128(a), _mm_set1_epi32(-1)));
    }
};

#if defined(__AVX2__)
using simd::F16;
using simd::M16;
template <>
struct Lanes<F16> {
    static constexpr int kRows = 4;
#if defined(__AVX512F__)
    static F16 load(const float* p, size_t stride)
    {
        const __m512 a = _mm512_castps128_ps512(_mm_load_ps(p));
        const __m512 b = _mm512_insertf32x4(a, _mm_load_ps(p + stride), 1);
        const __m512 c = _mm512_insertf32x4(b, _mm_load_ps(p + 2 * stride), 2);
        return _mm512_insertf32x4(c, _mm_load_ps(p + 3 * stride), 3);
    }
    static void store(float* p, F16 v) { _mm512_store_ps(p, v); }
    static void blend(float* p, size_t stride, F16 v, M16 m)
    {
        _mm_mask_store_ps(p, static_cast<__mmask8>(m.k & 0xF), _mm512_maskz_extractf32x4_ps(0xF, v, 0));
        _mm_mask_store_ps(p + stride, static_cast<__mmask8>((m.k >> 4) & 0xF), _mm512_maskz_extractf32x4_ps(0xF, v, 1));
        _mm_mask_store_ps(p + 2 * stride, static_cast<__mmask8>((m.k >> 8) & 0xF), _mm512_maskz_extractf32x4_ps(0xF, v, 2));
        _mm_mask_store_ps(p + 3 * stride, static_cast<__mmask8>((m.k >> 12) & 0xF), _mm512_maskz_extractf32x4_ps(0xF, v, 3));
    }
#else
    static simd::F8 load8(const float* p, size_t stride)
    {
        return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_load_ps(p)), _mm_load_ps(p + stride), 1);
    }
    static void blend8(float* p, size_t stride, simd::F8 v, simd::F8 m)
    {
        const __m128 v0 = _mm256_castps256_ps128(v), v1 = _mm256_extractf128_ps(v, 1);
        const __m128 m0 = _mm256_castps256_ps128(m), m1 = _mm256_extractf128_ps(m, 1);
        _mm_store_ps(p, _mm_blendv_ps(_mm_load_ps(p), v0, m0));
        _mm_store_ps(p + stride, _mm_blendv_ps(_mm_load_ps(p + stride), v1, m1));
    }
    static F16 load(const float* p, size_t stride) { return {load8(p, stride), load8(p + 2 * stride, stride)}; }
    static void store(float* p, F16 v)
    {
        simd::store8(p, v.lo);
        simd::store8(p + 8, v.hi);
    }
    static void blend(float* p, size_t stride, F16 v, M16 m)
    {
        blend8(p, stride, v.lo, m.lo);
        blend8(p + 2 * stride, stride, v.hi, m.hi);
    }
#endif
    static M16 fromBits(int bits) { return simd::lanesOf(bits); }
    static M16 eqInt(F16 a, F16 b) { return simd::sameBits(a, b); }
    static M16 signClear(F16 a) { return simd::signClear(a); }
};
#endif

template <class V>
inline V intLanes(int32_t x)
{
    return V(simd::bitsToFloat(static_cast<uint32_t>(x)));
}

// A packet of rays of one octant.
template <class V>
struct PacketRay {
    V o[3];
    V d[3];
    V rcp[3];
    int code;  // bit c: direction component c negative; also the near child per axis
};

// Reciprocals from the hardware approximation refined by one Newton step;
// a parallel component is first replaced by 1.1920929e-5 so that its axis
// takes part in the box tests with a reciprocal of about 83886.  The nearest-
// hit functions give the replacement the sign of the packet's octant bit, so
// that a tiny negative component keeps the near/far order its octant fixes;
// the any-hit function keeps it positive, as its single-ray path does.
template <class V>
inline void packetReciprocals(PacketRay<V>& r, bool octantSign = true)
{
    const V eps(kParallelEps), sub(1.1920929e-5f);
    for (int c = 0; c < 3; ++c) {
        const V d = r.d[c];
        const V s = octantSign && ((r.code >> c) & 1) ? V(-1.1920929e-5f) : sub;
        r.rcp[c] = simd::rcpNewton(simd::select(simd::abs(d) <= eps, s, d));
    }
}

// The triangle test for every lane; returns the lanes inside the triangle.
template <class V>
inline MaskOf<V> packetCandidate(const VekrTriangleAccel& r, const PacketRay<V>& ray, V& den,
                                 V& num, V& bu, V& bv)
{
    const uint32_t w0 = r.axes;
    const int a = static_cast<int>(w0 & 3u), b = static_cast<int>((w0 >> 2) & 3u),
              k = static_cast<int>((w0 >> 4) & 3u);
    const V nu(r.nu), nv(r.nv);
    const V ob = V(r.cu) - ray.o[b];
    const V oa = V(r.cv) - ray.o[a];
    den = ray.d[b] * nu + ray.d[a] * nv + ray.d[k];
    num = V(r.ck) + nu * ob + nv * oa - ray.o[k];
    const V pa = ray.d[a] * num - oa * den;
    const V pb = ray.d[b] * num - ob * den;
    bu = V(r.e2v) * pb - V(r.e2u) * pa;
    bv = V(r.e1u) * pa - V(r.e1v) * pb;
    const V w = den - bu - bv;
    const V zero(0.0f);
    return (w * bu >= zero) & (bu * bv >= zero) & (w * bv >= zero);
}

// Walks the tree for the lanes in mask over their intervals [tNear, tFar].
template <class V, class Policy>
inline void traversePacket(const VekrKDTreeNode* root, const VekrTriangleAccel* accel,
                           const PacketRay<V>& ray, V tNear, V tFar, MaskOf<V> mask, Policy& policy)
{
    using M = MaskOf<V>;
    struct Entry {
        V tNear, tFar;
        M mask;
        const VekrKDTreeNode* node;
    };
    Entry stack[kStackDepth];
    int sp = 0;
    const VekrKDTreeNode* node = root;
    for (;;) {
        while (!kd::isLeaf(*node)) {
            const int ax = kd::axis(*node);
            const V t = (V(kd::splitValue(*node)) - ray.o[ax]) * ray.rcp[ax];
            const VekrKDTreeNode* pair = kd::children(node);
            const int nearIdx = (ray.code >> ax) & 1;
            if (!simd::any(mask & (tNear <= t))) {
                node = pair + (1 - nearIdx);
                continue;
            }
            const M reachFar = mask & (t <= tFar);
            if (!simd::any(reachFar)) {
                node = pair + nearIdx;
                continue;
            }
            stack[sp++] = Entry{simd::max(tNear, t), tFar, reachFar, pair + (1 - nearIdx)};
            const V m = simd::min(t, tFar);
            mask = simd::andnot(tNear > m, mask);
            tFar = simd::max(tNear, m);
            node = pair + nearIdx;
        }
        kd::forEachTriangle(node, [&](int32_t tri) {
            const M m = policy.skip(tri, mask);
            if (!simd::any(m)) return false;
            const VekrTriangleAccel& rec = accel[tri];
            if (rec.axes == 0) return false;
            V den, num, bu, bv;
            const M inside = packetCandidate(rec, ray, den, num, bu, bv) & m;
            if (!simd::any(inside)) return false;
            mask = policy.hit(tri, mask, inside, den, num, bu, bv);
            return !simd::any(mask);
        });
        for (;;) {
            if (sp == 0) return;
            const Entry& e = stack[--sp];
            mask = e.mask & (e.tNear < policy.limit());
            if (simd::any(mask)) {
                tNear = e.tNear;
                tFar = e.tFar;
                node = e.node;
                break;
            }
        }
    }
}

// One group of lanes of a tile: its first element and its directions.
template <class V>
struct TileGroup {
    size_t base;
    V d[3];
};

// Walks a block of width x height rays (both multiples of 4) in 4 x 4 tiles,
// band by band and left to right.  activeOf(base) gives the lanes that take
// part.  For each direction octant code from the lowest to the highest
// present in a tile, and each group of rows in order, fn(group, laneMask,
// code) traces the active lanes of that code.
template <class V, class ActiveFn, class Fn>
inline void forEachPacket(int width, int height, const float* const dirs[3], ActiveFn&& activeOf,
                          Fn&& fn)
{
    using L = Lanes<V>;
    constexpr int kGroups = 4 / L::kRows;
    const size_t stride = static_cast<size_t>(width);
    for (int y0 = 0; y0 < height; y0 += 4) {
        for (int x0 = 0; x0 < width; x0 += 4) {
            TileGroup<V> g[kGroups];
            int active[kGroups], neg[kGroups][3];
            int anyActive = 0;
            for (int i = 0; i < kGroups; ++i) {
                g[i].base = static_cast<size_t>(y0 + i * L::kRows) * stride + static_cast<size_t>(x0);
                active[i] = simd::movemask(activeOf(g[i].base));
                anyActive |= active[i];
            }
            if (!anyActive) continue;
            for (int i = 0; i < kGroups; ++i)
                for (int c = 0; c < 3; ++c) {
                    g[i].d[c] = L::load(dirs[c] + g[i].base, stride);
                    neg[i][c] = simd::movemask(g[i].d[c] < V(0.0f));
                }
            for (int code = 0; code < 8; ++code) {
                for (int i = 0; i < kGroups; ++i) {
                    const int bits = active[i] & (code & 1 ? neg[i][0] : ~neg[i][0]) &
                                     (code & 2 ? neg[i][1] : ~neg[i][1]) &
                                     (code & 4 ? neg[i][2] : ~neg[i][2]);
                    if (bits) fn(g[i], L::fromBits(bits), code);
                }
            }
        }
    }
}

}  // namespace trace
VEKR_LEVEL_END
}  // namespace vekr

// The packet width of the level being compiled: 16 lanes (a whole 4 x 4
// tile; one register with AVX-512, two halves with AVX2) where AVX2 is
// available, 4 lanes (one row) otherwise.
namespace vekr {
namespace VEKR_ISA_NS {

#if defined(__AVX2__)
using V = simd::F16;
#else
using V = simd::F4;
#endif
using M = trace::MaskOf<V>;
using L = trace::Lanes<V>;

// Writes a packet's nearest hits (distance, u, v, triangle) back into the
// caller's arrays; lanes that found nothing keep their old values.
template <class Hits>
inline void blendNearest(float* dist, float* const hits[2], float* triBits, size_t at,
                         size_t stride, const Hits& p, M hit)
{
    L::blend(dist + at, stride, p.dist, hit);
    L::blend(hits[0] + at, stride, p.u, hit);
    L::blend(hits[1] + at, stride, p.v, hit);
    L::blend(triBits + at, stride, p.tri, hit);
}

}  // namespace VEKR_ISA_NS
}  // namespace vekr
