// Packet path of the eye-ray nearest hit.
#include "trace/intersect.h"
#include "trace/packet_core.h"
#include "trace/ray_lanes.h"

namespace vekr {
namespace VEKR_ISA_NS {

namespace {

struct NearestHitLanes {
    V dist, u, v, tri;
    M skip(int, M mask) const { return mask; }
    M hit(int n, M mask, M inside, V den, V num, V bu, V bv)
    {
        const V r = simd::rcpNewton(den);
        const V t = num * r;
        const M take = inside & (t < dist) & (t > V(0.0f));
        dist = simd::select(take, t, dist);
        u = simd::select(take, bu * r, u);
        v = simd::select(take, bv * r, v);
        tri = simd::select(take, trace::intLanes<V>(n), tri);
        return mask;
    }
    V limit() const { return dist; }
};

// The one-ray nearest hit (intersect_eye.cpp), lane by lane.
struct NearestHitRays {
    static constexpr float kSplitTol = trace::kSplitTolNearest;
    V dist, u, v, tri;
    M skip(int, M lanes) const { return lanes; }
    M hit(int n, M inside, V den, V num, V bu, V bv)
    {
        const V t = num / den;
        const M take = inside & (dist > t) & (t > V(0.0f));
        dist = simd::select(take, t, dist);
        u = simd::select(take, bu / den, u);
        v = simd::select(take, bv / den, v);
        tri = simd::select(take, trace::intLanes<V>(n), tri);
        return L::fromBits(0);
    }
    V limit() const { return dist; }
};

}  // namespace

void intersectEyePackets(const float eye[3], const float* const dirs[3], float* dist,
                         float* const hits[2], int* tris, const VekrIntersectContext& ctx,
                         int width, int height)
{
    const size_t n = static_cast<size_t>(width) * static_cast<size_t>(height);
    for (size_t k = 0; k < n; ++k) tris[k] = -1;
    const VekrBox3D& box = *ctx.pBound;
    const float lo[3] = {box.minX - eye[0], box.minY - eye[1], box.minZ - eye[2]};
    const float hi[3] = {box.maxX - eye[0], box.maxY - eye[1], box.maxZ - eye[2]};
    const size_t stride = static_cast<size_t>(width);
    float* triBits = reinterpret_cast<float*>(tris);
    trace::forEachPacket<V>(
        width, height, dirs, [&](size_t base) { return L::load(dist + base, stride) > V(0.0f); },
        [&](const trace::TileGroup<V>& g, M mask, int code) {
            trace::PacketRay<V> ray;
            for (int c = 0; c < 3; ++c) {
                ray.o[c] = V(eye[c]);
                ray.d[c] = g.d[c];
            }
            ray.code = code;
            trace::packetReciprocals(ray);
            const V limit = L::load(dist + g.base, stride);
            V tNear(0.0f), tFar = limit;
            for (int c = 0; c < 3; ++c) {
                const V t0 = V(lo[c]) * ray.rcp[c], t1 = V(hi[c]) * ray.rcp[c];
                tNear = simd::max(simd::min(t0, t1), tNear);
                tFar = simd::min(simd::max(t0, t1), tFar);
            }
            mask = mask & (tNear < tFar);
            if (!simd::any(mask)) return;
            tFar = tFar + V(trace::kExitWidening);
            NearestHitLanes p{limit, V(0.0f), V(0.0f), trace::intLanes<V>(-1)};
            trace::traversePacket(ctx.pRootNode, ctx.pAccel, ray, tNear, tFar, mask, p);
            const M hit = L::signClear(p.tri);
            if (!simd::any(hit)) return;
            blendNearest(dist, hits, triBits, g.base, stride, p, hit);
        });
}

void intersectEyeRows(const float eye[3], const float* const dirs[3], float* dist,
                      float* const hits[2], int* tris, const VekrIntersectContext& ctx, int count)
{
    const VekrBox3D& box = *ctx.pBound;
    const float lo[3] = {box.minX - eye[0], box.minY - eye[1], box.minZ - eye[2]};
    const float hi[3] = {box.maxX - eye[0], box.maxY - eye[1], box.maxZ - eye[2]};
    using G = trace::RayGroup<V>;
    for (int first = 0; first < count; first += G::kLanes) {
        G g{first, count - first < G::kLanes ? count - first : G::kLanes, {}};
        for (int i = 0; i < g.n; ++i) tris[first + i] = -1;
        trace::PacketRay<V> ray;
        for (int c = 0; c < 3; ++c) {
            ray.o[c] = V(eye[c]);
            ray.d[c] = g.read(dirs[c]);
        }
        const V limit = g.read(dist);
        V tNear(0.0f), tFar = limit;
        int sign[3];
        const M in = trace::enterBoxSharedLanes(lo, hi, ray, tNear, tFar, L::fromBits((1 << g.n) - 1), sign);
        const int bits = simd::movemask(in);
        if (!bits) continue;
        tFar = tFar + V(trace::kExitWidening);
        NearestHitRays p{limit, V(0.0f), V(0.0f), trace::intLanes<V>(-1)};
        trace::traceNearestGroup(g, ray, tNear, tFar, bits, sign, p, ctx, dist, hits, tris);
    }
}

}  // namespace VEKR_ISA_NS
}  // namespace vekr
