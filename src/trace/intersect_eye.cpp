// Nearest hit for a block of eye rays sharing one origin.
#include <cstddef>

#include "core/isa.h"
#include "core/status.h"
#include "trace/intersect.h"
#include "trace/ray_core.h"
#include "vekr.h"

namespace vekr::trace {

namespace {

// Nearest hit: strict acceptance 0 < t < best, every hit kept as the new best.
struct NearestHit {
    static constexpr float kSplitTol = kSplitTolNearest;
    float dist, u, v;
    int tri;
    bool skip(int) const { return false; }
    bool hit(int n, float den, float num, float bu, float bv)
    {
        const float t = num / den;
        if (dist > t && t > 0.0f) {
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

void intersectEyeRays(const float eye[3], const float* const dirs[3], float* dist,
                      float* const hits[2], int* tris, const VekrIntersectContext& ctx, int count)
{
    const VekrBox3D& box = *ctx.pBound;
    const float lo[3] = {box.minX - eye[0], box.minY - eye[1], box.minZ - eye[2]};
    const float hi[3] = {box.maxX - eye[0], box.maxY - eye[1], box.maxZ - eye[2]};
    for (int k = 0; k < count; ++k) {
        tris[k] = -1;
        Ray ray;
        for (int c = 0; c < 3; ++c) {
            ray.o[c] = eye[c];
            ray.d[c] = dirs[c][k];
        }
        float tNear = 0.0f, tFar = dist[k];
        if (!enterBoxShared(lo, hi, ray, tNear, tFar)) continue;
        tFar = tFar + kExitWidening;
        NearestHit p{dist[k], 0.0f, 0.0f, -1};
        traverse(ctx.pRootNode, ctx.pAccel, ray, tNear, tFar, p);
        if (p.tri >= 0) {
            dist[k] = p.dist;
            hits[0][k] = p.u;
            hits[1][k] = p.v;
            tris[k] = p.tri;
        }
    }
}

void intersectEye(Isa isa, const float eye[3], const float* const dirs[3], float* dist,
                  float* const hits[2], int* tris, const VekrIntersectContext& ctx, VekSize extent)
{
    if (extent.width < 1 || extent.height < 1) return;
    const bool packet = ((extent.width & 3) + (extent.height & 3)) == 0 &&
                        allAligned16(dirs[0], dirs[1], dirs[2], dist, hits[0], hits[1], tris);
    if (packet)
        VEKR_ISA_CALL(isa, intersectEyePackets(eye, dirs, dist, hits, tris, ctx, extent.width,
                                               extent.height));
    else
        VEKR_ISA_CALL(isa, intersectEyeRows(eye, dirs, dist, hits, tris, ctx, extent.width * extent.height));
}

}  // namespace vekr::trace

extern "C" VEKR_API VekStatus vekrIntersectEyeSO_32f(const float eye[3],
                                                     const float* const pDirections[3],
                                                     float* pDistances, float* const pHits[2],
                                                     int* pTriangles,
                                                     const VekrIntersectContext* pContext,
                                                     VekSize extent)
{
    vekr::trace::intersectEye(vekr::bestIsa(), eye, pDirections, pDistances, pHits, pTriangles,
                              *pContext, extent);
    return vekStsOk;
}
