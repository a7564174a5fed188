// Reading one interpolated voxel of a slice-pointer source, shared by the
// affine warp and the remap.  Callers choose the tap indices (each family
// has its own edge rules); these helpers only fetch and blend, in 32-bit
// float: linear along x first (a * (1 - t) + b * t), then y, then z; cubic
// as weighted sums of four taps, x first, then y, then z.
#pragma once

#include <cstddef>

#include "volume/layout.h"

namespace vekr::volume {

template <class T>
inline float linearSample(const SliceVolume<const T>& src, int ix, int iy, int iz, int ix1,
                          int iy1, int iz1, float tx, float ty, float tz) noexcept
{
    const float ux = 1.0f - tx, uy = 1.0f - ty, uz = 1.0f - tz;
    const T* r00 = src.row(iy, iz);
    const T* r10 = src.row(iy1, iz);
    const T* r01 = src.row(iy, iz1);
    const T* r11 = src.row(iy1, iz1);
    const float a00 = static_cast<float>(r00[ix]) * ux + static_cast<float>(r00[ix1]) * tx;
    const float a10 = static_cast<float>(r10[ix]) * ux + static_cast<float>(r10[ix1]) * tx;
    const float a01 = static_cast<float>(r01[ix]) * ux + static_cast<float>(r01[ix1]) * tx;
    const float a11 = static_cast<float>(r11[ix]) * ux + static_cast<float>(r11[ix1]) * tx;
    const float b0 = a00 * uy + a10 * ty;
    const float b1 = a01 * uy + a11 * ty;
    return b0 * uz + b1 * tz;
}

template <class T>
inline float cubicSample(const SliceVolume<const T>& src, const int ix[4], const int iy[4],
                         const int iz[4], const float wx[4], const float wy[4],
                         const float wz[4]) noexcept
{
    float zs = 0.0f;
    for (int k = 0; k < 4; ++k) {
        float ys = 0.0f;
        for (int j = 0; j < 4; ++j) {
            const T* r = src.row(iy[j], iz[k]);
            const float xs = static_cast<float>(r[ix[0]]) * wx[0] + static_cast<float>(r[ix[1]]) * wx[1] +
                             static_cast<float>(r[ix[2]]) * wx[2] + static_cast<float>(r[ix[3]]) * wx[3];
            ys = j == 0 ? xs * wy[0] : ys + xs * wy[j];
        }
        zs = k == 0 ? ys * wz[0] : zs + ys * wz[k];
    }
    return zs;
}

}  // namespace vekr::volume
