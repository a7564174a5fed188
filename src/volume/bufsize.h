// Size of the resize work buffer that one thread needs for a destination
// region of W x H x D voxels (channel count 1), in bytes.  The layout inside
// that share is private to the resize; the total is part of the interface.
#pragma once

#include <cstdint>

namespace vekr::volume {

// (n + 15) rounded down to a multiple of 16.
template <class I>
constexpr I align16(I n) noexcept { return (n + 15) & ~I(15); }
// (n + 63) rounded down to a multiple of 64.
template <class I>
constexpr I align64(I n) noexcept { return (n + 63) & ~I(63); }
// (n + 127) rounded down to a multiple of 64 (one spare block of 64).
template <class I>
constexpr I align64Spare(I n) noexcept { return (n + 127) & ~I(63); }
// (n + 255) rounded down to a multiple of 64 (three spare blocks of 64).
template <class I>
constexpr I align64Spare3(I n) noexcept { return (n + 255) & ~I(63); }

// One thread's bytes for a W x H x D destination in the unsigned type U:
// uint32_t gives the query's 32-bit arithmetic, wrapping where it overflows;
// a 128-bit type gives the true size.
template <class U>
constexpr U resizeBytesPerThread(U w, U h, U d, int mode) noexcept
{
    const U n = 1;  // channels
    const U base = 4 * (align16(w) + align16(h) + align16(d));
    if (mode == 1) return base + 64;
    const U base64 = base + 4 * (align64(w) + align64(h) + align64(d));
    if (mode == 2)
        return base64 + 4 * n * align64Spare(2 * w) + 4 * n * 2 * h * align64(w) +
               4 * n * align64Spare(8 * (w + h)) + 64;
    return base64 + 4 * n * align64Spare3(4 * w) + 4 * n * 4 * h * align64(w) +
           4 * align64Spare3(4 * w) + 4 * align64Spare3(4 * h) + 4 * align64Spare3(4 * d) +
           4 * n * align64Spare3(48 * (w + h)) + 64;
}

// The size the query reports per thread: signed 32-bit as callers see it.
constexpr int32_t resizeBufferPerThread(int32_t w, int32_t h, int32_t d, int mode) noexcept
{
    return static_cast<int32_t>(resizeBytesPerThread<uint32_t>(
        static_cast<uint32_t>(w), static_cast<uint32_t>(h), static_cast<uint32_t>(d), mode));
}

}  // namespace vekr::volume
