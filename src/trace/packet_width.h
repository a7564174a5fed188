// The packet width of the instruction-set level being compiled, for the
// per-level packet kernels (*.isa.cpp) only: 16 lanes (a whole 4 x 4 tile; one
// register with AVX-512, two halves with AVX2) where AVX2 is available, 4
// lanes (one row) otherwise.  The aliases
// live in the level's own namespace, so each copy sees its own width.
#pragma once

#ifndef VEKR_ISA_NS
#error "packet_width.h belongs to the per-level packet kernels"
#endif

#include "trace/packet_core.h"

namespace vekr {
namespace VEKR_ISA_NS {

#if defined(__AVX2__)
using V = simd::F16;
#else
using V = simd::F4;
#endif
using M = trace::MaskOf<V>;
using L = trace::Lanes<V>;

// Writes a packet's nearest hits (distance, u, v, triangle) back into the
// caller's arrays; lanes that found nothing keep their old values.
template <class Hits>
inline void blendNearest(float* dist, float* const hits[2], float* triBits, size_t at,
                         size_t stride, const Hits& p, M hit)
{
    L::blend(dist + at, stride, p.dist, hit);
    L::blend(hits[0] + at, stride, p.u, hit);
    L::blend(hits[1] + at, stride, p.v, hit);
    L::blend(triBits + at, stride, p.tri, hit);
}

}  // namespace VEKR_ISA_NS
}  // namespace vekr
