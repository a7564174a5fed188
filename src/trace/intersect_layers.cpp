// Successive hits along rays sharing one origin: layer l is the nearest hit
// found when the ray restarts at the hit point of layer l - 1.
#include <cstddef>

#include "core/isa.h"
#include "core/status.h"
#include "trace/intersect.h"
#include "trace/ray_core.h"
#include "vekr.h"

namespace vekr::trace {

namespace {

// Nearest hit of one layer, skipping the previous layer's triangle and the
// first `remembered` triangles of the ray's list of earlier hits.
struct LayerNearest {
    static constexpr float kSplitTol = kSplitTolLayers;
    float dist, u, v;
    int tri;
    int last;
    const int* earlier;
    int remembered;
    bool skip(int n) const { return n == last; }
    bool hit(int n, float den, float num, float bu, float bv)
    {
        const float t = num / den;
        if (dist > t && t > 0.0f) {
            for (int i = 0; i < remembered; ++i)
                if (earlier[i] == n) return false;
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

void intersectLayersRays(const float origin[3], const float* const dirs[3], float* dist,
                         float* const hits[2], int* tris, const VekrIntersectContext& ctx,
                         int rays, int count)
{
    const size_t layer = static_cast<size_t>(rays);
    const VekrBox3D& box = *ctx.pBound;
    const float bmin[3] = {box.minX, box.minY, box.minZ};
    const float bmax[3] = {box.maxX, box.maxY, box.maxZ};
    const float lo[3] = {bmin[0] - origin[0], bmin[1] - origin[1], bmin[2] - origin[2]};
    const float hi[3] = {bmax[0] - origin[0], bmax[1] - origin[1], bmax[2] - origin[2]};
    for (int k = 0; k < rays; ++k) {
        Ray ray;
        for (int c = 0; c < 3; ++c) {
            ray.o[c] = origin[c];
            ray.d[c] = dirs[c][k];
        }
        float tNear = 0.0f, tFar = dist[k];
        if (!enterBoxShared(lo, hi, ray, tNear, tFar)) continue;
        tFar = tFar + kExitWidening;
        int earlier[8];
        int last = -1;
        for (int l = 0; l < count; ++l) {
            const size_t idx = static_cast<size_t>(l) * layer + static_cast<size_t>(k);
            if (l > 0) {
                tris[idx] = -1;
                dist[idx] = kFloatMax;
                tNear = 0.0f;
                // Exit from the box measured from the new origin.
                tFar = kFloatMax;
                for (int c = 0; c < 3; ++c) {
                    const float t0 = (bmin[c] - ray.o[c]) * ray.rcp[c];
                    const float t1 = (bmax[c] - ray.o[c]) * ray.rcp[c];
                    const float e = t0 > t1 ? t0 : t1;
                    if (e < tFar) tFar = e;
                }
                tFar = tFar + kExitWidening;
            }
            LayerNearest p{dist[idx], hits[0][idx], hits[1][idx], -1, last, earlier, l & 7};
            traverse(ctx.pRootNode, ctx.pAccel, ray, tNear, tFar, p);
            if (p.tri < 0) break;
            const float t = p.dist;
            for (int c = 0; c < 3; ++c) ray.o[c] = ray.o[c] + t * ray.d[c];
            dist[idx] = l >= 1 ? t + dist[idx - layer] : t;
            hits[0][idx] = p.u;
            hits[1][idx] = p.v;
            tris[idx] = p.tri;
            earlier[l & 7] = p.tri;
            last = p.tri;
        }
    }
}

void intersectLayers(Isa isa, const float origin[3], const float* const dirs[3], float* dist,
                     float* const hits[2], int* tris, VekrHitBlockSize size,
                     const VekrIntersectContext& ctx)
{
    if (size.width < 1 || size.height < 1 || size.count < 1) return;
    const size_t all = static_cast<size_t>(size.width) * static_cast<size_t>(size.height) *
                       static_cast<size_t>(size.count);
    for (size_t k = 0; k < all; ++k) tris[k] = -1;
    const bool packet = ((size.width & 3) + (size.height & 3)) == 0 &&
                        allAligned16(dirs[0], dirs[1], dirs[2], dist, hits[0], hits[1], tris);
    if (packet)
        VEKR_ISA_CALL(isa, intersectLayersPackets(origin, dirs, dist, hits, tris, ctx, size.width,
                                                  size.height, size.count));
    else
        VEKR_ISA_CALL(isa, intersectLayersRows(origin, dirs, dist, hits, tris, ctx,
                                               size.width * size.height, size.count));
}

}  // namespace vekr::trace

extern "C" VEKR_API VekStatus vekrIntersectMultipleSO_32f(const float origin[3],
                                                          const float* const pDirections[3],
                                                          float* pDistances,
                                                          float* const pHits[2], int* pTriangles,
                                                          VekrHitBlockSize size,
                                                          const VekrIntersectContext* pContext)
{
    vekr::trace::intersectLayers(vekr::bestIsa(), origin, pDirections, pDistances, pHits,
                                 pTriangles, size, *pContext);
    return vekStsOk;
}
