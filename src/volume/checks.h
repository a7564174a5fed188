// Argument checks shared by the volume functions.  Each returns true when
// the argument passes; the caller returns the status code of its own step.
#pragma once

#include "vekr.h"

namespace vekr::volume {

// A volume size with width, height and depth all above 0.
inline bool validVolumeSize(const VekVolumeSize& v) noexcept
{
    return v.width > 0 && v.height > 0 && v.depth > 0;
}

// A region of interest: x >= 0, width > 0, y >= 0, height > 0, z >= 0,
// depth > 0 (tested in that order; every failure is vekStsSize).
inline bool validCuboid(const VekCuboid& c) noexcept
{
    return c.x >= 0 && c.width > 0 && c.y >= 0 && c.height > 0 && c.z >= 0 && c.depth > 0;
}

// True when the region's origin is not inside the volume: the warning
// vekStsVoiOutside, after which nothing is written.
inline bool voiOriginOutside(const VekVolumeSize& v, const VekCuboid& c) noexcept
{
    return c.x >= v.width || c.y >= v.height || c.z >= v.depth;
}

// The source region cut back to the volume (origin inside, see above):
// min(volume - origin, region size) per axis.
struct ClippedExtent {
    int width, height, depth;
};

inline ClippedExtent clipToVolume(const VekVolumeSize& v, const VekCuboid& c) noexcept
{
    auto lesser = [](int a, int b) { return a < b ? a : b; };
    return ClippedExtent{lesser(v.width - c.x, c.width), lesser(v.height - c.y, c.height),
                         lesser(v.depth - c.z, c.depth)};
}

}  // namespace vekr::volume
