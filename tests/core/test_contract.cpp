// The argument checks of every export that has any: one row per argument made
// bad, with the status it must give.  All outputs of every call live in one
// sentinel-filled arena, and each row also proves that a refused call (and a
// call with nothing to do) wrote nothing there.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "testutil.h"
#include "volume_calls.h"
#include "vekr.h"

namespace {

using namespace vekr::test;
const float kNaN = std::numeric_limits<float>::quiet_NaN();
const double kDNaN = std::numeric_limits<double>::quiet_NaN();

// Valid inputs for every family, and the arena that holds all outputs.
struct Env {
    static constexpr size_t kRegion = 64 * 1024, kRegions = 24;
    static constexpr uint8_t kSentinel = 0xA5;
    Aligned<uint8_t> arena{kRegion * kRegions, kSentinel};
    Aligned<float> fin{8192, 0.5f};
    Aligned<int> iin{8192, 0};
    vekr::test::Mesh mesh = vekr::test::randomTriangles(8, 1);
    const float* v3[3];
    const float* uv[2];
    alignas(16) uint8_t direct[64], recur[4096], foreign[64] = {};
    bool foreignState = false;  // sh() then gives a header of order 4, type 2, at an odd address

    Env()
    {
        for (int c = 0; c < 3; ++c) v3[c] = fin.data() + 1024 * c;
        uv[0] = uv[1] = fin.data();
        EXPECT_EQ(vekrSHInit_32f(reinterpret_cast<VekrSHState*>(direct), 3, vekrSHDirect), vekStsOk);
        EXPECT_EQ(vekrSHInit_32f(reinterpret_cast<VekrSHState*>(recur), 15, vekrSHRecurrence), vekStsOk);
        const uint32_t header[2] = {4, 2};
        std::memcpy(foreign + 5, header, sizeof header);
    }
    template <class T = float>
    T* out(int region) { return reinterpret_cast<T*>(arena.data() + kRegion * region); }
    float* const* out3(int region)
    {
        static thread_local float* p[3];
        for (int c = 0; c < 3; ++c) p[c] = out(region + c);
        return p;
    }
    const VekrSHState* sh(bool recurrence = false) const
    {
        if (foreignState) return reinterpret_cast<const VekrSHState*>(foreign + 5);
        return reinterpret_cast<const VekrSHState*>(recurrence ? recur : direct);
    }
    bool untouched() const
    {
        for (size_t i = 0; i < arena.size(); ++i)
            if (arena[i] != kSentinel) return false;
        return true;
    }
};

struct Row {
    std::string name;
    VekStatus expected;
    std::function<VekStatus(Env&)> call;
};

// ---- rays, trees, shading ------------------------------------------------------------

std::vector<Row> rayRows()
{
    using P = VekrKDTreeBuildParams;
    auto build = [](Env& e, const P* p, int nv, int nt) {
        return vekrKDTreeBuildAlloc(e.out<VekrKDTreeNode*>(0), e.mesh.vertices.data(),
                                    e.mesh.triangles.data(), nv, nt, e.out<int>(1), p);
    };
    auto sah = [](int depth, float thr, uint32_t mb) { return P{VEKR_KDTREE_SAH_MAGIC, depth, thr, mb, nullptr}; };
    const P simple{VEKR_KDTREE_SIMPLE_MAGIC, 0, 0, 0, nullptr};
    std::vector<Row> rows = {
        {"SetBoundBox null vertices", vekStsNullPtr, [](Env& e) { return vekrSetBoundBox_32f(nullptr, -1, e.out<VekrBox3D>(0)); }},
        {"TriangleAccelGetSize null", vekStsNullPtr, [](Env&) { return vekrTriangleAccelGetSize(nullptr); }},
        {"TriangleAccelInit count 0 tests nothing", vekStsOk, [](Env&) { return vekrTriangleAccelInit(nullptr, nullptr, nullptr, 0); }},
        {"TriangleAccelInit count -3", vekStsOk, [](Env& e) { return vekrTriangleAccelInit(e.out<VekrTriangleAccel>(0), e.fin.data(), e.iin.data(), -3); }},
        // The tree build: pointers, then counts, then the record, its magic, its fields, the budget.
        {"KDTree null tree", vekStsNullPtr, [](Env& e) { return vekrKDTreeBuildAlloc(nullptr, e.fin.data(), e.iin.data(), -1, -1, e.out<int>(1), nullptr); }},
        {"KDTree null vertices", vekStsNullPtr, [](Env& e) { return vekrKDTreeBuildAlloc(e.out<VekrKDTreeNode*>(0), nullptr, e.iin.data(), -1, -1, e.out<int>(1), nullptr); }},
        {"KDTree null triangles", vekStsNullPtr, [](Env& e) { return vekrKDTreeBuildAlloc(e.out<VekrKDTreeNode*>(0), e.fin.data(), nullptr, -1, -1, e.out<int>(1), nullptr); }},
        {"KDTree null size", vekStsNullPtr, [](Env& e) { return vekrKDTreeBuildAlloc(e.out<VekrKDTreeNode*>(0), e.fin.data(), e.iin.data(), -1, -1, nullptr, nullptr); }},
        {"KDTree vertex count -1", vekStsSize, [=](Env& e) { return build(e, nullptr, -1, 8); }},
        {"KDTree triangle count -1", vekStsSize, [=](Env& e) { return build(e, nullptr, 24, -1); }},
        {"KDTree null params", vekStsNullPtr, [=](Env& e) { return build(e, nullptr, 24, 8); }},
        {"KDTree unknown magic wins over bad fields", vekStsBadArg, [=](Env& e) { const P p{0x12345678u, -5, 7.0f, 0, nullptr}; return build(e, &p, 24, 8); }},
        {"KDTree single leaf overflowing count", vekStsNoMem, [=](Env& e) { return build(e, &simple, 24, 0x3FFFFFFC); }},
        {"KDTree NaN threshold is accepted", vekStsOk, [=](Env& e) { const P p = sah(10, kNaN, 128); P q = p; return build(e, &q, 24, 8); }},
    };
    for (int depth : {-1, 51, std::numeric_limits<int>::min()}) {
        rows.push_back({"KDTree single-leaf depth " + std::to_string(depth), vekStsOutOfRange,
                        [=](Env& e) { P p = simple; p.depthParam = depth; return build(e, &p, 24, 8); }});
        rows.push_back({"KDTree cost depth " + std::to_string(depth), vekStsOutOfRange,
                        [=](Env& e) { const P p = sah(depth, 0.5f, 64); return build(e, &p, 24, 8); }});
    }
    for (float thr : {-0.001f, 1.0000001f, -std::numeric_limits<float>::infinity()})
        rows.push_back({"KDTree threshold " + std::to_string(thr), vekStsOutOfRange,
                        [=](Env& e) { const P p = sah(10, thr, 64); return build(e, &p, 24, 8); }});
    // Budgets: the entry test on memoryMB << 19 in 32 bits, then the fixed part of 32 MB.
    for (uint32_t mb : {0u, 31u, 32u, 4096u, 8192u, 8223u})
        rows.push_back({"KDTree budget " + std::to_string(mb) + " MB", vekStsNoMem,
                        [=](Env& e) { const P p = sah(10, 0.0f, mb); return build(e, &p, 24, 8); }});
    // Cleanup of the NaN-threshold row's tree happens in the test (Ok rows that allocate).
    rows.push_back({"CastEye null directions", vekStsNullPtr, [](Env& e) {
        return vekrCastEye_32f(e.fin.data(), e.fin.data(), e.fin.data(), 0, 0, VekSize{4, 4}, nullptr, VekSize{4, 4}); }});
    rows.push_back({"CastEye null vectors, empty extent", vekStsNullPtr, [](Env&) {
        return vekrCastEye_32f(nullptr, nullptr, nullptr, 0, 0, VekSize{4, 4}, nullptr, VekSize{0, 0}); }});
    for (VekSize ext : {VekSize{0, 4}, VekSize{4, -1}})
        rows.push_back({"CastEye empty extent", vekStsOk, [=](Env& e) {
            return vekrCastEye_32f(e.fin.data(), e.fin.data(), e.fin.data(), 0, 0, VekSize{4, 4}, e.out3(0), ext); }});
    // Hit points: distances, mask, directions, points (and the origins of the own-origin form).
    auto hitS = [](Env& e, int nullArg, int count) {
        const void* a[4] = {e.fin.data(), e.iin.data(), e.v3, e.out3(0)};
        if (nullArg >= 0 && nullArg < 4) a[nullArg] = nullptr;
        return vekrHitPoint3DEpsS0_32f_M(nullArg == 9 ? nullptr : e.fin.data(), (const float* const*)a[2], (const float*)a[0],
                                         (const int*)a[1], (float* const*)a[3], count, 1.0f);
    };
    for (int k = 0; k < 4; ++k) rows.push_back({"HitPointS0 null argument " + std::to_string(k), vekStsNullPtr, [=](Env& e) { return hitS(e, k, 0); }});
    rows.push_back({"HitPointS0 null origin is not tested", vekStsOk, [=](Env& e) { return hitS(e, 9, 0); }});
    rows.push_back({"HitPointM0 null origins", vekStsNullPtr, [](Env& e) {
        return vekrHitPoint3DEpsM0_32f_M(nullptr, e.v3, e.fin.data(), e.iin.data(), e.out3(0), 4, 1.0f); }});
    rows.push_back({"HitPointM0 count -4", vekStsOk, [](Env& e) {
        return vekrHitPoint3DEpsM0_32f_M(e.v3, e.v3, e.fin.data(), e.iin.data(), e.out3(0), -4, 1.0f); }});
    return rows;
}

// Shading: each member's pointers in their order (by position in `nulls`),
// and counts below one touching nothing; arguments a member does not test are
// passed null with a count of 0.
std::vector<Row> shadeRows()
{
    std::vector<Row> rows;
    auto add = [&](const std::string& name, int pointers, std::function<VekStatus(Env&, int, int)> f,
                   std::vector<int> untested = {}) {
        for (int k = 0; k < pointers; ++k) {
            const bool tested = std::find(untested.begin(), untested.end(), k) == untested.end();
            rows.push_back({name + " null argument " + std::to_string(k), tested ? vekStsNullPtr : vekStsOk,
                            [=](Env& e) { return f(e, k, tested ? 1 : 0); }});
        }
        for (int n : {0, -4}) rows.push_back({name + " count " + std::to_string(n), vekStsOk, [=](Env& e) { return f(e, -1, n); }});
    };
    // pick(k, i, p): null when argument i is the one made bad.
    auto pick = [](int bad, int i, auto p) { return bad == i ? decltype(p)(nullptr) : p; };
    add("TriangleNormal", 3, [=](Env& e, int b, int n) {
        return vekrTriangleNormal_32f(pick(b, 0, (const float*)e.fin.data()), pick(b, 1, (const int*)e.iin.data()), pick(b, 2, e.out(0)), n); });
    add("SurfFlatNormal", 3, [=](Env& e, int b, int n) {
        return vekrSurfFlatNormal_32f(pick(b, 0, (const float*)e.fin.data()), pick(b, 1, (const int*)e.iin.data()), pick(b, 2, e.out3(0)), n); }, {2});
    add("SurfSmoothNormal", 5, [=](Env& e, int b, int n) {
        return vekrSurfSmoothNormal_32f(pick(b, 0, (const float*)e.fin.data()), pick(b, 1, (const int*)e.iin.data()), pick(b, 2, (const int*)e.iin.data()),
                                        pick(b, 3, (const float* const*)e.uv), pick(b, 4, e.out3(0)), n, 3); });
    add("CastReflectionRay", 4, [=](Env& e, int b, int n) {
        return vekrCastReflectionRay_32f(pick(b, 0, (const float* const*)e.v3), pick(b, 1, (const int*)e.iin.data()),
                                         pick(b, 2, (const float* const*)e.v3), pick(b, 3, e.out3(0)), n); });
    add("CastShadowSO", 7, [=](Env& e, int b, int n) {
        return vekrCastShadowSO_32f(pick(b, 0, (const float*)e.fin.data()), pick(b, 1, (const float*)e.fin.data()), pick(b, 2, (const float* const*)e.v3),
                                    pick(b, 3, (const float* const*)e.v3), pick(b, 4, e.out<int>(3)), pick(b, 5, e.out(4)), pick(b, 6, e.out3(0)), n); }, {0});
    add("DistAttenuationSO", 4, [=](Env& e, int b, int n) {
        return vekrDistAttenuationSO_32f_M(pick(b, 0, (const float*)e.fin.data()), pick(b, 1, (const float* const*)e.v3), pick(b, 2, (const int*)e.iin.data()),
                                           pick(b, 3, e.out(0)), n); }, {0});
    add("Dot", 4, [=](Env& e, int b, int n) {
        return vekrDot_32f_P3C1M(pick(b, 0, (const float* const*)e.v3), pick(b, 1, (const float* const*)e.v3), pick(b, 2, (const int*)e.iin.data()), pick(b, 3, e.out(0)), n); });
    add("DotChangeNorm", 4, [=](Env& e, int b, int n) {
        return vekrDotChangeNorm_32f_IM(pick(b, 0, (const float* const*)e.v3), pick(b, 1, (const int*)e.iin.data()), pick(b, 2, e.out3(0)), pick(b, 3, e.out(3)), n); });
    add("Mul C1P3", 3, [=](Env& e, int b, int n) {
        return vekrMul_32f_C1P3IM(pick(b, 0, (const float*)e.fin.data()), pick(b, 1, (const int*)e.iin.data()), pick(b, 2, e.out3(0)), n); });
    add("Mul C1", 3, [=](Env& e, int b, int n) {
        return vekrMul_32f_C1IM(pick(b, 0, (const float*)e.fin.data()), pick(b, 1, (const int*)e.iin.data()), pick(b, 2, e.out(0)), n); }, {0, 1, 2});
    add("Div C1", 3, [=](Env& e, int b, int n) {
        return vekrDiv_32f_C1IM(pick(b, 0, (const float*)e.fin.data()), pick(b, 1, (const int*)e.iin.data()), pick(b, 2, e.out(0)), n); }, {1});
    add("AddMulMul", 5, [=](Env& e, int b, int n) {
        return vekrAddMulMul_32f_AC1P3IM(pick(b, 0, (const float*)e.fin.data()), pick(b, 1, (const float*)e.fin.data()), pick(b, 2, (const float* const*)e.v3),
                                         pick(b, 3, (const int*)e.iin.data()), pick(b, 4, e.out3(0)), n); }, {0});
    return rows;
}

// ---- spherical harmonics -------------------------------------------------------------

std::vector<Row> shRows()
{
    const float* v = nullptr;  // set per call: the direction planes
    (void)v;
    std::vector<Row> rows = {
        {"SHGetSize null", vekStsNullPtr, [](Env&) { return vekrSHGetSize_32f(3, vekrSHDirect, nullptr); }},
        {"SHGetSize direct order 16", vekStsSize, [](Env& e) { return vekrSHGetSize_32f(16, vekrSHDirect, e.out<uint32_t>(0)); }},
        {"SHGetSize order 2^32-1", vekStsSize, [](Env& e) { return vekrSHGetSize_32f(0xFFFFFFFFu, vekrSHDirect, e.out<uint32_t>(0)); }},
        {"SHGetSize type 2", vekStsSelector, [](Env& e) { return vekrSHGetSize_32f(3, VekrSHType(2), e.out<uint32_t>(0)); }},
        {"SHGetSize type -1", vekStsSelector, [](Env& e) { return vekrSHGetSize_32f(3, VekrSHType(-1), e.out<uint32_t>(0)); }},
        {"SHInit null", vekStsNullPtr, [](Env&) { return vekrSHInit_32f(nullptr, 3, vekrSHDirect); }},
        {"SHInit direct order 16", vekStsSize, [](Env& e) { return vekrSHInit_32f(e.out<VekrSHState>(0), 16, vekrSHDirect); }},
        {"SHInit type 2", vekStsSelector, [](Env& e) { return vekrSHInit_32f(e.out<VekrSHState>(0), 3, VekrSHType(2)); }},
        // The basis: the five pointers, then the count, then the order against the state.
        {"SH null x with count 0", vekStsNullPtr, [](Env& e) { return vekrSH_32f(nullptr, e.fin.data(), e.fin.data(), 0, e.out(0), 9, e.sh()); }},
        {"SH null y", vekStsNullPtr, [](Env& e) { return vekrSH_32f(e.fin.data(), nullptr, e.fin.data(), 1, e.out(0), 1, e.sh()); }},
        {"SH null z", vekStsNullPtr, [](Env& e) { return vekrSH_32f(e.fin.data(), e.fin.data(), nullptr, 1, e.out(0), 1, e.sh()); }},
        {"SH null output", vekStsNullPtr, [](Env& e) { return vekrSH_32f(e.fin.data(), e.fin.data(), e.fin.data(), 1, nullptr, 1, e.sh()); }},
        {"SH null state", vekStsNullPtr, [](Env& e) { return vekrSH_32f(e.fin.data(), e.fin.data(), e.fin.data(), 1, e.out(0), 1, nullptr); }},
        {"SH count 0 before order", vekStsSize, [](Env& e) { return vekrSH_32f(e.fin.data(), e.fin.data(), e.fin.data(), 0, e.out(0), 9, e.sh()); }},
        {"SH order above the state's", vekStsSelector, [](Env& e) { return vekrSH_32f(e.fin.data(), e.fin.data(), e.fin.data(), 1, e.out(0), 4, e.sh()); }},
        {"SH order 16 with a recurrence state", vekStsSelector, [](Env& e) { return vekrSH_32f(e.fin.data(), e.fin.data(), e.fin.data(), 1, e.out(0), 16, e.sh(true)); }},
        {"SH negative count does nothing", vekStsOk, [](Env& e) { return vekrSH_32f(e.fin.data(), e.fin.data(), e.fin.data(), 0x80000000u, e.out(0), 1, e.sh(true)); }},
        {"SH count 2^32-1 does nothing", vekStsOk, [](Env& e) { return vekrSH_32f(e.fin.data(), e.fin.data(), e.fin.data(), 0xFFFFFFFFu, e.out(0), 1, e.sh()); }},
        {"SH state of type 2", vekStsSelector, [](Env& e) {
            static VekrSHState bad;
            bad = *e.sh();
            bad.type = 2;
            return vekrSH_32f(e.fin.data(), e.fin.data(), e.fin.data(), 1, e.out(0), 1, &bad); }},
        {"SHBand null output", vekStsNullPtr, [](Env& e) { return vekrSHBand_32f(e.fin.data(), e.fin.data(), e.fin.data(), 1, nullptr, 16); }},
        {"SHBand band before count", vekStsSelector, [](Env& e) { return vekrSHBand_32f(e.fin.data(), e.fin.data(), e.fin.data(), 0, e.out(0), 16); }},
        {"SHBand count 0", vekStsSize, [](Env& e) { return vekrSHBand_32f(e.fin.data(), e.fin.data(), e.fin.data(), 0, e.out(0), 15); }},
        {"SHBand count -3", vekStsOk, [](Env& e) { return vekrSHBand_32f(e.fin.data(), e.fin.data(), e.fin.data(), -3, e.out(0), 15); }},
    };
    // Types outside the enumeration, passed as the integers a C caller passes;
    // orders whose true state size does not fit in 32 bits.
    for (int32_t t : {3, 7, INT_MAX, INT_MIN}) {
        rows.push_back({"SHGetSize type " + std::to_string(t), vekStsSelector, [=](Env& e) { return vekrSHGetSize_32f(3, VekrSHType(t), e.out<uint32_t>(0)); }});
        rows.push_back({"SHInit type " + std::to_string(t), vekStsSelector, [=](Env& e) { return vekrSHInit_32f(e.out<VekrSHState>(0), 3, VekrSHType(t)); }});
    }
    for (uint32_t order : {32767u, 65535u, UINT32_MAX})
        rows.push_back({"SHInit order " + std::to_string(order), vekStsSize, [=](Env& e) { return vekrSHInit_32f(e.out<VekrSHState>(0), order, vekrSHRecurrence); }});
    for (int k = 0; k < 3; ++k)
        rows.push_back({"SHBand null plane " + std::to_string(k), vekStsNullPtr, [=](Env& e) {
            const float* p[3] = {e.fin.data(), e.fin.data(), e.fin.data()};
            p[k] = nullptr;
            return vekrSHBand_32f(p[0], p[1], p[2], 1, e.out(0), 1); }});
    // The six transforms share one order of checks: pointers (even with a zero
    // count), count 0, order above the state's, and a negative count doing nothing.
    // Argument slots: 0-2 directions, 3 values or coefficients in, 4 output, 5 state.
    using T = std::function<VekStatus(Env&, int bad, int count, uint32_t L)>;
    auto ptr = [](int bad, int i, auto p) { return bad == i ? decltype(p)(nullptr) : p; };
    const std::vector<std::pair<std::string, T>> transforms = {
        {"SHTFwd C1I", [=](Env& e, int b, int n, uint32_t L) {
            return vekrSHTFwd_32f_C1I(ptr(b, 0, (const float*)e.fin.data()), ptr(b, 1, (const float*)e.fin.data()), ptr(b, 2, (const float*)e.fin.data()),
                                      ptr(b, 3, (const float*)e.fin.data()), n, ptr(b, 4, e.out(0)), L, ptr(b, 5, e.sh())); }},
        {"SHTFwd C3P3I", [=](Env& e, int b, int n, uint32_t L) {
            return vekrSHTFwd_32f_C3P3I(ptr(b, 0, (const float*)e.fin.data()), ptr(b, 1, (const float*)e.fin.data()), ptr(b, 2, (const float*)e.fin.data()),
                                        ptr(b, 3, (const float*)e.fin.data()), n, ptr(b, 4, e.out3(0)), L, ptr(b, 5, e.sh())); }},
        {"SHTFwd P3I", [=](Env& e, int b, int n, uint32_t L) {
            return vekrSHTFwd_32f_P3I(ptr(b, 0, (const float*)e.fin.data()), ptr(b, 1, (const float*)e.fin.data()), ptr(b, 2, (const float*)e.fin.data()),
                                      ptr(b, 3, (const float* const*)e.v3), n, ptr(b, 4, e.out3(0)), L, ptr(b, 5, e.sh())); }},
        {"SHTInv C1", [=](Env& e, int b, int n, uint32_t L) {
            return vekrSHTInv_32f_C1(ptr(b, 3, (const float*)e.fin.data()), L, ptr(b, 0, (const float*)e.fin.data()), ptr(b, 1, (const float*)e.fin.data()),
                                     ptr(b, 2, (const float*)e.fin.data()), ptr(b, 4, e.out(0)), n, ptr(b, 5, e.sh())); }},
        {"SHTInv P3", [=](Env& e, int b, int n, uint32_t L) {
            return vekrSHTInv_32f_P3(ptr(b, 3, (const float* const*)e.v3), L, ptr(b, 0, (const float*)e.fin.data()), ptr(b, 1, (const float*)e.fin.data()),
                                     ptr(b, 2, (const float*)e.fin.data()), ptr(b, 4, e.out3(0)), n, ptr(b, 5, e.sh())); }},
        {"SHTInv P3C3", [=](Env& e, int b, int n, uint32_t L) {
            return vekrSHTInv_32f_P3C3(ptr(b, 3, (const float* const*)e.v3), L, ptr(b, 0, (const float*)e.fin.data()), ptr(b, 1, (const float*)e.fin.data()),
                                       ptr(b, 2, (const float*)e.fin.data()), ptr(b, 4, e.out(0)), n, ptr(b, 5, e.sh())); }},
    };
    for (const auto& [name, f] : transforms) {
        for (int k = 0; k < 6; ++k)
            rows.push_back({name + " null argument " + std::to_string(k), vekStsNullPtr, [f = f, k](Env& e) { return f(e, k, 0, 9); }});
        rows.push_back({name + " count 0", vekStsSize, [f = f](Env& e) { return f(e, -1, 0, 9); }});
        rows.push_back({name + " order above the state's", vekStsSelector, [f = f](Env& e) { return f(e, -1, -1, 4); }});
        rows.push_back({name + " negative count", vekStsOk, [f = f](Env& e) { return f(e, -1, -5, 3); }});
        for (int count : {2, -3})
            rows.push_back({name + " state of type 2", vekStsSelector, [f = f, count](Env& e) {
                e.foreignState = true;
                const VekStatus st = f(e, -1, count, 2);
                e.foreignState = false;
                return st; }});
    }
    // Rows whose planar argument has one null plane.
    for (int k = 0; k < 3; ++k) {
        rows.push_back({"SHTFwd P3I null value plane " + std::to_string(k), vekStsNullPtr, [=](Env& e) {
            const float* s[3] = {e.v3[0], e.v3[1], e.v3[2]};
            s[k] = nullptr;
            return vekrSHTFwd_32f_P3I(e.fin.data(), e.fin.data(), e.fin.data(), s, 0, e.out3(0), 1, e.sh()); }});
        rows.push_back({"SHTInv P3 null output plane " + std::to_string(k), vekStsNullPtr, [=](Env& e) {
            float* o[3] = {e.out(0), e.out(1), e.out(2)};
            o[k] = nullptr;
            return vekrSHTInv_32f_P3(e.v3, 1, e.fin.data(), e.fin.data(), e.fin.data(), o, 0, e.sh()); }});
    }
    return rows;
}

// ---- volumes ---------------------------------------------------------------------------

// One call of a volume function with every argument valid (8^3 volumes), to be
// spoiled by one field before the call.
template <class T>
struct VolumeCall {
    const T* src[8];
    T* dst[8];
    const float* map[8];
    VekVolumeSize vol{8, 8, 8}, roi{8, 8, 8};
    VekCuboid srcVoi{0, 0, 0, 8, 8, 8}, dstVoi{0, 0, 0, 8, 8, 8};
    double f[6] = {1.25, 1.25, 1.25, 0, 0, 0};
    double c[3][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};
    int mode = 2;
    int step = 8 * sizeof(T);
    uint8_t* buffer;
    bool nullSrc = false, nullDst = false, nullBuf = false, nullMap[3] = {false, false, false};
    explicit VolumeCall(Env& e)
    {
        for (int z = 0; z < 8; ++z) {
            src[z] = reinterpret_cast<const T*>(e.fin.data()) + 64 * z;
            dst[z] = e.out<T>(0) + 64 * z;
            map[z] = e.fin.data() + 64 * z;
        }
        buffer = e.out<uint8_t>(4);
    }
    VekStatus resize(bool planar) const
    {
        if (planar)
            return resizePV(nullSrc ? nullptr : src, &vol, step, &srcVoi, nullDst ? nullptr : dst, step, &dstVoi, f[0],
                            f[1], f[2], f[3], f[4], f[5], mode, nullBuf ? nullptr : buffer);
        return resizeV(nullSrc ? nullptr : src[0], &vol, step, 8 * step, &srcVoi, nullDst ? nullptr : dst[0], step,
                       8 * step, &dstVoi, f[0], f[1], f[2], f[3], f[4], f[5], mode, nullBuf ? nullptr : buffer);
    }
    VekStatus warpCall() const
    {
        return warpAffine(nullSrc ? nullptr : src, &vol, step, &srcVoi, nullDst ? nullptr : dst, step, &dstVoi, c, mode);
    }
    VekStatus remapCall() const
    {
        const float* const* m[3];
        for (int k = 0; k < 3; ++k) m[k] = nullMap[k] ? nullptr : map;
        return remap(nullSrc ? nullptr : src, &vol, step, &srcVoi, m[0], m[1], m[2], 32, nullDst ? nullptr : dst,
                     step, &roi, mode);
    }
};

template <class T>
void volumeRows(std::vector<Row>& rows, const std::string& type)
{
    using C = VolumeCall<T>;
    using Spoil = std::function<void(C&)>;
    // Resize, both layouts: null pointers win over everything else wrong, then
    // sizes, then factors (zero, negative, NaN), the mode, and the two warnings.
    auto bad = [](C& c) { c.mode = 3; c.f[0] = -1; };
    std::vector<std::pair<std::string, std::pair<VekStatus, Spoil>>> resize = {
        {"null source", {vekStsNullPtr, [=](C& c) { bad(c); c.nullSrc = true; }}},
        {"null destination", {vekStsNullPtr, [=](C& c) { bad(c); c.nullDst = true; }}},
        {"null buffer", {vekStsNullPtr, [=](C& c) { bad(c); c.nullBuf = true; }}},
        {"zero volume height", {vekStsSize, [=](C& c) { bad(c); c.vol.height = 0; }}},
        {"negative source origin", {vekStsSize, [=](C& c) { bad(c); c.srcVoi.z = -1; }}},
        {"zero source width", {vekStsSize, [=](C& c) { bad(c); c.srcVoi.width = 0; }}},
        {"negative destination origin", {vekStsSize, [=](C& c) { bad(c); c.dstVoi.y = -1; }}},
        {"zero destination depth", {vekStsSize, [=](C& c) { bad(c); c.dstVoi.depth = 0; }}},
        {"zero x factor", {vekStsResizeFactor, [](C& c) { c.mode = 3; c.f[0] = 0; }}},
        {"negative y factor", {vekStsResizeFactor, [](C& c) { c.mode = 3; c.f[1] = -0.5; }}},
        {"NaN z factor", {vekStsResizeFactor, [](C& c) { c.mode = 3; c.f[2] = kDNaN; }}},
        {"infinite x factor", {vekStsResizeFactor, [](C& c) { c.mode = 3; c.f[0] = HUGE_VAL; }}},
        {"NaN y shift", {vekStsResizeFactor, [](C& c) { c.mode = 3; c.f[4] = kDNaN; }}},
        {"infinite z shift", {vekStsResizeFactor, [](C& c) { c.f[5] = -HUGE_VAL; }}},
        {"mode 3 before the origin warning", {vekStsInterpolation, [](C& c) { c.mode = 3; c.srcVoi.x = 8; }}},
        {"mode 0", {vekStsInterpolation, [](C& c) { c.mode = 0; }}},
        {"mode 8", {vekStsInterpolation, [](C& c) { c.mode = 8; }}},
        {"source origin past the volume", {vekStsVoiOutside, [](C& c) { c.srcVoi.y = 8; }}},
        {"destination beside the mapped source", {vekStsEmptyDestination, [](C& c) { c.f[4] = 20; }}},
        {"destination past the mapped box", {vekStsEmptyDestination, [](C& c) { c.dstVoi.z = 10; }}},
    };
    for (const auto& [what, r] : resize)
        for (bool planar : {false, true})
            rows.push_back({"Resize " + type + (planar ? " PV " : " V ") + what, r.first, [spoil = r.second, planar](Env& e) {
                C c(e);
                spoil(c);
                return c.resize(planar); }});
    // Warp: pointers, sizes, coefficients, mode, warning.
    std::vector<std::pair<std::string, std::pair<VekStatus, Spoil>>> warp = {
        {"null source", {vekStsNullPtr, [](C& c) { c.nullSrc = true; c.vol.height = 0; c.mode = 3; }}},
        {"null destination", {vekStsNullPtr, [](C& c) { c.nullDst = true; c.srcVoi.z = -1; }}},
        {"zero volume height", {vekStsSize, [](C& c) { c.vol.height = 0; c.c[0][0] = 0; }}},
        {"negative source origin", {vekStsSize, [](C& c) { c.srcVoi.x = -1; }}},
        {"zero destination depth", {vekStsSize, [](C& c) { c.dstVoi.depth = 0; }}},
        {"permutation with a zero diagonal", {vekStsAffineCoeff, [](C& c) {
             const double p[3][4] = {{0, 1, 0, 0}, {0, 0, 1, 0}, {1, 0, 0, 0}};
             std::memcpy(c.c, p, sizeof p);
             c.mode = 3; }}},
        {"y and z rows parallel to 1e-12", {vekStsAffineCoeff, [](C& c) {
             const double p[3][4] = {{1, 0, 0, 0}, {1, 2, 3, 0}, {2, 4, 6 * (1 + 1e-12), 5}};
             std::memcpy(c.c, p, sizeof p); }}},
        {"mode 3", {vekStsInterpolation, [](C& c) { c.mode = 3; c.srcVoi.y = 8; }}},
        {"source origin past the volume", {vekStsVoiOutside, [](C& c) { c.srcVoi.y = 8; }}},
    };
    for (const auto& [what, r] : warp)
        rows.push_back({"WarpAffine " + type + " " + what, r.first, [spoil = r.second](Env& e) {
            C c(e);
            spoil(c);
            return c.warpCall(); }});
    // Remap: source, destination, the three maps, then sizes, mode, warning.
    std::vector<std::pair<std::string, std::pair<VekStatus, Spoil>>> remap = {
        {"null source", {vekStsNullPtr, [](C& c) { c.nullSrc = true; c.roi.depth = 0; c.mode = 3; }}},
        {"null destination", {vekStsNullPtr, [](C& c) { c.nullDst = true; c.roi.depth = 0; }}},
        {"null x map", {vekStsNullPtr, [](C& c) { c.nullMap[0] = true; c.vol.depth = 0; }}},
        {"null y map", {vekStsNullPtr, [](C& c) { c.nullMap[1] = true; }}},
        {"null z map", {vekStsNullPtr, [](C& c) { c.nullMap[2] = true; }}},
        {"zero volume depth", {vekStsSize, [](C& c) { c.vol.depth = 0; c.mode = 3; }}},
        {"negative source height", {vekStsSize, [](C& c) { c.srcVoi.height = -1; }}},
        {"zero destination depth", {vekStsSize, [](C& c) { c.roi.depth = 0; }}},
        {"mode 3 before the origin warning", {vekStsInterpolation, [](C& c) { c.mode = 3; c.srcVoi.x = 9; }}},
        {"source origin past the volume", {vekStsVoiOutside, [](C& c) { c.mode = 1; c.srcVoi.x = 9; }}},
    };
    for (const auto& [what, r] : remap)
        rows.push_back({"Remap " + type + " " + what, r.first, [spoil = r.second](Env& e) {
            C c(e);
            spoil(c);
            return c.remapCall(); }});
}

std::vector<Row> volumeQueryRows()
{
    const VekCuboid good{0, 0, 0, 10, 10, 10};
    std::vector<Row> rows = {
        {"ResizeGetBufSize null", vekStsNullPtr, [=](Env&) { return vekrResizeGetBufSize(&good, &good, 1, 1, nullptr); }},
        {"ResizeGetBufSize channels", vekStsChannelCount, [=](Env& e) { return vekrResizeGetBufSize(&good, &good, 3, 3, e.out<int>(0)); }},
        {"ResizeGetBufSize mode 3", vekStsInterpolation, [=](Env& e) { return vekrResizeGetBufSize(&good, &good, 1, 3, e.out<int>(0)); }},
        {"FilterGetBufSize null", vekStsNullPtr, [](Env&) { const VekVolumeSize r{8, 8, 8}; return vekrFilterGetBufSize(&r, &r, 1, nullptr); }},
        {"FilterGetBufSize channels 0", vekStsChannelCount, [](Env& e) { const VekVolumeSize r{8, 8, 8}; return vekrFilterGetBufSize(&r, &r, 0, e.out<int>(0)); }},
        {"FilterGetBufSize channels 3", vekStsChannelCount, [](Env& e) { const VekVolumeSize r{8, 8, 8}; return vekrFilterGetBufSize(&r, &r, 3, e.out<int>(0)); }},
    };
    for (int field = 0; field < 6; ++field)
        for (int which = 0; which < 2; ++which) {
            VekCuboid c = good;
            int* f[6] = {&c.x, &c.y, &c.z, &c.width, &c.height, &c.depth};
            *f[field] = field < 3 ? -1 : 0;
            const VekCuboid s = which ? good : c, d = which ? c : good;
            const std::string what = std::string(which ? " destination" : " source") + " field " + std::to_string(field);
            rows.push_back({"ResizeGetBufSize" + what, vekStsSize, [=](Env& e) { return vekrResizeGetBufSize(&s, &d, 3, 3, e.out<int>(0)); }});
            rows.push_back({"WarpAffineGetBufSize" + what, vekStsSize, [=](Env& e) { return vekrWarpAffineGetBufSize(&s, &d, 1, 1, e.out<int>(0)); }});
        }
    for (int mode : {0, 3, 8, -1})
        rows.push_back({"WarpAffineGetBufSize mode " + std::to_string(mode), vekStsInterpolation,
                        [=](Env& e) { return vekrWarpAffineGetBufSize(&good, &good, 1, mode, e.out<int>(0)); }});
    for (VekVolumeSize r : {VekVolumeSize{0, 1, 1}, VekVolumeSize{1, 1, 0}, VekVolumeSize{-3, 1, 1}}) {
        rows.push_back({"FilterGetBufSize bad region", vekStsSize, [=](Env& e) { const VekVolumeSize k{3, 3, 3}; return vekrFilterGetBufSize(&r, &k, 2, e.out<int>(0)); }});
        rows.push_back({"FilterGetBufSize bad kernel", vekStsSize, [=](Env& e) { const VekVolumeSize k{3, 3, 3}; return vekrFilterGetBufSize(&k, &r, 2, e.out<int>(0)); }});
    }
    return rows;
}

// The filter: the four data pointers win over bad sizes and a zero divisor,
// then the region, the kernel size, and the divisor.
std::vector<Row> filterRows()
{
    struct F {
        VekVolumeSize roi{4, 3, 2}, ks{3, 3, 3};
        int divisor = 27;
        int nullArg = -1;
    };
    auto run = [](Env& e, F f) {
        const int16_t* src[4];
        int16_t* dst[2];
        // A source of 4 slices of 6 x 5, seen from the destination's frame with anchor 1.
        for (int z = 0; z < 4; ++z) src[z] = reinterpret_cast<const int16_t*>(e.fin.data()) + 30 * z + 6 + 1;
        for (int z = 0; z < 2; ++z) dst[z] = e.out<int16_t>(0) + 64 * z;
        const int32_t anchor[3] = {1, 1, 1};
        return vekrFilter_16s_C1PV(f.nullArg == 0 ? nullptr : src + 1, 12, f.nullArg == 1 ? nullptr : dst, 8,
                                   &f.roi, f.nullArg == 2 ? nullptr : e.iin.data(), &f.ks, anchor, f.divisor,
                                   f.nullArg == 3 ? nullptr : e.out<uint8_t>(2));
    };
    std::vector<Row> rows;
    for (int k = 0; k < 4; ++k)
        rows.push_back({"Filter null argument " + std::to_string(k), vekStsNullPtr, [=](Env& e) {
            F f;
            f.nullArg = k;
            f.roi.width = 0;
            f.divisor = 0;
            return run(e, f); }});
    for (VekVolumeSize r : {VekVolumeSize{0, 3, 2}, VekVolumeSize{4, -1, 2}, VekVolumeSize{4, 3, 0}}) {
        rows.push_back({"Filter bad region", vekStsSize, [=](Env& e) { F f; f.roi = r; f.divisor = 0; return run(e, f); }});
        rows.push_back({"Filter bad kernel size", vekStsSize, [=](Env& e) { F f; f.ks = r; f.divisor = 0; return run(e, f); }});
    }
    rows.push_back({"Filter divisor 0", vekStsSize, [=](Env& e) { F f; f.divisor = 0; return run(e, f); }});
    return rows;
}

std::vector<Row> allRows()
{
    std::vector<Row> rows;
    for (auto part : {rayRows(), shadeRows(), shRows(), volumeQueryRows(), filterRows()})
        rows.insert(rows.end(), part.begin(), part.end());
    volumeRows<uint8_t>(rows, "8u");
    volumeRows<uint16_t>(rows, "16u");
    volumeRows<float>(rows, "32f");
    return rows;
}

TEST(Contract, EveryCheckGivesItsStatusAndWritesNothing)
{
    Env env;
    int rowsRun = 0;
    for (const Row& row : allRows()) {
        SCOPED_TRACE(row.name);
        std::memset(env.arena.data(), Env::kSentinel, env.arena.size());
        const VekStatus got = row.call(env);
        EXPECT_EQ(got, row.expected);
        if (row.name == "KDTree NaN threshold is accepted") {
            vekrKDTreeFree(*env.out<VekrKDTreeNode*>(0));
            continue;  // a built tree is an output by design
        }
        EXPECT_TRUE(env.untouched()) << "the call wrote an output";
        ++rowsRun;
    }
    EXPECT_GT(rowsRun, 300);
}

}  // namespace
