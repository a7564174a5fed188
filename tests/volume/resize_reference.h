// A direct per-voxel evaluation of the resize, written plainly: no tables,
// no ring, no planes.  Each destination voxel of the box is computed from
// its own source coordinate, taps and weights.
#pragma once

#include <cmath>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "vekr.h"
#include "volume/interp.h"
#include "volumes.h"

namespace vekr::test {

struct DstBox {
    int x0, x1, y0, y1, z0, z1;
    bool empty() const { return x0 >= x1 || y0 >= y1 || z0 >= z1; }
};

// The destination box of one axis: start with a bias just below one half,
// end just above, both within the destination region.
inline void refAxis(int sx, int sw, int vol, int dx, int dw, double f, double sh, int& a, int& b)
{
    const int cw = std::min(vol - sx, sw);
    const double lo = std::max(sx * f + sh, double(dx));
    const double hi = std::min((sx + cw) * f + sh, double(dx + dw));
    a = int(std::trunc(lo + 0.4999999999));
    b = int(std::trunc(hi + 0.5000000001));
}

inline DstBox refBox(const VekVolumeSize& vol, const VekCuboid& s, const VekCuboid& d,
                  const double f[3], const double sh[3])
{
    DstBox b;
    refAxis(s.x, s.width, vol.width, d.x, d.width, f[0], sh[0], b.x0, b.x1);
    refAxis(s.y, s.height, vol.height, d.y, d.height, f[1], sh[1], b.y0, b.y1);
    refAxis(s.z, s.depth, vol.depth, d.z, d.depth, f[2], sh[2], b.z0, b.z1);
    return b;
}

// Taps and weights of one axis at destination coordinate dc.
struct RefTaps {
    int n = 0;
    int idx[4] = {};
    float w[4] = {};
};

inline RefTaps refTaps(int dc, double f, double sh, int size, int mode)
{
    const double inv = 1.0 / f, off = (0.0 - sh) / f;
    RefTaps r;
    if (mode == 1) {
        r.n = 1;
        r.idx[0] = int(std::trunc((dc + 0.5) * inv - 1e-10 + off));
        r.w[0] = 1.0f;
        return r;
    }
    const double s = (dc + 0.5) * inv - 0.5 + off;
    const int i = int(std::floor(s));
    const float t = float(s - std::floor(s));
    auto clamp = [&](int k) { return k < 0 ? 0 : k > size - 1 ? size - 1 : k; };
    if (mode == 2) {
        r.n = 2;
        r.idx[0] = clamp(i);
        r.idx[1] = i < 0 ? 0 : clamp(i + 1);
        r.w[0] = 1.0f - t;
        r.w[1] = t;
        return r;
    }
    r.n = 4;
    for (int k = 0; k < 4; ++k) r.idx[k] = clamp(i - 1 + k);
    vekr::volume::cubicWeights(mode, t, r.w);
    return r;
}

// Combines n values with weights: linear w0 * a + b * w1, cubic paired sums.
inline float refCombine(int n, const float* v, const float* w)
{
    if (n == 1) return v[0];
    if (n == 2) return w[0] * v[0] + v[1] * w[1];
    return (v[0] * w[0] + v[1] * w[1]) + (v[2] * w[2] + v[3] * w[3]);
}

template <class T>
T refConvert(float v)
{
    if constexpr (std::is_same_v<T, float>) {
        return v;
    } else {
        const double r = std::trunc(double(v + 0.50000012f));
        const double hi = std::is_same_v<T, uint8_t> ? 255.0 : 65535.0;
        return T(r < 0 ? 0 : r > hi ? hi : r);
    }
}

// Resizes src into a copy of dst; returns the box written (maybe empty).
template <class T>
DstBox refResize(const Vol<T>& src, const VekCuboid& sv, Vol<T>& dst, const VekCuboid& dv,
                 const double f[3], const double sh[3], int mode)
{
    const VekVolumeSize vol = src.size();
    const DstBox b = refBox(vol, sv, dv, f, sh);
    if (b.empty()) return b;
    for (int z = b.z0; z < b.z1; ++z) {
        const RefTaps tz = refTaps(z, f[2], sh[2], vol.depth, mode);
        for (int y = b.y0; y < b.y1; ++y) {
            const RefTaps ty = refTaps(y, f[1], sh[1], vol.height, mode);
            for (int x = b.x0; x < b.x1; ++x) {
                const RefTaps tx = refTaps(x, f[0], sh[0], vol.width, mode);
                float planeVals[4] = {};
                for (int c = 0; c < tz.n; ++c) {
                    float rowVals[4] = {};
                    for (int r = 0; r < ty.n; ++r) {
                        float v[4] = {};
                        for (int k = 0; k < tx.n; ++k)
                            v[k] = float(src.at(tx.idx[k], ty.idx[r], tz.idx[c]));
                        rowVals[r] = refCombine(tx.n, v, tx.w);
                    }
                    planeVals[c] = refCombine(ty.n, rowVals, ty.w);
                }
                dst.at(x, y, z) = refConvert<T>(refCombine(tz.n, planeVals, tz.w));
            }
        }
    }
    return b;
}

}  // namespace vekr::test
