// Flat shading normals: each ray takes the normal of the triangle it hit, as
// stored (no normalisation); rays without a hit get (0, 0, 0).
#include <cstddef>

#include "core/simd.h"
#include "core/status.h"
#include "shade/gather.h"
#include "shade/normals.h"
#include "vekr.h"

namespace vekr::shade {

void flatNormalsGeneral(const float* triNormals, const int* triIndex, float* const out[3],
                        int count)
{
    for (int i = 0; i < count; ++i) {
        const int t = triIndex[i];
        if (t >= 0) {
            const float* n = triNormals + 3 * static_cast<ptrdiff_t>(t);
            out[0][i] = n[0];
            out[1][i] = n[1];
            out[2][i] = n[2];
        } else {
            out[0][i] = 0.0f;
            out[1][i] = 0.0f;
            out[2][i] = 0.0f;
        }
    }
}

void flatNormalsFast(const float* triNormals, const int* triIndex, float* const out[3],
                     int count)
{
    using namespace simd;
    for (int i = 0; i < count; i += 4) {
        const I4 idx = loadi4(triIndex + i);
        const int negative = negativeLanes(idx);
        if (negative == 0xF) {
            storePlanes(out, i, Planes4{zero4(), zero4(), zero4()});
            continue;
        }
        alignas(16) int t[4];
        storei4(t, idx);
        if (negative == 0) {
            if (allLanesEqual(idx)) {
                storePlanes(out, i, broadcastTriple(triNormals + 3 * static_cast<ptrdiff_t>(t[0])));
            } else {
                storePlanes(out, i, gatherTriples(triNormals, t[0], t[1], t[2], t[3]));
            }
            continue;
        }
        // Mixed group: lanes without a hit read a valid lane's normal (so no
        // read goes out of range) and are then cleared.
        int valid = 0;
        while (t[valid] < 0) ++valid;
        for (int& k : t) {
            if (k < 0) k = t[valid];
        }
        const F4 hit = asFloat(idx > I4(-1));
        storePlanes(out, i, keepLanes(hit, gatherTriples(triNormals, t[0], t[1], t[2], t[3])));
    }
}

}  // namespace vekr::shade

extern "C" VEKR_API VekStatus vekrSurfFlatNormal_32f(const float* pTriNormals, const int* pTriIndex,
                                                     float* const pNormals[3], int count)
{
    if (!pTriNormals || !pTriIndex) return vekStsNullPtr;
    if (count < 1) return vekStsOk;
    if (count % 4 == 0 &&
        vekr::allAligned16(pTriNormals, pTriIndex, pNormals[0], pNormals[1], pNormals[2])) {
        vekr::shade::flatNormalsFast(pTriNormals, pTriIndex, pNormals, count);
    } else {
        vekr::shade::flatNormalsGeneral(pTriNormals, pTriIndex, pNormals, count);
    }
    return vekStsOk;
}
