// Conversion of interpolated 32-bit float values to the destination type.
//
// Two rules are kept apart on purpose:
//  - resize: add 0.50000012f (bits 0x3F000002, slightly above one half) and
//    truncate toward zero;
//  - affine warp and remap: round to nearest, ties to even (the processor's
//    default rounding).
// Both convert to a signed 32-bit integer with the processor's conversion
// (values outside the int32 range and NaN give INT32_MIN) and then saturate
// to 0..255 or 0..65535.  Float destinations take the value as computed.
#pragma once

#include <immintrin.h>

#include <cstdint>

namespace vekr::volume {

constexpr float kResizeBias = 0.50000012f;

template <class T>
inline T saturateInt(int32_t v) noexcept;

template <>
inline uint8_t saturateInt<uint8_t>(int32_t v) noexcept
{
    return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
}

template <>
inline uint16_t saturateInt<uint16_t>(int32_t v) noexcept
{
    return static_cast<uint16_t>(v < 0 ? 0 : v > 65535 ? 65535 : v);
}

// Truncation toward zero as the processor does it (no undefined behaviour
// for values out of range).
inline int32_t truncToInt(float v) noexcept
{
    return _mm_cvttss_si32(_mm_set_ss(v));
}

// Rounding to nearest with ties to even (the default MXCSR rounding mode).
inline int32_t roundToInt(float v) noexcept
{
    return _mm_cvtss_si32(_mm_set_ss(v));
}

// Resize family.
template <class T>
inline T resizeConvert(float v) noexcept
{
    if constexpr (sizeof(T) == 4) {
        return v;
    } else {
        return saturateInt<T>(truncToInt(v + kResizeBias));
    }
}

// Affine warp and remap family.
template <class T>
inline T warpConvert(float v) noexcept
{
    if constexpr (sizeof(T) == 4) {
        return v;
    } else {
        return saturateInt<T>(roundToInt(v));
    }
}

// Four lanes at once, the same results as the scalar forms above.
// Resize: stores 4 converted values at p (no alignment required).
template <class T>
inline void resizeConvertStore4(T* p, __m128 v) noexcept
{
    if constexpr (sizeof(T) == 4) {
        _mm_storeu_ps(p, v);
    } else {
        const __m128i i = _mm_cvttps_epi32(_mm_add_ps(v, _mm_set1_ps(kResizeBias)));
        if constexpr (sizeof(T) == 2) {
            _mm_storel_epi64(reinterpret_cast<__m128i*>(p), _mm_packus_epi32(i, i));
        } else {
            const __m128i s = _mm_packs_epi32(i, i);  // int32 -> int16 saturating
            const int32_t b = _mm_cvtsi128_si32(_mm_packus_epi16(s, s));
            __builtin_memcpy(p, &b, 4);
        }
    }
}

// Warp and remap: rounding to nearest even, 4 lanes.
template <class T>
inline void warpConvertStore4(T* p, __m128 v) noexcept
{
    if constexpr (sizeof(T) == 4) {
        _mm_storeu_ps(p, v);
    } else {
        const __m128i i = _mm_cvtps_epi32(v);
        if constexpr (sizeof(T) == 2) {
            _mm_storel_epi64(reinterpret_cast<__m128i*>(p), _mm_packus_epi32(i, i));
        } else {
            const __m128i s = _mm_packs_epi32(i, i);
            const int32_t b = _mm_cvtsi128_si32(_mm_packus_epi16(s, s));
            __builtin_memcpy(p, &b, 4);
        }
    }
}

}  // namespace vekr::volume
