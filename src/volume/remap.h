// Internal interface of the remap (the exports are in remap.cpp).
#pragma once

#include <cstddef>

#include "vekr.h"
#include "volume/layout.h"

namespace vekr::volume {

// The three coordinate maps (x, y, z), slice-pointer volumes of floats with
// one row step in elements.
struct CoordinateMaps {
    const float* const* axis[3];
    std::ptrdiff_t step;
};

struct RemapJob {
    float lo[3], hi[3];  // inclusive source bounds, compared in float
    int ilo[3], ihi[3];
    VekVolumeSize dst;
    int mode;
};

// Destination slices [zBegin, zEnd).
template <class T>
void remapSlab(const SliceVolume<const T>& src, const CoordinateMaps& maps, T* const* dst,
               std::ptrdiff_t dstStep, const RemapJob& job, int zBegin, int zEnd);

template <class T>
void remapRun(const SliceVolume<const T>& src, const CoordinateMaps& maps, T* const* dst,
              std::ptrdiff_t dstStep, const RemapJob& job, int threads);

}  // namespace vekr::volume
