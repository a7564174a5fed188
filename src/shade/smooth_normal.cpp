// Smooth shading normals: the hit triangle's three vertex normals blended
// with the hit's barycentric weights (u for the first vertex, v for the
// second, 1 - u - v for the third) and brought to unit length.
#include <cfloat>
#include <cmath>
#include <cstddef>

#include "core/simd.h"
#include "core/status.h"
#include "shade/gather.h"
#include "shade/normals.h"
#include "vekr.h"

namespace vekr::shade {

void smoothNormalsGeneral(const float* vertNormals, const int* triangles, const int* triIndex,
                          const float* const uv[2], float* const out[3], int count, int stride)
{
    for (int i = 0; i < count; ++i) {
        const int t = triIndex[i];
        if (t < 0) {
            out[0][i] = out[1][i] = out[2][i] = 0.0f;
            continue;
        }
        const int* rec = triangles + static_cast<ptrdiff_t>(t) * stride;
        const float* n0 = vertNormals + 3 * static_cast<ptrdiff_t>(rec[0]);
        const float* n1 = vertNormals + 3 * static_cast<ptrdiff_t>(rec[1]);
        const float* n2 = vertNormals + 3 * static_cast<ptrdiff_t>(rec[2]);
        const float u = uv[0][i];
        const float v = uv[1][i];
        const float w = 1.0f - u - v;
        const float nx = n0[0] * u + n1[0] * v + n2[0] * w;
        const float ny = n0[1] * u + n1[1] * v + n2[1] * w;
        const float nz = n0[2] * u + n1[2] * v + n2[2] * w;
        const float s = nx * nx + ny * ny + nz * nz;
        if (s < FLT_EPSILON) {
            out[0][i] = out[1][i] = out[2][i] = 0.0f;
        } else {
            const float len = std::sqrt(s);
            out[0][i] = nx / len;
            out[1][i] = ny / len;
            out[2][i] = nz / len;
        }
    }
}

namespace {

struct Corners {
    Planes4 n0, n1, n2;
};

// Inlined by force: called from two places, and out of line the corners
// would travel through memory.
#define VEKR_INLINE inline __attribute__((always_inline))

VEKR_INLINE Corners gatherCorners(const float* vertNormals, const int* triangles, const int t[4], int stride)
{
    const int* r0 = triangles + static_cast<ptrdiff_t>(t[0]) * stride;
    const int* r1 = triangles + static_cast<ptrdiff_t>(t[1]) * stride;
    const int* r2 = triangles + static_cast<ptrdiff_t>(t[2]) * stride;
    const int* r3 = triangles + static_cast<ptrdiff_t>(t[3]) * stride;
    return Corners{gatherTriples(vertNormals, r0[0], r1[0], r2[0], r3[0]),
                   gatherTriples(vertNormals, r0[1], r1[1], r2[1], r3[1]),
                   gatherTriples(vertNormals, r0[2], r1[2], r2[2], r3[2])};
}

VEKR_INLINE Corners broadcastCorners(const float* vertNormals, const int* triangles, int t, int stride)
{
    const int* r = triangles + static_cast<ptrdiff_t>(t) * stride;
    return Corners{broadcastTriple(vertNormals + 3 * static_cast<ptrdiff_t>(r[0])),
                   broadcastTriple(vertNormals + 3 * static_cast<ptrdiff_t>(r[1])),
                   broadcastTriple(vertNormals + 3 * static_cast<ptrdiff_t>(r[2]))};
}

// The blend in the same order of operations as the general path, then the
// refined reciprocal square root; lanes with s <= epsilon become zero.
VEKR_INLINE Planes4 blendAndNormalise(const Corners& c, simd::F4 u, simd::F4 v)
{
    using namespace simd;
    const F4 w = F4(1.0f) - u - v;
    const F4 nx = c.n0.x * u + c.n1.x * v + c.n2.x * w;
    const F4 ny = c.n0.y * u + c.n1.y * v + c.n2.y * w;
    const F4 nz = c.n0.z * u + c.n1.z * v + c.n2.z * w;
    const F4 s = nx * nx + ny * ny + nz * nz;
    const F4 r = rsqrtNewton(s);
    return keepLanes(s > F4(FLT_EPSILON), Planes4{nx * r, ny * r, nz * r});
}

}  // namespace

void smoothNormalsFast(const float* vertNormals, const int* triangles, const int* triIndex,
                       const float* const uv[2], float* const out[3], int count, int stride)
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
        const F4 u = load4(uv[0] + i);
        const F4 v = load4(uv[1] + i);
        if (negative == 0) {
            const Corners c = allLanesEqual(idx)
                                  ? broadcastCorners(vertNormals, triangles, t[0], stride)
                                  : gatherCorners(vertNormals, triangles, t, stride);
            storePlanes(out, i, blendAndNormalise(c, u, v));
            continue;
        }
        // Mixed group: lanes without a hit borrow a valid lane's triangle so
        // every read stays in range, and are cleared afterwards.
        int valid = 0;
        while (t[valid] < 0) ++valid;
        for (int& k : t) {
            if (k < 0) k = t[valid];
        }
        const F4 hit = asFloat(idx > I4(-1));
        const Corners c = gatherCorners(vertNormals, triangles, t, stride);
        storePlanes(out, i, keepLanes(hit, blendAndNormalise(c, u, v)));
    }
}

}  // namespace vekr::shade

extern "C" VEKR_API VekStatus vekrSurfSmoothNormal_32f(const float* pVertNormals,
                                                       const int* pTriangles, const int* pTriIndex,
                                                       const float* const pUV[2],
                                                       float* const pNormals[3], int count,
                                                       int triStride)
{
    if (!pVertNormals || !pTriangles || !pTriIndex || !pUV || !pNormals) return vekStsNullPtr;
    if (count < 1) return vekStsOk;
    if (count % 4 == 0 &&
        vekr::allAligned16(pVertNormals, pTriangles, pTriIndex, pUV[0], pUV[1], pNormals[0],
                           pNormals[1], pNormals[2])) {
        vekr::shade::smoothNormalsFast(pVertNormals, pTriangles, pTriIndex, pUV, pNormals, count,
                                       triStride);
    } else {
        vekr::shade::smoothNormalsGeneral(pVertNormals, pTriangles, pTriIndex, pUV, pNormals,
                                          count, triStride);
    }
    return vekStsOk;
}
