// Surface-area cost of the best split of one node on one axis.
#pragma once

#include <cstdint>

#include "core/isa.h"

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

// The same search for a node in which no triangle lies in a plane across the
// axis, read straight off the node's events (kdtree_orders): each event
// 2 * id (start) or 2 * id + 1 (end), 2m of them in key order of the bounds
// kept inside [lo, hi], an end before a start of the same key.
struct EventInput {
    const int32_t* events;
    int32_t m;
    const float* bounds;  // the triangles' bounds on the axis, indexed by event
    float lo, hi;
    float a, b;
};

AxisResult searchEvents(const EventInput& in, Isa isa) noexcept;

// The running state of that search, handed from the wide blocks to the
// one-event loop that finishes the stream.
struct SweepState {
    int32_t i, j;       // starts and ends taken
    float prevX;        // the event before: its place, and whether a start
    int32_t prevStart;
    double bestCost;    // the best position so far, its place and counts
    float bestX;
    int32_t bestBelow, bestAbove;
};

}  // namespace vekr::kd

namespace vekr {

// Sweeps the events of `in` from the first, a block of lanes at a time,
// while a whole block and one event after it remain; returns how many
// events it took (none at the SSE level).  r: a*b / (a + b).
VEKR_ISA_DECLARE(int32_t sweepEventBlocks(const ::vekr::kd::EventInput& in, double r,
                                          ::vekr::kd::SweepState& st));

VEKR_LEVEL_BEGIN
namespace kd {

// An event's bound kept inside the cell [lo, hi].  A start never lies above
// the cell, nor an end below it, so one clamp serves both (and it is what
// max then min give: the bound when inside, else the end of the cell).
inline float clampEvent(float v, float lo, float hi) noexcept
{
    const float w = v > lo ? v : lo;
    return w < hi ? w : hi;
}

}  // namespace kd
VEKR_LEVEL_END
}  // namespace vekr

namespace vekr::kd {

}  // namespace vekr::kd
