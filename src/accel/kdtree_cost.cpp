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

}  // namespace

AxisResult searchAxis(const AxisInput& in) noexcept
{
    const int32_t m = in.m, f = in.f, n = m + f;
    const double P = static_cast<double>(in.a) * static_cast<double>(in.b);
    const double S = static_cast<double>(in.a) + static_cast<double>(in.b);
    const double r = P < 1e-9 ? 0.0 : P / S;
    const double lo = in.lo, hi = in.hi, dn = n;

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

    const float g = (in.hi - in.lo) * 0.1f;
    const float firstF = keyFloat(first), lastF = keyFloat(last);
    bool empty = false;
    if (firstF - in.lo > g) {
        best = AxisResult{dn * ((hi - firstF) + r), first, 0, n, 1};
        empty = true;
    }
    if (in.hi - lastF > g) {
        const double c = dn * ((lastF - lo) + r);
        if (!empty || c < best.cost) best = AxisResult{c, last, n, 0, 0};
        empty = true;
    }
    if (empty) {
        best.cost = best.cost * kEmptyBonus * S;
        return best;
    }

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

}  // namespace vekr::kd
