// The single-ray path, several rays at a time: consecutive rays ride in the
// lanes of one vector, and every lane makes exactly the decisions the
// one-ray traversal of ray_core.h makes for it, with the same operations in
// the same order (divisions, not approximate reciprocals), so each lane's
// results are bit for bit those of the one-ray code.
//
// The lanes of one call share their direction signs (the near child at every
// split); each lane keeps its own interval.  At a split a lane either goes to
// the far child alone, or to the near child, pushing the far one unless the
// split lies beyond its exit.  The vector visits the near child with the
// lanes that go there and keeps the far child on its stack together with the
// lanes that pushed it (for them it is a pop: the exit test, then the new
// interval) and the lanes that go there alone (they simply continue there).
// A lane's subtrees are thus visited in its own order, and its state only
// changes while it is active.  The stack holds at most one entry per level
// of the tree, like a single ray's.
//
// A policy provides:
//   static constexpr float kSplitTol;      margin of the near/far decision
//   M skip(int tri, M lanes);              lanes that test this triangle at all
//   M hit(int tri, M inside, V den, V num, V bu, V bv);
//                                          lanes inside the triangle; returns the
//                                          lanes whose ray ends at once
//   V limit();                             a lane ends at a pop once its exit
//                                          distance reaches it
#pragma once

#ifndef VEKR_ISA_NS
#error "ray_lanes.h belongs to the per-level kernels"
#endif

#include "trace/packet_core.h"
#include "trace/ray_core.h"

namespace vekr {
namespace VEKR_ISA_NS {
namespace trace {

template <class V, class Policy>
inline void traverseLanes(const VekrKDTreeNode* root, const VekrTriangleAccel* accel,
                          const PacketRay<V>& ray, V tNear, V tFar, MaskOf<V> live, Policy& policy)
{
    using M = MaskOf<V>;
    struct Entry {
        const VekrKDTreeNode* node;
        V tFar;
        M popped, deferred;
    };
    Entry stack[kStackDepth];
    int sp = 0;
    const VekrKDTreeNode* node = root;
    const V tol(Policy::kSplitTol);
    M mask = live;
    for (;;) {
        while (!kd::isLeaf(*node)) {
            const int ax = kd::axis(*node);
            const V t = (V(kd::splitValue(*node)) - ray.o[ax]) * ray.rcp[ax];
            const VekrKDTreeNode* pair = kd::children(node);
            const int nearIdx = (ray.code >> ax) & 1;
            const M farOnly = mask & (tNear - t > tol);
            const M nearLanes = simd::andnot(farOnly, mask);
            if (!simd::any(nearLanes)) {
                node = pair + (1 - nearIdx);
                continue;
            }
            const M push = simd::andnot(t - tFar > tol, nearLanes);
            if (simd::any(push | farOnly)) {
                stack[sp++] = Entry{pair + (1 - nearIdx), tFar, push, farOnly};
                const V m = simd::select(t < tFar, t, tFar);
                tFar = simd::select(push, simd::select(tNear > m, tNear, m), tFar);
                mask = nearLanes;
            }
            node = pair + nearIdx;
        }
        kd::forEachTriangle(node, [&](int32_t tri) {
            const M m = policy.skip(tri, mask);
            if (!simd::any(m)) return false;
            const VekrTriangleAccel& rec = accel[tri];
            if (rec.axes == 0) return false;
            V den, num, bu, bv;
            const M inside = packetCandidate(rec, ray, den, num, bu, bv) & m;
            if (!simd::any(inside)) return false;
            const M ended = policy.hit(tri, inside, den, num, bu, bv);
            live = simd::andnot(ended, live);
            mask = simd::andnot(ended, mask);
            return !simd::any(mask);
        });
        for (;;) {
            if (sp == 0) return;
            const Entry& e = stack[--sp];
            const M popped = e.popped & live;
            const M stop = popped & (tFar >= policy.limit());
            live = simd::andnot(stop, live);
            const M go = simd::andnot(stop, popped);
            tNear = simd::select(go, tFar, tNear);
            tFar = simd::select(go, e.tFar, tFar);
            mask = go | (e.deferred & live);
            if (simd::any(mask)) {
                node = e.node;
                break;
            }
        }
    }
}

// The box entry test of enterBoxShared lane by lane (lo, hi relative to the
// shared origin).  Fills the reciprocals and the lane bits of negative signs;
// returns the lanes that enter the box.
template <class V>
inline MaskOf<V> enterBoxSharedLanes(const float lo[3], const float hi[3], PacketRay<V>& ray,
                                     V& tNear, V& tFar, MaskOf<V> live, int sign[3])
{
    for (int c = 0; c < 3; ++c) {
        const V d = ray.d[c];
        const MaskOf<V> steep = simd::abs(d) > V(kParallelEps);
        sign[c] = simd::movemask(steep & (d < V(0.0f)));
        ray.rcp[c] = simd::select(steep, V(1.0f) / d, V(kParallelRcpEye));
        const V t0 = V(lo[c]) / d, t1 = V(hi[c]) / d;
        const MaskOf<V> lt = t0 < t1;
        const V n = simd::select(lt, t0, t1), f = simd::select(lt, t1, t0);
        tNear = simd::select(steep & (n > tNear), n, tNear);
        tFar = simd::select(steep & (f < tFar), f, tFar);
        live = simd::andnot(steep & (tNear > tFar), live);
    }
    return live;
}

// The box entry test of enterBoxOwn lane by lane.
template <class V>
inline MaskOf<V> enterBoxOwnLanes(const VekrBox3D& box, PacketRay<V>& ray, V& tNear, V& tFar,
                                  MaskOf<V> live, int sign[3])
{
    const float lo[3] = {box.minX, box.minY, box.minZ};
    const float hi[3] = {box.maxX, box.maxY, box.maxZ};
    for (int c = 0; c < 3; ++c) {
        const V d = ray.d[c], o = ray.o[c];
        const MaskOf<V> steep = simd::abs(d) > V(kParallelEps);
        sign[c] = simd::movemask(steep & (d < V(0.0f)));
        const V r = V(1.0f) / d;
        ray.rcp[c] = simd::select(steep, r, V(kParallelRcpOwn));
        live = live & (steep | ((V(lo[c]) < o) & (o < V(hi[c]))));
        const V t0 = (V(lo[c]) - o) * r, t1 = (V(hi[c]) - o) * r;
        const MaskOf<V> lt = t0 < t1;
        const V n = simd::select(lt, t0, t1), f = simd::select(lt, t1, t0);
        tNear = simd::select(steep & (n > tNear), n, tNear);
        tFar = simd::select(steep & (f < tFar), f, tFar);
        live = simd::andnot(steep & (tNear > tFar), live);
    }
    return live;
}

// Up to kLanes consecutive rays in lane order, read from (and written back
// to) the caller's arrays element by element, so any count and alignment do.
template <class V>
struct RayGroup {
    static constexpr int kLanes = 4 * Lanes<V>::kRows;
    int first, n;
    alignas(64) float buf[kLanes];

