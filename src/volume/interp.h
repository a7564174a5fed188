// Interpolation modes of the volume functions and their kernels.
//
// Modes are the public values 1, 2, 4, 5, 6, 7 (3 is a deliberate hole).
// The cubic kernels are evaluated in double precision and stored as floats;
// resize calls them per destination coordinate, the affine warp samples them
// into constant tables.
#pragma once

#include <cmath>
#include <cstdint>

#include "vekr.h"

namespace vekr::volume {

enum Mode : int {
    kNearest = vekInterNearest,                  // 1
    kLinear = vekInterLinear,                    // 2
    kCubic = vekInterCubic,                      // 4: four-point Lagrange
    kCubicBSpline = vekInterCubicBSpline,        // 5: B = 1, C = 0
    kCubicCatmullRom = vekInterCubicCatmullRom,  // 6: B = 0, C = 1/2
    kCubicB05C03 = vekInterCubicB05C03,          // 7: B = 1/2, C = 3/10
};

// True for 1, 2, 4, 5, 6, 7; everything else is refused with vekStsInterpolation.
constexpr bool validMode(int mode) noexcept
{
    return mode == 1 || mode == 2 || (mode >= 4 && mode <= 7);
}

constexpr bool isCubicMode(int mode) noexcept
{
    return mode >= 4 && mode <= 7;
}

// The cubic kernel K(d) of a mode (4..7) at a distance d >= 0, in double.
// Inner pieces (d < 1) use the factored forms below; outer pieces (1 <= d < 2)
// are the expanded polynomials, except mode 4 whose outer piece is written as
// its product of roots so that K(1) and K(2) are exactly 0 (the Lagrange
// kernel interpolates: at t = 0 the weights are exactly 0, 1, 0, 0).
// d >= 2 gives 0.  A distance that is not a number fails both comparisons
// and gives 1.0; callers rely on that fall-through.
inline double cubicKernel(int mode, double d) noexcept
{
    if (d < 2.0) {
        if (d < 1.0) {
            switch (mode) {
            case kCubic: return (d * d * d - d) * 0.5 + (1.0 - d * d);
            case kCubicBSpline: return 0.5 * d * d * d - d * d + 2.0 / 3.0;
            case kCubicCatmullRom: return (1.5 * d - 2.5) * d * d + 1.0;
            default: return (0.95 * d - 1.7) * d * d + 5.0 / 6.0;
            }
        }
        switch (mode) {
        case kCubic: return (d - 1.0) * (d - 2.0) * (3.0 - d) / 6.0;
        case kCubicBSpline: return -(1.0 / 6.0) * d * d * d + d * d - 2.0 * d + 4.0 / 3.0;
        case kCubicCatmullRom: return -0.5 * d * d * d + 2.5 * d * d - 4.0 * d + 2.0;
        default: return -(23.0 / 60.0) * d * d * d + 2.0 * d * d - 3.4 * d + 28.0 / 15.0;
        }
    }
    if (d >= 2.0) return 0.0;
    return 1.0;  // NaN
}

// The four weights of the taps i-1, i, i+1, i+2 for the fraction t.  The
// arguments are formed in single precision (x0 = -1 - t, x0 + 1, x0 + 2,
// x0 + 3), their absolute values taken in double, the weights stored as float.
inline void cubicWeights(int mode, float t, float w[4]) noexcept
{
    const float x0 = -1.0f - t;
    const float x[4] = {x0, x0 + 1.0f, x0 + 2.0f, x0 + 3.0f};
    for (int k = 0; k < 4; ++k)
        w[k] = static_cast<float>(cubicKernel(mode, std::fabs(static_cast<double>(x[k]))));
}

// Sampled cubic kernels of the affine warp and the remap: for a cubic mode
// (4..7), kCubicTableSize floats holding K(j / 100) for j = 0 .. 200 (so the
// last sample is K(2) = 0), then zeros.  Built once, read-only, shared by all
// element types.
constexpr int kCubicTableSize = 208;
const float* cubicTable(int mode) noexcept;

// The weight of a tap at distance d (0 <= d <= 2) from a sampled kernel:
// linear interpolation between the samples 0.01 apart, in float.
inline float tabulatedWeight(const float* table, float d) noexcept
{
    const float u = d * 100.0f;
    const int j = static_cast<int>(u);
    return table[j] + (table[j + 1] - table[j]) * (u - static_cast<float>(j));
}

// The four tabulated weights of the taps i-1, i, i+1, i+2 for the fraction
// t, with the distances formed as in cubicWeights.
inline void tabulatedWeights(const float* table, float t, float w[4]) noexcept
{
    const float x0 = -1.0f - t;
    w[0] = tabulatedWeight(table, std::fabs(x0));
    w[1] = tabulatedWeight(table, std::fabs(x0 + 1.0f));
    w[2] = tabulatedWeight(table, std::fabs(x0 + 2.0f));
    w[3] = tabulatedWeight(table, std::fabs(x0 + 3.0f));
}

// Linear weights of the taps i and i+1: 1 - t and t.
inline void linearWeights(float t, float w[2]) noexcept
{
    w[0] = 1.0f - t;
    w[1] = t;
}

// Splits a source coordinate into i = floor(s) and the fraction t = s - i,
// stored as float.  The floor is exact: round to an integer, then step down
// when the rounded value lies above s.
struct Split {
    int32_t i;
    float t;
};

// A floor beyond the int32 range is held at its end (every caller clamps
// the taps to the volume, so nothing changes); a NaN gives i = 0.
inline Split splitCoordinate(double s) noexcept
{
    double r = std::nearbyint(s);
    if (r > s) r -= 1.0;
    const double i = r < -2147483648.0 ? -2147483648.0 : r > 2147483647.0 ? 2147483647.0 : r;
    return Split{i == i ? static_cast<int32_t>(i) : 0, static_cast<float>(s - r)};
}

}  // namespace vekr::volume
