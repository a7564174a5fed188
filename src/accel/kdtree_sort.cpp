#include "accel/kdtree_sort.h"

#include <algorithm>
#include <utility>

namespace vekr::kd {

void radixSortKeys(uint32_t* keys, uint32_t* scratch, int32_t n) noexcept
{
    if (n < 2) return;
    uint32_t hist[4][256] = {};
    for (int32_t i = 0; i < n; ++i) {
        const uint32_t k = keys[i];
        ++hist[0][k & 0xFF];
        ++hist[1][(k >> 8) & 0xFF];
        ++hist[2][(k >> 16) & 0xFF];
        ++hist[3][k >> 24];
    }
    uint32_t* src = keys;
    uint32_t* dst = scratch;
    for (int pass = 0; pass < 4; ++pass) {
        uint32_t* h = hist[pass];
        const int shift = pass * 8;
        if (h[(src[0] >> shift) & 0xFF] == static_cast<uint32_t>(n)) continue;
        uint32_t sum = 0;
        for (int b = 0; b < 256; ++b) {
            const uint32_t c = h[b];
            h[b] = sum;
            sum += c;
        }
        for (int32_t i = 0; i < n; ++i) {
            const uint32_t k = src[i];
            dst[h[(k >> shift) & 0xFF]++] = k;
        }
        std::swap(src, dst);
    }
    if (src != keys) std::memcpy(keys, src, sizeof(uint32_t) * static_cast<size_t>(n));
}

void smallSortKeys(uint32_t* keys, int32_t n) noexcept
{
    if (n <= 24) {
        for (int32_t i = 1; i < n; ++i) {
            const uint32_t k = keys[i];
            int32_t j = i;
            for (; j > 0 && keys[j - 1] > k; --j) keys[j] = keys[j - 1];
            keys[j] = k;
        }
        return;
    }
    std::sort(keys, keys + n);
}

}  // namespace vekr::kd
