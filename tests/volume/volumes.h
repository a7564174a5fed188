// Volumes in either layout, and the direct per-voxel references of the warp
// and the remap.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstring>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include <omp.h>

#include "vekr.h"
#include "volume/interp.h"

namespace vekr::test {

// A volume in caller memory: rows padded by padRow elements, slices by
// padSlice more.  With `reversed`, slice z is stored at place d - 1 - z, so
// the pointer layout cannot rely on one slice following another (the block
// layout uses base() and needs reversed = false).
template <class T>
class Vol {
public:
    Vol(int w, int h, int d, int padRow = 3, int padSlice = 0, bool reversed = false)
        : w_(w), h_(h), d_(d), row_(w + padRow), slice_(size_t(w + padRow) * h + padSlice),
          mem_(slice_ * d + 1)
    {
        for (int z = 0; z < d; ++z) ptrs_.push_back(mem_.data() + slice_ * size_t(reversed ? d - 1 - z : z));
    }
    T* base() { return mem_.data(); }
    T* const* slices() { return ptrs_.data(); }
    const T* const* cslices() const { return reinterpret_cast<const T* const*>(ptrs_.data()); }
    int step() const { return row_ * int(sizeof(T)); }
    int sliceStep() const { return int(slice_ * sizeof(T)); }
    T& at(int x, int y, int z) { return ptrs_[z][size_t(y) * row_ + x]; }
    T at(int x, int y, int z) const { return ptrs_[z][size_t(y) * row_ + x]; }
    VekVolumeSize size() const { return {w_, h_, d_}; }
    // Every element of the memory, padding included.
    template <class Gen>
    void fill(Gen&& g) { for (T& v : mem_) v = g(); }
    void copyVoxels(const Vol& o)
    {
        for (int z = 0; z < d_; ++z)
            for (int y = 0; y < h_; ++y)
                for (int x = 0; x < w_; ++x) at(x, y, z) = o.at(x, y, z);
    }
    std::vector<uint8_t> bytes() const
    {
        const auto* p = reinterpret_cast<const uint8_t*>(mem_.data());
        return std::vector<uint8_t>(p, p + mem_.size() * sizeof(T));
    }
    // Equal bytes everywhere, padding included (both of one layout).
    bool operator==(const Vol& o) const { return bytes() == o.bytes(); }

private:
    int w_, h_, d_, row_;
    size_t slice_;
    std::vector<T> mem_;
    std::vector<T*> ptrs_;
};

// Runs f() with the default team set to `threads`, then restores it.
template <class F>
void withThreads(int threads, F&& f)
{
    const int saved = omp_get_max_threads();
    omp_set_num_threads(threads);
    f();
    omp_set_num_threads(saved);
}

template <class T>
T randomValue(std::mt19937& rng)
{
    if constexpr (sizeof(T) == 4) {
        return std::uniform_real_distribution<float>(-100.0f, 300.0f)(rng);
    } else {
        return static_cast<T>(std::uniform_int_distribution<int>(0, sizeof(T) == 1 ? 255 : 65535)(rng));
    }
}

// Rounded to nearest even and saturated, as integer results are converted.
template <class T>
T convertResult(float v)
{
    if constexpr (sizeof(T) == 4) {
        return v;
    } else {
        const double hiV = sizeof(T) == 1 ? 255.0 : 65535.0;
        const double r = std::nearbyint(static_cast<double>(v));
        return static_cast<T>(r < 0 ? 0 : r > hiV ? hiV : r);
    }
}

struct Box {
    int lo[3], hi[3];
};

inline Box boxOf(const VekVolumeSize& v, const VekCuboid& voi)
{
    Box b;
    const int size[3] = {v.width, v.height, v.depth};
    const int org[3] = {voi.x, voi.y, voi.z};
    const int ext[3] = {voi.width, voi.height, voi.depth};
    for (int a = 0; a < 3; ++a) {
        b.lo[a] = org[a];
        b.hi[a] = org[a] + std::min(size[a] - org[a], ext[a]) - 1;
    }
    return b;
}

// One interpolated source value at s (already known to lie inside the box).
// tapRule: 0 for the warp (lower edge clamped against 0, stated upper rules),
// 1 for the remap (taps clamped to the box).
template <class T>
float sampleReference(const Vol<T>& src, const Box& b, int mode, const double s[3],
                      int tapRule)
{
    if (mode == 1) {
        int i[3];
        for (int a = 0; a < 3; ++a) i[a] = static_cast<int>(std::nearbyint(s[a]));
        return static_cast<float>(src.at(i[0], i[1], i[2]));
    }
    if (mode == 2) {
        int i0[3];
        float t[3];
        for (int a = 0; a < 3; ++a) {
            int i = static_cast<int>(std::floor(s[a]));
            if (i == b.hi[a]) i = b.hi[a] - 1;
            i0[a] = i;
            t[a] = static_cast<float>(s[a]) - static_cast<float>(i);
        }
        auto v = [&](int dx, int dy, int dz) {
            const int x = i0[0] + dx, y = i0[1] + dy, z = i0[2] + dz;
            return static_cast<float>(src.at(std::max(x, 0), std::max(y, 0), std::max(z, 0)));
        };
        float c[2][2];
        for (int dz = 0; dz < 2; ++dz)
            for (int dy = 0; dy < 2; ++dy)
                c[dz][dy] = v(0, dy, dz) * (1.0f - t[0]) + v(1, dy, dz) * t[0];
        const float e0 = c[0][0] * (1.0f - t[1]) + c[0][1] * t[1];
        const float e1 = c[1][0] * (1.0f - t[1]) + c[1][1] * t[1];
        return e0 * (1.0f - t[2]) + e1 * t[2];
    }
    const float* table = vekr::volume::cubicTable(mode);
    int taps[3][4];
    float w[3][4];
    for (int a = 0; a < 3; ++a) {
        const int i = static_cast<int>(std::floor(s[a]));
        const float t = static_cast<float>(s[a]) - static_cast<float>(i);
        const float x0 = -1.0f - t;
        for (int k = 0; k < 4; ++k) {
            const float d = std::fabs(x0 + static_cast<float>(k));
            const float u = 100.0f * d;
            const int j = static_cast<int>(u);
            w[a][k] = table[j] + (table[j + 1] - table[j]) * (u - static_cast<float>(j));
        }
        if (tapRule == 1) {
            for (int k = 0; k < 4; ++k) taps[a][k] = std::clamp(i - 1 + k, b.lo[a], b.hi[a]);
        } else {
            const int hi = b.hi[a];
            const int r0[4] = {0, 0, 1, 2}, r1[4] = {i - 1, i, i + 1, i + 1},
                      r2[4] = {i - 1, i, i + 1, i + 2}, r3[4] = {i - 1, i, i, i};
            const int* r = i < 1 ? r0 : i == hi - 1 ? r1 : i < hi ? r2 : r3;
            for (int k = 0; k < 4; ++k) taps[a][k] = r[k];
        }
    }
    float zs = 0;
    for (int kz = 0; kz < 4; ++kz) {
        float ys = 0;
        for (int ky = 0; ky < 4; ++ky) {
            float xs = 0;
            for (int kx = 0; kx < 4; ++kx) {
                const float p = static_cast<float>(src.at(taps[0][kx], taps[1][ky], taps[2][kz])) * w[0][kx];
                xs = kx == 0 ? p : xs + p;
            }
            ys = ky == 0 ? xs * w[1][0] : ys + xs * w[1][ky];
        }
        zs = kz == 0 ? ys * w[2][0] : zs + ys * w[2][kz];
    }
    return zs;
}

}  // namespace vekr::test
