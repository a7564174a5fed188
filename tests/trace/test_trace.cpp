// The four intersection functions (nearest hit, any hit, own origins,
// successive hits) on every scene and ray set, on the single-ray path and on
// the packet path at every instruction-set level (16-lane packets: one
// register with AVX-512, two halves with AVX2), against a brute-force
// reference over all triangles in double precision from the vertices; the
// single-ray path, rays side by side in vector lanes, must give the bits of
// the one-ray code at every level.  Rays
// whose answer lies within a narrow band of a tie (an edge, a vertex, two
// triangles at nearly one distance, an end of the segment, a triangle seen
// edge-on) may go either way; for them only the validity of what is reported
// is checked.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <functional>
#include <random>

#include "trace_scene.h"
#include "trace/intersect.h"

namespace {

using namespace vekr::test;
using vekr::Isa;

constexpr int kW = 16, kH = 8, kN = kW * kH;
constexpr float kUnset = -7.0f;  // u and v before the call
const float kTiny[] = {0.0f, -0.0f, 1e-9f, -1e-9f, 1e-30f, -1e-30f};

// ---- the reference ------------------------------------------------------------------

struct Cross {
    double t, u, v, margin;  // u, v: weights of the first and second vertex
    bool edgeOn;             // the ray lies (nearly) in the triangle's plane
    int tri;
};

// Every triangle the line o + t d meets or nearly meets, by distance.
std::vector<Cross> crossings(const Mesh& m, const double o[3], const double d[3])
{
    std::vector<Cross> out;
    const double dl = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    for (int t = 0; t < m.triangleCount(); ++t) {
        double p[3][3];
        for (int k = 0; k < 3; ++k)
            for (int c = 0; c < 3; ++c) p[k][c] = m.vertices[3 * m.triangles[4 * t + k] + c];
        double e1[3], e2[3], s[3];
        for (int c = 0; c < 3; ++c) {
            e1[c] = p[0][c] - p[2][c];
            e2[c] = p[1][c] - p[2][c];
            s[c] = o[c] - p[2][c];
        }
        const double n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2],
                             e1[0] * e2[1] - e1[1] * e2[0]};
        const double nl = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        if (nl == 0) continue;  // no area: never hit
        // o + t d = C + u e1 + v e2, by Cramer's rule.
        const double q[3] = {d[1] * e2[2] - d[2] * e2[1], d[2] * e2[0] - d[0] * e2[2],
                             d[0] * e2[1] - d[1] * e2[0]};
        const double det = e1[0] * q[0] + e1[1] * q[1] + e1[2] * q[2];
        const double cosine = std::fabs(n[0] * d[0] + n[1] * d[1] + n[2] * d[2]) / (nl * dl);
        if (det == 0) continue;
        const double r[3] = {s[1] * e1[2] - s[2] * e1[1], s[2] * e1[0] - s[0] * e1[2],
                             s[0] * e1[1] - s[1] * e1[0]};
        const double u = (s[0] * q[0] + s[1] * q[1] + s[2] * q[2]) / det;
        const double v = (d[0] * r[0] + d[1] * r[1] + d[2] * r[2]) / det;
        const double tt = (e2[0] * r[0] + e2[1] * r[1] + e2[2] * r[2]) / det;
        const double margin = std::min({u, v, 1 - u - v});
        if (margin < -1e-3 || !std::isfinite(tt)) continue;
        out.push_back({tt, u, v, margin, cosine < 2e-5, t});
    }
    std::sort(out.begin(), out.end(), [](const Cross& a, const Cross& b) { return a.t < b.t; });
    return out;
}

constexpr double kEdge = 2e-4;  // barycentric band around edges and vertices
double distBand(double t) { return 2e-4 * std::fabs(t) + 3e-5; }
bool inside(const Cross& c) { return c.margin >= 0; }
bool grazes(const Cross& c) { return std::fabs(c.margin) < kEdge || c.edgeOn; }

// What a nearest-hit search in (0, limit) must report, or robust = false.
struct Expect {
    int tri = -1;
    double t = 0, u = 0, v = 0;
    bool robust = true;
};

