#include "accel/kdtree_boxes.h"

#include <cmath>

#include "core/parallel.h"

namespace vekr::kd {

namespace {

constexpr int kMaxPoly = 12;  // 3 vertices + one per clipping plane, with room

struct Poly {
    double p[kMaxPoly][3];
    int n = 0;
};

// Keeps the part of `in` with sign * (p[axis] - bound) >= 0.
void clipPlane(const Poly& in, Poly& out, int axis, double bound, double sign)
{
    out.n = 0;
    for (int i = 0; i < in.n; ++i) {
        const double* p = in.p[i];
        const double* q = in.p[(i + 1) % in.n];
        const double dp = sign * (p[axis] - bound), dq = sign * (q[axis] - bound);
        const bool pin = dp >= 0, qin = dq >= 0;
        if (pin) {
            double* o = out.p[out.n++];
            o[0] = p[0], o[1] = p[1], o[2] = p[2];
        }
        if (pin != qin && dp != dq) {
            const double t = dp / (dp - dq);
            double* o = out.p[out.n++];
            for (int c = 0; c < 3; ++c) o[c] = p[c] + t * (q[c] - p[c]);
            o[axis] = bound;
        }
    }
}

inline float downToFloat(double d)
{
    float f = static_cast<float>(d);
    if (static_cast<double>(f) > d) f = std::nextafter(f, -INFINITY);
    return f;
}

inline float upToFloat(double d)
{
    float f = static_cast<float>(d);
    if (static_cast<double>(f) < d) f = std::nextafter(f, INFINITY);
    return f;
}

}  // namespace

bool clipTriangleToBox(const float* a, const float* b, const float* c, const VekrBox3D& box,
                       float lo[3], float hi[3]) noexcept
{
    const float bl[3] = {box.minX, box.minY, box.minZ};
    const float bh[3] = {box.maxX, box.maxY, box.maxZ};
    Poly p0, p1;
    for (int k = 0; k < 3; ++k) {
        p0.p[0][k] = a[k];
        p0.p[1][k] = b[k];
        p0.p[2][k] = c[k];
    }
    p0.n = 3;
    for (int axis = 0; axis < 3; ++axis) {
        clipPlane(p0, p1, axis, bl[axis], 1.0);
        if (p1.n == 0) return false;
        clipPlane(p1, p0, axis, bh[axis], -1.0);
        if (p0.n == 0) return false;
    }
    for (int k = 0; k < 3; ++k) {
        double mn = p0.p[0][k], mx = mn;
        for (int i = 1; i < p0.n; ++i) {
            mn = p0.p[i][k] < mn ? p0.p[i][k] : mn;
            mx = p0.p[i][k] > mx ? p0.p[i][k] : mx;
        }
        float l = downToFloat(mn), h = upToFloat(mx);
        l = l > bl[k] ? l : bl[k];
        h = h < bh[k] ? h : bh[k];
        lo[k] = l + 0.0f;
        hi[k] = h + 0.0f;
    }
    return true;
}

namespace {

// The box of triangle i, or false when a region is given and the triangle
// has nothing inside it (its box is then zero).
bool boxOf(const float* vertices, const int* triangles, int32_t i, const VekrBox3D* region,
           const TriBoxes& boxes) noexcept
{
    const int* tri = triangles + 4 * static_cast<int64_t>(i);
    const float* a = vertices + 3 * static_cast<int64_t>(tri[0]);
    const float* b = vertices + 3 * static_cast<int64_t>(tri[1]);
    const float* c = vertices + 3 * static_cast<int64_t>(tri[2]);
    float lo[3], hi[3];
    if (region) {
        if (!clipTriangleToBox(a, b, c, *region, lo, hi)) {
            for (int k = 0; k < 3; ++k) boxes.bounds[k][2 * i] = boxes.bounds[k][2 * i + 1] = 0.0f;
            return false;
        }
    } else {
        for (int k = 0; k < 3; ++k) {
            // A NaN coordinate makes the box NaN on that axis, which the
            // build reads as "spans the whole node".
            float l = a[k], h = a[k];
            if (std::isnan(b[k]) || std::isnan(c[k]) || std::isnan(l)) {
                l = h = NAN;
            } else {
                l = b[k] < l ? b[k] : l;
                l = c[k] < l ? c[k] : l;
                h = b[k] > h ? b[k] : h;
                h = c[k] > h ? c[k] : h;
            }
            lo[k] = l + 0.0f;
            hi[k] = h + 0.0f;
        }
    }
    for (int k = 0; k < 3; ++k) {
        boxes.bounds[k][2 * i] = lo[k];
        boxes.bounds[k][2 * i + 1] = hi[k];
    }
    return true;
}

constexpr int32_t kThreadedFrom = 16384;  // triangles

}  // namespace

int32_t triangleBoxes(const float* vertices, const int* triangles, int32_t t,
                      const VekrBox3D* region, const TriBoxes& boxes, int32_t* kept,
                      int threads) noexcept
{
    // Each triangle's number, or -1 when it is left out; then the kept
    // numbers moved together in order.
    auto mark = [&](int begin, int end, int, int) {
        for (int32_t i = begin; i < end; ++i)
            kept[i] = boxOf(vertices, triangles, i, region, boxes) ? i : -1;
    };
    if (threads > 1 && t >= kThreadedFrom)
        parallelFor(threads, t, staticBlock, mark);
    else
        mark(0, t, 0, 1);
    int32_t count = 0;
    for (int32_t i = 0; i < t; ++i)
        if (kept[i] >= 0) kept[count++] = kept[i];
    return count;
}

}  // namespace vekr::kd
