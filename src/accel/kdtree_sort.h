// Sorting of candidate split positions.  Coordinates are sorted as unsigned
// keys made from their float bit patterns: a negative float has all its bits
// inverted, a positive one only its sign bit, so that unsigned order is float
// order.  The build compares positions as keys throughout.
#pragma once

#include <cstdint>
#include <cstring>

namespace vekr::kd {

// Nodes with more triangles than this use the radix sort.
constexpr int32_t kRadixAbove = 320;

inline uint32_t floatKey(float f) noexcept
{
    uint32_t u;
    std::memcpy(&u, &f, 4);
    return (u & 0x80000000u) ? ~u : (u ^ 0x80000000u);
}

inline float keyFloat(uint32_t k) noexcept
{
    const uint32_t u = (k & 0x80000000u) ? (k ^ 0x80000000u) : ~k;
    float f;
    std::memcpy(&f, &u, 4);
    return f;
}

// Turns a radix pass's digit counts into the place where each digit's run
// starts (the sum of the counts before it).
inline void countsToStarts(uint32_t* counts, int digits) noexcept
{
    uint32_t sum = 0;
    for (int d = 0; d < digits; ++d) {
        const uint32_t here = counts[d];
        counts[d] = sum;
        sum += here;
    }
}

// Digit counts of a radix sort, 8 bits per digit.
struct RadixCounts {
    uint32_t h[4][256];
    void clear() noexcept { std::memset(h, 0, sizeof h); }
    void add(uint32_t k) noexcept
    {
        ++h[0][k & 0xFF];
        ++h[1][(k >> 8) & 0xFF];
        ++h[2][(k >> 16) & 0xFF];
        ++h[3][k >> 24];
    }
};

// Least-significant-digit radix sort of n keys whose digits were counted
// into c (which it consumes), 8 bits per pass; a pass in which every key has
// the same digit is skipped.  scratch holds n keys.  The result ends in keys.
void radixSortCounted(uint32_t* keys, uint32_t* scratch, int32_t n, RadixCounts& c) noexcept;

// Radix sort of n keys, counting the digits itself.
void radixSortKeys(uint32_t* keys, uint32_t* scratch, int32_t n) noexcept;

// In-place sort of the one array: keys are distributed in place over 256
// buckets by the eight highest bits in which they differ (cycle leader
// permutation), then each bucket is finished by insertion or introsort.
void smallSortKeys(uint32_t* keys, int32_t n) noexcept;

// The sort a node of nodeCount triangles uses for one of its arrays.
inline void sortKeys(uint32_t* keys, uint32_t* scratch, int32_t n, int32_t nodeCount) noexcept
{
    if (nodeCount > kRadixAbove)
        radixSortKeys(keys, scratch, n);
    else
        smallSortKeys(keys, n);
}

}  // namespace vekr::kd
