// The single-ray tracing core: triangle test, KD-tree traversal and the box
// entry tests, written once and specialised by small policies.
//
// A policy decides everything that differs between the intersection
// functions:
//   static constexpr float kSplitTol;        margin of the near/far decision
//   bool skip(int tri);                      pass a triangle over before any arithmetic
//   bool hit(int tri, float den, float num, float bu, float bv);
//                                            a candidate inside the triangle; returns
//                                            true when the ray ends at once
//   float limit();                           the ray ends at a pop once the exit
//                                            distance reaches it
#pragma once

#include <cstdint>

#include "accel/kdnode.h"
#include "core/isa.h"
#include "vekr.h"

namespace vekr {
VEKR_LEVEL_BEGIN
namespace trace {

constexpr int kStackDepth = 50;

// Exact constants of the tracing functions.
constexpr float kParallelEps = 1.1920929e-7f;         // |d| at or below: parallel axis
constexpr float kParallelRcpEye = 838860800.0f;       // eye rays and successive hits
constexpr float kParallelRcpOwn = 83886.078f;         // any-hit and own-origin rays
constexpr float kExitWidening = 1.0e-4f;
constexpr float kSplitTolNearest = 1.0e-5f;
constexpr float kSplitTolLayers = 1.9e-4f;
constexpr float kFloatMax = 3.4028235e38f;
constexpr float kOwnMinDen = 1.1920929e-6f;  // own-origin rays: |den| below it is skipped
constexpr float kOwnMargin = 1.0e-5f;        // own-origin rays: a new hit must be this much nearer

// One ray in flight: origin, direction, per-axis reciprocal and sign (the
// index of the near child at a split on that axis).
struct Ray {
    float o[3];
    float d[3];
    float rcp[3];
    int sign[3];
};

// Barycentric numerators of a candidate hit, all scaled by den; t = num / den.
struct Candidate {
    float den, num, bu, bv;
};

// The triangle test against one acceleration record.  Returns false for a
// degenerate record or a point outside the triangle (inclusive edges, both
// orientations accepted).
inline bool triangleCandidate(const VekrTriangleAccel& r, const Ray& ray, Candidate& c)
{
    const uint32_t w0 = r.axes;
    if (w0 == 0) return false;
    const int a = static_cast<int>(w0 & 3u), b = static_cast<int>((w0 >> 2) & 3u),
              k = static_cast<int>((w0 >> 4) & 3u);
    const float ob = r.cu - ray.o[b];
    const float oa = r.cv - ray.o[a];
    const float den = ray.d[b] * r.nu + ray.d[a] * r.nv + ray.d[k];
    const float num = r.ck + r.nu * ob + r.nv * oa - ray.o[k];
    const float pa = ray.d[a] * num - oa * den;
    const float pb = ray.d[b] * num - ob * den;
    const float bu = r.e2v * pb - r.e2u * pa;
    const float bv = r.e1u * pa - r.e1v * pb;
    const float w = den - bu - bv;
    if (!(w * bu >= 0.0f) || !(bu * bv >= 0.0f) || !(w * bv >= 0.0f)) return false;
    c = Candidate{den, num, bu, bv};
    return true;
}

// Walks the tree for one ray over [tNear, tFar] (tFar already widened),
// testing the triangles of every leaf met.  Returns when the stack is empty,
// when a popped entry starts at or beyond policy.limit(), or when the policy
// ends the ray.
template <class Policy>
inline void traverse(const VekrKDTreeNode* root, const VekrTriangleAccel* accel, const Ray& ray,
                     float tNear, float tFar, Policy& policy)
{
    struct Entry {
        const VekrKDTreeNode* node;
        float tFar;
    };
    Entry stack[kStackDepth];
    int sp = 0;
    const VekrKDTreeNode* node = root;
    for (;;) {
        while (!kd::isLeaf(*node)) {
            const int ax = kd::axis(*node);
            const float t = (kd::splitValue(*node) - ray.o[ax]) * ray.rcp[ax];
            const VekrKDTreeNode* pair = kd::children(node);
            const int nearIdx = ray.sign[ax];
            if (tNear - t > Policy::kSplitTol) {
                node = pair + (1 - nearIdx);
                continue;
            }
            if (!(t - tFar > Policy::kSplitTol)) {
                stack[sp++] = Entry{pair + (1 - nearIdx), tFar};
                const float m = t < tFar ? t : tFar;
                tFar = tNear > m ? tNear : m;
            }
            node = pair + nearIdx;
        }
        const bool ended = kd::forEachTriangle(node, [&](int32_t tri) {
            if (policy.skip(tri)) return false;
            Candidate c;
            if (!triangleCandidate(accel[tri], ray, c)) return false;
            return policy.hit(tri, c.den, c.num, c.bu, c.bv);
        });
        if (ended || sp == 0) return;
        --sp;
        if (tFar >= policy.limit()) return;
        tNear = tFar;
        node = stack[sp].node;
        tFar = stack[sp].tFar;
    }
}

// Box entry test of rays sharing one origin (eye rays, first layer of the
// successive hits): lo/hi are the box corners relative to the origin.  A
// parallel axis gets sign 0 and a large positive reciprocal and does not clip.
// Fills the ray's signs and reciprocals; returns false when the ray misses.
inline bool enterBoxShared(const float lo[3], const float hi[3], Ray& ray, float& tNear,
                           float& tFar)
{
    for (int c = 0; c < 3; ++c) {
        const float d = ray.d[c];
        if (!(d < 0.0f ? -d > kParallelEps : d > kParallelEps)) {
            ray.sign[c] = 0;
            ray.rcp[c] = kParallelRcpEye;
            continue;
        }
        ray.sign[c] = d < 0.0f ? 1 : 0;
        ray.rcp[c] = 1.0f / d;
        const float t0 = lo[c] / d, t1 = hi[c] / d;
        const float n = t0 < t1 ? t0 : t1;
        const float f = t0 < t1 ? t1 : t0;
        if (n > tNear) tNear = n;
        if (f < tFar) tFar = f;
        if (tNear > tFar) return false;
    }
    return true;
}

// Box entry test of a ray with its own origin: the box is trimmed by
// multiplying with the reciprocal, and a parallel axis (sign 0, reciprocal
// 83886.078) rejects the ray unless the origin lies strictly inside its slab.
inline bool enterBoxOwn(const VekrBox3D& box, Ray& ray, float& tNear, float& tFar)
{
    const float lo[3] = {box.minX, box.minY, box.minZ};
    const float hi[3] = {box.maxX, box.maxY, box.maxZ};
    for (int c = 0; c < 3; ++c) {
        const float d = ray.d[c];
        if (!(d < 0.0f ? -d > kParallelEps : d > kParallelEps)) {
            ray.sign[c] = 0;
            ray.rcp[c] = kParallelRcpOwn;
            if (!(lo[c] < ray.o[c] && ray.o[c] < hi[c])) return false;
            continue;
        }
        ray.sign[c] = d < 0.0f ? 1 : 0;
        const float r = 1.0f / d;
        ray.rcp[c] = r;
        const float t0 = (lo[c] - ray.o[c]) * r, t1 = (hi[c] - ray.o[c]) * r;
        const float n = t0 < t1 ? t0 : t1;
        const float f = t0 < t1 ? t1 : t0;
        if (n > tNear) tNear = n;
        if (f < tFar) tFar = f;
        if (tNear > tFar) return false;
    }
    return true;
}

}  // namespace trace
VEKR_LEVEL_END
}  // namespace vekr
