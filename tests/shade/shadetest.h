// Helpers for the shading tests: planar arrays at a chosen offset from a
// 16-byte boundary, random masks, and float comparisons by bits.
#pragma once

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "testutil.h"

namespace shadetest {

using vekr::test::Aligned;

inline uint32_t bits(float f)
{
    uint32_t u;
    std::memcpy(&u, &f, 4);
    return u;
}

inline float fromBits(uint32_t u)
{
    float f;
    std::memcpy(&f, &u, 4);
    return f;
}

inline bool sameBits(float a, float b) { return bits(a) == bits(b); }

// Three planes of n floats starting `shift` elements past an aligned address.
struct Planes {
    Aligned<float> store[3];
    float* p[3];
    int n;
    Planes(int count, int shift = 0) : n(count)
    {
        for (int c = 0; c < 3; ++c) {
            store[c].resize(count + 8);
            p[c] = store[c].offset(shift);
        }
    }
    float& at(int c, int i) { return p[c][i]; }
    const float* const* in() const { return p; }
    float* const* out() { return p; }
};

// A single plane at an offset.
struct Plane {
    Aligned<float> store;
    float* p;
    Plane(int count, int shift = 0) : store(count + 8) { p = store.offset(shift); }
    float& operator[](int i) { return p[i]; }
};

struct Mask {
    Aligned<int> store;
    int* p;
    Mask(int count, int shift = 0) : store(count + 8) { p = store.offset(shift); }
    int& operator[](int i) { return p[i]; }
};

inline void fillUniform(Planes& v, std::mt19937& rng, float lo, float hi)
{
    std::uniform_real_distribution<float> d(lo, hi);
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < v.n; ++i) v.p[c][i] = d(rng);
}

inline void fillUniform(Plane& v, int n, std::mt19937& rng, float lo, float hi)
{
    std::uniform_real_distribution<float> d(lo, hi);
    for (int i = 0; i < n; ++i) v[i] = d(rng);
}

// Masks mixing whole inactive groups, whole active groups and mixed groups;
// the inactive values vary (-1, INT_MIN, other negatives), active ones too.
inline void fillMask(Mask& m, int n, std::mt19937& rng)
{
    const int negatives[] = {-1, INT32_MIN, -7, -2};
    const int positives[] = {0, 1, 5, 1 << 30};
    for (int g = 0; g < n; g += 4) {
        const int kind = static_cast<int>(rng() % 3);  // 0 all off, 1 all on, 2 mixed
        for (int i = g; i < g + 4 && i < n; ++i) {
            const bool off = kind == 0 || (kind == 2 && (rng() & 1));
            m[i] = off ? negatives[rng() % 4] : positives[rng() % 4];
        }
    }
}

// Distance in units in the last place between two finite floats.
inline int64_t ulps(float a, float b)
{
    auto key = [](float f) {
        const int32_t i = static_cast<int32_t>(bits(f));
        return i < 0 ? int64_t(INT32_MIN) - i : int64_t(i);
    };
    const int64_t d = key(a) - key(b);
    return d < 0 ? -d : d;
}

}  // namespace shadetest
