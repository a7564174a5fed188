// Scene bounding box of a vertex array, widened by a margin proportional to
// the largest absolute coordinate so that geometry on the faces stays inside.
#include <cfloat>
#include <cmath>

#include "vekr.h"

extern "C" VEKR_API VekStatus vekrSetBoundBox_32f(const float* pVertices, int vertexCount,
                                                  VekrBox3D* pBox)
{
    if (!pVertices) return vekStsNullPtr;

    float lo[3] = {FLT_MAX, FLT_MAX, FLT_MAX};
    float hi[3] = {-FLT_MAX, -FLT_MAX, -FLT_MAX};
    for (int i = 0; i < vertexCount; ++i) {
        for (int c = 0; c < 3; ++c) {
            const float x = pVertices[3 * i + c];
            // Written so that a NaN coordinate leaves the running value alone.
            if (x < lo[c]) lo[c] = x;
            if (x > hi[c]) hi[c] = x;
        }
    }

    float largest = FLT_MIN;
    for (int c = 0; c < 3; ++c) {
        largest = std::fmax(largest, std::fabs(lo[c]));
        largest = std::fmax(largest, std::fabs(hi[c]));
    }
    const float margin = 0.0001f * largest;

    pBox->minX = lo[0] - margin;
    pBox->minY = lo[1] - margin;
    pBox->minZ = lo[2] - margin;
    pBox->maxX = hi[0] + margin;
    pBox->maxY = hi[1] + margin;
    pBox->maxZ = hi[2] + margin;
    return vekStsOk;
}
