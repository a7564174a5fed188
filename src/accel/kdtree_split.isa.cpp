// A split node's triangles handed to its children, a block of lanes at a
// time.  The lists: per block the lanes' bounds are gathered and kept inside
// the cell, compared with the split, and the lanes that go below and those
// that go above are packed to the front and stored after what each child
// holds so far.  The orders: the same, from the side bytes the lists left.
// Order is kept, so the results are the one-entry loops'.
// GCC 12 reports the AVX-512 intrinsics' deliberately undefined pass-through
// operands as maybe uninitialized once they are inlined into this loop.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

#include "accel/kdtree_lanes.h"
#include "accel/kdtree_split.h"

namespace vekr {
namespace VEKR_ISA_NS {

namespace {

#if defined(__AVX2__)
using kd::Lanes;

// The bounds hold no -0, and kept inside the cell they hold no NaN, so
// comparing them as floats agrees with comparing their keys.
template <class W>
int32_t partitionLanes(const ::vekr::kd::PartitionInput& in, int32_t* below, int32_t& nBelow,
                       int32_t* above, int32_t& nAbove, uint8_t* sideOf)
{
    using I = typename W::I;
    using F = typename W::F;
    constexpr int L = W::L;
    constexpr uint32_t kAll = (1u << L) - 1u;
    const F lo = W::splat(in.lo), hi = W::splat(in.hi), x = W::splat(in.x);
    const uint32_t planeBelow = in.side == 0 ? kAll : 0u;
    alignas(64) int32_t ids[L];
    int32_t b = nBelow, a = nAbove, k = 0;
    for (; k + L <= in.n; k += L) {
        const I id = W::loadI(in.list + k);
        const I at = W::add(id, id);
        const F s = W::max(W::gather(in.bounds, at), lo);
        const F e = W::min(W::gather(in.bounds + 1, at), hi);
        const uint32_t flat = W::equal(s, e);
        const uint32_t toBelow = W::less(s, x) | (flat & W::equal(s, x) & planeBelow);
        const uint32_t toAbove = (flat & ~toBelow & kAll) | (~flat & W::less(x, e));
        W::compressStore(below + b, id, toBelow);
        W::compressStore(above + a, id, toAbove);
        b += __builtin_popcount(toBelow);
        a += __builtin_popcount(toAbove);
        if (sideOf) {
            W::store(ids, id);
            for (int l = 0; l < L; ++l)
                sideOf[ids[l]] = static_cast<uint8_t>(((toBelow >> l) & 1u) | (((toAbove >> l) & 1u) << 1));
        }
    }
    nBelow = b;
    nAbove = a;
    return k;
}

template <class W>
int32_t filterBlocks(const int32_t* src, int32_t count, int shift, const uint8_t* side,
                     int32_t* below, int32_t& nBelow, int32_t* above, int32_t& nAbove)
{
    using I = typename W::I;
    constexpr int L = W::L;
    int32_t b = nBelow, a = nAbove, k = 0;
    for (; k + L <= count; k += L) {
        const I v = W::loadI(src + k);
        const I s = W::gatherBytes(side, W::shiftRight(v, shift));
        if (below) {
            const uint32_t keep = W::hasBit(s, 1);
            W::compressStore(below + b, v, keep);
            b += __builtin_popcount(keep);
        }
        if (above) {
            const uint32_t keep = W::hasBit(s, 2);
            W::compressStore(above + a, v, keep);
            a += __builtin_popcount(keep);
        }
    }
    nBelow = b;
    nAbove = a;
    return k;
}
#endif

}  // namespace

int32_t partitionBlocks(const ::vekr::kd::PartitionInput& in, int32_t* below, int32_t& nBelow,
                        int32_t* above, int32_t& nAbove, uint8_t* sideOf)
{
#if defined(__AVX2__)
    return partitionLanes<Lanes>(in, below, nBelow, above, nAbove, sideOf);
#else
    (void)in, (void)below, (void)nBelow, (void)above, (void)nAbove, (void)sideOf;
    return 0;
#endif
}

int32_t filterListBlocks(const int32_t* src, int32_t count, int shift, const uint8_t* side,
                         int32_t* below, int32_t& nBelow, int32_t* above, int32_t& nAbove)
{
#if defined(__AVX2__)
    return filterBlocks<Lanes>(src, count, shift, side, below, nBelow, above, nAbove);
#else
    (void)src, (void)count, (void)shift, (void)side, (void)below, (void)nBelow, (void)above,
        (void)nAbove;
    return 0;
#endif
}

}  // namespace VEKR_ISA_NS
}  // namespace vekr
