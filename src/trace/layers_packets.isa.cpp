// Packet path of the successive hits: the lanes of a packet go from layer to
// layer together, each restarting at its own hit point.
#include "trace/intersect.h"
#include "trace/packet_core.h"
#include "trace/ray_lanes.h"

namespace vekr {
namespace VEKR_ISA_NS {

namespace {

struct LayerNearestLanes {
    V dist, u, v, tri;
    V last;
    const V* earlier;
    int remembered;
    M skip(int n, M mask) const { return simd::andnot(L::eqInt(last, trace::intLanes<V>(n)), mask); }
    M hit(int n, M mask, M inside, V den, V num, V bu, V bv)
    {
        const V r = simd::rcpNewton(den);
        const V t = num * r;
        M take = inside & (t < dist) & (t > V(0.0f));
        const V id = trace::intLanes<V>(n);
        for (int i = 0; i < remembered; ++i) take = simd::andnot(L::eqInt(earlier[i], id), take);
        dist = simd::select(take, t, dist);
        u = simd::select(take, bu * r, u);
        v = simd::select(take, bv * r, v);
        tri = simd::select(take, id, tri);
        return mask;
    }
    V limit() const { return dist; }
};

// The one-ray layer search (intersect_layers.cpp), lane by lane.
struct LayerNearestRays {
    static constexpr float kSplitTol = trace::kSplitTolLayers;
    V dist, u, v, tri;
    V last;
    const V* earlier;
    int remembered;
    M skip(int n, M lanes) const { return simd::andnot(L::eqInt(last, trace::intLanes<V>(n)), lanes); }
    M hit(int n, M inside, V den, V num, V bu, V bv)
    {
        const V t = num / den;
        M take = inside & (dist > t) & (t > V(0.0f));
        const V id = trace::intLanes<V>(n);
        for (int i = 0; i < remembered; ++i) take = simd::andnot(L::eqInt(earlier[i], id), take);
        dist = simd::select(take, t, dist);
        u = simd::select(take, bu / den, u);
        v = simd::select(take, bv / den, v);
        tri = simd::select(take, id, tri);
        return L::fromBits(0);
    }
    V limit() const { return dist; }
};

}  // namespace

void intersectLayersPackets(const float origin[3], const float* const dirs[3], float* dist,
                            float* const hits[2], int* tris, const VekrIntersectContext& ctx,
                            int width, int height, int count)
{
    // triangles are already -1 in every layer.
    const VekrBox3D& box = *ctx.pBound;
    const float bmin[3] = {box.minX, box.minY, box.minZ};
    const float bmax[3] = {box.maxX, box.maxY, box.maxZ};
    const size_t stride = static_cast<size_t>(width);
    const size_t layer = stride * static_cast<size_t>(height);
    float* triBits = reinterpret_cast<float*>(tris);
    const V none = trace::intLanes<V>(-1);
    trace::forEachPacket<V>(
        width, height, dirs, [&](size_t base) { return L::load(dist + base, stride) > V(0.0f); },
        [&](const trace::TileGroup<V>& g, M mask, int code) {
            trace::PacketRay<V> ray;
            for (int c = 0; c < 3; ++c) {
                ray.o[c] = V(origin[c]);
                ray.d[c] = g.d[c];
            }
            ray.code = code;
            trace::packetReciprocals(ray);
            V tNear(0.0f), tFar = L::load(dist + g.base, stride);
            for (int c = 0; c < 3; ++c) {
                const V t0 = (V(bmin[c]) - ray.o[c]) * ray.rcp[c];
                const V t1 = (V(bmax[c]) - ray.o[c]) * ray.rcp[c];
                tNear = simd::max(simd::min(t0, t1), tNear);
                tFar = simd::min(simd::max(t0, t1), tFar);
            }
            mask = mask & (tNear < tFar);
            if (!simd::any(mask)) return;
            tFar = tFar + V(trace::kExitWidening);
            V earlier[8];
            V last = none, before(0.0f);
            for (int l = 0; l < count; ++l) {
                const size_t at = static_cast<size_t>(l) * layer + g.base;
                V start;
                if (l == 0) {
                    start = L::load(dist + at, stride);
                } else {
                    start = V(trace::kFloatMax);
                    tNear = V(0.0f);
                    tFar = V(trace::kFloatMax);
                    for (int c = 0; c < 3; ++c) {
                        const V t0 = (V(bmin[c]) - ray.o[c]) * ray.rcp[c];
                        const V t1 = (V(bmax[c]) - ray.o[c]) * ray.rcp[c];
                        tFar = simd::min(simd::max(t0, t1), tFar);
                    }
                    tFar = tFar + V(trace::kExitWidening);
                }
                LayerNearestLanes p{start, V(0.0f), V(0.0f), none, last, earlier, l & 7};
                trace::traversePacket(ctx.pRootNode, ctx.pAccel, ray, tNear, tFar, mask, p);
                const M hit = simd::andnot(L::eqInt(p.tri, none), mask);
                const V total = l >= 1 ? p.dist + before : p.dist;
                if (l >= 1) {
                    // Lanes that reached this layer get their distance, or the
                    // largest float when nothing more lies on the ray.
                    L::blend(dist + at, stride, simd::select(hit, total, V(trace::kFloatMax)), mask);
                } else {
                    L::blend(dist + at, stride, total, hit);
                }
                if (!simd::any(hit)) break;
                L::blend(hits[0] + at, stride, p.u, hit);
                L::blend(hits[1] + at, stride, p.v, hit);
                L::blend(triBits + at, stride, p.tri, hit);
                for (int c = 0; c < 3; ++c)
                    ray.o[c] = simd::select(hit, ray.o[c] + p.dist * ray.d[c], ray.o[c]);
                before = total;
                earlier[l & 7] = p.tri;
                last = p.tri;
                mask = hit;
            }
        });
}

void intersectLayersRows(const float origin[3], const float* const dirs[3], float* dist,
                         float* const hits[2], int* tris, const VekrIntersectContext& ctx, int rays,
                         int count)
{
    // triangles are already -1 in every layer.
    const size_t layer = static_cast<size_t>(rays);
    const VekrBox3D& box = *ctx.pBound;
    const float bmin[3] = {box.minX, box.minY, box.minZ};
    const float bmax[3] = {box.maxX, box.maxY, box.maxZ};
    const float lo[3] = {bmin[0] - origin[0], bmin[1] - origin[1], bmin[2] - origin[2]};
    const float hi[3] = {bmax[0] - origin[0], bmax[1] - origin[1], bmax[2] - origin[2]};
    const V none = trace::intLanes<V>(-1);
    using G = trace::RayGroup<V>;
    for (int first = 0; first < rays; first += G::kLanes) {
        G g{first, rays - first < G::kLanes ? rays - first : G::kLanes, {}};
        trace::PacketRay<V> ray;
        for (int c = 0; c < 3; ++c) {
            ray.o[c] = V(origin[c]);
            ray.d[c] = g.read(dirs[c]);
        }
        const V limit = g.read(dist);
        V tNear0(0.0f), tFar0 = limit;
        int sign[3];
        const M in = trace::enterBoxSharedLanes(lo, hi, ray, tNear0, tFar0, L::fromBits((1 << g.n) - 1), sign);
        const int bits = simd::movemask(in);
        if (!bits) continue;
        tFar0 = tFar0 + V(trace::kExitWidening);
        trace::forEachCode(bits, sign, [&](int code, int lanes) {
            ray.code = code;
            M live = L::fromBits(lanes);
            V tNear = tNear0, tFar = tFar0, start = limit, last = none, before(0.0f);
            V earlier[8];
            for (int l = 0; l < count; ++l) {
                const size_t at = static_cast<size_t>(l) * layer;
                if (l > 0) {
                    start = V(trace::kFloatMax);
                    g.write(dist + at, start, simd::movemask(live));
                    tNear = V(0.0f);
                    // Exit from the box measured from the new origin.
                    tFar = V(trace::kFloatMax);
                    for (int c = 0; c < 3; ++c) {
                        const V t0 = (V(bmin[c]) - ray.o[c]) * ray.rcp[c];
                        const V t1 = (V(bmax[c]) - ray.o[c]) * ray.rcp[c];
                        const V e = simd::select(t0 > t1, t0, t1);
                        tFar = simd::select(e < tFar, e, tFar);
                    }
                    tFar = tFar + V(trace::kExitWidening);
                }
                LayerNearestRays p{start, V(0.0f), V(0.0f), none, last, earlier, l & 7};
                trace::traverseLanes(ctx.pRootNode, ctx.pAccel, ray, tNear, tFar, live, p);
                const M hit = live & L::signClear(p.tri);
                if (!simd::any(hit)) break;
                for (int c = 0; c < 3; ++c)
                    ray.o[c] = simd::select(hit, ray.o[c] + p.dist * ray.d[c], ray.o[c]);
                const V total = l >= 1 ? p.dist + before : p.dist;
                const int hb = simd::movemask(hit);
                g.write(dist + at, total, hb);
                g.write(hits[0] + at, p.u, hb);
                g.write(hits[1] + at, p.v, hb);
                g.write(tris + at, p.tri, hb);
                before = total;
                earlier[l & 7] = p.tri;
                last = p.tri;
                live = hit;
            }
        });
    }
}

}  // namespace VEKR_ISA_NS
}  // namespace vekr
