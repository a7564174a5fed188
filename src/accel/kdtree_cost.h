// Surface-area cost of the best split of one node on one axis.
#pragma once

#include <cstdint>

namespace vekr::kd {

// The result record of one axis.  Counts include the triangles lying in the
// split plane on the side `side` names (0: below, 1: above).
struct AxisResult {
    double cost;
    uint32_t posKey;  // split position as a sortable key
    int32_t nBelow;
    int32_t nAbove;
    int32_t side;
};

// The sorted candidate positions of one node on one axis, as keys.  starts
// and ends belong to the m triangles with an extent on the axis; flats holds
// the positions of the f triangles that lie in a plane across it.
struct AxisInput {
    const uint32_t* starts;
    const uint32_t* ends;
    int32_t m;
    const uint32_t* flats;
    int32_t f;
    float lo, hi;   // the node's extent on the axis
    float a, b;     // the node's extents on the two other axes
};

// Multiplier of empty-space cuts: the float 0.7 widened to double.
constexpr double kEmptyBonus = static_cast<double>(0.7f);

AxisResult searchAxis(const AxisInput& in) noexcept;

}  // namespace vekr::kd
