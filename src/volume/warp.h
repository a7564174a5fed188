// Internal interface of the affine warp (the exports are in warp.cpp).
#pragma once

#include <cstddef>

#include "vekr.h"
#include "volume/layout.h"

namespace vekr::volume {

// The inverse of the forward 3 x 4 transform, by the adjugate over the
// determinant, in double precision.
struct AffineInverse {
    double m[12];
    double det;
};
AffineInverse invertAffine(const double c[3][4]) noexcept;

// The two coefficient tests that refuse a transform (vekStsAffineCoeff):
// an all-zero diagonal, and y and z rows found parallel by their 2 x 2 minors.
bool degenerateAffine(const double c[3][4]) noexcept;

// Inclusive bounds of the source region cut back to the volume.
struct SourceBounds {
    int lo[3];
    int hi[3];
};
SourceBounds sourceBounds(const VekVolumeSize& volume, const VekCuboid& voi) noexcept;

// The mode after the small-source rule: below 4 voxels along an axis cubic
// becomes linear, below 2 every mode becomes nearest.
int smallSourceMode(const VekVolumeSize& volume, int mode) noexcept;

// Everything a row kernel needs, shared read-only by all threads.
struct WarpJob {
    double m[12];
    double lo[3], hi[3];
    SourceBounds bounds;
    VekCuboid dst;
    int mode;
};

// Destination slices [zBegin, zEnd) (counted from dst.z) of one element type.
template <class T>
void warpSlab(const SliceVolume<const T>& src, T* const* dst, std::ptrdiff_t dstStep,
              const WarpJob& job, int zBegin, int zEnd);

// The whole warp after the checks; `threads` is the thread count to ask for.
template <class T>
void warpRun(const SliceVolume<const T>& src, T* const* dst, std::ptrdiff_t dstStep,
             const WarpJob& job, int threads);

}  // namespace vekr::volume