Expect nearest(const std::vector<Cross>& cs, double limit)
{
    Expect e;
    const Cross* best = nullptr;
    for (const Cross& c : cs)
        if (inside(c) && !c.edgeOn && c.t > 0 && c.t < limit) {
            best = &c;
            break;
        }
    const double reach = best ? best->t + distBand(best->t) : limit + distBand(limit);
    for (const Cross& c : cs) {
        if (c.t > reach) break;
        if (&c == best || c.t < -distBand(c.t)) continue;
        if (grazes(c) || std::fabs(c.t) < distBand(c.t) || inside(c)) e.robust = false;
    }
    if (best) {
        e = Expect{best->tri, best->t, best->u, best->v, e.robust && best->margin >= kEdge};
        if (std::fabs(best->t - limit) < distBand(limit) || best->t < 2 * distBand(0)) e.robust = false;
    }
    return e;
}

// ---- ray sets ------------------------------------------------------------------------

struct RaySet {
    std::string name;
    bool shared = true;   // one origin for all rays
    float o[3][kN];       // origins (all equal when shared)
    float d[3][kN];       // directions; for the any-hit test the whole segment
    float limit[kN];      // the distance limit going in
    std::vector<std::vector<Cross>> refs;

    void reference(const Mesh& m)
    {
        refs.resize(kN);
        for (int k = 0; k < kN; ++k) {
            const double oo[3] = {o[0][k], o[1][k], o[2][k]}, dd[3] = {d[0][k], d[1][k], d[2][k]};
            refs[k] = crossings(m, oo, dd);
        }
    }
};

double lerp(float a, float b, double f) { return a + (b - a) * f; }

// Rays from one point towards random points of the box (segments ending there).
RaySet towards(const std::string& name, const VekrBox3D& b, const double at[3], uint32_t seed,
               double spread = 1.0)
{
    RaySet s;
    s.name = name;
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> f(0.5 - spread / 2, 0.5 + spread / 2);
    const float lo[3] = {b.minX, b.minY, b.minZ}, hi[3] = {b.maxX, b.maxY, b.maxZ};
    for (int k = 0; k < kN; ++k) {
        for (int c = 0; c < 3; ++c) {
            s.o[c][k] = float(lerp(lo[c], hi[c], at[c]));
            s.d[c][k] = float(lerp(lo[c], hi[c], f(rng)) - s.o[c][k]);
        }
        s.limit[k] = 1e30f;
    }
    return s;
}

// The scene's standard ray sets: from outside, from inside, with axis-parallel
// components, with finite limits, and rays with their own origins (random
// ones, and ones starting on the surfaces just hit).
std::vector<RaySet> raySets(const Scene& sc, uint32_t seed)
{
    const VekrBox3D& b = sc.box();
    std::vector<RaySet> sets;
    const double outside[3] = {0.3, 0.8, 2.6}, in[3] = {0.45, 0.52, 0.48}, corner[3] = {1.4, -0.3, -0.6};
    sets.push_back(towards("outside", b, outside, seed));
    sets.push_back(towards("inside", b, in, seed + 1, 1.6));
    sets.push_back(towards("corner", b, corner, seed + 2));
    // Axis-parallel: one component of each ray (two on every fifth ray) from
    // the tiny values, shared origin; then own origins outside the box on one
    // axis and inside its slab on the other two, moving along that axis.
    std::mt19937 rng(seed + 3);
    const float cosHalfPi = std::cos(float(M_PI / 2));  // about -4.37e-8
    auto tiny = [&] {
        const int pick = int(rng() % 7);
        return pick < 6 ? kTiny[pick] : cosHalfPi;
    };
    RaySet axis = towards("axis-parallel", b, outside, seed + 3);
    for (int k = 0; k < kN; ++k) {
        axis.d[k % 2][k] = tiny();  // never z: the eye lies beyond the box on z
        if (k % 5 == 0) axis.d[1 - k % 2][k] = tiny();
    }
    sets.push_back(axis);
    RaySet along = towards("axis-parallel own origins", b, outside, seed + 4);
    along.shared = false;
    const float lo[3] = {b.minX, b.minY, b.minZ}, hi[3] = {b.maxX, b.maxY, b.maxZ};
    for (int k = 0; k < kN; ++k) {
        const int main = k % 3;
        for (int c = 0; c < 3; ++c) {
            along.d[c][k] = c == main ? ((k / 3) % 2 ? -1.0f : -2.0f) : tiny();
            along.o[c][k] = c == main ? hi[c] + 0.5f * (hi[c] - lo[c])
                                      : float(lerp(lo[c], hi[c], 0.1 + 0.8 * (rng() % 1000) / 1000.0));
        }
    }
    sets.push_back(along);
    RaySet limits = towards("limits", b, outside, seed + 4);
    const float special[] = {0.0f, -0.0f, -1.0f};
    for (int k = 0; k < kN; ++k) {
        std::uniform_real_distribution<float> f(0.0f, 1.2f);
        limits.limit[k] = k % 8 < 3 ? special[k % 8] : f(rng);  // directions end in the box at 1
    }
    sets.push_back(limits);
    // Own origins: random points in and around the box, random directions.
    RaySet own = towards("own origins", b, in, seed + 5);
    own.shared = false;
    std::normal_distribution<float> g(0.0f, 1.0f);
    for (int k = 0; k < kN; ++k)
        for (int c = 0; c < 3; ++c) {
            own.o[c][k] = float(lerp(lo[c], hi[c], -0.2 + 1.4 * (rng() % 1000) / 1000.0));
            own.d[c][k] = g(rng);
        }
    sets.push_back(own);
    // Reflection-like rays: from the surfaces the first set hits.
    RaySet bounce = own;
    bounce.name = "from surfaces";
    RaySet& first = sets[0];
    first.reference(sc.mesh());
    for (int k = 0; k < kN; ++k) {
        const Expect e = nearest(first.refs[k], 1e30);
        if (e.tri < 0) continue;
        for (int c = 0; c < 3; ++c) bounce.o[c][k] = float(first.o[c][k] + e.t * first.d[c][k]);
    }
    sets.push_back(bounce);
    for (RaySet& s : sets) s.reference(sc.mesh());
    return sets;
}

