// The node's triangles kept in sorted order on every axis, so that no node
// sorts: the root sorts once, and each split hands its children the orders
// filtered stably.  A node's sorted keys are then read off in linear time.
//
// Order: by start, the triangle numbers in ascending order of their lower
// bound on the axis (a NaN bound first); by end, in ascending order of the
// upper bound (a NaN bound last).  Keeping a bound inside a cell maps it
// through a non-decreasing function of this order (a NaN bound and every
// bound below the cell take the cell's), so the clamped keys of a node come
// out already sorted.
#pragma once

#include <cstdint>

#include "accel/kdtree_boxes.h"

namespace vekr::kd {

struct Orders {
    int32_t* byStart[3];
    int32_t* byEnd[3];
};

// Words of one node's orders of n triangles (one spare: the filter writes one past).
constexpr int64_t orderWords(int32_t n) { return 6 * static_cast<int64_t>(n) + 1; }

// Points the six orders of n triangles into `words` (orderWords(n) of them).
Orders ordersIn(int32_t* words, int32_t n) noexcept;

// Sorts the n triangles of `list` on one axis into the axis's two orders
// of `out`; scratch holds 4n words.
void sortOrders(const TriBoxes& boxes, const int32_t* list, int32_t n, int axis,
                const Orders& out, uint32_t* scratch) noexcept;

// The sorted keys of one node on one axis: the clamped starts and ends of
// the m triangles with an extent, and the positions of those lying in a
// plane across the axis (flats).  starts and flats share one array of n:
// the m starts, then the flats.  ends holds n words.  Returns m.
int32_t keysFromOrders(const TriBoxes& boxes, const Orders& in, int32_t n, int axis, float lo,
                       float hi, uint32_t* startsAndFlats, uint32_t* ends) noexcept;

// Writes the orders of one child: the triangles id with side[id] & mask, in
// the order they have in `in`.
void filterOrders(const Orders& in, int32_t n, const uint8_t* side, uint8_t mask,
                  const Orders& out) noexcept;

}  // namespace vekr::kd
