// The cost sweep over a node's event stream, a block of lanes at a time.
//
// Per block: the bounds are gathered and kept inside the cell; the counts
// below and above every event come from a prefix sum of the event kinds;
// whether an event is a position comes from comparing it with its
// neighbours (a tie: the same kind at the same place); the costs are
// evaluated in double precision in the same order as the one-event loop.
// The lanes that beat the best cost so far are then taken in stream order,
// so the result is the loop's to the bit.
// GCC 12 reports the AVX-512 intrinsics' deliberately undefined pass-through
// operands as maybe uninitialized once they are inlined into this loop.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

#include "accel/kdtree_cost.h"
#include "accel/kdtree_lanes.h"

namespace vekr {
namespace VEKR_ISA_NS {

namespace {

#if defined(__AVX2__)
using kd::Lanes;

template <class W>
int32_t sweepBlocks(const ::vekr::kd::EventInput& in, double r, ::vekr::kd::SweepState& st)
{
    using I = typename W::I;
    using F = typename W::F;
    using D = typename W::D;
    constexpr int L = W::L, H = L / 2;
    constexpr uint32_t kAll = (1u << L) - 1u;
    const int32_t m = in.m, total = 2 * m;
    const int32_t* ev = in.events;
    const float* bound = in.bounds;
    const float lo = in.lo, hi = in.hi;
    const F vlo = W::splat(lo), vhi = W::splat(hi);
    const D dlo = W::splatD(lo), dhi = W::splatD(hi), dr = W::splatD(r);
    const I lane = W::laneIndex();
    alignas(64) float place[L];
    alignas(64) int32_t below[L], above[L];
    uint32_t carry = 0;  // the last event of the block before ties with the first of this one
    int32_t k = 0;
    for (; k + L < total; k += L) {
        const I e = W::loadI(ev + k);
        const I kind = W::kinds(e);  // 1: an end
        const F x = W::gatherClamped(bound, e, vlo, vhi);
        const int32_t after = ev[k + L];
        const F xNext = W::nextLanes(x, kd::clampEvent(bound[after], lo, hi));
        const I kindNext = W::kinds(W::loadI(ev + k + 1));
        const uint32_t ends = W::equal(kind, W::splatI(1));
        const uint32_t tieNext = W::equal(x, xNext) & W::equal(kind, kindNext);
        const uint32_t tiePrev = ((tieNext << 1) | carry) & kAll;
        carry = tieNext >> (L - 1);
        // An end is a position unless an end at its place follows; a start
        // unless a start at its place precedes.
        const uint32_t exact = (ends & ~tieNext) | (~ends & ~tiePrev & kAll);
        // Ends up to and including each lane; starts strictly before it.
        const I endsTo = W::prefix(kind);
        const I b = W::add(W::splatI(st.i), W::add(W::sub(lane, endsTo), kind));
        const I a = W::sub(W::splatI(m - st.j), endsTo);
        const D best = W::splatD(st.bestCost);
        uint32_t better = 0;
        D c[2];
        for (int h = 0; h < 2; ++h) {
            const D xd = W::half(x, h);
            c[h] = W::half(b, h) * ((xd - dlo) + dr) + W::half(a, h) * ((dhi - xd) + dr);
            better |= W::less(c[h], best) << (h * H);
        }
        better &= exact;
        // The loop would take the better lanes in turn, each only when it
        // beats the last: it ends on the first lane of the least cost.
        if (better) {
            double least;
            const int l = W::firstLeast(c, better, least);
            W::store(place, x);
            W::store(below, b);
            W::store(above, a);
            st.bestCost = least;
            st.bestX = place[l];
            st.bestBelow = below[l];
            st.bestAbove = above[l];
        }
        const int32_t endCount = __builtin_popcount(ends);
        st.j += endCount;
        st.i += L - endCount;
    }
    if (k > 0) {
        st.prevX = kd::clampEvent(bound[ev[k - 1]], lo, hi);
        st.prevStart = (ev[k - 1] & 1) ^ 1;
    }
    return k;
}
#endif

}  // namespace

int32_t sweepEventBlocks(const ::vekr::kd::EventInput& in, double r, ::vekr::kd::SweepState& st)
{
#if defined(__AVX2__)
    return sweepBlocks<Lanes>(in, r, st);
#else
    (void)in;
    (void)r;
    (void)st;
    return 0;
#endif
}

}  // namespace VEKR_ISA_NS
}  // namespace vekr