// ---- running the library ---------------------------------------------------------------

enum class Fn { Nearest, Any, Own, Layers };
const char* fnName(Fn f)
{
    return f == Fn::Nearest ? "nearest" : f == Fn::Any ? "any hit" : f == Fn::Own ? "own origins" : "layers";
}

// One call's arrays: at a 16-byte boundary (packet path) or one element past
// it (single-ray path).
struct Run {
    int layers;
    Aligned<float> o[3], d[3], dist, u, v;
    Aligned<int> tri, mask;
    int shift;
    Run(const RaySet& s, int layerCount, bool packet, uint32_t maskSeed)
        : layers(layerCount), shift(packet ? 0 : 1)
    {
        const size_t all = size_t(kN) * layers + 1;
        for (int c = 0; c < 3; ++c) {
            o[c].resize(kN + 1);
            d[c].resize(kN + 1);
            for (int k = 0; k < kN; ++k) {
                o[c][k + shift] = s.o[c][k];
                d[c][k + shift] = s.d[c][k];
            }
        }
        dist.resize(all, 1e30f);
        u.resize(all, kUnset);
        v.resize(all, kUnset);
        tri.resize(all, 1234);
        mask.resize(kN + 1);
        std::mt19937 rng(maskSeed);
        for (int k = 0; k < kN; ++k) {
            dist[k + shift] = s.limit[k];
            const int r = int(rng() % 8);
            mask[k + shift] = r == 0 ? -5 : r == 1 ? INT32_MIN : r == 2 ? 0 : r;  // 0 is active
        }
    }
    const float* cp(Aligned<float>* a, int c) { return a[c].data() + shift; }
    // literal: the one-ray code itself rather than the dispatch at a level.
    void call(Fn f, Isa isa, const RaySet& s, bool literal = false)
    {
        const float* dirs[3] = {cp(d, 0), cp(d, 1), cp(d, 2)};
        const float* origins[3] = {cp(o, 0), cp(o, 1), cp(o, 2)};
        const float origin[3] = {s.o[0][0], s.o[1][0], s.o[2][0]};
        float* hits[2] = {u.data() + shift, v.data() + shift};
        const VekSize size{shift ? kN : kW, shift ? 1 : kH};
        if (literal) {
            using namespace vekr::trace;
            if (f == Fn::Layers) std::fill(tri.data() + shift, tri.data() + shift + size_t(kN) * layers, -1);
            if (f == Fn::Nearest) intersectEyeRays(origin, dirs, dist.data() + shift, hits, tri.data() + shift, *ctx, kN);
            if (f == Fn::Any) intersectAnyRays(origin, dirs, tri.data() + shift, mask.data() + shift, *ctx, kN);
            if (f == Fn::Own) intersectOwnRays(origins, dirs, dist.data() + shift, hits, tri.data() + shift, *ctx, kN);
            if (f == Fn::Layers) intersectLayersRays(origin, dirs, dist.data() + shift, hits, tri.data() + shift, *ctx, kN, layers);
            return;
        }
        switch (f) {
        case Fn::Nearest:
            vekr::trace::intersectEye(isa, origin, dirs, dist.data() + shift, hits, tri.data() + shift, *ctx, size);
            break;
        case Fn::Any:
            vekr::trace::intersectAny(isa, origin, dirs, tri.data() + shift, mask.data() + shift, size, *ctx);
            break;
        case Fn::Own:
            vekr::trace::intersectOwn(isa, origins, dirs, dist.data() + shift, hits, tri.data() + shift, *ctx, size);
            break;
        case Fn::Layers:
            vekr::trace::intersectLayers(isa, origin, dirs, dist.data() + shift, hits, tri.data() + shift,
                                         VekrHitBlockSize{size.width, size.height, layers}, *ctx);
            break;
        }
    }
    // Everything the call wrote, as bit patterns.
    std::vector<uint32_t> written() const
    {
        const size_t all = size_t(kN) * layers + 1;
        std::vector<uint32_t> w(4 * all + kN + 1);
        const void* from[] = {dist.data(), u.data(), v.data(), tri.data()};
        for (int i = 0; i < 4; ++i) std::memcpy(w.data() + i * all, from[i], all * 4);
        std::memcpy(w.data() + 4 * all, mask.data(), (kN + 1) * 4);
        return w;
    }
    const VekrIntersectContext* ctx = nullptr;
    float fdist(int l, int k) { return dist[size_t(l) * kN + k + shift]; }
    float fu(int l, int k) { return u[size_t(l) * kN + k + shift]; }
    float fv(int l, int k) { return v[size_t(l) * kN + k + shift]; }
    int ftri(int l, int k) { return tri[size_t(l) * kN + k + shift]; }
};

