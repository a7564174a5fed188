// The single-leaf build: the root is a listed leaf of every triangle, its list
// right after the root and the zero slot.
#include <emmintrin.h>

#include <cstring>

#include "accel/kdnode.h"
#include "accel/kdtree_build.h"
#include "core/alloc.h"

namespace vekr::kd {

VekStatus buildSingleLeaf(int32_t n, VekrKDTreeNode** ppTree, int* pTreeSize)
{
    // The size is a signed 32-bit quantity; when 16 + 4n overflows, the unit
    // count is refused like any other count that does not fit.
    const int64_t exact = 16 + 4 * static_cast<int64_t>(n);
    const int32_t size = static_cast<int32_t>(static_cast<uint32_t>(exact));
    if (size != exact) return vekStsNoMem;
    auto* block = static_cast<VekrKDTreeNode*>(malloc64((size >> 3) + 1));
    if (!block) return vekStsNoMem;

    block[0] = makeListedLeaf(n, 16);
    block[1].w0 = 0;
    block[1].w1 = 0;
    int32_t* list = reinterpret_cast<int32_t*>(block + 2);
    int32_t i = 0;
    // Leading elements until the list is 16-byte aligned, then four at a time.
    for (; i < n && (reinterpret_cast<uintptr_t>(list + i) & 15u) != 0; ++i) list[i] = i;
    __m128i v = _mm_add_epi32(_mm_set1_epi32(i), _mm_setr_epi32(0, 1, 2, 3));
    const __m128i four = _mm_set1_epi32(4);
    for (; i + 4 <= n; i += 4) {
        _mm_store_si128(reinterpret_cast<__m128i*>(list + i), v);
        v = _mm_add_epi32(v, four);
    }
    for (; i < n; ++i) list[i] = i;

    *ppTree = block;
    *pTreeSize = size;
    return vekStsOk;
}

}  // namespace vekr::kd
