// Packet path of the successive hits: the lanes of a packet go from layer to
// layer together, each restarting at its own hit point.
#include "trace/packet_core.h"
#include "trace/packet_width.h"
#include "trace/packets.h"

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

}  // namespace VEKR_ISA_NS
}  // namespace vekr
