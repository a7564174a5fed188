// vekrKDTreeBuildAlloc: argument checks in their fixed order, then one of the
// two builders; vekrKDTreeFree releases the block either of them returns.
#include "accel/kdtree_build.h"
#include "core/alloc.h"
#include "core/status.h"
#include "vekr.h"

namespace {

constexpr int32_t kMaxDepthParam = 50;

bool depthInRange(int32_t d) { return d >= 0 && d <= kMaxDepthParam; }

}  // namespace

extern "C" VEKR_API VekStatus vekrKDTreeBuildAlloc(VekrKDTreeNode** ppTree, const float* pVertices,
                                                   const int* pTriangles, int vertexCount,
                                                   int triangleCount, int* pTreeSize,
                                                   const VekrKDTreeBuildParams* pParams)
{
    if (!ppTree || !pVertices || !pTriangles || !pTreeSize) return vekStsNullPtr;
    if (vertexCount < 0 || triangleCount < 0) return vekStsSize;
    // The parameters record is tested only after the counts.
    if (!pParams) return vekStsNullPtr;

    const VekrKDTreeBuildParams& p = *pParams;
    if (p.magic == VEKR_KDTREE_SIMPLE_MAGIC) {
        if (!depthInRange(p.depthParam)) return vekStsOutOfRange;
        return vekr::guarded([&] { return vekr::kd::buildSingleLeaf(triangleCount, ppTree, pTreeSize); });
    }
    if (p.magic == VEKR_KDTREE_SAH_MAGIC) {
        if (!depthInRange(p.depthParam)) return vekStsOutOfRange;
        // Written so that a NaN threshold passes both tests.
        if (p.splitThreshold < 0.0f || p.splitThreshold > 1.0f) return vekStsOutOfRange;
        // The entry test demands half the budget to reach 16 MB (memoryMB << 19),
        // while the build receives memoryMB << 20; both shifts wrap in 32 bits.
        if ((p.memoryMB << 19) < 0x1000000u) return vekStsNoMem;
        const uint32_t budget = p.memoryMB << 20;
        return vekr::guarded([&] {
            return vekr::kd::buildCostDriven(pVertices, pTriangles, vertexCount, triangleCount,
                                             p.splitThreshold, p.depthParam, budget, p.region,
                                             ppTree, pTreeSize);
        });
    }
    return vekStsBadArg;
}

extern "C" VEKR_API void vekrKDTreeFree(VekrKDTreeNode* pTree)
{
    vekr::freeBlock(pTree);
}
