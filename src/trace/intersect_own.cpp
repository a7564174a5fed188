// Nearest hit for rays with their own origins (secondary rays).
#include <cmath>
#include <cstddef>

#include "core/isa.h"
#include "core/status.h"
#include "trace/intersect.h"
#include "trace/ray_core.h"
#include "vekr.h"

namespace vekr::trace {

namespace {

// Nearest hit that skips near-parallel planes, never re-accepts the
// triangle it accepted last, and replaces the current nearest only when
// nearer by more than 1e-5.
struct OwnNearest {
    static constexpr float kSplitTol = kSplitTolNearest;
    float dist, u, v;
    int tri;
    bool skip(int n) const { return n == tri; }
    bool hit(int n, float den, float num, float bu, float bv)
    {
        if (std::fabs(den) < kOwnMinDen) return false;
        const float t = num / den;
        if (dist - kOwnMargin > t && t > 0.0f) {
            dist = t;
            u = bu / den;
            v = bv / den;
            tri = n;
        }
        return false;
    }
    float limit() const { return dist; }
};

}  // namespace

void intersectOwnRays(const float* const origins[3], const float* const dirs[3], float* dist,
                      float* const hits[2], int* tris, const VekrIntersectContext& ctx, int count)
{
    const VekrBox3D& box = *ctx.pBound;
    for (int k = 0; k < count; ++k) {
        tris[k] = -1;
        Ray ray;
        for (int c = 0; c < 3; ++c) {
            ray.o[c] = origins[c][k];
            ray.d[c] = dirs[c][k];
        }
        float tNear = 0.0f, tFar = dist[k];
        if (!enterBoxOwn(box, ray, tNear, tFar)) continue;
        tFar = tFar + kExitWidening;
        OwnNearest p{dist[k], 0.0f, 0.0f, -1};
        traverse(ctx.pRootNode, ctx.pAccel, ray, tNear, tFar, p);
        if (p.tri >= 0) {
            dist[k] = p.dist;
            hits[0][k] = p.u;
            hits[1][k] = p.v;
            tris[k] = p.tri;
        }
    }
}

void intersectOwn(Isa isa, const float* const origins[3], const float* const dirs[3],
                  float* dist, float* const hits[2], int* tris, const VekrIntersectContext& ctx,
                  VekSize size)
{
    if (size.width < 1 || size.height < 1) return;
    const bool packet = ((size.width & 3) + (size.height & 3)) == 0 &&
                        allAligned16(origins[0], origins[1], origins[2], dirs[0], dirs[1], dirs[2],
                                     dist, hits[0], hits[1], tris);
    if (packet)
        VEKR_ISA_CALL(isa, intersectOwnPackets(origins, dirs, dist, hits, tris, ctx, size.width,
                                               size.height));
    else
        VEKR_ISA_CALL(isa, intersectOwnRows(origins, dirs, dist, hits, tris, ctx, size.width * size.height));
}

}  // namespace vekr::trace

extern "C" VEKR_API VekStatus vekrIntersectMO_32f(const float* const pOrigins[3],
                                                  const float* const pDirections[3],
                                                  float* pDistances, float* const pHits[2],
                                                  int* pTriangles,
                                                  const VekrIntersectContext* pContext, VekSize size)
{
    vekr::trace::intersectOwn(vekr::bestIsa(), pOrigins, pDirections, pDistances, pHits,
                              pTriangles, *pContext, size);
    return vekStsOk;
}
