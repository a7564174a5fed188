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

// Least-significant-digit radix sort of values by 33-bit keys, 11 bits per
// digit, stable.  Entry i has the key (keys[i] << 1) | low(values[i]), the
// extra low bit coming from its value.  The three digits' counts are taken
// in one pass beforehand; a digit that all keys share is skipped.  The
// entries start in (keys, values) and end with their values in out; the
// passes go back and forth between those and (spareKeys, out), n words each.
template <class Low>
void radixSort33(uint32_t* keys, int32_t* values, uint32_t* spareKeys, int32_t* out, int32_t n,
                 Low low) noexcept
{
    auto digit = [&](uint32_t k, int32_t v, int d) -> uint32_t {
        if (d == 0) return ((k << 1) | low(v)) & 2047u;
        return (k >> (11 * d - 1)) & 2047u;
    };
    uint32_t count[3][2048] = {};
    for (int32_t i = 0; i < n; ++i)
        for (int d = 0; d < 3; ++d) ++count[d][digit(keys[i], values[i], d)];
    uint32_t* k = keys;
    int32_t* v = values;
    uint32_t* k2 = spareKeys;
    int32_t* v2 = out;
    for (int d = 0; d < 3; ++d) {
        uint32_t* c = count[d];
        if (n == 0 || c[digit(k[0], v[0], d)] == static_cast<uint32_t>(n)) continue;
        countsToStarts(c, 2048);
        for (int32_t i = 0; i < n; ++i) {
            const uint32_t at = c[digit(k[i], v[i], d)]++;
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

void sortEvents(const TriBoxes& boxes, const int32_t* list, int32_t n, int axis, float lo,
                float hi, int32_t* words, uint32_t* scratch) noexcept
{
    const float* B = boxes.bounds[axis];
    auto flat = [&](int32_t id) { return clampedStart(B[2 * id], lo) == clampedEnd(B[2 * id + 1], hi); };
    int32_t f = 0;
    for (int32_t i = 0; i < n; ++i) f += flat(list[i]) ? 1 : 0;
    const int64_t m2 = 2 * static_cast<int64_t>(n - f);

    // The flats' ids and keys, and the events' (in list order, each start
    // before its end), in scratch: 3 * 2m words for the events, 3f for the
    // flats.
    int32_t* region = axisRegion(words, n, axis);
    uint32_t* eventKeys = scratch;
    int32_t* events = reinterpret_cast<int32_t*>(scratch + m2);
    uint32_t* spareEventKeys = scratch + 2 * m2;
    uint32_t* flatKeys = scratch + 3 * m2;
    int32_t* flats = reinterpret_cast<int32_t*>(flatKeys + f);
    uint32_t* spareFlatKeys = flatKeys + 2 * static_cast<int64_t>(f);
    int32_t e = 0, g = 0;
    for (int32_t i = 0; i < n; ++i) {
        const int32_t id = list[i];
        if (flat(id)) {
            flatKeys[g] = floatKey(B[2 * id]);
            flats[g++] = id;
        } else {
            eventKeys[e] = floatKey(B[2 * id]);
            events[e++] = 2 * id;
            eventKeys[e] = floatKey(B[2 * id + 1]);
            events[e++] = 2 * id + 1;
        }
    }
    words[axis] = f;
    // Flats by position; events by key, an end (low bit 1) before a start.
    radixSort33(flatKeys, flats, spareFlatKeys, region, f, [](int32_t) { return 0u; });
    radixSort33(eventKeys, events, spareEventKeys, region + f, static_cast<int32_t>(m2),
                [](int32_t ev) { return static_cast<uint32_t>(~ev) & 1u; });
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
