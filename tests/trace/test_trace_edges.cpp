// Exact boundaries of the intersection functions, on hand-made scenes in one
// leaf (triangles tested in index order): rays through edges and vertices,
// triangles closer than the own-origin margin in either order, ends of
// segments, limits, masks and the end of the layers.  Every row runs on the
// single-ray path and as a 4x4 packet at every instruction-set level.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cctype>
#include <cstring>

#include "trace_scene.h"
#include "trace/intersect.h"

namespace {

using namespace vekr::test;
using vekr::Isa;

enum class Fn { Nearest, Any, Own, Layers };

struct Row {
    const char* name;
    Fn fn;
    std::vector<float> vertices;  // one triangle per three vertices, in index order
    float o[3], d[3];
    float limit;                  // the distance going in (any hit: the mask going in)
    std::vector<int> tri;         // per layer
    std::vector<float> dist;      // per layer; NaN: the value going in, bit for bit
    bool singleOnly = false;      // the packet's refined reciprocals may fall on either side
};

const float kKeep = std::nanf("");
// Unit triangles in the plane z = h: A = (-1,-1), B = (1,-1), C = (0,1), and
// the two halves of the square [-1,1]^2 that share the diagonal x = y.
std::vector<float> tri(float h) { return {-1, -1, h, 1, -1, h, 0, 1, h}; }
std::vector<float> cat(std::vector<float> a, const std::vector<float>& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
const std::vector<float> kHalves = {-1, -1, 0, 1, -1, 0, 1, 1, 0, -1, -1, 0, 1, 1, 0, -1, 1, 0};
const std::vector<float> kHalvesSwapped = {-1, -1, 0, 1, 1, 0, -1, 1, 0, -1, -1, 0, 1, -1, 0, 1, 1, 0};

const Row kRows[] = {
    {"back face is hit", Fn::Nearest, tri(0), {0.1f, 0, -2}, {0, 0, 1}, 1e30f, {0}, {2}},
    {"eye on the triangle: t = 0 is no hit", Fn::Nearest, tri(0), {0.1f, 0, 0}, {0, 0, 1}, 1e30f, {-1}, {kKeep}},
    {"limit below the hit", Fn::Nearest, tri(0), {0.1f, 0, 2}, {0, 0, -1}, 1.5f, {-1}, {kKeep}},
    {"limit zero", Fn::Nearest, tri(0), {0.1f, 0, 2}, {0, 0, -1}, 0.0f, {-1}, {kKeep}},
    {"limit minus zero", Fn::Nearest, tri(0), {0.1f, 0, 2}, {0, 0, -1}, -0.0f, {-1}, {kKeep}},
    {"negative limit", Fn::Nearest, tri(0), {0.1f, 0, 2}, {0, 0, -1}, -1.0f, {-1}, {kKeep}},
    {"shared edge: the first listed", Fn::Nearest, kHalves, {0.25f, 0.25f, 2}, {0, 0, -1}, 1e30f, {0}, {2}},
    {"shared edge, order swapped", Fn::Nearest, kHalvesSwapped, {0.25f, 0.25f, 2}, {0, 0, -1}, 1e30f, {0}, {2}},
    {"shared vertex", Fn::Nearest, kHalves, {1, 1, 2}, {0, 0, -1}, 1e30f, {0}, {2}},
    {"shared edge, own origin", Fn::Own, kHalvesSwapped, {-0.5f, -0.5f, 2}, {0, 0, -1}, 1e30f, {0}, {2}},
    {"4e-6 apart, far first: the nearer", Fn::Nearest, cat(tri(1), tri(1.000004f)), {0.1f, 0, 3}, {0, 0, -1}, 1e30f, {1}, {1.999996f}},
    {"4e-6 apart, near first: the nearer", Fn::Nearest, cat(tri(1.000004f), tri(1)), {0.1f, 0, 3}, {0, 0, -1}, 1e30f, {0}, {1.999996f}},
    {"4e-6 apart, far first, own origin: the first", Fn::Own, cat(tri(1), tri(1.000004f)), {0.1f, 0, 3}, {0, 0, -1}, 1e30f, {0}, {2}},
    {"4e-6 apart, near first, own origin", Fn::Own, cat(tri(1.000004f), tri(1)), {0.1f, 0, 3}, {0, 0, -1}, 1e30f, {0}, {1.999996f}},
    {"2e-5 apart, far first, own origin: the nearer", Fn::Own, cat(tri(1), tri(1.00002f)), {0.1f, 0, 3}, {0, 0, -1}, 1e30f, {1}, {1.99998f}},
    {"own origin on the surface", Fn::Own, cat(tri(0), tri(-1)), {0.1f, 0, 0}, {0, 0, -1}, 1e30f, {1}, {1}},
    {"nearly in the plane: hit", Fn::Nearest, tri(0), {-0.5f, 0, -5e-7f}, {1, 0, 1e-6f}, 1e30f, {0}, {0.5f}},
    {"nearly in the plane, own origin: no hit", Fn::Own, tri(0), {-0.5f, 0, -5e-7f}, {1, 0, 1e-6f}, 1e30f, {-1}, {kKeep}},
    {"blocker inside the segment", Fn::Any, tri(1), {0.1f, 0, 0}, {0, 0, 2}, 0, {0}, {}},
    {"blocker at the end", Fn::Any, tri(1), {0.1f, 0, 0}, {0, 0, 1}, 0, {-1}, {}, true},
    {"blocker just past the end", Fn::Any, tri(1), {0.1f, 0, 0}, {0, 0, 0.99995f}, 0, {-1}, {}},
    {"blocker just before the end", Fn::Any, tri(1), {0.1f, 0, 0}, {0, 0, 1.00005f}, 0, {0}, {}},
    {"blocker at the start", Fn::Any, tri(0), {0.1f, 0, 0}, {0, 0, 1}, 0, {-1}, {}},
    {"mask 0 is active", Fn::Any, tri(1), {0.1f, 0, 0}, {0, 0, 2}, 0, {0}, {}},
    {"masked ray", Fn::Any, tri(1), {0.1f, 0, 0}, {0, 0, 2}, -5, {-1}, {}},
    {"two blockers: the first listed, not the nearer", Fn::Any, cat(tri(1.5f), tri(0.5f)), {0.1f, 0, 0}, {0, 0, 2}, 3, {0}, {}},
    {"segment beside the box", Fn::Any, tri(1), {10, 10, 10}, {1, 0, 0}, 0, {-1}, {}},
    {"two hits, then the end", Fn::Layers, cat(tri(1), tri(0)), {0.1f, 0, 2}, {0, 0, -1}, 1e30f, {0, 1, -1, -1}, {1, 2, FLT_MAX, kKeep}},
    {"layers from inside", Fn::Layers, cat(tri(1), cat(tri(0), tri(-1))), {0.1f, 0, 0.5f}, {0, 0, -1}, 1e30f, {1, 2, -1}, {0.5f, 1.5f, FLT_MAX}},
    {"no triangles", Fn::Nearest, {}, {0, 0, 1}, {0, 0, -1}, 1e30f, {-1}, {kKeep}},
    {"no triangles, own origin", Fn::Own, {}, {0, 0, 1}, {0, 0, -1}, 1e30f, {-1}, {kKeep}},
    {"no triangles, any hit", Fn::Any, {}, {0, 0, 1}, {0, 0, -1}, 0, {-1}, {}},
    {"no triangles, layers", Fn::Layers, {}, {0, 0, 1}, {0, 0, -1}, 1e30f, {-1, -1}, {kKeep, kKeep}},
};

Mesh meshOf(const std::vector<float>& v)
{
    Mesh m;
    m.vertices = v;
    for (int t = 0; t < int(v.size()) / 9; ++t) m.triangles.insert(m.triangles.end(), {3 * t, 3 * t + 1, 3 * t + 2, -77});
    if (v.empty()) m.vertices = {0, 0, 0};  // the box needs a point
    return m;
}

void PrintTo(const Row& r, std::ostream* os) { *os << r.name; }

class TraceEdges : public testing::TestWithParam<Row> {};

TEST_P(TraceEdges, SingleRayAndPacketsAtEveryLevel)
{
    const Row& row = GetParam();
    const Scene sc(meshOf(row.vertices), TreeParams{VEKR_KDTREE_SIMPLE_MAGIC, 0, 0, 0});
    ASSERT_EQ(sc.status(), vekStsOk);
    const int layers = int(row.tri.size());
    std::vector<Isa> levels = supportedIsas();
    for (int path = -1; path < (row.singleOnly ? 0 : int(levels.size())); ++path) {
        SCOPED_TRACE(path < 0 ? "single-ray path" : vekr::isaName(levels[path]));
        const int n = 16, shift = path < 0 ? 1 : 0;
        const Isa isa = path < 0 ? levels.back() : levels[path];
        Aligned<float> o[3], d[3], dist(n * layers + 1, row.limit), u(n * layers + 1, -7), v(n * layers + 1, -7);
        Aligned<int> tris(n * layers + 1, 55), mask(n + 1, int(row.limit));
        const float* op[3];
        const float* dp[3];
        for (int c = 0; c < 3; ++c) {
            o[c].resize(n + 1, row.o[c]);
            d[c].resize(n + 1, row.d[c]);
            op[c] = o[c].data() + shift;
            dp[c] = d[c].data() + shift;
        }
        float* hits[2] = {u.data() + shift, v.data() + shift};
        const VekSize size = path < 0 ? VekSize{n, 1} : VekSize{4, 4};
        float* distp = dist.data() + shift;
        int* trip = tris.data() + shift;
        switch (row.fn) {
        case Fn::Nearest: vekr::trace::intersectEye(isa, row.o, dp, distp, hits, trip, sc.ctx(), size); break;
        case Fn::Own: vekr::trace::intersectOwn(isa, op, dp, distp, hits, trip, sc.ctx(), size); break;
        case Fn::Any: vekr::trace::intersectAny(isa, row.o, dp, trip, mask.data() + shift, size, sc.ctx()); break;
        case Fn::Layers:
            vekr::trace::intersectLayers(isa, row.o, dp, distp, hits, trip, VekrHitBlockSize{size.width, size.height, layers}, sc.ctx());
            break;
        }
        for (int k = 0; k < n; ++k)
            for (int l = 0; l < layers; ++l) {
                const size_t at = size_t(l) * n + k;
                EXPECT_EQ(trip[at], row.tri[l]) << "ray " << k << " layer " << l;
                if (row.fn == Fn::Any) {
                    EXPECT_EQ(mask[k + shift], row.tri[0] >= 0 ? -1 : int(row.limit)) << "ray " << k;
                } else if (std::isnan(row.dist[l])) {
                    EXPECT_EQ(std::memcmp(&distp[at], &row.limit, 4), 0) << "ray " << k << " layer " << l;
                    EXPECT_EQ(hits[0][at], -7.0f);
                } else {
                    EXPECT_NEAR(distp[at], row.dist[l], 2e-6f * row.dist[l]) << "ray " << k << " layer " << l;
                }
            }
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, TraceEdges, testing::ValuesIn(kRows), [](const testing::TestParamInfo<Row>& i) {
    std::string s;
    for (const char* c = i.param.name; *c; ++c) s += std::isalnum(static_cast<unsigned char>(*c)) ? *c : '_';
    return s;
});

}  // namespace
