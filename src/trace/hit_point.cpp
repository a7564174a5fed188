// Hit points from distances: origin + direction * eps * distance, masked.
#include <cstddef>

#include "core/simd.h"
#include "core/status.h"
#include "vekr.h"

namespace {

// Origins either shared (Planar == false: a 3-float point) or one per ray.
template <bool Planar>
struct Origins {
    const float* shared;
    const float* const* planes;
    float scalar(int c, size_t k) const { return Planar ? planes[c][k] : shared[c]; }
    vekr::simd::F4 vec(int c, size_t k) const
    {
        return Planar ? vekr::simd::load4(planes[c] + k) : vekr::simd::F4(shared[c]);
    }
};

template <bool Planar>
void hitPoints(const Origins<Planar>& o, const float* const dirs[3], const float* dist,
               const int* mask, float* const pts[3], int count, float eps)
{
    using namespace vekr::simd;
    const size_t n = static_cast<size_t>(count);
    bool fast = (count & 3) == 0 &&
                vekr::allAligned16(dist, mask, dirs[0], dirs[1], dirs[2], pts[0], pts[1], pts[2]);
    if (Planar) fast = fast && vekr::allAligned16(o.planes[0], o.planes[1], o.planes[2]);
    if (fast) {
        const F4 e(eps), zero = zero4();
        for (size_t k = 0; k < n; k += 4) {
            const I4 m = loadi4(mask + k);
            const int skipped = negativeLanes(m);
            if (skipped == 0xF) {
                for (int c = 0; c < 3; ++c) store4(pts[c] + k, zero);
                continue;
            }
            const F4 keep = asFloat(m > I4(-1));
            const F4 t = load4(dist + k);
            for (int c = 0; c < 3; ++c) {
                const F4 p = load4(dirs[c] + k) * t * e + o.vec(c, k);
                store4(pts[c] + k, p & keep);
            }
        }
        return;
    }
    for (size_t k = 0; k < n; ++k) {
        if (mask[k] >= 0) {
            for (int c = 0; c < 3; ++c) pts[c][k] = dirs[c][k] * eps * dist[k] + o.scalar(c, k);
        } else {
            for (int c = 0; c < 3; ++c) pts[c][k] = 0.0f;
        }
    }
}

}  // namespace

extern "C" VEKR_API VekStatus vekrHitPoint3DEpsS0_32f_M(const float origin[3],
                                                        const float* const pDirections[3],
                                                        const float* pDistances, const int* pMask,
                                                        float* const pPoints[3], int count,
                                                        float eps)
{
    if (!pDistances || !pMask || !pDirections || !pPoints) return vekStsNullPtr;
    if (count < 1) return vekStsOk;
    hitPoints(Origins<false>{origin, nullptr}, pDirections, pDistances, pMask, pPoints, count, eps);
    return vekStsOk;
}

extern "C" VEKR_API VekStatus vekrHitPoint3DEpsM0_32f_M(const float* const pOrigins[3],
                                                        const float* const pDirections[3],
                                                        const float* pDistances, const int* pMask,
                                                        float* const pPoints[3], int count,
                                                        float eps)
{
    if (!pDistances || !pMask || !pDirections || !pPoints || !pOrigins) return vekStsNullPtr;
    if (count < 1) return vekStsOk;
    hitPoints(Origins<true>{nullptr, pOrigins}, pDirections, pDistances, pMask, pPoints, count, eps);
    return vekStsOk;
}
