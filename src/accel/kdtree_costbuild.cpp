// Cost-driven build: for now only the budget's entry test, then one leaf.
#include "accel/kdtree_build.h"

namespace vekr::kd {

VekStatus buildCostDriven(const float*, const int*, int32_t vertexCount, int32_t triangleCount,
                          float, int32_t, uint32_t budgetBytes, const VekrBox3D*,
                          VekrKDTreeNode** ppTree, int* pTreeSize)
{
    const uint32_t need = 84u * static_cast<uint32_t>(triangleCount) +
                          12u * static_cast<uint32_t>(vertexCount) + 0x20001E0u;
    if (budgetBytes < need) return vekStsNoMem;
    return buildSingleLeaf(triangleCount, ppTree, pTreeSize);
}

}  // namespace vekr::kd