// ---- checking one call ---------------------------------------------------------------------

struct Tally {
    int robust = 0, hits = 0, rays = 0;
};

bool sameFloat(float a, float b) { return std::memcmp(&a, &b, 4) == 0; }

// A reported hit that is at least plausible: a triangle the ray meets (or
// nearly meets) at about the reported distance.
bool plausible(const std::vector<Cross>& cs, int tri, double t)
{
    for (const Cross& c : cs)
        if (c.tri == tri && c.margin > -kEdge && std::fabs(c.t - t) <= distBand(c.t)) return true;
    return false;
}

void checkHit(const Expect& e, Run& r, int l, int k, const std::vector<Cross>& cs, Tally& tally)
{
    const int tri = r.ftri(l, k);
    if (!e.robust) {
        EXPECT_TRUE(tri < 0 || plausible(cs, tri, r.fdist(l, k))) << "ray " << k << " layer " << l << " tri " << tri;
        return;
    }
    ASSERT_EQ(tri, e.tri) << "ray " << k << " layer " << l;
    if (tri < 0) return;
    ++tally.hits;
    // Well inside its triangle a hit's distance and coordinates are exact to
    // the float precision of the records (and of the refined reciprocals).
    EXPECT_NEAR(r.fdist(l, k), e.t, 1e-5 * e.t + 1e-6) << "ray " << k << " layer " << l;
    EXPECT_NEAR(r.fu(l, k), e.u, 1e-4) << "ray " << k;
    EXPECT_NEAR(r.fv(l, k), e.v, 1e-4) << "ray " << k;
}

bool tinyNegative(const RaySet& s, int k)
{
    for (int c = 0; c < 3; ++c)
        if (s.d[c][k] < 0 && s.d[c][k] >= -1.1920929e-7f) return true;
    return false;
}

