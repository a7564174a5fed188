// The surroundings that light the scene from afar: a sky over a ground, seen
// directly by rays that leave the scene and, through its spherical-harmonic
// projection (bands 0 to 2), as the ambient light on diffuse surfaces.
#pragma once

#include <string>
#include <vector>

#include "vekr.h"

namespace render {

struct Sky {
    float zenith[3] = {0.18f, 0.33f, 0.68f};
    float horizon[3] = {0.62f, 0.68f, 0.78f};
    float ground[3] = {0.22f, 0.19f, 0.16f};
};

// Radiance arriving from direction (x, y, z) (any length but zero; +y is
// up): a gradient from the horizon to the zenith above, a darker ground
// below that fades in just under the horizon.
void skyRadiance(const Sky& sky, float x, float y, float z, float out[3]);

// n unit directions spread evenly over the sphere (a Fibonacci lattice).
void sphereDirections(int n, float* x, float* y, float* z);

// The sky projected onto the nine real spherical harmonics of bands 0..2,
// once, and the diffuse lighting it gives a surface of a given normal.
class Environment {
public:
    static constexpr unsigned kBands = 2;
    static constexpr int kCoeffs = (kBands + 1) * (kBands + 1);

    // Projects with `samples` directions.  False (with a message) when the
    // library refuses.
    bool init(const Sky& sky, int samples, std::string& error);

    const Sky& sky() const { return sky_; }
    // Radiance coefficients of channel c (index l*l + l + m).
    const float* radiance(int c) const { return radiance_[c]; }
    // Coefficients whose reconstruction at a unit normal is the irradiance
    // there divided by pi: the outgoing radiance of a white diffuse surface.
    const float* const* diffuse() const { return diffusePtr_; }
    const VekrSHState* state() const
    {
        return reinterpret_cast<const VekrSHState*>(stateBlock_.data());
    }

private:
    Sky sky_;
    alignas(16) float radiance_[3][kCoeffs] = {};
    alignas(16) float diffuse_[3][kCoeffs] = {};
    const float* diffusePtr_[3] = {diffuse_[0], diffuse_[1], diffuse_[2]};
    std::vector<double> stateBlock_;  // doubles keep the header 8-byte aligned
};

}  // namespace render
