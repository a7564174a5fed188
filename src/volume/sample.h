// Reading one interpolated voxel of a slice-pointer source, shared by the
// affine warp and the remap.  Callers choose the tap indices (each family
// has its own edge rules); these helpers only fetch and blend, in 32-bit
// float: linear along x first (a * (1 - t) + b * t), then y, then z; cubic
// as weighted sums of four taps, x first, then y, then z.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "volume/layout.h"

namespace vekr::volume {

template <class T>
inline float linearSample(const SliceVolume<const T>& src, int ix, int iy, int iz, int ix1,
                          int iy1, int iz1, float tx, float ty, float tz) noexcept
{
    const float ux = 1.0f - tx, uy = 1.0f - ty, uz = 1.0f - tz;
    const T* r00 = src.row(iy, iz);
    const T* r10 = src.row(iy1, iz);
    const T* r01 = src.row(iy, iz1);
    const T* r11 = src.row(iy1, iz1);
    const float a00 = static_cast<float>(r00[ix]) * ux + static_cast<float>(r00[ix1]) * tx;
    const float a10 = static_cast<float>(r10[ix]) * ux + static_cast<float>(r10[ix1]) * tx;
    const float a01 = static_cast<float>(r01[ix]) * ux + static_cast<float>(r01[ix1]) * tx;
    const float a11 = static_cast<float>(r11[ix]) * ux + static_cast<float>(r11[ix1]) * tx;
    const float b0 = a00 * uy + a10 * ty;
    const float b1 = a01 * uy + a11 * ty;
    return b0 * uz + b1 * tz;
}

template <class T>
inline float cubicSample(const SliceVolume<const T>& src, const int ix[4], const int iy[4],
                         const int iz[4], const float wx[4], const float wy[4],
                         const float wz[4]) noexcept
{
    float zs = 0.0f;
    for (int k = 0; k < 4; ++k) {
        float ys = 0.0f;
        for (int j = 0; j < 4; ++j) {
            const T* r = src.row(iy[j], iz[k]);
            const float xs = static_cast<float>(r[ix[0]]) * wx[0] + static_cast<float>(r[ix[1]]) * wx[1] +
                             static_cast<float>(r[ix[2]]) * wx[2] + static_cast<float>(r[ix[3]]) * wx[3];
            ys = j == 0 ? xs * wy[0] : ys + xs * wy[j];
        }
        zs = k == 0 ? ys * wz[0] : zs + ys * wz[k];
    }
    return zs;
}

// ---- 4-wide forms with the same operations per voxel as the above ---------

// Four consecutive voxels as floats (reads exactly those four).
inline __m128 load4f(const float* p) noexcept { return _mm_loadu_ps(p); }
inline __m128 load4f(const uint16_t* p) noexcept
{
    return _mm_cvtepi32_ps(_mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
}
inline __m128 load4f(const uint8_t* p) noexcept
{
    int32_t v;
    std::memcpy(&v, p, 4);
    return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(v)));
}

// Two voxel pairs (p[0], p[1], q[0], q[1]) as floats.
inline __m128 loadPairs(const float* p, const float* q) noexcept
{
    int64_t a, b;
    std::memcpy(&a, p, 8);
    std::memcpy(&b, q, 8);
    return _mm_castsi128_ps(_mm_set_epi64x(b, a));
}
inline __m128 loadPairs(const uint16_t* p, const uint16_t* q) noexcept
{
    int32_t a, b;
    std::memcpy(&a, p, 4);
    std::memcpy(&b, q, 4);
    return _mm_cvtepi32_ps(_mm_cvtepu16_epi32(_mm_insert_epi32(_mm_cvtsi32_si128(a), b, 1)));
}
inline __m128 loadPairs(const uint8_t* p, const uint8_t* q) noexcept
{
    uint16_t a, b;
    std::memcpy(&a, p, 2);
    std::memcpy(&b, q, 2);
    const int32_t v = static_cast<int32_t>(a | (static_cast<uint32_t>(b) << 16));
    return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(v)));
}

template <int K>
inline __m128 lane(__m128 v) noexcept
{
    return _mm_shuffle_ps(v, v, _MM_SHUFFLE(K, K, K, K));
}

// linearSample for taps ix, ix + 1 (the usual case): the four x blends run
// as one vector (lanes: rows (y, z), (y1, z), (y, z1), (y1, z1)).
template <class T>
inline float linearSampleAdjacent(const SliceVolume<const T>& src, int ix, int iy, int iz,
                                  int iy1, int iz1, float tx, float ty, float tz) noexcept
{
    const __m128 p0 = loadPairs(src.row(iy, iz) + ix, src.row(iy1, iz) + ix);
    const __m128 p1 = loadPairs(src.row(iy, iz1) + ix, src.row(iy1, iz1) + ix);
    const __m128 left = _mm_shuffle_ps(p0, p1, _MM_SHUFFLE(2, 0, 2, 0));
    const __m128 right = _mm_shuffle_ps(p0, p1, _MM_SHUFFLE(3, 1, 3, 1));
    const __m128 a = _mm_add_ps(_mm_mul_ps(left, _mm_set1_ps(1.0f - tx)), _mm_mul_ps(right, _mm_set1_ps(tx)));
    // (a00, a01) * (1 - ty) + (a10, a11) * ty
    const __m128 even = _mm_shuffle_ps(a, a, _MM_SHUFFLE(2, 0, 2, 0));
    const __m128 odd = _mm_shuffle_ps(a, a, _MM_SHUFFLE(3, 1, 3, 1));
    const __m128 b = _mm_add_ps(_mm_mul_ps(even, _mm_set1_ps(1.0f - ty)), _mm_mul_ps(odd, _mm_set1_ps(ty)));
    const float b0 = _mm_cvtss_f32(b), b1 = _mm_cvtss_f32(lane<1>(b));
    return b0 * (1.0f - tz) + b1 * tz;
}