void checkNearest(Fn f, const RaySet& s, Run& r, Tally& tally)
{
    for (int k = 0; k < kN; ++k) {
        SCOPED_TRACE(testing::Message() << "ray " << k << " o (" << s.o[0][k] << ", " << s.o[1][k] << ", " << s.o[2][k]
                                        << ") d (" << s.d[0][k] << ", " << s.d[1][k] << ", " << s.d[2][k] << ")");
        const std::vector<Cross>& cs = s.refs[k];
        ++tally.rays;
        const float limit = s.limit[k];
        Expect e = nearest(cs, limit > 0 ? limit : 0);
        if (f == Fn::Own) {
            // A later candidate replaces the nearest only when nearer by more than 1e-5.
            for (const Cross& c : cs)
                if (e.tri >= 0 && c.tri != e.tri && inside(c) && std::fabs(c.t - e.t) < 1e-5 + distBand(e.t)) e.robust = false;
        }
        tally.robust += e.robust;
        checkHit(e, r, 0, k, cs, tally);
        if (e.robust && e.tri < 0) {
            EXPECT_TRUE(sameFloat(r.fdist(0, k), limit)) << "a miss changed the distance";
            EXPECT_EQ(r.fu(0, k), kUnset);
            EXPECT_EQ(r.fv(0, k), kUnset);
        }
    }
}

void checkAny(const RaySet& s, Run& r, const std::vector<int>& maskIn, Tally& tally)
{
    for (int k = 0; k < kN; ++k) {
        const std::vector<Cross>& cs = s.refs[k];
        const int tri = r.ftri(0, k), m = r.mask[k + r.shift];
        if (maskIn[k] < 0) {
            EXPECT_EQ(tri, -1) << "ray " << k;
            EXPECT_EQ(m, maskIn[k]) << "ray " << k;
            continue;
        }
        bool blocked = false, robust = true;
        for (const Cross& c : cs) {
            if (c.t < -distBand(c.t) || c.t > 1 + distBand(1)) continue;
            if (inside(c) && !c.edgeOn && c.t > 0 && c.t < 1) blocked = true;
            if (grazes(c) || std::fabs(c.t) < distBand(c.t) || std::fabs(c.t - 1) < distBand(1)) robust = false;
        }
        if (tri >= 0) {
            EXPECT_EQ(m, -1) << "ray " << k;
            bool valid = false;  // the reported triangle lies on the segment
            for (const Cross& c : cs)
                valid |= c.tri == tri && c.margin > -kEdge && c.t > -distBand(c.t) && c.t < 1 + distBand(1);
            EXPECT_TRUE(valid) << "ray " << k << " reports " << tri;
        } else {
            EXPECT_EQ(m, maskIn[k]) << "ray " << k;
        }
        if (tinyNegative(s, k)) continue;  // the any-hit test's sign asymmetry: any valid blocker will do
        ++tally.rays;
        if (!robust) continue;
        ++tally.robust;
        tally.hits += blocked;
        EXPECT_EQ(tri >= 0, blocked) << "ray " << k;
    }
}

void checkLayers(const RaySet& s, Run& r, Tally& tally)
{
    for (int k = 0; k < kN; ++k) {
        const std::vector<Cross>& cs = s.refs[k];
        ++tally.rays;
        std::vector<const Cross*> hits;
        bool robust = true;
        for (const Cross& c : cs) {
            if (c.t < -1e-3) continue;
            if (grazes(c) || c.t < 1e-3) robust = false;
            if (inside(c) && c.t > 0) {
                if (!hits.empty() && c.t - hits.back()->t < 2e-3 * c.t + 1e-4) robust = false;
                hits.push_back(&c);
            }
        }
        // Layer invariants on every ray: distinct neighbours, distances not decreasing.
        for (int l = 1; l < r.layers; ++l) {
            if (r.ftri(l, k) < 0) continue;
            ASSERT_GE(r.ftri(l - 1, k), 0) << "ray " << k << " layer " << l;
            EXPECT_NE(r.ftri(l, k), r.ftri(l - 1, k)) << "ray " << k << " layer " << l;
            EXPECT_GE(r.fdist(l, k), r.fdist(l - 1, k)) << "ray " << k << " layer " << l;
        }
        if (!robust) continue;
        ++tally.robust;
        const int nh = int(hits.size());
        for (int l = 0; l < r.layers; ++l) {
            if (l < nh) {
                const Expect e{hits[l]->tri, hits[l]->t, hits[l]->u, hits[l]->v, true};
                checkHit(e, r, l, k, cs, tally);
            } else {
                EXPECT_EQ(r.ftri(l, k), -1) << "ray " << k << " layer " << l;
                // The layer after the last hit gets the largest float; later ones keep their value.
                const float want = (l == nh && l > 0) ? FLT_MAX : 1e30f;
                EXPECT_EQ(r.fdist(l, k), want) << "ray " << k << " layer " << l;
            }
        }
    }
}

