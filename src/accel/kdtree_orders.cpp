#include "accel/kdtree_orders.h"

#include <cmath>
#include <cstring>
#include <utility>

#include "accel/kdtree_sort.h"
#include "accel/kdtree_split.h"

namespace vekr::kd {

namespace {

// An axis's region of n triangles' orders: after the three flat counts,
// 2n words and the spare one the filter writes into, so that the axes can
// be filtered at the same time.
inline int32_t* axisRegion(int32_t* words, int32_t n, int axis)
{
    return words + 3 + (2 * static_cast<int64_t>(n) + 1) * axis;
}

// Least-significant-digit radix sort of ids by keys, 11 bits per digit, the
// three digits' counts taken in one pass beforehand.  ids and keys start in
// out and keys and end in out; the spare arrays hold n words each.
void sortIdsByKey(uint32_t* keys, int32_t* out, uint32_t* spareKeys, int32_t* spareIds,
                  int32_t n) noexcept
{
    uint32_t count[3][2048] = {};
    for (int32_t i = 0; i < n; ++i) {
        const uint32_t k = keys[i];
        ++count[0][k & 2047u];
        ++count[1][(k >> 11) & 2047u];
        ++count[2][k >> 22];
    }
    uint32_t* k = keys;
    int32_t* v = out;
    uint32_t* k2 = spareKeys;
    int32_t* v2 = spareIds;
    for (int digit = 0; digit < 3; ++digit) {
        const int shift = 11 * digit;
        uint32_t* c = count[digit];
        // A digit that all keys share leaves the order as it is.
        if (n == 0 || c[(k[0] >> shift) & 2047u] == static_cast<uint32_t>(n)) continue;
        uint32_t sum = 0;
        for (int d = 0; d < 2048; ++d) {
            const uint32_t here = c[d];
            c[d] = sum;
            sum += here;
        }
        for (int32_t i = 0; i < n; ++i) {
            const uint32_t at = c[(k[i] >> shift) & 2047u]++;
            k2[at] = k[i];
            v2[at] = v[i];
        }
        std::swap(k, k2);
        std::swap(v, v2);
    }
    if (v != out) std::memcpy(out, v, sizeof(int32_t) * static_cast<size_t>(n));
}

// The key of a bound kept inside the cell [lo, hi].
inline uint32_t clampedStart(float v, float lo) { return floatKey(v > lo ? v : lo); }
inline uint32_t clampedEnd(float v, float hi) { return floatKey(v < hi ? v : hi); }

}  // namespace

Orders ordersIn(int32_t* words, int32_t n) noexcept
{
    Orders o;
    for (int a = 0; a < 3; ++a) {
        o.f[a] = words[a];
        o.m[a] = n - o.f[a];
        o.flats[a] = axisRegion(words, n, a);
        o.events[a] = o.flats[a] + o.f[a];
    }
    return o;
}

bool orderable(const TriBoxes& boxes, const int32_t* list, int32_t n) noexcept
{
    bool nan = false;
    for (int a = 0; a < 3; ++a)
        for (int32_t i = 0; i < n; ++i)
            nan |= std::isnan(boxes.lo(a, list[i])) | std::isnan(boxes.hi(a, list[i]));
    return !nan;
}

void sortBounds(const TriBoxes& boxes, const int32_t* list, int32_t n, int axis, int side,
                int32_t* words, uint32_t* scratch) noexcept
{
    const float* B = boxes.bounds[axis];
    int32_t* out = axisRegion(words, n, axis) + (side == 0 ? 0 : n);
    uint32_t* keys = scratch;
    for (int32_t i = 0; i < n; ++i) {
        keys[i] = floatKey(B[2 * list[i] + side]);
        out[i] = list[i];
    }
    sortIdsByKey(keys, out, scratch + n, reinterpret_cast<int32_t*>(scratch + 2 * static_cast<int64_t>(n)), n);
}

void mergeOrders(const TriBoxes& boxes, int32_t n, int axis, float lo, float hi, int32_t* words,
                 uint32_t* scratch) noexcept
{
    const float* B = boxes.bounds[axis];
    int32_t* region = axisRegion(words, n, axis);
    const int32_t* byStart = region;
    const int32_t* byEnd = region + n;

    // The flats, and the starts and ends of the others, each in order.
    int32_t* flats = reinterpret_cast<int32_t*>(scratch);
    int32_t* starts = flats + n;
    int32_t* ends = flats + 2 * static_cast<int64_t>(n);
    auto flat = [&](int32_t id) { return clampedStart(B[2 * id], lo) == clampedEnd(B[2 * id + 1], hi); };
    int32_t f = 0, m = 0, e = 0;
    for (int32_t i = 0; i < n; ++i) {
        const int32_t id = byStart[i];
        if (flat(id))
            flats[f++] = id;
        else
            starts[m++] = id;
    }
    for (int32_t i = 0; i < n; ++i)
        if (!flat(byEnd[i])) ends[e++] = byEnd[i];

    // One stream, an end before a start of the same key.
    words[axis] = f;
    std::memcpy(region, flats, sizeof(int32_t) * static_cast<size_t>(f));
    int32_t* out = region + f;
    int32_t s = 0;
    e = 0;
    while (e < m) {
        if (s < m && floatKey(B[2 * starts[s]]) < floatKey(B[2 * ends[e] + 1]))
            *out++ = 2 * starts[s++];
        else
            *out++ = 2 * ends[e++] + 1;
    }
}

void keysFromOrders(const TriBoxes& boxes, const Orders& in, int axis, float lo, float hi,
                    uint32_t* startsAndFlats, uint32_t* ends) noexcept
{
    const float* B = boxes.bounds[axis];
    const int32_t m = in.m[axis], f = in.f[axis];
    const int32_t* events = in.events[axis];
    int32_t s = 0, e = 0;
    for (int32_t k = 0; k < 2 * m; ++k) {
        const int32_t ev = events[k];
        if (isEnd(ev))
            ends[e++] = clampedEnd(B[ev], hi);
        else
            startsAndFlats[s++] = clampedStart(B[ev], lo);
    }
    for (int32_t k = 0; k < f; ++k) startsAndFlats[m + k] = clampedStart(B[2 * in.flats[axis][k]], lo);
}

namespace {

// One list of one axis (the flats or the events) into the children: the
// wide blocks first, then the rest one entry at a time.  Each entry is
// written to both children and kept by those whose bit its side has, so
// the writes go one past what is kept.
template <int Shift>
void splitList(const int32_t* src, int32_t count, const uint8_t* side, int32_t* below,
               int32_t& keptBelow, int32_t* above, int32_t& keptAbove, Isa isa) noexcept
{
    int32_t k = VEKR_ISA_CALL(isa, filterListBlocks(src, count, Shift, side, below, keptBelow,
                                                    above, keptAbove));
    int32_t b = keptBelow, a = keptAbove;
    int32_t spare = 0;  // where a child without words writes, its count staying 0
    int32_t* toBelow = below ? below : &spare;
    int32_t* toAbove = above ? above : &spare;
    const uint32_t maskBelow = below ? 1u : 0u, maskAbove = above ? 1u : 0u;
    for (; k < count; ++k) {
        const int32_t v = src[k];
        const uint32_t s = side[v >> Shift];
        toAbove[a] = v;
        toBelow[b] = v;
        b += static_cast<int32_t>(s & maskBelow);
        a += static_cast<int32_t>((s >> 1) & maskAbove);
    }
    keptBelow = b;
    keptAbove = a;
}

}  // namespace

void filterOrders(const Orders& in, int axis, const uint8_t* side, int32_t* belowWords,
                  int32_t nBelow, int32_t* aboveWords, int32_t nAbove, Isa isa) noexcept
{
    if (!belowWords && !aboveWords) return;
    // Per child: the flats from the start of the axis's region, then the events.
    int32_t* below = belowWords ? axisRegion(belowWords, nBelow, axis) : nullptr;
    int32_t* above = aboveWords ? axisRegion(aboveWords, nAbove, axis) : nullptr;
    int32_t b = 0, a = 0;
    splitList<0>(in.flats[axis], in.f[axis], side, below, b, above, a, isa);
    if (belowWords) belowWords[axis] = b;
    if (aboveWords) aboveWords[axis] = a;
    splitList<1>(in.events[axis], 2 * in.m[axis], side, below, b, above, a, isa);
}

}  // namespace vekr::kd
