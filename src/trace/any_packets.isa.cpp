// Packet path of the any-hit test: a lane leaves its packet at its first blocker.

#include "trace/intersect.h"
#include "trace/packet_core.h"
#include "trace/ray_lanes.h"

namespace vekr {
namespace VEKR_ISA_NS {

namespace {

struct AnyHitLanes {
    V tri, lim;  // a blocked lane's limit drops to -inf so no pop revives it
    M skip(int, M mask) const { return mask; }
    M hit(int n, M mask, M inside, V den, V num, V, V)
    {
        const V t = num * simd::rcpNewton(den);
        const M take = inside & (t < V(1.0f)) & (t > V(0.0f));
        tri = simd::select(take, trace::intLanes<V>(n), tri);
        lim = simd::select(take, V(-__builtin_huge_valf()), lim);
        return simd::andnot(take, mask);
    }
    V limit() const { return lim; }
};

// The one-ray any-hit test (intersect_any.cpp), lane by lane.
struct AnyHitRays {
    static constexpr float kSplitTol = trace::kSplitTolNearest;
    V tri;
    M skip(int, M lanes) const { return lanes; }
    M hit(int n, M inside, V den, V num, V, V)
    {
        const V t = num / den;
        const M take = inside & (t < V(1.0f)) & (t > V(0.0f));
        tri = simd::select(take, trace::intLanes<V>(n), tri);
        return take;
    }
    V limit() const { return V(1.0f); }
};

}  // namespace

void intersectAnyPackets(const float origin[3], const float* const dirs[3], int* tris, int* mask,
                         const VekrIntersectContext& ctx, int width, int height)
{
    const size_t n = static_cast<size_t>(width) * static_cast<size_t>(height);
    for (size_t k = 0; k < n; ++k) tris[k] = -1;
    const size_t stride = static_cast<size_t>(width);
    float* triBits = reinterpret_cast<float*>(tris);
    float* maskBits = reinterpret_cast<float*>(mask);
    trace::forEachPacket<V>(
        width, height, dirs,
        [&](size_t base) { return L::signClear(L::load(maskBits + base, stride)); },
        [&](const trace::TileGroup<V>& g, M lanes, int code) {
            trace::PacketRay<V> ray;
            for (int c = 0; c < 3; ++c) {
                ray.o[c] = V(origin[c]);
                ray.d[c] = g.d[c];
            }
            ray.code = code;
            trace::packetReciprocals(ray, false);
            AnyHitLanes p{trace::intLanes<V>(-1), V(1.0f)};
            trace::traversePacket(ctx.pRootNode, ctx.pAccel, ray, V(0.0f), V(1.0001f), lanes, p);
            const M blocked = L::signClear(p.tri);
            if (!simd::any(blocked)) return;
            L::blend(triBits + g.base, stride, p.tri, blocked);
            L::blend(maskBits + g.base, stride, trace::intLanes<V>(-1), blocked);
        });
}

void intersectAnyRows(const float origin[3], const float* const dirs[3], int* tris, int* mask,
                      const VekrIntersectContext& ctx, int count)
{
    using G = trace::RayGroup<V>;
    for (int first = 0; first < count; first += G::kLanes) {
        G g{first, count - first < G::kLanes ? count - first : G::kLanes, {}};
        int bits = 0;
        for (int i = 0; i < g.n; ++i) {
            tris[first + i] = -1;
            bits |= (mask[first + i] >= 0) << i;
        }
        if (!bits) continue;
        trace::PacketRay<V> ray;
        int sign[3];
        for (int c = 0; c < 3; ++c) {
            // The sign comes from the sign alone, before the magnitude test.
            const V d = g.read(dirs[c]);
            ray.o[c] = V(origin[c]);
            ray.d[c] = d;
            sign[c] = simd::movemask(d < V(0.0f));
            ray.rcp[c] = simd::select(simd::abs(d) > V(trace::kParallelEps), V(1.0f) / d, V(trace::kParallelRcpOwn));
        }
        AnyHitRays p{trace::intLanes<V>(-1)};
        trace::forEachCode(bits, sign, [&](int code, int lanes) {
            ray.code = code;
            trace::traverseLanes(ctx.pRootNode, ctx.pAccel, ray, V(0.0f), V(1.0001f), L::fromBits(lanes), p);
        });
        const int blocked = simd::movemask(L::signClear(p.tri)) & bits;
        g.write(tris, p.tri, blocked);
        g.write(mask, trace::intLanes<V>(-1), blocked);
    }
}

}  // namespace VEKR_ISA_NS
}  // namespace vekr