// ---- the harness ----------------------------------------------------------------------------

struct SceneCase {
    std::string name;
    std::function<Mesh()> mesh;
    TreeParams tree;
};

void traceEverything(const Scene& sc, uint32_t seed)
{
    ASSERT_EQ(sc.status(), vekStsOk);
    const std::vector<RaySet> sets = raySets(sc, seed);
    for (Fn f : {Fn::Nearest, Fn::Any, Fn::Own, Fn::Layers})
        for (const RaySet& s : sets) {
            if (!s.shared && f != Fn::Own) continue;
            if (f == Fn::Layers && s.name == "limits") continue;
            // The one-ray code, then the single-ray path and the packet path
            // at every level.
            const std::vector<Isa> levels = supportedIsas();
            const int nl = int(levels.size());
            std::vector<uint32_t> oneRay;
            for (int path = -1; path < 2 * nl; ++path) {
                const bool packet = path >= nl;
                SCOPED_TRACE(testing::Message() << fnName(f) << ", " << s.name << ", "
                                                << (path < 0 ? "one-ray code" : packet ? "packet path " : "single-ray path ")
                                                << (path < 0 ? "" : vekr::isaName(levels[path % nl])));
                const int layers = f == Fn::Layers ? (seed % 2 ? 12 : 5) : 1;
                Run r(s, layers, packet, seed);
                r.ctx = &sc.ctx();
                std::vector<int> maskIn(kN);
                for (int k = 0; k < kN; ++k) maskIn[k] = r.mask[k + r.shift];
                r.call(f, levels[(path + nl) % nl], s, path < 0);
                if (path < 0) oneRay = r.written();
                if (path >= 0 && !packet) {
                    EXPECT_TRUE(r.written() == oneRay) << "single-ray path differs from the one-ray code";
                }
                Tally tally;
                if (f == Fn::Any) checkAny(s, r, maskIn, tally);
                else if (f == Fn::Layers) checkLayers(s, r, tally);
                else checkNearest(f, s, r, tally);
                if (testing::Test::HasFatalFailure()) return;
                if (s.name != "limits" && s.name != "from surfaces") {
                    EXPECT_GT(tally.robust, tally.rays * 6 / 10) << "too few rays away from ties";
                    EXPECT_GT(tally.hits, 0);
                }
            }
        }
}

void PrintTo(const SceneCase& c, std::ostream* os) { *os << c.name; }

class Trace : public testing::TestWithParam<SceneCase> {};

TEST_P(Trace, EveryFunctionPathAndLevelMatchesBruteForce)
{
    const SceneCase& c = GetParam();
    const Mesh m = c.mesh();
    if (m.triangleCount() == 0) GTEST_SKIP() << "mesh not available";
    const Scene sc(m, c.tree);
    traceEverything(sc, uint32_t(std::hash<std::string>()(c.name)));
}

Mesh soup(int n, uint32_t seed, float size) { return randomTriangles(n, seed, size); }

INSTANTIATE_TEST_SUITE_P(
    Scenes, Trace,
    testing::Values(
        SceneCase{"soup_cost_full", [] { return soup(600, 1, 0.2f); }, {}},
        SceneCase{"soup_cost_loose", [] { return soup(600, 2, 0.25f); }, {VEKR_KDTREE_SAH_MAGIC, 50, 1.0f, 256}},
        SceneCase{"soup_cost_shallow", [] { return soup(400, 3, 0.3f); }, {VEKR_KDTREE_SAH_MAGIC, 5, 1.0f, 64}},
        SceneCase{"soup_one_leaf", [] { return soup(150, 4, 0.3f); }, {VEKR_KDTREE_SIMPLE_MAGIC, 0, 0.0f, 0}},
        SceneCase{"coplanar_squares", [] { return gridOfSquares(10); }, {}},
        SceneCase{"coplanar_squares_depth12", [] { return gridOfSquares(10); }, {VEKR_KDTREE_SAH_MAGIC, 12, 0.0f, 128}},
        SceneCase{"bunny", [] { return bunnyMesh() ? *bunnyMesh() : Mesh{}; }, {}}),
    [](const testing::TestParamInfo<SceneCase>& i) { return i.param.name; });

}  // namespace
