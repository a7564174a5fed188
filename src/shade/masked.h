// The frame shared by the masked per-ray operations.  Every member runs the
// same steps: its own null checks; a 4-wide path when the count is divisible
// by 4 and its arrays are 16-byte aligned, taking groups of four rays (all
// inactive: the inactive result is stored directly; none inactive: computed
// as they are; mixed: computed and selected lane by lane); otherwise, for a
// count of at least 1, one ray at a time.
//
// A member supplies:
//   static constexpr bool kVector         whether it has a 4-wide path at all
//   bool anyNull() const                  the null checks it makes
//   bool vectorAligned() const            the arrays its 4-wide path needs aligned
//   const int* mask() const
//   void active(int i) const              the formula for one active ray
//   void inactive(int i) const            what one inactive ray receives
//   void groupInactive(int i) const       the same for rays i..i+3
//   template <bool Mixed>
//   void group(int i, simd::F4 on) const  rays i..i+3; when Mixed, lanes of `on`
//                                         (all-ones = active) take the formula and
//                                         the others the inactive value
#pragma once

#include "core/simd.h"
#include "shade/load.h"
#include "vekr.h"

namespace vekr::shade {

// Groups of four rays; count divisible by 4.
template <class Op>
void maskedGroups(const Op& op, int count)
{
    const int* mask = op.mask();
    for (int i = 0; i < count; i += 4) {
        const simd::I4 m = simd::loadi4(mask + i);
        const int inactive = simd::negativeLanes(m);
        if (inactive == 0xF) op.groupInactive(i);
        else if (inactive == 0) op.template group<false>(i, simd::F4(simd::bitsToFloat(~0u)));
        else op.template group<true>(i, activeLanes(m));
    }
}

// One ray at a time.
template <class Op>
void maskedLoop(const Op& op, int count)
{
    const int* mask = op.mask();
    for (int i = 0; i < count; ++i) {
        if (mask[i] < 0) op.inactive(i);
        else op.active(i);
    }
}

template <class Op>
VekStatus runMasked(const Op& op, int count)
{
    if (op.anyNull()) return vekStsNullPtr;
    if constexpr (Op::kVector) {
        if (count % 4 == 0 && op.vectorAligned()) {
            maskedGroups(op, count);
            return vekStsOk;
        }
    }
    if (count < 1) return vekStsOk;
    maskedLoop(op, count);
    return vekStsOk;
}

}  // namespace vekr::shade
