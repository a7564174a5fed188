// Spherical harmonics by the three-term recurrence in 32-bit arithmetic,
// four directions at once.  Each band is formed from the two before it; the
// evaluation order inside every value is fixed, so one lane gives the same
// bits as a one-direction evaluation.
#include "core/simd.h"
#include "sh/sh_basis.h"

namespace vekr::sh {

using simd::F4;

void recurrenceLanes(const float* x, const float* y, const float* z, unsigned L, const float* A,
                     const float* B, float* soa)
{
    const F4 vx = simd::loadu4(x);
    const F4 vy = simd::loadu4(y);
    const F4 vz = simd::loadu4(z);
    auto Y = [soa](int k) { return simd::load4(soa + 4 * k); };
    auto put = [soa](int k, F4 v) { simd::store4(soa + 4 * k, v); };

    put(0, F4(A[0]));
    if (L < 1) return;
    put(1, F4(A[2]) * vy);
    put(2, F4(A[1]) * vz);
    put(3, F4(A[2]) * vx);
    for (int l = 2; l <= static_cast<int>(L); ++l) {
        const int o = l * (l + 1) / 2;
        const int c = l * l + l;               // Y(l, 0)
        const int c1 = (l - 1) * (l - 1) + l - 1;  // Y(l-1, 0)
        const int c2 = (l - 2) * (l - 2) + l - 2;  // Y(l-2, 0)
        const F4 pos = Y(c1 + l - 1);
        const F4 neg = Y(c1 - (l - 1));
        const F4 sectoral(A[o + l]);
        put(c + l, (vx * pos - vy * neg) * sectoral);
        put(c - l, (vx * neg + vy * pos) * sectoral);
        const F4 az = F4(A[o + l - 1]) * vz;
        put(c + l - 1, az * pos);
        put(c - (l - 1), az * neg);
        put(c, F4(A[o]) * vz * Y(c1) + F4(B[o]) * Y(c2));
        for (int m = 1; m <= l - 2; ++m) {
            const F4 a = F4(A[o + m]) * vz;
            const F4 b(B[o + m]);
            put(c + m, a * Y(c1 + m) + b * Y(c2 + m));
            put(c - m, a * Y(c1 - m) + b * Y(c2 - m));
        }
    }
}

}  // namespace vekr::sh
