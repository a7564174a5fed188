#include "accel/kdtree_sort.h"

#include <algorithm>
#include <utility>

namespace vekr::kd {

void radixSortCounted(uint32_t* keys, uint32_t* scratch, int32_t n, RadixCounts& c) noexcept
{
    if (n < 2) return;
    uint32_t* src = keys;
    uint32_t* dst = scratch;
    for (int pass = 0; pass < 4; ++pass) {
        uint32_t* h = c.h[pass];
        const int shift = pass * 8;
        if (h[(src[0] >> shift) & 0xFF] == static_cast<uint32_t>(n)) continue;
        countsToStarts(h, 256);
        for (int32_t i = 0; i < n; ++i) {
            const uint32_t k = src[i];
            dst[h[(k >> shift) & 0xFF]++] = k;
        }
        std::swap(src, dst);
    }
    if (src != keys) std::memcpy(keys, src, sizeof(uint32_t) * static_cast<size_t>(n));
}

void radixSortKeys(uint32_t* keys, uint32_t* scratch, int32_t n) noexcept
{
    if (n < 2) return;
    RadixCounts c;
    c.clear();
    for (int32_t i = 0; i < n; ++i) c.add(keys[i]);
    radixSortCounted(keys, scratch, n, c);
}

namespace {

constexpr int32_t kInsertionMax = 24;

void insertionSort(uint32_t* keys, int32_t n) noexcept
{
    for (int32_t i = 1; i < n; ++i) {
        const uint32_t k = keys[i];
        int32_t j = i;
        for (; j > 0 && keys[j - 1] > k; --j) keys[j] = keys[j - 1];
        keys[j] = k;
    }
}

}  // namespace

void smallSortKeys(uint32_t* keys, int32_t n) noexcept
{
    if (n <= kInsertionMax) {
        insertionSort(keys, n);
        return;
    }
    uint32_t lo = keys[0], hi = keys[0];
    for (int32_t i = 1; i < n; ++i) {
        lo = keys[i] < lo ? keys[i] : lo;
        hi = keys[i] > hi ? keys[i] : hi;
    }
    const uint32_t diff = lo ^ hi;
    if (diff == 0) return;
    const int top = 31 - __builtin_clz(diff);
    // About one bucket per two keys, at most 256.
    int bits = 31 - __builtin_clz(static_cast<uint32_t>(n));
    bits = bits > 8 ? 8 : bits - 1;
    const int shift = top + 1 >= bits ? top + 1 - bits : 0;
    const int buckets = 1 << bits;
    const uint32_t base = top == 31 ? 0u : lo & ~((2u << top) - 1u);
    uint32_t count[256], start[257], next[256];
    for (int b = 0; b < buckets; ++b) count[b] = 0;
    for (int32_t i = 0; i < n; ++i) ++count[(keys[i] - base) >> shift];
    start[0] = 0;
    for (int b = 0; b < buckets; ++b) {
        start[b + 1] = start[b] + count[b];
        next[b] = start[b];
    }
    for (int b = 0; b < buckets; ++b) {
        while (next[b] < start[b + 1]) {
            uint32_t k = keys[next[b]];
            uint32_t d = (k - base) >> shift;
            while (d != static_cast<uint32_t>(b)) {
                const uint32_t t = keys[next[d]];
                keys[next[d]++] = k;
                k = t;
                d = (k - base) >> shift;
            }
            keys[next[b]++] = k;
        }
    }
    for (int b = 0; b < buckets; ++b) {
        const int32_t m = static_cast<int32_t>(count[b]);
        if (m < 2) continue;
        if (m <= kInsertionMax)
            insertionSort(keys + start[b], m);
        else
            std::sort(keys + start[b], keys + start[b] + m);
    }
}

}  // namespace vekr::kd
