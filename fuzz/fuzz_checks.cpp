// Every export that checks its arguments, decoded from the input: a function,
// its sizes and selectors, buffers sized to match (at decoded alignments), at
// most one checked pointer null.  Oracles besides the sanitizers: the status
// is the one the documented check order gives, and after a refused call (or
// a warning, or a count below 1) every output still holds its sentinel.
#include <cmath>

#include "fuzz_common.h"
#include "vekcore.h"

namespace {

using fuzz::Arena;

void expect(const char* name, VekStatus got, VekStatus want, const Arena& a, bool quiet)
{
    FUZZ_REQUIRE(got == want, "%s: status %d, expected %d", name, got, want);
    FUZZ_REQUIRE(!quiet || a.untouched(), "%s: outputs written with status %d", name, got);
}

// Status of a call whose only checks are null pointers and a count that
// returns at once below 1.
void counted(const char* name, const Arena& a, int count, VekStatus got)
{
    expect(name, got, a.nulled() ? vekStsNullPtr : vekStsOk, a, a.nulled() || count < 1);
}

bool validCuboid(const VekCuboid& c)
{
    return c.x >= 0 && c.width > 0 && c.y >= 0 && c.height > 0 && c.z >= 0 && c.depth > 0;
}

VekCuboid decodeCuboid(FuzzedDataProvider& in, int maxOrigin, int maxSize)
{
    VekCuboid c;
    int* f = &c.x;
    for (int k = 0; k < 6; ++k)
        f[k] = in.ConsumeIntegralInRange<int>(k < 3 ? -1 : 0, k < 3 ? maxOrigin : maxSize);
    if (in.ConsumeIntegral<uint8_t>() > 250) f[3 + in.ConsumeIntegralInRange<int>(0, 2)] = INT32_MAX;
    return c;
}

int decodeMode(FuzzedDataProvider& in)
{
    static const int modes[] = {1, 2, 4, 5, 6, 7, 1, 2, 4, 6, 0, 3, 8, -1};
    return modes[in.ConsumeIntegralInRange<int>(0, 13)];
}
bool validMode(int m) { return m == 1 || m == 2 || (m >= 4 && m <= 7); }

// The per-thread size of the resize buffer, exactly (128 bits).
unsigned __int128 resizeBytes(const VekCuboid& d, int mode)
{
    using U = unsigned __int128;
    auto a = [](U n, U add, U mask) { return (n + add) & ~mask; };
    const U w = U(d.width), h = U(d.height), z = U(d.depth);
    const U base = 4 * (a(w, 15, 15) + a(h, 15, 15) + a(z, 15, 15));
    if (mode == 1) return base + 64;
    const U b64 = base + 4 * (a(w, 63, 63) + a(h, 63, 63) + a(z, 63, 63));
    if (mode == 2)
        return b64 + 4 * a(2 * w, 127, 63) + 8 * h * a(w, 63, 63) + 4 * a(8 * (w + h), 127, 63) + 64;
    return b64 + 4 * a(4 * w, 255, 63) + 16 * h * a(w, 63, 63) + 4 * a(4 * w, 255, 63) +
           4 * a(4 * h, 255, 63) + 4 * a(4 * z, 255, 63) + 4 * a(48 * (w + h), 255, 63) + 64;
}

// ---- volumes -------------------------------------------------------------

template <class T>
struct Volume {
    int w, h, d, row;
    T* data;
    std::vector<T*> slices;
    Volume(Arena& a, int w_, int h_, int d_, bool output)
        : w(w_), h(h_), d(d_), row(w_ + 2),
          data(a.make<T>(int64_t(row) * h * d, output ? fuzz::Out : fuzz::In))
    {
        for (int z = 0; z < d; ++z) slices.push_back(data + size_t(z) * row * h);
    }
    int step() const { return row * int(sizeof(T)); }
};

// Shared by resize, warp and remap: the checks on the source volume and
// region, in order, before the function's own ones.
VekStatus sourceChecks(const VekVolumeSize& v, const VekCuboid& s)
{
    if (v.width <= 0 || v.height <= 0 || v.depth <= 0) return vekStsSize;
    return validCuboid(s) ? vekStsOk : vekStsSize;
}
bool originOutside(const VekVolumeSize& v, const VekCuboid& s)
{
    return s.x >= v.width || s.y >= v.height || s.z >= v.depth;
}

template <class T> struct ResizeFns;
template <> struct ResizeFns<uint8_t> {
    static constexpr auto v = &vekrResize_8u_C1V;
    static constexpr auto pv = &vekrResize_8u_C1PV;
    static constexpr auto warp = &vekrWarpAffine_8u_C1PV;
    static constexpr auto remap = &vekrRemap_8u_C1PV;
};
template <> struct ResizeFns<uint16_t> {
    static constexpr auto v = &vekrResize_16u_C1V;
    static constexpr auto pv = &vekrResize_16u_C1PV;
    static constexpr auto warp = &vekrWarpAffine_16u_C1PV;
    static constexpr auto remap = &vekrRemap_16u_C1PV;
};
template <> struct ResizeFns<float> {
    static constexpr auto v = &vekrResize_32f_C1V;
    static constexpr auto pv = &vekrResize_32f_C1PV;
    static constexpr auto warp = &vekrWarpAffine_32f_C1PV;
    static constexpr auto remap = &vekrRemap_32f_C1PV;
};

template <class T>
void resize(FuzzedDataProvider& in, Arena& a, bool planar)
{
    const VekVolumeSize vol{in.ConsumeIntegralInRange<int>(0, 9), in.ConsumeIntegralInRange<int>(0, 9),
                            in.ConsumeIntegralInRange<int>(0, 9)};
    const VekCuboid sv = decodeCuboid(in, 9, 12), dv = decodeCuboid(in, 8, 24);
    double f[3], sh[3];
    const bool huge = dv.width > 64 || dv.height > 64 || dv.depth > 64;
    for (int k = 0; k < 3; ++k) {
        // A huge destination region is only safe with a mapped box that
        // stays near the origin: finite factors up to 4, shifts up to 16.
        f[k] = huge ? 0.0625 + 3.9 * in.ConsumeProbability<double>() : fuzz::decodeDouble(in, 0.05, 6.0);
        sh[k] = huge ? 32 * in.ConsumeProbability<double>() - 16 : fuzz::decodeDouble(in, -8.0, 8.0);
    }
    const int mode = decodeMode(in);
    // The destination memory covers the region (or the first 64 voxels of a
    // huge axis) with one voxel of margin that must stay untouched.
    auto span = [](int o, int n) { return (o > 0 ? o : 0) + (n > 0 ? (n < 64 ? n : 64) : 0) + 1; };
    // At least 3 voxels of memory per axis: the cubic modes read one past the
    // edge of a shorter axis, as documented (callers keep such axes longer).
    auto mem = [](int n) { return n > 3 ? n : 3; };
    Volume<T> src(a, mem(vol.width), mem(vol.height), mem(vol.depth), false);
    Volume<T> dst(a, span(dv.x, dv.width), span(dv.y, dv.height), span(dv.z, dv.depth), true);
    int size = 64;
    if (validCuboid(sv) && validCuboid(dv) && validMode(mode)) {
        vekrResizeGetBufSize(&sv, &dv, 1, mode, &size);
        if (size < 64 || size > (1 << 24)) size = 64;
    }
    const T* const* srcSlices = a.checked(src.slices.data());
    T* const* dstSlices = a.checked(dst.slices.data());
    uint8_t* buf = a.make<uint8_t>(size, fuzz::Scratch, true);

    VekStatus want = a.nulled() ? vekStsNullPtr : sourceChecks(vol, sv);
    if (want == vekStsOk && !validCuboid(dv)) want = vekStsSize;
    for (int k = 0; k < 3 && want == vekStsOk; ++k)
        if (!(f[k] > 0) || !std::isfinite(f[k]) || !std::isfinite(sh[k])) want = vekStsResizeFactor;
    if (want == vekStsOk && !validMode(mode)) want = vekStsInterpolation;
    if (want == vekStsOk && originOutside(vol, sv)) want = vekStsVoiOutside;

    const VekStatus got =
        planar ? ResizeFns<T>::pv(srcSlices, &vol, src.step(), &sv, dstSlices, dst.step(), &dv, f[0], f[1],
                                  f[2], sh[0], sh[1], sh[2], mode, buf)
               : ResizeFns<T>::v(srcSlices ? src.data : nullptr, &vol, src.step(), src.step() * src.h, &sv,
                                 dstSlices ? dst.data : nullptr, dst.step(), dst.step() * dst.h, &dv, f[0],
                                 f[1], f[2], sh[0], sh[1], sh[2], mode, buf);
    if (want == vekStsOk) {
        // After the checks: done (0), an empty box (1), or a call whose
        // query has wrapped refused (-6).
        const bool wrapped = resizeBytes(dv, mode) * unsigned(ownGetNumThreads()) > INT32_MAX;
        FUZZ_REQUIRE(got == vekStsOk || got == vekStsEmptyDestination || (got == vekStsSize && wrapped),
                     "resize: status %d", got);
        want = got;
    }
    expect("resize", got, want, a, want != vekStsOk);
    if (got != vekStsOk) return;
    // Nothing outside the destination region.
    T sentinel;
    std::memset(&sentinel, fuzz::kSentinel, sizeof sentinel);
    for (int z = 0; z < dst.d; ++z)
        for (int y = 0; y < dst.h; ++y)
            for (int x = 0; x < dst.row; ++x) {
                const bool inside = x >= dv.x && x - dv.x < dv.width && y >= dv.y && y - dv.y < dv.height &&
                                    z >= dv.z && z - dv.z < dv.depth;
                const T v = dst.data[(size_t(z) * dst.h + y) * dst.row + x];
                FUZZ_REQUIRE(inside || std::memcmp(&v, &sentinel, sizeof v) == 0,
                             "resize wrote outside its region at %d %d %d", x, y, z);
            }
}

// The warp's coefficient checks: degenerate diagonal, then parallel y and z rows.
bool degenerate(const double c[3][4])
{
    if (std::fabs(c[0][0]) <= 1e-100 && std::fabs(c[1][1]) <= 1e-100 && std::fabs(c[2][2]) <= 1e-100)
        return true;
    const double pairs[3][2] = {{c[1][1] * c[2][2], c[1][2] * c[2][1]},
                                {c[1][0] * c[2][2], c[1][2] * c[2][0]},
                                {c[1][0] * c[2][1], c[1][1] * c[2][0]}};
    for (const auto& p : pairs) {
        const double r = std::fabs(p[0]) <= 1e-200 ? std::fabs(p[1]) : std::fabs((p[0] - p[1]) / p[0]);
        if (!(r <= 1e-10)) return false;
    }
    return true;
}

template <class T>
void warpOrRemap(FuzzedDataProvider& in, Arena& a, bool warp)
{
    const VekVolumeSize vol{in.ConsumeIntegralInRange<int>(0, 8), in.ConsumeIntegralInRange<int>(0, 8),
                            in.ConsumeIntegralInRange<int>(0, 8)};
    const VekCuboid sv = decodeCuboid(in, 8, 10);
    VekCuboid dv = decodeCuboid(in, 4, 18);
    for (int* f = &dv.width; f <= &dv.depth; ++f) *f = *f > 18 ? 18 : *f;
    const VekVolumeSize roi{dv.width, dv.height, dv.depth};
    double c[3][4];
    const int kind = in.ConsumeIntegralInRange<int>(0, 3);
    for (int r = 0; r < 3; ++r)
        for (int k = 0; k < 4; ++k)
            c[r][k] = kind == 0 ? fuzz::decodeDouble(in, -3, 3)
                                : (r == k ? 1.0 : 0.0) + (k == 3 ? 4 : 0.3) * (in.ConsumeProbability<double>() - 0.5);
    const int mode = decodeMode(in);
    const int sw = vol.width > 0 ? vol.width : 1, shh = vol.height > 0 ? vol.height : 1,
              sd = vol.depth > 0 ? vol.depth : 1;
    auto ext = [](int o, int n) { return (o > 0 ? o : 0) + (n > 0 ? n : 0) + 1; };
    Volume<T> src(a, sw, shh, sd, false);
    Volume<T> dst(a, ext(warp ? dv.x : 0, dv.width), ext(warp ? dv.y : 0, dv.height),
                  ext(warp ? dv.z : 0, dv.depth), true);
    const float* const* maps[3] = {};
    std::vector<float*> mapSlices[3];
    for (int m = 0; m < 3 && !warp; ++m) {
        Volume<float> map(a, dst.w, dst.h, dst.d, false);
        for (int64_t i = 0; i < int64_t(map.row) * map.h * map.d; ++i)
            if (!std::isnan(map.data[i]) && std::fabs(map.data[i]) > 12) map.data[i] = std::fmod(map.data[i], 12.0f);
        mapSlices[m] = map.slices;
    }
    const T* const* s = a.checked(src.slices.data());
    T* const* d = a.checked(dst.slices.data());
    for (int m = 0; m < 3 && !warp; ++m) maps[m] = a.checked(mapSlices[m].data());

    VekStatus want = a.nulled() ? vekStsNullPtr : sourceChecks(vol, sv);
    if (want == vekStsOk && !validCuboid(warp ? dv : VekCuboid{0, 0, 0, roi.width, roi.height, roi.depth}))
        want = vekStsSize;
    if (want == vekStsOk && warp && degenerate(c)) want = vekStsAffineCoeff;
    if (want == vekStsOk && !validMode(mode)) want = vekStsInterpolation;
    if (want == vekStsOk && originOutside(vol, sv)) want = vekStsVoiOutside;

    const VekStatus got =
        warp ? ResizeFns<T>::warp(s, &vol, src.step(), &sv, d, dst.step(), &dv, c, mode)
             : ResizeFns<T>::remap(s, &vol, src.step(), &sv, maps[0], maps[1], maps[2], (dst.w + 2) * 4, d,
                                   dst.step(), &roi, mode);
    expect(warp ? "warp" : "remap", got, want, a, want != vekStsOk);
}

void filter(FuzzedDataProvider& in, Arena& a)
{
    const VekVolumeSize roi{in.ConsumeIntegralInRange<int>(0, 40), in.ConsumeIntegralInRange<int>(0, 4),
                            in.ConsumeIntegralInRange<int>(0, 3)};
    const int cube = in.ConsumeIntegralInRange<int>(0, 2);
    VekVolumeSize ks{in.ConsumeIntegralInRange<int>(0, 6), in.ConsumeIntegralInRange<int>(0, 6),
                     in.ConsumeIntegralInRange<int>(0, 6)};
    if (cube) ks = VekVolumeSize{2 * cube + 1, 2 * cube + 1, 2 * cube + 1};
    const int32_t anchor[3] = {in.ConsumeIntegralInRange<int>(-2, 6), in.ConsumeIntegralInRange<int>(-2, 6),
                               in.ConsumeIntegralInRange<int>(-2, 6)};
    const int divisor = in.ConsumeBool() ? in.ConsumeIntegral<int>() : 1 << in.ConsumeIntegralInRange<int>(0, 30);
    const bool ok = roi.width > 0 && roi.height > 0 && roi.depth > 0 && ks.width > 0 && ks.height > 0 && ks.depth > 0;
    const int taps = ok ? ks.width * ks.height * ks.depth : 1;
    int32_t* kernel = a.in<int32_t>(taps, true);
    if (kernel && in.ConsumeBool())
        for (int t = 0; t < taps; ++t) kernel[t] %= 3000;
    // The source covers the neighbourhood of every destination voxel.
    const int lo[3] = {anchor[0] - ks.width + 1, anchor[1] - ks.height + 1, anchor[2] - ks.depth + 1};
    const int n[3] = {ok ? roi.width + ks.width - 1 : 1, ok ? roi.height + ks.height - 1 : 1, ok ? roi.depth + ks.depth - 1 : 1};
    Volume<int16_t> src(a, n[0], n[1], n[2], false);
    Volume<int16_t> dst(a, ok ? roi.width : 1, ok ? roi.height : 1, ok ? roi.depth : 1, true);
    std::vector<const int16_t*> s;
    for (int z = 0; z < n[2]; ++z) s.push_back(src.slices[z] - lo[1] * src.row - lo[0]);
    int size = 64;
    if (ok) vekrFilterGetBufSize(&roi, &ks, 1, &size);
    uint8_t* buf = a.make<uint8_t>(size > 0 ? size : 0, fuzz::Scratch, true);
    const int16_t* const* ps = a.checked(s.data() - lo[2]);
    int16_t* const* pd = a.checked(dst.slices.data());
    VekStatus want = a.nulled() ? vekStsNullPtr : (!ok || divisor == 0) ? vekStsSize : vekStsOk;
    const VekStatus got = vekrFilter_16s_C1PV(ps, src.step(), pd, dst.step(), &roi, kernel, &ks, anchor, divisor, buf);
    expect("filter", got, want, a, want != vekStsOk);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzedDataProvider in(data, size);
    const int fn = in.ConsumeIntegralInRange<int>(0, 36);
    Arena a(in);
    const int count = in.ConsumeIntegralInRange<int>(-3, 40);
    const int64_t n = count > 0 ? count : 0;
    switch (fn) {
    case 0: {  // bound box: the box is written whatever the count
        const float* v = a.in<float>(3 * n, true);
        VekrBox3D* box = a.out<VekrBox3D>(1);
        expect("box", vekrSetBoundBox_32f(v, count, box), a.nulled() ? vekStsNullPtr : vekStsOk, a, a.nulled());
        break;
    }
    case 1: {
        int* s = a.out<int>(1, true);
        const VekStatus got = vekrTriangleAccelGetSize(s);
        expect("accel size", got, a.nulled() ? vekStsNullPtr : vekStsOk, a, a.nulled());
        FUZZ_REQUIRE(a.nulled() || *s == 40, "accel size %d", *s);
        break;
    }
    case 2: {  // KD build: pointers, counts, the parameters record, its fields, the budget
        const int vc = count, tc = in.ConsumeIntegralInRange<int>(-2, 40);
        const float* v = a.in<float>(3 * n, true);
        const int* t = a.ints(4 * (tc > 0 ? tc : 0), 0, vc > 0 ? vc - 1 : 0, true);
        VekrKDTreeNode** tree = a.out<VekrKDTreeNode*>(1, true);
        int* treeSize = a.out<int>(1, true);
        const bool simple = in.ConsumeBool();
        VekrKDTreeBuildParams p{in.ConsumeIntegralInRange<int>(0, 9) == 0 ? in.ConsumeIntegral<uint32_t>()
                                : simple ? VEKR_KDTREE_SIMPLE_MAGIC : VEKR_KDTREE_SAH_MAGIC,
                                in.ConsumeIntegralInRange<int>(-2, 52), float(fuzz::decodeDouble(in, -0.2, 1.2)),
                                in.ConsumeIntegralInRange<uint32_t>(0, 9000), nullptr};
        if (p.memoryMB > 40 && p.memoryMB < 8192) p.memoryMB = 32 + p.memoryMB % 9;
        const bool noParams = in.ConsumeIntegralInRange<int>(0, 15) == 0;
        if (vc == 0 && tc > 0) break;  // indices need vertices
        VekStatus want = a.nulled() ? vekStsNullPtr : (vc < 0 || tc < 0) ? vekStsSize : noParams ? vekStsNullPtr : vekStsOk;
        const bool depthBad = p.depthParam < 0 || p.depthParam > 50;
        if (want == vekStsOk) {
            if (p.magic == VEKR_KDTREE_SIMPLE_MAGIC) want = depthBad ? vekStsOutOfRange : vekStsOk;
            else if (p.magic != VEKR_KDTREE_SAH_MAGIC) want = vekStsBadArg;
            else if (depthBad || p.splitThreshold < 0.0f || p.splitThreshold > 1.0f) want = vekStsOutOfRange;
            else if ((p.memoryMB << 19) < 0x1000000u) want = vekStsNoMem;
        }
        const VekStatus got = vekrKDTreeBuildAlloc(tree, v, t, vc, tc, treeSize, noParams ? nullptr : &p);
        if (want == vekStsOk && p.magic == VEKR_KDTREE_SAH_MAGIC && got != vekStsOk)
            FUZZ_REQUIRE(got == vekStsMemBudget || got == vekStsNoMem, "kd build: status %d", got);
        else
            expect("kd build", got, want, a, want != vekStsOk);
        if (got == vekStsOk) vekrKDTreeFree(*tree);
        else FUZZ_REQUIRE(a.untouched(), "kd build wrote after %d", got);
        break;
    }
    case 3: {  // eye rays: only the record of the output planes is checked
        const VekSize ext{count, in.ConsumeIntegralInRange<int>(-2, 9)};
        const int64_t rays = ext.width > 0 && ext.height > 0 ? int64_t(ext.width) * ext.height : 0;
        const float* c = a.in<float>(9);
        float* const* d = a.planes<float>(rays, fuzz::Out);
        const VekSize step{in.ConsumeIntegralInRange<int>(-9, 9), in.ConsumeIntegralInRange<int>(-9, 9)};
        const VekStatus got = vekrCastEye_32f(c, c + 3, c + 6, in.ConsumeIntegralInRange<int>(-4, 4),
                                              in.ConsumeIntegralInRange<int>(-4, 4), step, d, ext);
        expect("cast eye", got, a.nulled() ? vekStsNullPtr : vekStsOk, a, a.nulled() || rays == 0);
        break;
    }
    case 4:
    case 5: {  // hit points, one origin or one per ray
        const float* dist = a.in<float>(n, true);
        const int* mask = a.in<int>(n, true);
        const float* const* dir = a.planes<const float>(n, fuzz::In);
        float* const* pts = a.planes<float>(n, fuzz::Out);
        const float eps = float(fuzz::decodeDouble(in, 0.9, 1.0));
        if (fn == 4) {
            counted("hit point S0", a, count, vekrHitPoint3DEpsS0_32f_M(a.in<float>(3), dir, dist, mask, pts, count, eps));
        } else {
            const float* const* org = a.planes<const float>(n, fuzz::In);
            counted("hit point M0", a, count, vekrHitPoint3DEpsM0_32f_M(org, dir, dist, mask, pts, count, eps));
        }
        break;
    }
    case 6: {
        const int vc = in.ConsumeIntegralInRange<int>(1, 30);
        const float* v = a.in<float>(3 * vc, true);
        const int* t = a.ints(4 * n, 0, vc - 1, true);
        counted("triangle normal", a, count, vekrTriangleNormal_32f(v, t, a.out<float>(3 * n, true), count));
        break;
    }
    case 7: {
        const int tc = in.ConsumeIntegralInRange<int>(1, 30);
        const float* tn = a.in<float>(3 * tc, true);
        const int* idx = a.ints(n, -3, tc - 1, true);
        counted("flat normal", a, count, vekrSurfFlatNormal_32f(tn, idx, a.planes<float>(n, fuzz::Out, false), count));
        break;
    }
    case 8: {
        const int vc = in.ConsumeIntegralInRange<int>(1, 30), tc = in.ConsumeIntegralInRange<int>(1, 30);
        const int stride = in.ConsumeIntegralInRange<int>(3, 6);
        const float* vn = a.in<float>(3 * vc, true);
        const int* tris = a.ints(int64_t(stride) * tc, 0, vc - 1, true);
        const int* idx = a.ints(n, -3, tc - 1, true);
        float* const* uv = reinterpret_cast<float* const*>(a.planes<float>(n, fuzz::In));
        counted("smooth normal", a, count,
                vekrSurfSmoothNormal_32f(vn, tris, idx, uv, a.planes<float>(n, fuzz::Out), count, stride));
        break;
    }
    case 9: {
        const float* const* d = a.planes<const float>(n, fuzz::In);
        const int* mask = a.in<int>(n, true);
        const float* const* nrm = a.planes<const float>(n, fuzz::In);
        counted("reflection", a, count, vekrCastReflectionRay_32f(d, mask, nrm, a.planes<float>(n, fuzz::Out), count));
        break;
    }
    case 10: {  // shadow rays: the mask is in/out
        const float* f = a.in<float>(n, true);
        const float* const* nrm = a.planes<const float>(n, fuzz::In);
        const float* const* p = a.planes<const float>(n, fuzz::In);
        int* mask = a.make<int>(n, fuzz::InOut, true);
        float* c = a.out<float>(n, true);
        float* const* s = a.planes<float>(n, fuzz::Out);
        counted("shadow", a, count, vekrCastShadowSO_32f(a.in<float>(3), f, nrm, p, mask, c, s, count));
        break;
    }
    case 11: {
        const float* const* p = a.planes<const float>(n, fuzz::In);
        const int* mask = a.in<int>(n, true);
        counted("attenuation", a, count, vekrDistAttenuationSO_32f_M(a.in<float>(3), p, mask, a.out<float>(n, true), count));
        break;
    }
    case 12: {
        const float* const* A = a.planes<const float>(n, fuzz::In);
        const float* const* B = a.planes<const float>(n, fuzz::In);
        const int* mask = a.in<int>(n, true);
        counted("dot", a, count, vekrDot_32f_P3C1M(A, B, mask, a.out<float>(n, true), count));
        break;
    }
    case 13: {  // in-place normals count as outputs: untouched below a count of 1
        const float* const* D = a.planes<const float>(n, fuzz::In);
        const int* mask = a.in<int>(n, true);
        float* const* N = a.planes<float>(n, fuzz::InOut);
        counted("dot change norm", a, count, vekrDotChangeNorm_32f_IM(D, mask, N, a.out<float>(n, true), count));
        break;
    }
    case 14: {
        const float* s = a.in<float>(n, true);
        const int* mask = a.in<int>(n, true);
        counted("mul P3", a, count, vekrMul_32f_C1P3IM(s, mask, a.planes<float>(n, fuzz::InOut), count));
        break;
    }
    case 15:
    case 16: {  // Mul checks nothing, Div only s and x
        const float* s = a.in<float>(n, fn == 16);
        const int* mask = a.in<int>(n);
        float* x = a.make<float>(n, fuzz::InOut, fn == 16);
        counted(fn == 15 ? "mul" : "div", a, count,
                fn == 15 ? vekrMul_32f_C1IM(s, mask, x, count) : vekrDiv_32f_C1IM(s, mask, x, count));
        break;
    }
    case 17: {  // the planes of A are read aligned whenever C's are
        const float* s = a.in<float>(n, true);
        const float* const* A = a.planes<const float>(n, fuzz::In);
        const int* mask = a.in<int>(n, true);
        float* const* C = a.planes<float>(n, fuzz::InOut);
        if (A && C)
            for (int c = 0; c < 3; ++c)
                if (((uintptr_t(A[c]) ^ uintptr_t(C[c])) & 15) != 0) return 0;
        counted("add mul mul", a, count, vekrAddMulMul_32f_AC1P3IM(a.in<float>(3), s, A, mask, C, count));
        break;
    }
    case 18:
    case 19: {  // SH size query and Init, any order, any type
        const uint32_t order = in.ConsumeBool() ? in.ConsumeIntegralInRange<uint32_t>(0, 40) : in.ConsumeIntegral<uint32_t>();
        const int32_t type = in.ConsumeIntegralInRange<int>(0, 3) ? in.ConsumeIntegralInRange<int>(0, 1) : in.ConsumeIntegral<int32_t>();
        const VekrSHType t = static_cast<VekrSHType>(type);
        uint32_t size = 0;
        const VekStatus q = vekrSHGetSize_32f(order, t, &size);
        const VekStatus wantQ = type == 0 ? (order > 15 ? vekStsSize : vekStsOk) : type == 1 ? vekStsOk : vekStsSelector;
        FUZZ_REQUIRE(q == wantQ, "SH size %d", q);
        if (fn == 18) {
            FUZZ_REQUIRE(q != vekStsOk || size == (type == 0 ? 16u : uint32_t(2 * ((((uint64_t(order) + 1) * (order + 2) / 2 * 4) + 15) & ~15ull) + 32)),
                         "SH size %u", size);
            break;
        }
        if (q == vekStsOk && size > (1u << 20)) break;
        uint8_t* st = a.make<uint8_t>(q == vekStsOk ? size : 64, fuzz::Out, true, in.ConsumeIntegralInRange<int>(0, 15));
        const uint64_t entries = (uint64_t(order) + 1) * (uint64_t(order) + 2) / 2;
        const VekStatus want = a.nulled() ? vekStsNullPtr : wantQ != vekStsOk ? wantQ
                             : (type == 1 && 2 * ((entries * 4 + 15) & ~15ull) + 32 > UINT32_MAX) ? vekStsSize : vekStsOk;
        expect("SH init", vekrSHInit_32f(reinterpret_cast<VekrSHState*>(st), order, t), want, a, want != vekStsOk);
        break;
    }
    case 20:
    case 21:
    case 22:
    case 23:
    case 24:
    case 25:
    case 26:
    case 27: {  // basis, band and the six transforms on a real or forged state
        const uint32_t order = in.ConsumeIntegralInRange<uint32_t>(0, 20);
        const int32_t type = in.ConsumeIntegralInRange<int>(0, 2);
        uint32_t size = 64;
        vekrSHGetSize_32f(order, static_cast<VekrSHType>(type), &size);
        uint8_t* stBlock = a.make<uint8_t>(size, fuzz::Scratch, false, in.ConsumeIntegralInRange<int>(0, 15));
        if (type < 2) {
            FUZZ_REQUIRE(vekrSHInit_32f(reinterpret_cast<VekrSHState*>(stBlock), order, static_cast<VekrSHType>(type)) ==
                         ((type == 0 && order > 15) ? vekStsSize : vekStsOk), "SH init");
            if (type == 0 && order > 15) break;
        } else {
            const uint32_t h[2] = {order, in.ConsumeIntegralInRange<uint32_t>(2, UINT32_MAX)};
            std::memcpy(stBlock, h, 8);
        }
        const uint32_t L = in.ConsumeIntegralInRange<uint32_t>(0, 22);
        const int64_t nc = int64_t(L + 1) * (L + 1);
        const float* x = a.in<float>(n, true);
        const float* y = a.in<float>(n, true);
        const float* z = a.in<float>(n, true);
        // Only the pointers this function takes are made, so that the null
        // one is always passed.
        float* out = fn == 20 || fn == 25 || fn == 27 ? a.out<float>(fn == 20 ? n * nc : 3 * n, true) : nullptr;
        const float* samples = fn == 22 || fn == 23 ? a.in<float>(3 * n, true) : nullptr;
        const float* const* sp = fn == 24 ? a.planes<const float>(n, fuzz::In) : nullptr;
        float* coef1 = fn == 22 ? a.make<float>(nc, fuzz::InOut, true) : nullptr;
        float* const* coef3 = fn == 23 || fn == 24 ? a.planes<float>(nc, fuzz::InOut) : nullptr;
        const float* coefIn = fn == 25 ? a.in<float>(nc, true) : nullptr;
        const float* const* coefIn3 = fn >= 26 ? a.planes<const float>(nc, fuzz::In) : nullptr;
        float* const* outP = fn == 26 ? a.planes<float>(n, fuzz::Out) : nullptr;
        const auto* st = fn == 21 ? nullptr : a.checked(reinterpret_cast<const VekrSHState*>(stBlock));
        VekStatus want = a.nulled() ? vekStsNullPtr : vekStsOk;
        if (fn == 21) {
            const uint32_t l = in.ConsumeIntegralInRange<uint32_t>(0, 17);
            if (want == vekStsOk) want = l > 15 ? vekStsSelector : count == 0 ? vekStsSize : vekStsOk;
            float* band = a.out<float>(n * (2 * l + 1), true);
            if (!band && want == vekStsOk) want = vekStsNullPtr;
            expect("SH band", vekrSHBand_32f(x, y, z, count, band, l), a.nulled() ? vekStsNullPtr : want, a,
                   a.nulled() || want != vekStsOk || count < 0);
            break;
        }
        if (want == vekStsOk) {
            if (count == 0) want = vekStsSize;
            else if (L > order || type > 1) want = vekStsSelector;
            else if (fn == 20 && L > 15) want = vekStsSelector;
        }
        VekStatus got = vekStsOk;
        switch (fn) {
        case 20: got = vekrSH_32f(x, y, z, uint32_t(count), out, L, st); break;
        case 22: got = vekrSHTFwd_32f_C1I(x, y, z, samples, count, coef1, L, st); break;
        case 23: got = vekrSHTFwd_32f_C3P3I(x, y, z, samples, count, coef3, L, st); break;
        case 24: got = vekrSHTFwd_32f_P3I(x, y, z, sp, count, coef3, L, st); break;
        case 25: got = vekrSHTInv_32f_C1(coefIn, L, x, y, z, out, count, st); break;
        case 26: got = vekrSHTInv_32f_P3(coefIn3, L, x, y, z, outP, count, st); break;
        default: got = vekrSHTInv_32f_P3C3(coefIn3, L, x, y, z, out, count, st); break;
        }
        expect("SH evaluation", got, want, a, want != vekStsOk || count < 0);
        break;
    }
    case 28:
    case 29: {  // buffer queries
        const VekCuboid sv = decodeCuboid(in, 9, 1 << 20), dv = decodeCuboid(in, 9, 1 << 20);
        const int ch = in.ConsumeIntegralInRange<int>(0, 3) ? 1 : in.ConsumeIntegralInRange<int>(-1, 4);
        const int mode = decodeMode(in);
        int* size = a.out<int>(1, true);
        const VekStatus want = a.nulled() ? vekStsNullPtr : !validCuboid(sv) || !validCuboid(dv) ? vekStsSize
                             : ch != 1 ? vekStsChannelCount : !validMode(mode) ? vekStsInterpolation : vekStsOk;
        const VekStatus got = fn == 28 ? vekrResizeGetBufSize(&sv, &dv, ch, mode, size)
                                       : vekrWarpAffineGetBufSize(&sv, &dv, ch, mode, size);
        expect("volume buffer size", got, want, a, want != vekStsOk);
        if (got == vekStsOk) {
            const int32_t ref = fn == 29 ? 0 : int32_t(uint32_t(resizeBytes(dv, mode) * unsigned(ownGetNumThreads())));
            FUZZ_REQUIRE(*size == ref, "buffer size %d, expected %d", *size, ref);
        }
        break;
    }
    case 30: {
        const VekVolumeSize roi{in.ConsumeIntegral<int>(), 2, 2}, ks{in.ConsumeIntegral<int>(), 1, in.ConsumeIntegralInRange<int>(0, 3)};
        const int ch = in.ConsumeIntegralInRange<int>(0, 3) ? 1 : 2;
        int* size = a.out<int>(1, true);
        const VekStatus want = a.nulled() ? vekStsNullPtr : roi.width < 1 || ks.width < 1 || ks.depth < 1 ? vekStsSize
                             : ch != 1 ? vekStsChannelCount : vekStsOk;
        expect("filter buffer size", vekrFilterGetBufSize(&roi, &ks, ch, size), want, a, want != vekStsOk);
        if (want == vekStsOk) {
            const uint64_t ref = ((uint64_t(roi.width) + 15) & ~15ull) * 4 + (uint64_t(ks.width) + 1) / 2 * 32 * ks.depth;
            FUZZ_REQUIRE(*size == int32_t(uint32_t(ref)), "filter buffer size %d", *size);
        }
        break;
    }
    case 31: resize<uint8_t>(in, a, in.ConsumeBool()); break;
    case 32: resize<uint16_t>(in, a, in.ConsumeBool()); break;
    case 33: resize<float>(in, a, in.ConsumeBool()); break;
    case 34: filter(in, a); break;
    default: {
        const int type = in.ConsumeIntegralInRange<int>(0, 2);
        const bool warp = fn == 35;
        if (type == 0) warpOrRemap<uint8_t>(in, a, warp);
        else if (type == 1) warpOrRemap<uint16_t>(in, a, warp);
        else warpOrRemap<float>(in, a, warp);
    }
    }
    return 0;
}
