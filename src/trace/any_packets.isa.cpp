// Packet path of the any-hit test: a lane leaves its packet at its first blocker.
#include <limits>

#include "trace/packet_core.h"
#include "trace/packet_width.h"
#include "trace/packets.h"

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
        lim = simd::select(take, V(-std::numeric_limits<float>::infinity()), lim);
        return simd::andnot(take, mask);
    }
    V limit() const { return lim; }
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

}  // namespace VEKR_ISA_NS
}  // namespace vekr
