// Cost of a split at x on the axis, divided by 2(a + b):
//   nBelow * ((x - lo) + r) + nAbove * ((hi - x) + r),  r = a*b / (a + b).
// Cutting off empty space is tried first and wins outright with a bonus;
// otherwise every distinct start and end is swept from the lowest start to
// the highest end.  Triangles lying in the plane of a candidate join the
// cheaper side.
#include "accel/kdtree_cost.h"

#include <limits>

#include "accel/kdtree_sort.h"

namespace vekr::kd {

namespace {

inline uint32_t minKey(uint32_t a, uint32_t b) { return a < b ? a : b; }
inline uint32_t maxKey(uint32_t a, uint32_t b) { return a > b ? a : b; }

// The sweep when no triangle lies in a plane across the axis.  Starts and
// ends are taken as one stream in key order, an end before a start of the
// same key.  The counts are exact at the first start and at the last end of
// every run of equal keys, and every position is one of those; only there is
// the cost compared.  Both forms of a position give the same counts.
AxisResult sweepNoFlats(const uint32_t* s, const uint32_t* e, int32_t m, double lo, double hi,
                        double r, double S) noexcept
{
    AxisResult best{std::numeric_limits<double>::infinity(), 0u, 0, 0, 0};
    double bestCost = std::numeric_limits<double>::infinity();
    int32_t i = 0, j = 0;
    uint32_t prevStart = s[0] ^ 1u;  // differs from the first start
    while (j < m) {
        const uint32_t sv = i < m ? s[i] : ~0u;
        const uint32_t ev = e[j];
        const bool takeEnd = ev <= sv;
        const uint32_t x = takeEnd ? ev : sv;
        const int32_t below = i;
        bool exact;
        if (takeEnd) {
            ++j;
            exact = j == m || e[j] != ev;
        } else {
            exact = prevStart != sv;
            prevStart = sv;
            ++i;
        }
        const int32_t above = m - j;
        if (exact) {
            const double xd = keyFloat(x);
            const double c = below * ((xd - lo) + r) + above * ((hi - xd) + r);
            if (c < bestCost) {
                bestCost = c;
                best = AxisResult{c, x, below, above, 0};
            }
        }
    }
    best.cost = bestCost * S;
    return best;
}

// The empty-space cut, when one applies: between the cell's low end and the
// lowest start (`first`), or the highest end (`last`) and its high end.
bool emptyCut(uint32_t first, uint32_t last, int32_t n, float lo, float hi, double r, double S,
              AxisResult& best) noexcept
{
    const double dn = n;
    const float g = (hi - lo) * 0.1f;
    const float firstF = keyFloat(first), lastF = keyFloat(last);
    bool empty = false;
    if (firstF - lo > g) {
        best = AxisResult{dn * ((static_cast<double>(hi) - firstF) + r), first, 0, n, 1};
        empty = true;
    }
    if (hi - lastF > g) {
        const double c = dn * ((lastF - static_cast<double>(lo)) + r);
        if (!empty || c < best.cost) best = AxisResult{c, last, n, 0, 0};
        empty = true;
    }
    if (empty) best.cost = best.cost * kEmptyBonus * S;
    return empty;
}

// r = a*b / (a + b), and S = a + b, of the two other extents.
struct Shape {
    double r, S;
};
inline Shape shapeOf(float a, float b) noexcept
{
    const double P = static_cast<double>(a) * static_cast<double>(b);
    const double S = static_cast<double>(a) + static_cast<double>(b);
    return Shape{P < 1e-9 ? 0.0 : P / S, S};
}

}  // namespace

AxisResult searchAxis(const AxisInput& in) noexcept
{
    const int32_t m = in.m, f = in.f, n = m + f;
    const auto [r, S] = shapeOf(in.a, in.b);
    const double lo = in.lo, hi = in.hi;

    AxisResult best{std::numeric_limits<double>::infinity(), 0u, 0, 0, 0};
    if (n == 0) return best;

    // Lowest start and highest end, the triangles in a plane included.
    uint32_t first = ~0u, last = 0u;
    if (m > 0) {
        first = in.starts[0];
        last = in.ends[m - 1];
    }
    if (f > 0) {
        first = minKey(first, in.flats[0]);
        last = maxKey(last, in.flats[f - 1]);
    }
    if (emptyCut(first, last, n, in.lo, in.hi, r, S, best)) return best;

    const uint32_t* s = in.starts;
    const uint32_t* e = in.ends;
    if (f == 0) return sweepNoFlats(s, e, m, lo, hi, r, S);

    const uint32_t* fl = in.flats;
    int32_t i = 0, j = 0, k = 0;
    double bestCost = std::numeric_limits<double>::infinity();
    while (j < m || k < f) {
        uint32_t x = ~0u;
        if (i < m) x = s[i];
        if (j < m) x = minKey(x, e[j]);
        if (k < f) x = minKey(x, fl[k]);
        const int32_t below = i + k;  // starts and flats strictly below x
        while (i < m && s[i] == x) ++i;
        while (j < m && e[j] == x) ++j;
        const int32_t k0 = k;
        while (k < f && fl[k] == x) ++k;
        const int32_t planar = k - k0;
        const int32_t above = (m - j) + (f - k);  // ends and flats strictly above x

        const double xd = keyFloat(x);
        const double wB = (xd - lo) + r, wA = (hi - xd) + r;
        double c = below * wB + above * wA;
        int32_t side = 0;
        if (planar > 0) {
            const double cBelow = c + planar * wB, cAbove = c + planar * wA;
            side = cBelow <= cAbove ? 0 : 1;
            c = side == 0 ? cBelow : cAbove;
        }
        if (c < bestCost) {
            bestCost = c;
            best = AxisResult{c, x, below + (side == 0 ? planar : 0),
                              above + (side == 1 ? planar : 0), side};
        }
    }
    best.cost = bestCost * S;
    return best;
}

AxisResult searchEvents(const EventInput& in, Isa isa) noexcept
{
    const int32_t m = in.m;
    const auto [r, S] = shapeOf(in.a, in.b);
    const float lo = in.lo, hi = in.hi;
    const int32_t* ev = in.events;
    const float* bound = in.bounds;
    auto at = [&](int32_t e) { return clampEvent(bound[e], lo, hi); };

    AxisResult best{std::numeric_limits<double>::infinity(), 0u, 0, 0, 0};
    if (m == 0) return best;
    // The stream opens with the lowest start and closes with the highest end.
    if (emptyCut(floatKey(at(ev[0])), floatKey(at(ev[2 * m - 1])), m, lo, hi, r, S, best))
        return best;

    // As sweepNoFlats, on the one stream: a start is a position when the
    // event before it is not a start at its place, an end when the event
    // after it is not an end at its place.  The bounds hold no NaN and no -0,
    // so equal places are equal floats.  Whether an event is a start or an
    // end follows no pattern, so the loop has no branch on it.
    SweepState st{0, 0, 0.0f, 0, std::numeric_limits<double>::infinity(), 0.0f, 0, 0};
    int32_t k = VEKR_ISA_CALL(isa, sweepEventBlocks(in, r, st));
    const double dlo = lo, dhi = hi;
    const int32_t last = 2 * m - 1;
    float x = at(ev[k]);
    int32_t end = ev[k] & 1;
    for (; k <= last; ++k) {
        const int32_t next = ev[k < last ? k + 1 : last];
        const float nextX = at(next);
        const int32_t nextEnd = (next & 1) & static_cast<int32_t>(k < last);
        st.j += end;
        const int32_t below = st.i, above = m - st.j;
        const int32_t exactEnd = 1 ^ (nextEnd & static_cast<int32_t>(nextX == x));
        const int32_t exactStart = 1 ^ (st.prevStart & static_cast<int32_t>(st.prevX == x));
        const int32_t exact = (end & exactEnd) | ((end ^ 1) & exactStart);
        st.i += end ^ 1;
        const double xd = x;
        const double c = below * ((xd - dlo) + r) + above * ((dhi - xd) + r);
        if (exact & static_cast<int32_t>(c < st.bestCost)) {
            st.bestCost = c;
            st.bestX = x;
            st.bestBelow = below;
            st.bestAbove = above;
        }
        st.prevX = x;
        st.prevStart = end ^ 1;
        x = nextX;
        end = nextEnd;
    }
    return AxisResult{st.bestCost * S, floatKey(st.bestX), st.bestBelow, st.bestAbove, 0};
}

}  // namespace vekr::kd
