// Any-hit test of segments origin + t * direction, 0 < t < 1, sharing one
// origin: the first blocker found ends the segment.
#include <cstddef>

#include "core/isa.h"
#include "core/status.h"
#include "trace/intersect.h"
#include "trace/ray_core.h"
#include "vekr.h"

namespace vekr::trace {

namespace {

constexpr float kSegmentEnd = 1.0001f;  // exit distance of every segment

struct AnyHit {
    static constexpr float kSplitTol = kSplitTolNearest;
    int tri = -1;
    bool skip(int) const { return false; }
    bool hit(int n, float den, float num, float, float)
    {
        const float t = num / den;
        if (t < 1.0f && t > 0.0f) {
            tri = n;
            return true;
        }
        return false;
    }
    float limit() const { return 1.0f; }
};

}  // namespace

void intersectAnyRays(const float origin[3], const float* const dirs[3], int* tris, int* mask,
                      const VekrIntersectContext& ctx, int count)
{
    for (int k = 0; k < count; ++k) {
        tris[k] = -1;
        if (mask[k] < 0) continue;
        Ray ray;
        for (int c = 0; c < 3; ++c) {
            const float d = dirs[c][k];
            ray.o[c] = origin[c];
            ray.d[c] = d;
            // The sign comes from the sign alone, before the magnitude test.
            ray.sign[c] = d < 0.0f ? 1 : 0;
            const bool parallel = !(d < 0.0f ? -d > kParallelEps : d > kParallelEps);
            ray.rcp[c] = parallel ? kParallelRcpOwn : 1.0f / d;
        }
        AnyHit p;
        traverse(ctx.pRootNode, ctx.pAccel, ray, 0.0f, kSegmentEnd, p);
        if (p.tri >= 0) {
            mask[k] = -1;
            tris[k] = p.tri;
        }
    }
}

void intersectAny(Isa isa, const float origin[3], const float* const dirs[3], int* tris,
                  int* mask, VekSize size, const VekrIntersectContext& ctx)
{
    if (size.width < 1 || size.height < 1) return;
    const bool packet = ((size.width & 3) + (size.height & 3)) == 0 &&
                        allAligned16(tris, mask, dirs[0], dirs[1], dirs[2]);
    if (packet)
        VEKR_ISA_CALL(isa, intersectAnyPackets(origin, dirs, tris, mask, ctx, size.width, size.height));
    else
        VEKR_ISA_CALL(isa, intersectAnyRows(origin, dirs, tris, mask, ctx, size.width * size.height));
}

}  // namespace vekr::trace

extern "C" VEKR_API VekStatus vekrIntersectAnySO_32f(const float origin[3],
                                                     const float* const pDirections[3],
                                                     int* pTriangles, int* pMask, VekSize size,
                                                     const VekrIntersectContext* pContext)
{
    vekr::trace::intersectAny(vekr::bestIsa(), origin, pDirections, pTriangles, pMask, size, *pContext);
    return vekStsOk;
}