// linearSample for four voxels, lanes = voxels: taps ix..ix+1, iy..iy+1,
// iz..iz+1 of each lane (all indices >= 0), fractions as vectors.  Each
// lane's arithmetic is that of linearSample.
template <class T>
inline __m128 linearSample4Lanes(const SliceVolume<const T>& src, const int32_t ix[4],
                                 const int32_t iy[4], const int32_t iz[4], __m128 tx, __m128 ty,
                                 __m128 tz) noexcept
{
    const std::ptrdiff_t step = src.rowStep;
    __m128 p[4], q[4];
    for (int l = 0; l < 4; ++l) {
        const T* z0 = src.slices[iz[l]] + iy[l] * step + ix[l];
        const T* z1 = src.slices[iz[l] + 1] + iy[l] * step + ix[l];
        p[l] = loadPairs(z0, z0 + step);
        q[l] = loadPairs(z1, z1 + step);
    }
    _MM_TRANSPOSE4_PS(p[0], p[1], p[2], p[3]);
    _MM_TRANSPOSE4_PS(q[0], q[1], q[2], q[3]);
    const __m128 one = _mm_set1_ps(1.0f);
    const __m128 ux = _mm_sub_ps(one, tx), uy = _mm_sub_ps(one, ty), uz = _mm_sub_ps(one, tz);
    auto blend = [](__m128 a, __m128 u, __m128 b, __m128 t) {
        return _mm_add_ps(_mm_mul_ps(a, u), _mm_mul_ps(b, t));
    };
    const __m128 a00 = blend(p[0], ux, p[1], tx);
    const __m128 a10 = blend(p[2], ux, p[3], tx);
    const __m128 a01 = blend(q[0], ux, q[1], tx);
    const __m128 a11 = blend(q[2], ux, q[3], tx);
    return blend(blend(a00, uy, a10, ty), uz, blend(a01, uy, a11, ty), tz);
}

// The four tabulated weights of tabulatedWeights (interp.h) as one vector.
inline __m128 tabulatedWeights4(const float* table, float t) noexcept
{
    const float x0 = -1.0f - t;
    const __m128 x = _mm_add_ps(_mm_set1_ps(x0), _mm_setr_ps(0.0f, 1.0f, 2.0f, 3.0f));
    const __m128 d = _mm_andnot_ps(_mm_set1_ps(-0.0f), x);
    const __m128 u = _mm_mul_ps(d, _mm_set1_ps(100.0f));
    const __m128i j = _mm_cvttps_epi32(u);
    const int j0 = _mm_cvtsi128_si32(j), j1 = _mm_extract_epi32(j, 1);
    const int j2 = _mm_extract_epi32(j, 2), j3 = _mm_extract_epi32(j, 3);
    const __m128 t0 = _mm_setr_ps(table[j0], table[j1], table[j2], table[j3]);
    const __m128 t1 = _mm_setr_ps(table[j0 + 1], table[j1 + 1], table[j2 + 1], table[j3 + 1]);
    return _mm_add_ps(t0, _mm_mul_ps(_mm_sub_ps(t1, t0), _mm_sub_ps(u, _mm_cvtepi32_ps(j))));
}

// cubicSample for taps x0..x0+3, y0..y0+3, z0..z0+3 (away from the edges),
// with the weights as vectors.  Four rows are loaded and transposed so that
// the x sums of four rows run as one vector; the four planes' x sums are
// transposed again so the y sums of four planes run as one vector.
template <class T>
inline float cubicSampleInterior(const SliceVolume<const T>& src, int x0, int y0, int z0,
                                 __m128 wx, __m128 wy, __m128 wz) noexcept
{
    const __m128 wx0 = lane<0>(wx), wx1 = lane<1>(wx), wx2 = lane<2>(wx), wx3 = lane<3>(wx);
    __m128 plane[4];
    for (int k = 0; k < 4; ++k) {
        const T* r = src.row(y0, z0 + k) + x0;
        __m128 r0 = load4f(r), r1 = load4f(r + src.rowStep), r2 = load4f(r + 2 * src.rowStep),
               r3 = load4f(r + 3 * src.rowStep);
        _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
        plane[k] = _mm_add_ps(_mm_add_ps(_mm_add_ps(_mm_mul_ps(r0, wx0), _mm_mul_ps(r1, wx1)),
                                         _mm_mul_ps(r2, wx2)),
                              _mm_mul_ps(r3, wx3));
    }
    _MM_TRANSPOSE4_PS(plane[0], plane[1], plane[2], plane[3]);
    const __m128 ys = _mm_add_ps(
        _mm_add_ps(_mm_add_ps(_mm_mul_ps(plane[0], lane<0>(wy)), _mm_mul_ps(plane[1], lane<1>(wy))),
                   _mm_mul_ps(plane[2], lane<2>(wy))),
        _mm_mul_ps(plane[3], lane<3>(wy)));
    const __m128 p = _mm_mul_ps(ys, wz);
    return ((_mm_cvtss_f32(p) + _mm_cvtss_f32(lane<1>(p))) + _mm_cvtss_f32(lane<2>(p))) +
           _mm_cvtss_f32(lane<3>(p));
}

}  // namespace vekr::volume
