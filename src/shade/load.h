// Loads and stores of four lanes, aligned or unaligned by a template flag, so
// one kernel body serves both kinds of arrays.
#pragma once

#include <cstdint>

#include "core/simd.h"

namespace vekr::shade {

template <bool Aligned>
inline simd::F4 ld(const float* p)
{
    if constexpr (Aligned) return simd::load4(p);
    else return simd::loadu4(p);
}

template <bool Aligned>
inline simd::I4 ldi(const int32_t* p)
{
    if constexpr (Aligned) return simd::loadi4(p);
    else return simd::loadui4(p);
}

template <bool Aligned>
inline void st(float* p, simd::F4 v)
{
    if constexpr (Aligned) simd::store4(p, v);
    else simd::storeu4(p, v);
}

template <bool Aligned>
inline void sti(int32_t* p, simd::I4 v)
{
    if constexpr (Aligned) simd::storei4(p, v);
    else simd::storeui4(p, v);
}

// All-ones lanes where the mask value is not negative (the ray is active).
inline simd::F4 activeLanes(simd::I4 mask) { return simd::asFloat(mask > simd::I4(-1)); }

}  // namespace vekr::shade
