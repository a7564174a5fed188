#include "accel/kdtree_orders.h"

#include <cmath>
#include <cstring>
#include <utility>

#include "accel/kdtree_sort.h"

namespace vekr::kd {

namespace {

// Sort keys of the orders: a NaN lower bound before every number, a NaN
// upper bound after every number.
inline uint32_t startOrderKey(float v) { return std::isnan(v) ? 0u : floatKey(v); }
inline uint32_t endOrderKey(float v) { return std::isnan(v) ? ~0u : floatKey(v); }

// Least-significant-digit radix sort of ids by keys, 11 bits per pass; the
// sorted ids end in out.  keys, ids and the two spare arrays hold n words.
void sortIdsByKey(uint32_t* keys, int32_t* ids, uint32_t* spareKeys, int32_t* spareIds,
                  int32_t n, int32_t* out) noexcept
{
    uint32_t* k = keys;
    int32_t* v = ids;
    uint32_t* k2 = spareKeys;
    int32_t* v2 = spareIds;
    for (int shift = 0; shift < 32; shift += 11) {
        uint32_t count[2048] = {};
        for (int32_t i = 0; i < n; ++i) ++count[(k[i] >> shift) & 2047u];
        if (n > 0 && count[(k[0] >> shift) & 2047u] == static_cast<uint32_t>(n)) continue;
        uint32_t sum = 0;
        for (uint32_t& c : count) {
            const uint32_t here = c;
            c = sum;
            sum += here;
        }
        for (int32_t i = 0; i < n; ++i) {
            const uint32_t at = count[(k[i] >> shift) & 2047u]++;
            k2[at] = k[i];
            v2[at] = v[i];
        }
        std::swap(k, k2);
        std::swap(v, v2);
    }
    std::memcpy(out, v, sizeof(int32_t) * static_cast<size_t>(n));
}

// The key of a bound kept inside the cell [lo, hi].
inline uint32_t clampedStart(float v, float lo) { return floatKey(v > lo ? v : lo); }
inline uint32_t clampedEnd(float v, float hi) { return floatKey(v < hi ? v : hi); }

}  // namespace

Orders ordersIn(int32_t* words, int32_t n) noexcept
{
    Orders o;
    for (int a = 0; a < 3; ++a) {
        o.byStart[a] = words + a * static_cast<int64_t>(n);
        o.byEnd[a] = words + (3 + a) * static_cast<int64_t>(n);
    }
    return o;
}

void sortOrders(const TriBoxes& boxes, const int32_t* list, int32_t n, int axis,
                const Orders& out, uint32_t* scratch) noexcept
{
    uint32_t* keys = scratch;
    int32_t* ids = reinterpret_cast<int32_t*>(scratch + n);
    uint32_t* spareKeys = scratch + 2 * static_cast<int64_t>(n);
    int32_t* spareIds = reinterpret_cast<int32_t*>(scratch + 3 * static_cast<int64_t>(n));
    for (int side = 0; side < 2; ++side) {
        const float* bound = side == 0 ? boxes.lo[axis] : boxes.hi[axis];
        for (int32_t i = 0; i < n; ++i) {
            const float v = bound[list[i]];
            keys[i] = side == 0 ? startOrderKey(v) : endOrderKey(v);
            ids[i] = list[i];
        }
        sortIdsByKey(keys, ids, spareKeys, spareIds, n, side == 0 ? out.byStart[axis] : out.byEnd[axis]);
    }
}

int32_t keysFromOrders(const TriBoxes& boxes, const Orders& in, int32_t n, int axis, float lo,
                       float hi, uint32_t* startsAndFlats, uint32_t* ends) noexcept
{
    const float* bl = boxes.lo[axis];
    const float* bh = boxes.hi[axis];
    // Starts in order; the flats gather in `ends` for the moment.
    int32_t m = 0, f = 0;
    const int32_t* byStart = in.byStart[axis];
    for (int32_t i = 0; i < n; ++i) {
        const int32_t id = byStart[i];
        const uint32_t ks = clampedStart(bl[id], lo), ke = clampedEnd(bh[id], hi);
        if (ks == ke)
            ends[f++] = ks;
        else
            startsAndFlats[m++] = ks;
    }
    std::memcpy(startsAndFlats + m, ends, sizeof(uint32_t) * static_cast<size_t>(f));
    const int32_t* byEnd = in.byEnd[axis];
    if (f == 0) {  // every triangle has an extent: only the ends are needed
        for (int32_t i = 0; i < n; ++i) ends[i] = clampedEnd(bh[byEnd[i]], hi);
        return m;
    }
    int32_t e = 0;
    for (int32_t i = 0; i < n; ++i) {
        const int32_t id = byEnd[i];
        const uint32_t ks = clampedStart(bl[id], lo), ke = clampedEnd(bh[id], hi);
        if (ks != ke) ends[e++] = ke;
    }
    return m;
}

void filterOrders(const Orders& in, int32_t n, const uint8_t* side, uint8_t mask,
                  const Orders& out) noexcept
{
    for (int k = 0; k < 6; ++k) {
        const int32_t* src = k < 3 ? in.byStart[k] : in.byEnd[k - 3];
        int32_t* dst = k < 3 ? out.byStart[k] : out.byEnd[k - 3];
        int32_t kept = 0;
        for (int32_t i = 0; i < n; ++i) {
            const int32_t id = src[i];
            dst[kept] = id;  // written always, kept only when the child has it
            kept += (side[id] & mask) != 0;
        }
    }
}

}  // namespace vekr::kd
