// The typed volume exports behind one overloaded name each, so that one test
// body serves every element type.
#pragma once

#include "vekr.h"

namespace vekr::test {

#define VEKR_TEST_VOLUME_OVERLOADS(T, S)                                                                        \
    inline VekStatus resizeV(const T* s, const VekVolumeSize* v, int ss, int sp, const VekCuboid* sv, T* d,     \
                             int ds, int dp, const VekCuboid* dv, double fx, double fy, double fz, double hx,   \
                             double hy, double hz, int m, uint8_t* b)                                           \
    {                                                                                                           \
        return vekrResize_##S##_C1V(s, v, ss, sp, sv, d, ds, dp, dv, fx, fy, fz, hx, hy, hz, m, b);           \
    }                                                                                                           \
    inline VekStatus resizePV(const T* const* s, const VekVolumeSize* v, int ss, const VekCuboid* sv,          \
                              T* const* d, int ds, const VekCuboid* dv, double fx, double fy, double fz,       \
                              double hx, double hy, double hz, int m, uint8_t* b)                               \
    {                                                                                                           \
        return vekrResize_##S##_C1PV(s, v, ss, sv, d, ds, dv, fx, fy, fz, hx, hy, hz, m, b);                  \
    }                                                                                                           \
    inline VekStatus warpAffine(const T* const* s, const VekVolumeSize* v, int ss, const VekCuboid* sv,        \
                                T* const* d, int ds, const VekCuboid* dv, const double c[3][4], int m)          \
    {                                                                                                           \
        return vekrWarpAffine_##S##_C1PV(s, v, ss, sv, d, ds, dv, c, m);                                      \
    }                                                                                                           \
    inline VekStatus remap(const T* const* s, const VekVolumeSize* v, int ss, const VekCuboid* sv,             \
                           const float* const* mx, const float* const* my, const float* const* mz, int ms,     \
                           T* const* d, int ds, const VekVolumeSize* r, int m)                                 \
    {                                                                                                           \
        return vekrRemap_##S##_C1PV(s, v, ss, sv, mx, my, mz, ms, d, ds, r, m);                               \
    }
VEKR_TEST_VOLUME_OVERLOADS(uint8_t, 8u)
VEKR_TEST_VOLUME_OVERLOADS(uint16_t, 16u)
VEKR_TEST_VOLUME_OVERLOADS(float, 32f)
#undef VEKR_TEST_VOLUME_OVERLOADS

}  // namespace vekr::test
