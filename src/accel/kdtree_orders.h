// The node's triangles kept in sorted order on every axis, so that no node
// sorts: the root sorts once, and each split hands its children the orders
// filtered stably.
//
// On each axis a node's triangles fall in two groups.  A flat triangle lies
// in a plane across the axis once its bounds are kept inside the cell (its
// clamped start and end are one key); the flats are kept in order of
// position.  Every other triangle gives two events, its start and its end,
// and the events are kept as one stream in key order, an end before a start
// of the same key: the order in which the cost sweep takes them.
//
// Why the orders stay valid below the root, for boxes without NaN bounds
// (the only ones given orders): every triangle of a cell overlaps it, and
// keeping a bound inside a cell is a non-decreasing map, so the stream stays
// in key order in every cell; an end and a start of two triangles that do
// not lie flat can only meet at a key where they already met.  And a
// triangle is flat in a cell exactly when it is flat in its parent's: a
// split at x puts below only triangles that start below x and above only
// those that end above it, so cutting the cell at x cannot make a start and
// an end meet, and a flat triangle keeps its position.  The boxes hold no
// -0, so key order and float order agree on every bound and cell.
#pragma once

#include <cstdint>

#include "accel/kdtree_boxes.h"
#include "core/isa.h"

namespace vekr::kd {

// An event: 2 * id for the start of triangle id, 2 * id + 1 for its end.
constexpr bool isEnd(int32_t event) { return (event & 1) != 0; }
constexpr int32_t eventTriangle(int32_t event) { return event >> 1; }

struct Orders {
    int32_t* events[3];  // 2 * m[axis] events
    int32_t* flats[3];   // f[axis] triangle numbers
    int32_t m[3];
    int32_t f[3];
};

// Words of one node's orders of n triangles: the three flat counts, then per
// axis 2n words (the flats, then the events) and one spare word (the filter
// writes one past).
constexpr int64_t orderWords(int32_t n) { return 6 * static_cast<int64_t>(n) + 6; }

// The orders of n triangles stored in `words`.
Orders ordersIn(int32_t* words, int32_t n) noexcept;

// True when no bound of the n triangles of `list` is NaN: only then do the
// orders hold below the root (a NaN bound is kept inside the cell at one
// end, whatever its place in the order).
bool orderable(const TriBoxes& boxes, const int32_t* list, int32_t n) noexcept;

// The root's orders on one axis, for the cell [lo, hi] (the box of the n
// triangles of `list`), into that axis's part of `words` (orderWords(n) of
// them): the flats and the events each sorted once, stably, so that equal
// keys keep the order of `list`.  Takes 6n words of scratch; the three axes
// can be sorted at the same time.
constexpr int64_t sortEventsScratch(int32_t n) { return 6 * static_cast<int64_t>(n); }
void sortEvents(const TriBoxes& boxes, const int32_t* list, int32_t n, int axis, float lo,
                float hi, int32_t* words, uint32_t* scratch) noexcept;

// The sorted keys of one node on one axis, for the general search: the
// clamped starts and ends of the m triangles with an extent, and the
// positions of the flats.  startsAndFlats holds the m starts, then the
// flats; ends holds m words.
void keysFromOrders(const TriBoxes& boxes, const Orders& in, int axis, float lo, float hi,
                    uint32_t* startsAndFlats, uint32_t* ends) noexcept;

// Writes one axis of the orders of the children, in one pass: the triangles
// id with side[id] & 1 go below (nBelow of them, into belowWords), those
// with side[id] & 2 above, in the order they have in `in`.  A child whose
// words are null gets none.
// side must hold 3 bytes past the last triangle's (wide levels read 4
// bytes per triangle).  isa: the level of the wide blocks.
void filterOrders(const Orders& in, int axis, const uint8_t* side, int32_t* belowWords,
                  int32_t nBelow, int32_t* aboveWords, int32_t nAbove, Isa isa) noexcept;

}  // namespace vekr::kd
