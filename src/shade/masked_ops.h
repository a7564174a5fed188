// The members of the masked per-ray family (see masked.h for the frame):
// each gives its formula, the value an inactive ray receives, the pointers it
// checks and the arrays its 4-wide path needs aligned.
#pragma once

#include <cstdint>

#include "core/simd.h"
#include "core/status.h"
#include "shade/load.h"
#include "shade/masked.h"

namespace vekr::shade {

// out = A.B; inactive rays get 0.
struct DotOp {
    const float* const* a;
    const float* const* b;
    const int* m;
    float* out;

    static constexpr bool kVector = true;
    bool anyNull() const { return !a || !b || !m || !out; }
    bool vectorAligned() const
    {
        return allAligned16(a[0], a[1], a[2], b[0], b[1], b[2], m, out);
    }
    const int* mask() const { return m; }
    void active(int i) const { out[i] = a[0][i] * b[0][i] + a[1][i] * b[1][i] + a[2][i] * b[2][i]; }
    void inactive(int i) const { out[i] = 0.0f; }
    void groupInactive(int i) const { simd::store4(out + i, simd::zero4()); }
    template <bool Mixed>
    void group(int i, simd::F4 on) const
    {
        using simd::load4;
        simd::F4 r = load4(a[0] + i) * load4(b[0] + i) + load4(a[1] + i) * load4(b[1] + i) +
                     load4(a[2] + i) * load4(b[2] + i);
        if constexpr (Mixed) r = on & r;
        simd::store4(out + i, r);
    }
};

// q = D.N; where q > 0 the normal is turned round (N = -N) and out = -q,
// otherwise out = q.  Inactive rays get out = 0 and keep their normal.
struct DotChangeNormOp {
    const float* const* d;
    const int* m;
    float* const* n;
    float* out;

    static constexpr bool kVector = true;
    bool anyNull() const { return !d || !m || !n || !out; }
    bool vectorAligned() const
    {
        return allAligned16(d[0], d[1], d[2], m, out, n[0], n[1], n[2]);
    }
    const int* mask() const { return m; }
    void active(int i) const
    {
        const float q = d[0][i] * n[0][i] + d[1][i] * n[1][i] + d[2][i] * n[2][i];
        if (q > 0.0f) {
            n[0][i] = -n[0][i];
            n[1][i] = -n[1][i];
            n[2][i] = -n[2][i];
            out[i] = -q;
        } else {
            out[i] = q;
        }
    }
    void inactive(int i) const { out[i] = 0.0f; }
    void groupInactive(int i) const { simd::store4(out + i, simd::zero4()); }
    template <bool Mixed>
    void group(int i, simd::F4 on) const
    {
        using namespace simd;
        const F4 nx = load4(n[0] + i), ny = load4(n[1] + i), nz = load4(n[2] + i);
        const F4 q = load4(d[0] + i) * nx + load4(d[1] + i) * ny + load4(d[2] + i) * nz;
        F4 flip = q > zero4();
        if constexpr (Mixed) flip = flip & on;
        // Turning round is flipping the sign bit.
        const F4 sign = flip & F4(-0.0f);
        store4(n[0] + i, nx ^ sign);
        store4(n[1] + i, ny ^ sign);
        store4(n[2] + i, nz ^ sign);
        F4 r = q ^ sign;
        if constexpr (Mixed) r = on & r;
        store4(out + i, r);
    }
};

// V = V * s per component; inactive rays get (0, 0, 0).
struct MulP3Op {
    const float* s;
    const int* m;
    float* const* v;

    static constexpr bool kVector = true;
    bool anyNull() const { return !s || !m || !v; }
    bool vectorAligned() const { return allAligned16(s, m, v[0], v[1], v[2]); }
    const int* mask() const { return m; }
    void active(int i) const
    {
        v[0][i] = v[0][i] * s[i];
        v[1][i] = v[1][i] * s[i];
        v[2][i] = v[2][i] * s[i];
    }
    void inactive(int i) const { v[0][i] = v[1][i] = v[2][i] = 0.0f; }
    void groupInactive(int i) const
    {
        for (int c = 0; c < 3; ++c) simd::store4(v[c] + i, simd::zero4());
    }
    template <bool Mixed>
    void group(int i, simd::F4 on) const
    {
        const simd::F4 k = simd::load4(s + i);
        for (int c = 0; c < 3; ++c) {
            simd::F4 r = simd::load4(v[c] + i) * k;
            if constexpr (Mixed) r = on & r;
            simd::store4(v[c] + i, r);
        }
    }
};

// x = x * s; inactive rays get 0.  Checks no pointer and has no 4-wide path.
struct MulC1Op {
    const float* s;
    const int* m;
    float* x;

    static constexpr bool kVector = false;
    bool anyNull() const { return false; }
    const int* mask() const { return m; }
    void active(int i) const { x[i] = x[i] * s[i]; }
    void inactive(int i) const { x[i] = 0.0f; }
};

// x = x / s; a zero divisor gives +inf for x > 0, -inf for x < 0 and the
// quiet NaN 0xFFC00000 for x = 0 or NaN.  Inactive rays get 0.  The mask is
// not checked; no 4-wide path.
struct DivOp {
    const float* s;
    const int* m;
    float* x;

    static constexpr bool kVector = false;
    bool anyNull() const { return !s || !x; }
    const int* mask() const { return m; }
    void active(int i) const
    {
        const float d = s[i];
        const float v = x[i];
        if (d != 0.0f) x[i] = v / d;
        else if (v > 0.0f) x[i] = simd::bitsToFloat(0x7F800000u);
        else if (v < 0.0f) x[i] = simd::bitsToFloat(0xFF800000u);
        else x[i] = simd::bitsToFloat(0xFFC00000u);
    }
    void inactive(int i) const { x[i] = 0.0f; }
};

// C += A * k * s per component (k: one factor per component); inactive rays
// leave C as it is.  The 4-wide path forms (A*s)*k, the loop (A*k)*s.  The
// A planes are not among the aligned arrays, yet the 4-wide path reads them
// with aligned loads.
struct AddMulMulOp {
    const float* k;
    const float* s;
    const float* const* a;
    const int* m;
    float* const* c;

    static constexpr bool kVector = true;
    bool anyNull() const { return !s || !a || !m || !c; }
    bool vectorAligned() const { return allAligned16(s, m, c[0], c[1], c[2]); }
    const int* mask() const { return m; }
    void active(int i) const
    {
        for (int j = 0; j < 3; ++j) c[j][i] = c[j][i] + a[j][i] * k[j] * s[i];
    }
    void inactive(int) const {}
    void groupInactive(int) const {}
    template <bool Mixed>
    void group(int i, simd::F4 on) const
    {
        const simd::F4 si = simd::load4(s + i);
        for (int j = 0; j < 3; ++j) {
            const simd::F4 old = simd::load4(c[j] + i);
            simd::F4 r = old + simd::load4(a[j] + i) * si * simd::F4(k[j]);
            if constexpr (Mixed) r = simd::select(on, r, old);
            simd::store4(c[j] + i, r);
        }
    }
};

}  // namespace vekr::shade
