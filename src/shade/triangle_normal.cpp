// One unit normal per triangle, in double precision, the triangles shared out
// among threads in contiguous blocks.
#include <cfloat>
#include <cmath>
#include <cstddef>

#include "core/parallel.h"
#include "core/status.h"
#include "shade/normals.h"
#include "vekcore.h"
#include "vekr.h"

namespace vekr::shade {

void triangleNormals(const float* vertices, const int* triangles, float* normals, int begin,
                     int end)
{
    for (int t = begin; t < end; ++t) {
        const int* rec = triangles + 4 * static_cast<ptrdiff_t>(t);
        const float* a = vertices + 3 * static_cast<ptrdiff_t>(rec[0]);
        const float* b = vertices + 3 * static_cast<ptrdiff_t>(rec[1]);
        const float* c = vertices + 3 * static_cast<ptrdiff_t>(rec[2]);
        // Edges from the third vertex; their cross product follows the winding.
        const double e1x = double(a[0]) - double(c[0]);
        const double e1y = double(a[1]) - double(c[1]);
        const double e1z = double(a[2]) - double(c[2]);
        const double e2x = double(b[0]) - double(c[0]);
        const double e2y = double(b[1]) - double(c[1]);
        const double e2z = double(b[2]) - double(c[2]);
        const double nx = e1y * e2z - e1z * e2y;
        const double ny = e1z * e2x - e1x * e2z;
        const double nz = e1x * e2y - e1y * e2x;
        const double s = nx * nx + ny * ny + nz * nz;
        float* out = normals + 3 * static_cast<ptrdiff_t>(t);
        if (s < DBL_EPSILON) {
            out[0] = out[1] = out[2] = 0.0f;
        } else {
            const double len = std::sqrt(s);
            out[0] = static_cast<float>(nx / len);
            out[1] = static_cast<float>(ny / len);
            out[2] = static_cast<float>(nz / len);
        }
    }
}

}  // namespace vekr::shade

extern "C" VEKR_API VekStatus vekrTriangleNormal_32f(const float* pVertices, const int* pTriangles,
                                                     float* pNormals, int triangleCount)
{
    if (!pVertices || !pTriangles || !pNormals) return vekStsNullPtr;
    if (triangleCount < 1) return vekStsOk;
    return vekr::guarded([&] {
        vekr::parallelFor(ownGetNumThreads(), triangleCount, vekr::staticBlock,
                          [&](int begin, int end, int, int) {
                              vekr::shade::triangleNormals(pVertices, pTriangles, pNormals,
                                                           begin, end);
                          });
        return vekStsOk;
    });
}
