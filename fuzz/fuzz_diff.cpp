// Differential target: one decoded call run on the fast path (16-byte-aligned
// arrays, counts a multiple of 4) and on the general path (the same data
// copied 4 bytes off alignment), or at every instruction-set level the
// processor has; the results must agree within the function's stated
// tolerance (exactly where it states the same results).
#include <cmath>
#include <algorithm>
#include <array>

#include "core/isa.h"
#include "fuzz_common.h"
#include "sh/sh_basis.h"
#include "trace/intersect.h"
#include "volume/filter.h"

namespace {

// n elements of T at a 64-byte boundary (the allocator may give less).
template <class T>
struct Aligned {
    std::vector<T> v;
    T* p;
    explicit Aligned(size_t n, T fill = T()) : v(n + 16, fill)
    {
        p = reinterpret_cast<T*>((reinterpret_cast<uintptr_t>(v.data()) + 63) & ~uintptr_t{63});
    }
};

// Planar data of `n` elements per plane, one copy aligned and one at +4 bytes.
struct Twin {
    Aligned<float> a, b;
    Twin(FuzzedDataProvider& in, int n, float lo, float hi) : a(n + 4), b(n + 5)
    {
        for (int i = 0; i < n; ++i) a.p[i] = b.p[i + 1] = in.ConsumeFloatingPointInRange<float>(lo, hi);
    }
    float* get(bool shifted) { return shifted ? b.p + 1 : a.p; }
};

// Floats agree: equal bits, both NaN, or |x - y| <= tol.
void near(const char* what, const float* x, const float* y, int n, float tol)
{
    for (int i = 0; i < n; ++i) {
        const bool same = std::memcmp(&x[i], &y[i], 4) == 0 || (std::isnan(x[i]) && std::isnan(y[i])) ||
                          std::fabs(x[i] - y[i]) <= tol;
        FUZZ_REQUIRE(same, "%s: element %d: %.9g vs %.9g", what, i, double(x[i]), double(y[i]));
    }
}

std::vector<vekr::Isa> levels()
{
    std::vector<vekr::Isa> v;
    for (int i = 0; i < vekr::kIsaCount; ++i)
        if (vekr::isaSupported(vekr::Isa(i))) v.push_back(vekr::Isa(i));
    return v;
}

// Shading functions: fast path against general path.  k planes of inputs
// (values in [-8, 8]), a mask, one or more outputs; `tol` is the stated
// difference (0 where the paths give the same results).
void shading(FuzzedDataProvider& in, int fn)
{
    const int n = 4 * in.ConsumeIntegralInRange<int>(1, 16);
    std::vector<Twin> p;
    for (int k = 0; k < 12; ++k) p.emplace_back(in, n, -8.0f, 8.0f);
    Aligned<int> maskA(n + 4), maskB(n + 5), idxA(n + 4), idxB(n + 5);
    for (int i = 0; i < n; ++i) maskA.p[i] = maskB.p[i + 1] = in.ConsumeIntegralInRange<int>(-2, 2);
    for (int i = 0; i < n; ++i) idxA.p[i] = idxB.p[i + 1] = in.ConsumeIntegralInRange<int>(-1, 9);
    const float k3[3] = {in.ConsumeFloatingPointInRange<float>(-2, 2), 0.5f, -1.5f};
    const float eps = in.ConsumeFloatingPointInRange<float>(0.9f, 1.0f);
    Aligned<float> table(64);  // triangle or vertex normals, 10 x 3
    for (int i = 0; i < 64; ++i) table.p[i] = in.ConsumeFloatingPointInRange<float>(-1, 1);
    Aligned<int> tri(40);  // ten index records of four
    for (int i = 0; i < 40; ++i) tri.p[i] = in.ConsumeIntegralInRange<int>(0, 9);
    float tol = 0;
    auto run = [&](bool s) {
        auto P3 = [&](int k) { return std::array<float*, 3>{p[k].get(s), p[k + 1].get(s), p[k + 2].get(s)}; };
        auto A = P3(0), B = P3(3), O = P3(6), O2 = P3(9);
        int* mask = s ? maskB.p + 1 : maskA.p;
        int* idx = s ? idxB.p + 1 : idxA.p;
        switch (fn % 11) {
        case 0: vekrDot_32f_P3C1M(A.data(), B.data(), mask, O[0], n); break;
        case 1: vekrDotChangeNorm_32f_IM(A.data(), mask, B.data(), O[0], n); break;
        case 2: vekrMul_32f_C1P3IM(A[0], mask, B.data(), n); break;
        case 3:  // (A s) k against (A k) s: two roundings apart
            vekrAddMulMul_32f_AC1P3IM(k3, A[0], B.data(), mask, O.data(), n);
            tol = 1e-4f;
            break;
        case 4: vekrHitPoint3DEpsM0_32f_M(A.data(), B.data(), O2[0], mask, O.data(), n, eps); tol = 1e-4f; break;
        case 5: vekrCastReflectionRay_32f(A.data(), mask, B.data(), O.data(), n); break;
        case 6: vekrCastShadowSO_32f(k3, A[0], B.data(), A.data(), mask, O2[0], O.data(), n); break;
        case 7: vekrDistAttenuationSO_32f_M(k3, A.data(), mask, O[0], n); break;
        case 8: vekrSurfFlatNormal_32f(table.p, idx, O.data(), n); break;
        case 9:  // refined reciprocal square root against the exact one
            vekrSurfSmoothNormal_32f(table.p, tri.p, idx, A.data(), O.data(), n, 4);
            tol = 2e-5f;
            break;
        default: {
            const VekSize step{4, 4}, ext{4, n / 4};
            vekrCastEye_32f(k3, A[0], B[0], 1, 2, step, O.data(), ext);
        }
        }
    };
    run(false);
    run(true);
    for (int k = 0; k < 12; ++k) near("shading", p[k].get(false), p[k].get(true), n, tol);
    FUZZ_REQUIRE(std::equal(maskA.p, maskA.p + n, maskB.p + 1), "shading: masks differ");
}

// The SH basis and one band at every level (and at an odd output address):
// the same bits.
void sphericalHarmonics(FuzzedDataProvider& in)
{
    const int n = in.ConsumeIntegralInRange<int>(1, 9);
    const uint32_t L = in.ConsumeIntegralInRange<uint32_t>(0, 15);
    const VekrSHType type = in.ConsumeBool() ? vekrSHDirect : vekrSHRecurrence;
    Twin x(in, n, -1, 1), y(in, n, -1, 1), z(in, n, -1, 1);
    uint32_t size = 0;
    vekrSHGetSize_32f(15, type, &size);
    std::vector<uint8_t> block(size + 16);
    auto* st = reinterpret_cast<VekrSHState*>(block.data() + in.ConsumeIntegralInRange<int>(0, 15));
    FUZZ_REQUIRE(vekrSHInit_32f(st, 15, type) == vekStsOk, "SH init");
    const int nc = int((L + 1) * (L + 1));
    std::vector<float> ref(size_t(n) * nc + 1), got(ref.size()), band(size_t(n) * 33), bandRef(band.size());
    vekrSH_32f(x.get(false), y.get(false), z.get(false), n, ref.data(), L, st);
    vekrSHBand_32f(x.get(false), y.get(false), z.get(false), n, bandRef.data(), L);
    for (vekr::Isa isa : levels()) {
        vekr::sh::basis(isa, x.get(true), y.get(true), z.get(true), n, got.data() + 1, L, st);
        near("SH basis", ref.data(), got.data() + 1, n * nc, 0);
        vekr::sh::band(isa, x.get(true), y.get(true), z.get(true), n, band.data(), L);
        near("SH band", bandRef.data(), band.data(), n * int(2 * L + 1), 0);
    }
}

// The filter: every path that applies, at every level, gives the same voxels.
void filter(FuzzedDataProvider& in)
{
    using namespace vekr::filter;
    const int K = in.ConsumeBool() ? 3 : 5;
    const VekVolumeSize roi{in.ConsumeIntegralInRange<int>(16, 37), in.ConsumeIntegralInRange<int>(1, 3),
                            in.ConsumeIntegralInRange<int>(1, 3)};
    const VekVolumeSize ks{K, K, K};
    std::vector<int32_t> kernel(K * K * K);
    for (int32_t& c : kernel) c = in.ConsumeIntegralInRange<int>(-300, 300);
    const int32_t anchor[3] = {K / 2, K / 2, K / 2};
    const int divisor = in.ConsumeBool() ? 1 << in.ConsumeIntegralInRange<int>(0, 12) : in.ConsumeIntegralInRange<int>(-99, 99) | 1;
    const int w = roi.width + K + 1, h = roi.height + K, d = roi.depth + K;
    std::vector<int16_t> src(size_t(w) * h * d), shifted(src.size() + 1);
    for (int16_t& v : src) v = in.ConsumeIntegral<int16_t>();
    std::copy(src.begin(), src.end(), shifted.begin() + 1);
    auto runOne = [&](Path path, vekr::Isa isa, int shift) {
        const int16_t* base = shift ? shifted.data() + 1 : src.data();
        std::vector<const int16_t*> s;
        for (int z = 0; z < d; ++z) s.push_back(base + size_t(z) * w * h + (K / 2) * w + K / 2);
        std::vector<int16_t> out(size_t(roi.width) * roi.height * roi.depth);
        std::vector<int16_t*> o;
        for (int z = 0; z < roi.depth; ++z) o.push_back(out.data() + size_t(z) * roi.width * roi.height);
        std::vector<uint8_t> buf(bufferSize(roi.width, ks, 1) + 16);
        runPath(path, s.data() + K / 2, w, o.data(), roi.width, roi, kernel.data(), ks, anchor, divisor,
                buf.data() + shift, isa);
        return out;
    };
    const auto ref = runOne(Path::General, vekr::Isa::Sse41, 0);
    const Path fast = choosePath(kernel.data(), ks, roi.width);
    for (vekr::Isa isa : levels())
        FUZZ_REQUIRE(runOne(fast, isa, 1) == ref, "filter: level %d differs", int(isa));
}

// Eye rays through a small mesh: the packet path at every level against the
// single-ray path.  Rays that hit the same triangle agree on the distance and
// the barycentric coordinates within the refined reciprocals' precision; a
// ray may hit a different triangle only where it grazes an edge or a split.
void trace(FuzzedDataProvider& in)
{
    const int tc = in.ConsumeIntegralInRange<int>(1, 60);
    std::vector<float> v(9 * tc);
    for (float& c : v) c = in.ConsumeFloatingPointInRange<float>(-4, 4);
    std::vector<int> t(4 * tc);
    for (int i = 0; i < 4 * tc; ++i) t[i] = (i % 4 == 3) ? 0 : (i / 4) * 3 + i % 4;
    VekrBox3D box;
    vekrSetBoundBox_32f(v.data(), 3 * tc, &box);
    std::vector<VekrTriangleAccel> acc(tc);
    vekrTriangleAccelInit(acc.data(), v.data(), t.data(), tc);
    VekrKDTreeBuildParams p{in.ConsumeBool() ? VEKR_KDTREE_SIMPLE_MAGIC : VEKR_KDTREE_SAH_MAGIC,
                            in.ConsumeIntegralInRange<int>(0, 50), in.ConsumeProbability<float>(), 64, nullptr};
    VekrKDTreeNode* tree = nullptr;
    int treeSize = 0;
    if (vekrKDTreeBuildAlloc(&tree, v.data(), t.data(), 3 * tc, tc, &treeSize, &p) != vekStsOk) return;
    const VekrIntersectContext ctx{&box, acc.data(), tree};
    const float eye[3] = {in.ConsumeFloatingPointInRange<float>(-6, 6), in.ConsumeFloatingPointInRange<float>(-6, 6), 7};
    const VekSize ext{8, 4 * in.ConsumeIntegralInRange<int>(1, 4)};
    const int n = ext.width * ext.height;
    Twin dx(in, n, -1, 1), dy(in, n, -1, 1), dz(in, n, -1.5f, -0.2f);
    const float limit = in.ConsumeFloatingPointInRange<float>(0.5f, 40.0f);
    struct Out {
        Aligned<float> dist, u, w;
        Aligned<int> tri;
        explicit Out(int n, float limit) : dist(n, limit), u(n, -7.0f), w(n, -7.0f), tri(n, -9) {}
    };
    auto runOne = [&](const vekr::Isa* isa) {
        Out o(n, limit);
        const float* dirs[3] = {dx.get(false), dy.get(false), dz.get(false)};
        float* hits[2] = {o.u.p, o.w.p};
        if (isa) vekr::trace::intersectEye(*isa, eye, dirs, o.dist.p, hits, o.tri.p, ctx, ext);
        else vekr::trace::intersectEyeRays(eye, dirs, o.dist.p, hits, o.tri.p, ctx, n);
        return o;
    };
    const Out a = runOne(nullptr);
    for (vekr::Isa isa : levels()) {
        const Out b = runOne(&isa);
        for (int i = 0; i < n; ++i) {
            if (a.tri.p[i] != b.tri.p[i]) continue;
            const float tol = 1e-4f * (1 + std::fabs(a.dist.p[i]));
            FUZZ_REQUIRE(std::fabs(a.dist.p[i] - b.dist.p[i]) <= tol && std::fabs(a.u.p[i] - b.u.p[i]) <= 1e-3f &&
                             std::fabs(a.w.p[i] - b.w.p[i]) <= 1e-3f,
                         "trace: ray %d level %d: %g %g %g vs %g %g %g", i, int(isa), a.dist.p[i], a.u.p[i],
                         a.w.p[i], b.dist.p[i], b.u.p[i], b.w.p[i]);
        }
    }
    vekrKDTreeFree(tree);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzedDataProvider in(data, size);
    const int fn = in.ConsumeIntegralInRange<int>(0, 13);
    if (fn < 11) shading(in, fn);
    else if (fn == 11) sphericalHarmonics(in);
    else if (fn == 12) filter(in);
    else trace(in);
    return 0;
}
