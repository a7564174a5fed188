// Reading xyz triples of interleaved arrays into three 4-wide planes, as the
// per-ray normal lookups need them.  A triple is read as exactly three floats
// (never a fourth), so the last entry of an array is safe to read.
#pragma once

#include <cstddef>

#include "core/simd.h"

namespace vekr::shade {

struct Planes4 {
    simd::F4 x, y, z;
};

// x, y, z, 0 of the triple at p.
inline simd::F4 loadTriple(const float* p)
{
    const __m128 xy = _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i_u*>(p)));
    return _mm_movelh_ps(xy, _mm_load_ss(p + 2));
}

// The triples at base + 3*i for four entry numbers, transposed to planes.
inline Planes4 gatherTriples(const float* base, ptrdiff_t i0, ptrdiff_t i1, ptrdiff_t i2,
                             ptrdiff_t i3)
{
    __m128 a = loadTriple(base + 3 * i0);
    __m128 b = loadTriple(base + 3 * i1);
    __m128 c = loadTriple(base + 3 * i2);
    __m128 d = loadTriple(base + 3 * i3);
    _MM_TRANSPOSE4_PS(a, b, c, d);
    return Planes4{a, b, c};
}

// One triple repeated in all four lanes.
inline Planes4 broadcastTriple(const float* p)
{
    return Planes4{simd::F4(p[0]), simd::F4(p[1]), simd::F4(p[2])};
}

// Lanes of `keep` (all-ones / all-zeros) keep their value, the others become 0.
inline Planes4 keepLanes(simd::F4 keep, const Planes4& v)
{
    return Planes4{keep & v.x, keep & v.y, keep & v.z};
}

inline void storePlanes(float* const out[3], ptrdiff_t i, const Planes4& v)
{
    simd::store4(out[0] + i, v.x);
    simd::store4(out[1] + i, v.y);
    simd::store4(out[2] + i, v.z);
}

// Whether the four lanes of an index group are equal.
inline bool allLanesEqual(simd::I4 idx)
{
    const __m128i first = _mm_shuffle_epi32(idx, 0);
    return _mm_movemask_epi8(_mm_cmpeq_epi32(idx, first)) == 0xFFFF;
}

}  // namespace vekr::shade
