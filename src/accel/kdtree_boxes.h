// Per-triangle boxes the build splits by: the triangle's own box, or, when a
// region is given, the box of the part of the triangle inside the region.
#pragma once

#include <cstdint>

#include "vekr.h"

namespace vekr::kd {

// Per axis 2t floats, a triangle's minimum and maximum side by side (at 2 id
// and 2 id + 1), so that both bounds of a triangle share a cache line and an
// event of the build's orders (2 id for a start, 2 id + 1 for an end)
// indexes its own bound.
struct TriBoxes {
    float* bounds[3];
    float lo(int axis, int32_t id) const { return bounds[axis][2 * static_cast<int64_t>(id)]; }
    float hi(int axis, int32_t id) const { return bounds[axis][2 * static_cast<int64_t>(id) + 1]; }
};

// Fills the boxes of all t triangles and writes the numbers of the triangles
// that take part (all of them without a region; those with a part inside it
// otherwise) in ascending order into kept.  Returns how many were kept.
// A coordinate -0 is stored as +0, so that one plane has one key.  Large
// meshes are boxed on `threads` threads.
int32_t triangleBoxes(const float* vertices, const int* triangles, int32_t t,
                      const VekrBox3D* region, const TriBoxes& boxes, int32_t* kept,
                      int threads) noexcept;

// Cuts the triangle (a, b, c) to the box axis by axis and gives the bounds
// of the remaining polygon, rounded outwards to floats and kept inside the
// box.  False when nothing of the triangle is inside.
bool clipTriangleToBox(const float* a, const float* b, const float* c, const VekrBox3D& box,
                       float lo[3], float hi[3]) noexcept;

}  // namespace vekr::kd
