// Per-triangle acceleration records: each triangle is projected onto the
// coordinate plane in which it is largest; the record keeps the plane solved
// for the dropped coordinate and the projected edges pre-scaled by the
// inverse normal component, so the ray/triangle test needs no division per
// triangle.  Everything is computed in double precision and rounded to float
// only when stored.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "vekr.h"

namespace {

constexpr double kDoubleEpsilon = 2.220446049250313e-16;
constexpr uint32_t kFlatBit = 0x80000000u;

// The two axes kept by the projection along k, and the sign that makes
// (u, v) a right-handed pair.
struct Projection {
    int u, v;
    double sigma;
};
constexpr Projection kProjection[3] = {{1, 2, +1.0}, {0, 2, -1.0}, {0, 1, +1.0}};

void makeRecord(VekrTriangleAccel& rec, const float* a, const float* b, const float* c)
{
    double e1[3], e2[3], cv[3];
    for (int i = 0; i < 3; ++i) {
        cv[i] = static_cast<double>(c[i]);
        e1[i] = static_cast<double>(a[i]) - cv[i];
        e2[i] = static_cast<double>(b[i]) - cv[i];
    }
    const double n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2],
                         e1[0] * e2[1] - e1[1] * e2[0]};

    // Dominant axis; ties keep the earlier axis.
    int k = 0;
    if (std::fabs(n[1]) > std::fabs(n[0])) k = 1;
    if (std::fabs(n[2]) > std::fabs(n[k])) k = 2;

    if (n[k] == 0.0) {  // zero normal: never hit (a NaN takes the general path)
        std::memset(&rec, 0, sizeof rec);
        return;
    }
    const int u = kProjection[k].u, v = kProjection[k].v;

    const double inv = 1.0 / n[k];
    uint32_t axes = static_cast<uint32_t>(k * 16 + u * 4 + v);
    if (std::fabs(n[v]) < kDoubleEpsilon && std::fabs(n[u]) < kDoubleEpsilon) {
        rec.nu = 0.0f;
        rec.nv = 0.0f;
        axes |= kFlatBit;
    } else {
        rec.nu = static_cast<float>(n[u] * inv);
        rec.nv = static_cast<float>(n[v] * inv);
    }
    rec.ck = static_cast<float>(cv[k]);
    rec.cu = static_cast<float>(cv[u]);
    rec.cv = static_cast<float>(cv[v]);
    const double s = kProjection[k].sigma * inv;
    rec.e2u = static_cast<float>(e2[u] * s);
    rec.e2v = static_cast<float>(e2[v] * s);
    rec.e1u = static_cast<float>(e1[u] * s);
    rec.e1v = static_cast<float>(e1[v] * s);
    rec.axes = axes;
}

}  // namespace

extern "C" VEKR_API VekStatus vekrTriangleAccelGetSize(int* pSize)
{
    if (!pSize) return vekStsNullPtr;
    *pSize = static_cast<int>(sizeof(VekrTriangleAccel));
    return vekStsOk;
}

// No pointer is tested: the function has no failure path.
extern "C" VEKR_API VekStatus vekrTriangleAccelInit(VekrTriangleAccel* pAccel,
                                                    const float* pVertices,
                                                    const int* pTriangles, int triangleCount)
{
    for (int t = 0; t < triangleCount; ++t) {
        const int* idx = pTriangles + 4 * static_cast<intptr_t>(t);
        makeRecord(pAccel[t], pVertices + 3 * static_cast<intptr_t>(idx[0]),
                   pVertices + 3 * static_cast<intptr_t>(idx[1]),
                   pVertices + 3 * static_cast<intptr_t>(idx[2]));
    }
    return vekStsOk;
}