    V read(const float* p)
    {
        for (int i = 0; i < kLanes; ++i) buf[i] = i < n ? p[first + i] : 0.0f;
        return Lanes<V>::load(buf, 4);
    }
    template <class T>
    void write(T* p, V v, int bits)
    {
        alignas(64) T out[kLanes];
        Lanes<V>::store(reinterpret_cast<float*>(out), v);
        for (int i = 0; i < n; ++i)
            if ((bits >> i) & 1) p[first + i] = out[i];
    }
};

// Calls fn(code, lanes) for each direction octant present among the lanes of
// `bits`, sign[c] being the lane bits of a negative sign on axis c.
template <class Fn>
inline void forEachCode(int bits, const int sign[3], Fn&& fn)
{
    while (bits) {
        const int lane = __builtin_ctz(bits);
        const int code = ((sign[0] >> lane) & 1) | (((sign[1] >> lane) & 1) << 1) |
                         (((sign[2] >> lane) & 1) << 2);
        const int same = bits & (code & 1 ? sign[0] : ~sign[0]) & (code & 2 ? sign[1] : ~sign[1]) &
                         (code & 4 ? sign[2] : ~sign[2]);
        fn(code, same);
        bits &= ~same;
    }
}

// The nearest-hit rays of a group after the box: traversed octant code by
// code with the lanes' policy p (fields dist, u, v, tri), and the lanes
// that hit a triangle written back.
template <class V, class Hits>
inline void traceNearestGroup(RayGroup<V>& g, PacketRay<V>& ray, V tNear, V tFar, int bits,
                              const int sign[3], Hits& p, const VekrIntersectContext& ctx,
                              float* dist, float* const hits[2], int* tris)
{
    forEachCode(bits, sign, [&](int code, int lanes) {
        ray.code = code;
        traverseLanes(ctx.pRootNode, ctx.pAccel, ray, tNear, tFar, Lanes<V>::fromBits(lanes), p);
    });
    const int hit = simd::movemask(Lanes<V>::signClear(p.tri)) & bits;
    g.write(dist, p.dist, hit);
    g.write(hits[0], p.u, hit);
    g.write(hits[1], p.v, hit);
    g.write(tris, p.tri, hit);
}

}  // namespace trace
}  // namespace VEKR_ISA_NS
}  // namespace vekr
