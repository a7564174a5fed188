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

constexpr int32_t wrap32(int64_t v) noexcept
{
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(v)));
}

// Signed 32-bit results as the callers see them; the sums are formed in 64
// bits and wrapped to 32 so that absurd sizes stay defined behaviour.
constexpr int32_t resizeBufferPerThread(int32_t w32, int32_t h32, int32_t d32, int mode) noexcept
{
    const int64_t w = w32, h = h32, d = d32;
    const int64_t n = 1;  // channels
    const int64_t base = 4 * (align16(w) + align16(h) + align16(d));
    if (mode == 1) return wrap32(base + 64);
    const int64_t base64 = base + 4 * (align64(w) + align64(h) + align64(d));
    if (mode == 2)
        return wrap32(base64 + 4 * n * align64Spare(2 * w) + 4 * n * 2 * h * align64(w) +
                      4 * n * align64Spare(8 * (w + h)) + 64);
    return wrap32(base64 + 4 * n * align64Spare3(4 * w) + 4 * n * 4 * h * align64(w) +
           4 * align64Spare3(4 * w) + 4 * align64Spare3(4 * h) + 4 * align64Spare3(4 * d) +
           4 * n * align64Spare3(48 * (w + h)) + 64);
}

}  // namespace vekr::volume
