// vekr.ndimage: zoom, affine_transform, map_coordinates and convolve on 3D
// numpy volumes (axes z, y, x as numpy orders them, x fastest).  Volumes are
// handed to the library as slice pointers, so any z stride works without a
// copy; rows must be contiguous.  Work is split into slabs of destination
// slices, one library call per slab, on the requested threads.
#include <algorithm>
#include <cmath>
#include <limits>

#include <pybind11/stl.h>

#include "common.h"

namespace vekrpy {
namespace {

template <class T>
struct Lib;
template <>
struct Lib<uint8_t> {
    static constexpr auto resize = &vekrResize_8u_C1PV;
    static constexpr auto warp = &vekrWarpAffine_8u_C1PV;
    static constexpr auto remap = &vekrRemap_8u_C1PV;
};
template <>
struct Lib<uint16_t> {
    static constexpr auto resize = &vekrResize_16u_C1PV;
    static constexpr auto warp = &vekrWarpAffine_16u_C1PV;
    static constexpr auto remap = &vekrRemap_16u_C1PV;
};
template <>
struct Lib<float> {
    static constexpr auto resize = &vekrResize_32f_C1PV;
    static constexpr auto warp = &vekrWarpAffine_32f_C1PV;
    static constexpr auto remap = &vekrRemap_32f_C1PV;
};

// Calls f(T{}) with T the element type of `a` (uint8, uint16 or float32).
template <class F>
decltype(auto) byType(const py::array& a, F&& f)
{
    if (isDtype<uint8_t>(a)) return f(uint8_t{});
    if (isDtype<uint16_t>(a)) return f(uint16_t{});
    return f(float{});
}

bool addressable(const py::array& a)
{
    const auto item = a.itemsize();
    return a.ndim() == 3 && a.strides(2) == item && a.strides(1) > 0 &&
           a.strides(1) % item == 0 && a.strides(1) <= INT32_MAX && a.shape(0) <= INT32_MAX &&
           a.shape(1) <= INT32_MAX && a.shape(2) <= INT32_MAX;
}

// A 3D volume as the library sees it: sizes, row step and slice pointers.
struct Volume {
    py::array a;
    int D = 0, H = 0, W = 0, step = 0;
    template <class T>
    std::vector<T*> slices() const
    {
        std::vector<T*> s(static_cast<size_t>(D));
        auto* base = static_cast<char*>(const_cast<void*>(a.data()));
        for (int z = 0; z < D; ++z) s[size_t(z)] = reinterpret_cast<T*>(base + z * a.strides(0));
        return s;
    }
    VekVolumeSize size() const { return {W, H, D}; }
};

Volume volume(py::array a)
{
    if (!addressable(a)) a = py::module_::import("numpy").attr("ascontiguousarray")(a);
    Volume v;
    v.a = a;
    v.D = int(a.shape(0));
    v.H = int(a.shape(1));
    v.W = int(a.shape(2));
    v.step = int(a.strides(1));
    return v;
}

Volume input(py::object obj, std::initializer_list<const char*> accepted)
{
    py::array a = asArray(obj, "input", accepted);
    requireNdim(a, "input", {3});
    if (a.size() == 0) valueError("input must not be empty");
    return volume(a);
}

// The destination: the caller's `output` when given (checked; a scratch copy
// when its rows are not contiguous, copied back by finish()), else a new array.
struct Output {
    py::object user;
    Volume v;
    Output(py::object output, const std::vector<py::ssize_t>& shape, const py::array& like)
    {
        for (py::ssize_t s : shape)
            if (s < 1 || s > INT32_MAX) valueError("output shape must be positive");
        if (output.is_none()) {
            v = volume(py::array(like.dtype(), shape));
            return;
        }
        py::array o = py::array::ensure(output);
        if (!o || !o.writeable()) typeError("output must be a writeable ndarray");
        if (!o.dtype().is(like.dtype()))
            typeError("output must be " + dtypeName(like) + ", got " + dtypeName(o));
        if (std::vector<py::ssize_t>(o.shape(), o.shape() + o.ndim()) != shape)
            valueError("output has the wrong shape");
        user = o;
        v = volume(addressable(o) ? o : py::array(like.dtype(), shape));
    }
    py::object finish()
    {
        if (user && !user.is(v.a)) user[py::ellipsis()] = v.a;
        return user ? user : py::object(v.a);
    }
    // Fills with cval converted to the element type (rounded, clipped).
    void fill(double cval)
    {
        byType(v.a, [&](auto t) {
            using T = decltype(t);
            T value;
            if constexpr (std::is_same_v<T, float>) {
                value = float(cval);
            } else {
                const double lim = double(std::numeric_limits<T>::max());
                value = T(std::nearbyint(std::clamp(cval, 0.0, lim)));
            }
            for (T* s : v.slices<T>())
                for (int y = 0; y < v.H; ++y) {
                    T* row = reinterpret_cast<T*>(reinterpret_cast<char*>(s) + size_t(y) * v.step);
                    std::fill(row, row + v.W, value);
                }
        });
    }
};

int interpolation(py::object order)
{
    if (py::isinstance<py::str>(order)) {
        const std::string s = order.cast<std::string>();
        if (s == "nearest") return vekInterNearest;
        if (s == "linear") return vekInterLinear;
        if (s == "cubic" || s == "lagrange") return vekInterCubic;
        if (s == "bspline") return vekInterCubicBSpline;
        if (s == "catmull-rom") return vekInterCubicCatmullRom;
        if (s == "b05c03") return vekInterCubicB05C03;
    } else if (py::isinstance<py::int_>(order)) {
        switch (order.cast<int>()) {
        case 0: return vekInterNearest;
        case 1: return vekInterLinear;
        case 3: return vekInterCubic;
        }
    }
    valueError("order must be 0, 1, 3 or one of 'nearest', 'linear', 'cubic', 'bspline', "
               "'catmull-rom', 'b05c03'");
}

// [begin, end) of slab p when `depth` slices are cut into `parts` slabs.
std::pair<int, int> slab(int depth, int parts, int p)
{
    return {int(int64_t(depth) * p / parts), int(int64_t(depth) * (p + 1) / parts)};
}

std::array<double, 3> triple(py::object obj, const char* what, double lowest)
{
    auto a = py::array_t<double, py::array::forcecast>::ensure(obj);
    if (!a || (a.ndim() != 0 && !(a.ndim() == 1 && a.size() == 3)))
        valueError(std::string(what) + " must be a number or a sequence of 3");
    std::array<double, 3> v{};
    for (int i = 0; i < 3; ++i) {
        v[size_t(i)] = a.data()[a.ndim() == 0 ? 0 : i];
        if (!std::isfinite(v[size_t(i)]) || v[size_t(i)] <= lowest)
            valueError(std::string(what) + " must be finite" + (lowest > -1e300 ? " and positive" : ""));
    }
    return v;
}

const std::initializer_list<const char*> kResampled = {"uint8", "uint16", "float32"};

py::object zoom(py::object inputObj, py::object zoomArg, py::object order, py::object output,
                py::object threads)
{
    const Volume src = input(inputObj, kResampled);
    const auto z = triple(zoomArg, "zoom", 0.0);
    const int interp = interpolation(order);
    const int in[3] = {src.D, src.H, src.W};
    std::vector<py::ssize_t> shape(3);
    for (int i = 0; i < 3; ++i) {
        const double s = std::nearbyint(in[i] * z[size_t(i)]);
        if (!(s >= 1.0 && s <= INT32_MAX)) valueError("zoom gives an empty or too large output");
        shape[size_t(i)] = py::ssize_t(s);
    }
    Output out(output, shape, src.a);
    const Volume& dst = out.v;
    const int n = std::min(threadCount(threads), dst.D);
    byType(src.a, [&](auto t) {
        using T = decltype(t);
        const auto ps = src.slices<const T>();
        const auto pd = dst.slices<T>();
        const VekVolumeSize vs = src.size();
        const VekCuboid sv{0, 0, 0, src.W, src.H, src.D};
        runParts(n, n, [&](int p) {
            const auto [z0, z1] = slab(dst.D, n, p);
            const VekCuboid dv{0, 0, z0, dst.W, dst.H, z1 - z0};
            int bytes = 0;
            check(vekrResizeGetBufSize(&sv, &dv, 1, interp, &bytes), "vekrResizeGetBufSize");
            // Kept by the thread: the blocks a Dask worker thread runs reuse it.
            auto* buf = static_cast<uint8_t*>(threadScratch(0, size_t(bytes)));
            check(Lib<T>::resize(ps.data(), &vs, src.step, &sv, pd.data(), dst.step, &dv,
                                 double(dst.W) / src.W, double(dst.H) / src.H,
                                 double(dst.D) / src.D, 0, 0, 0, interp, buf),
                  "vekrResize_C1PV");
        });
    });
    return out.finish();
}

// The library's forward coefficients (x, y, z rows) from a scipy-style
// matrix and offset mapping output to input coordinates (z, y, x).
void warpCoeffs(py::object matrixArg, py::object offsetArg, double coeffs[3][4])
{
    auto m = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(matrixArg);
    if (!m) typeError("matrix must be an array of real numbers");
    // A (zyx) maps output coordinates to input coordinates: in = A out + b.
    double A[3][3] = {}, b[3] = {};
    const auto off = triple(offsetArg, "offset", -std::numeric_limits<double>::infinity());
    std::copy(off.begin(), off.end(), b);
    const double* p = m.data();
    if (m.ndim() == 1 && m.shape(0) == 3) {
        for (int i = 0; i < 3; ++i) A[i][i] = p[i];
    } else if (m.ndim() == 2 && m.shape(0) >= 3 && m.shape(0) <= 4 && m.shape(1) >= 3 &&
               m.shape(1) <= 4 && (m.shape(0) == 3 || m.shape(1) == 4)) {
        const auto cols = m.shape(1);
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j) A[i][j] = p[i * cols + j];
            if (cols == 4) b[i] = p[i * cols + 3];
        }
        if (m.shape(0) == 4 && !(p[12] == 0 && p[13] == 0 && p[14] == 0 && p[15] == 1))
            valueError("the last row of a 4 x 4 matrix must be (0, 0, 0, 1)");
    } else {
        valueError("matrix must have shape (3,), (3, 3), (3, 4) or (4, 4)");
    }
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            if (!std::isfinite(A[i][j])) valueError("matrix must be finite");
    const double det = A[0][0] * (A[1][1] * A[2][2] - A[1][2] * A[2][1]) -
                       A[0][1] * (A[1][0] * A[2][2] - A[1][2] * A[2][0]) +
                       A[0][2] * (A[1][0] * A[2][1] - A[1][1] * A[2][0]);
    if (!(std::fabs(det) > 0.0) || std::fabs(det) >= 1e10)
        valueError("matrix must be invertible, with a determinant below 1e10 in magnitude");
    // The library takes the forward map (input to output) in x, y, z order.
    double inv[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            const int i1 = (j + 1) % 3, i2 = (j + 2) % 3, j1 = (i + 1) % 3, j2 = (i + 2) % 3;
            inv[i][j] = (A[i1][j1] * A[i2][j2] - A[i1][j2] * A[i2][j1]) / det;
        }
    for (int r = 0; r < 3; ++r) {
        double t = 0;
        for (int c = 0; c < 3; ++c) {
            coeffs[r][c] = inv[2 - r][2 - c];
            t -= inv[2 - r][c] * b[c];
        }
        coeffs[r][3] = t;
    }
}

py::object affineTransform(py::object inputObj, py::object matrixArg, py::object offsetArg,
                           py::object outputShape, py::object output, py::object order,
                           double cval, py::object threads)
{
    const Volume src = input(inputObj, kResampled);
    double coeffs[3][4];
    warpCoeffs(matrixArg, offsetArg, coeffs);
    const int interp = interpolation(order);
    std::vector<py::ssize_t> shape(src.a.shape(), src.a.shape() + 3);
    if (!outputShape.is_none()) shape = outputShape.cast<std::vector<py::ssize_t>>();
    if (shape.size() != 3) valueError("output_shape must have 3 entries");
    Output out(output, shape, src.a);
    byType(src.a, [&](auto t) {
        using T = decltype(t);
        const auto ps = src.slices<const T>();
        const VekVolumeSize vs = src.size();
        const VekCuboid sv{0, 0, 0, src.W, src.H, src.D};
        // The library's coefficient checks run first on a one-voxel scratch
        // destination, so a refused matrix leaves the output untouched.
        T probe = T();
        T* probeSlice = &probe;
        const VekCuboid one{0, 0, 0, 1, 1, 1};
        check(Lib<T>::warp(ps.data(), &vs, src.step, &sv, &probeSlice, int(sizeof(T)), &one,
                           coeffs, interp),
              "vekrWarpAffine_C1PV");
        out.fill(cval);
        const Volume& dst = out.v;
        const int n = std::min(threadCount(threads), dst.D);
        const auto pd = dst.slices<T>();
        runParts(n, n, [&](int p) {
            const auto [z0, z1] = slab(dst.D, n, p);
            const VekCuboid dv{0, 0, z0, dst.W, dst.H, z1 - z0};
            check(Lib<T>::warp(ps.data(), &vs, src.step, &sv, pd.data(), dst.step, &dv, coeffs,
                               interp),
                  "vekrWarpAffine_C1PV");
        });
    });
    return out.finish();
}

// Samples the source slices `ps` (a volume of size `vs` with row step `step`,
// read inside `region`) at coordinates of shape (3, ...) into `output` (a new
// array of like's dtype when None).  Points outside the region get cval.  The
// points are addressed flat, one library call per run of kRun points.
template <class T>
py::object remap(const std::vector<const T*>& ps, VekVolumeSize vs, int step, VekCuboid region,
                 const py::array& like, py::object coordinates, py::object output, py::object order,
                 double cval, py::object threads)
{
    py::array ca = asArray(coordinates, "coordinates", {"float32", "float64"});
    if (ca.ndim() < 1 || ca.shape(0) != 3) valueError("coordinates must have shape (3, ...)");
    auto c = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(ca);
    const int interp = interpolation(order);
    std::vector<py::ssize_t> shape(c.shape() + 1, c.shape() + c.ndim());
    const size_t n = size_t(c.size() / 3);
    constexpr size_t kRun = 65536;
    py::array res = output.is_none() ? py::array(like.dtype(), shape) : py::array::ensure(output);
    if (!res || !res.writeable()) typeError("output must be a writeable ndarray");
    if (!res.dtype().is(like.dtype()))
        typeError("output must be " + dtypeName(like) + ", got " + dtypeName(res));
    if (std::vector<py::ssize_t>(res.shape(), res.shape() + res.ndim()) != shape)
        valueError("output must have the shape coordinates.shape[1:]");
    py::array flat = (res.flags() & py::array::c_style) ? res : py::array(res.dtype(), shape);
    flat.attr("fill")(cval);
    if (n > 0) {
        const float* cx = c.data() + 2 * n;
        const float* cy = c.data() + n;
        const float* cz = c.data();
        T* pd = static_cast<T*>(flat.mutable_data());
        runParts(int((n + kRun - 1) / kRun), threadCount(threads), [&](int p) {
            const size_t s = size_t(p) * kRun;
            const int cnt = int(std::min(kRun, n - s));
            const float *mx = cx + s, *my = cy + s, *mz = cz + s;
            T* d = pd + s;
            const VekVolumeSize roi{cnt, 1, 1};
            check(Lib<T>::remap(ps.data(), &vs, step, &region, &mx, &my, &mz, int(cnt * sizeof(float)),
                                &d, int(cnt * sizeof(T)), &roi, interp),
                  "vekrRemap_C1PV");
        });
    }
    if (!flat.is(res)) res[py::ellipsis()] = flat;
    return std::move(res);
}

py::object mapCoordinates(py::object inputObj, py::object coordinates, py::object output,
                          py::object order, double cval, py::object threads)
{
    const Volume src = input(inputObj, kResampled);
    return byType(src.a, [&](auto t) {
        using T = decltype(t);
        return remap<T>(src.slices<const T>(), src.size(), src.step, {0, 0, 0, src.W, src.H, src.D},
                        src.a, coordinates, output, order, cval, threads);
    });
}

// Index of padded coordinate i in an axis of n voxels under a scipy border
// mode; -1 stands for the constant value.
int64_t borderIndex(int64_t i, int64_t n, const std::string& mode)
{
    if (i >= 0 && i < n) return i;
    if (mode == "nearest") return i < 0 ? 0 : n - 1;
    if (mode == "wrap") return ((i % n) + n) % n;
    if (mode == "reflect") {
        i = ((i % (2 * n)) + 2 * n) % (2 * n);
        return i < n ? i : 2 * n - 1 - i;
    }
    if (mode == "mirror") {
        if (n == 1) return 0;
        i = ((i % (2 * n - 2)) + 2 * n - 2) % (2 * n - 2);
        return i < n ? i : 2 * n - 2 - i;
    }
    return -1;  // constant
}

// A checked convolution: the kernel as int32 (x fastest) with its sizes, its
// anchor (the centre, as scipy places it for origin 0) and the voxels read
// below the anchor per axis (x, y, z); divisor, border mode and value.
struct Kernel {
    std::vector<int32_t> w;
    VekVolumeSize ks{};
    int anchor[3]{}, below[3]{};
    int divisor = 1;
    std::string mode;
    int16_t cval = 0;
};

Kernel kernel(py::object weightsObj, long divisor, const std::string& mode, int cval)
{
    py::array wa = asArray(weightsObj, "weights", {"int8", "int16", "int32", "int64", "uint8", "uint16"});
    requireNdim(wa, "weights", {3});
    if (wa.size() == 0) valueError("weights must not be empty");
    if (mode != "reflect" && mode != "mirror" && mode != "nearest" && mode != "wrap" &&
        mode != "constant")
        valueError("mode must be 'reflect', 'mirror', 'nearest', 'wrap' or 'constant'");
    if (divisor == 0 || divisor < INT32_MIN || divisor > INT32_MAX)
        valueError("divisor must be a non-zero 32-bit integer");
    if (cval < -32768 || cval > 32767) valueError("cval must fit int16");
    auto w64 = py::array_t<int64_t, py::array::c_style | py::array::forcecast>::ensure(wa);
    Kernel k;
    k.w.resize(size_t(w64.size()));
    int64_t absSum = 0;
    for (size_t i = 0; i < k.w.size(); ++i) {
        absSum += std::llabs(w64.data()[i]);
        if (absSum * 32768 >= (int64_t(1) << 31))
            valueError("weights too large: sums could overflow 32 bits (sum of |w| < 65536)");
        k.w[i] = int32_t(w64.data()[i]);
    }
    k.ks = {int(wa.shape(2)), int(wa.shape(1)), int(wa.shape(0))};
    const int sizes[3] = {k.ks.width, k.ks.height, k.ks.depth};
    for (int a = 0; a < 3; ++a) {
        k.anchor[a] = sizes[a] / 2;
        k.below[a] = sizes[a] - 1 - k.anchor[a];
    }
    k.divisor = int(divisor);
    k.mode = mode;
    k.cval = int16_t(cval);
    return k;
}

// Convolves the box [lo, hi) (x, y, z) of a volume of `size` voxels.  `src`
// holds the volume's slices by z (those the box reads; null elsewhere) and
// `dst` the output slices lo[2] .. hi[2] - 1, both addressed by whole-volume
// rows and columns.  The part of the box whose neighbourhood lies inside the
// volume is read in place, in slabs for the threads; the shells along the
// volume's borders are read through copies padded by the border mode.
void convolveBox(const std::vector<const int16_t*>& src, int srcStep, const int size[3], const int lo[3],
                 const int hi[3], const std::vector<int16_t*>& dst, int dstStep, const Kernel& k,
                 int nThreads)
{
    struct Box {
        int lo[3], hi[3];
        bool direct;
    };
    const int kext[3] = {k.ks.width, k.ks.height, k.ks.depth};
    int ilo[3], ihi[3];
    bool hasInterior = true;
    for (int a = 0; a < 3; ++a) {
        ilo[a] = std::min(k.below[a], size[a]);
        ihi[a] = std::max(ilo[a], size[a] - k.anchor[a]);
        hasInterior = hasInterior && ilo[a] < ihi[a];
    }
    // The volume as interior and shells: along z over everything, along y
    // inside the z interior, along x inside both.
    std::vector<Box> whole;
    if (!hasInterior) {
        whole.push_back({{0, 0, 0}, {size[0], size[1], size[2]}, false});
    } else {
        whole.push_back({{ilo[0], ilo[1], ilo[2]}, {ihi[0], ihi[1], ihi[2]}, true});
        for (int a = 2; a >= 0; --a) {
            Box l{{0, 0, 0}, {size[0], size[1], size[2]}, false}, h = l;
            for (int b = a + 1; b < 3; ++b) {
                l.lo[b] = h.lo[b] = ilo[b];
                l.hi[b] = h.hi[b] = ihi[b];
            }
            l.hi[a] = ilo[a];
            h.lo[a] = ihi[a];
            whole.push_back(l);
            whole.push_back(h);
        }
    }
    std::vector<Box> boxes;
    for (Box b : whole) {
        bool empty = false;
        for (int a = 0; a < 3; ++a) {
            b.lo[a] = std::max(b.lo[a], lo[a]);
            b.hi[a] = std::min(b.hi[a], hi[a]);
            empty = empty || b.lo[a] >= b.hi[a];
        }
        if (empty) continue;
        const int slabs = b.direct ? std::min(nThreads, b.hi[2] - b.lo[2]) : 1;
        for (int p = 0; p < slabs; ++p) {
            const auto [z0, z1] = slab(b.hi[2] - b.lo[2], slabs, p);
            Box s = b;
            s.lo[2] = b.lo[2] + z0;
            s.hi[2] = b.lo[2] + z1;
            boxes.push_back(s);
        }
    }
    runParts(int(boxes.size()), nThreads, [&](int p) {
        const Box& bx = boxes[size_t(p)];
        const int ext[3] = {bx.hi[0] - bx.lo[0], bx.hi[1] - bx.lo[1], bx.hi[2] - bx.lo[2]};
        const VekVolumeSize roi{ext[0], ext[1], ext[2]};
        // The filter indexes the source slice pointers from -below[2] on.
        std::vector<const int16_t*> ps(static_cast<size_t>(ext[2] + kext[2] - 1));
        int step = srcStep;
        std::vector<int16_t> padded;
        if (bx.direct) {
            for (size_t z = 0; z < ps.size(); ++z)
                ps[z] = reinterpret_cast<const int16_t*>(
                                reinterpret_cast<const char*>(src[size_t(bx.lo[2] - k.below[2]) + z]) +
                                std::intptr_t(bx.lo[1]) * srcStep) +
                        bx.lo[0];
        } else {
            // Copy the box with its neighbourhood, borders filled by the mode.
            int pe[3];
            std::vector<int64_t> idx[3];
            for (int a = 0; a < 3; ++a) {
                pe[a] = ext[a] + kext[a] - 1;
                for (int i = 0; i < pe[a]; ++i)
                    idx[a].push_back(borderIndex(int64_t(bx.lo[a]) - k.below[a] + i, size[a], k.mode));
            }
            padded.resize(size_t(pe[0]) * pe[1] * pe[2]);
            size_t q = 0;
            for (int z = 0; z < pe[2]; ++z)
                for (int y = 0; y < pe[1]; ++y)
                    for (int x = 0; x < pe[0]; ++x, ++q) {
                        const int64_t sz = idx[2][size_t(z)], sy = idx[1][size_t(y)], sx = idx[0][size_t(x)];
                        padded[q] = (sz < 0 || sy < 0 || sx < 0)
                                        ? k.cval
                                        : reinterpret_cast<const int16_t*>(
                                              reinterpret_cast<const char*>(src[size_t(sz)]) +
                                              std::intptr_t(sy) * srcStep)[sx];
                    }
            step = pe[0] * 2;
            for (size_t z = 0; z < ps.size(); ++z)
                ps[z] = padded.data() + (z * pe[1] + k.below[1]) * pe[0] + k.below[0];
        }
        std::vector<int16_t*> pd(static_cast<size_t>(ext[2]));
        for (int z = 0; z < ext[2]; ++z)
            pd[size_t(z)] = reinterpret_cast<int16_t*>(reinterpret_cast<char*>(dst[size_t(bx.lo[2] - lo[2] + z)]) +
                                                       std::intptr_t(bx.lo[1]) * dstStep) +
                            bx.lo[0];
        int bytes = 0;
        check(vekrFilterGetBufSize(&roi, &k.ks, 1, &bytes), "vekrFilterGetBufSize");
        Scratch<uint8_t> buf(static_cast<size_t>(bytes));
        check(vekrFilter_16s_C1PV(ps.data() + k.below[2], step, pd.data(), dstStep, &roi, k.w.data(), &k.ks,
                                  k.anchor, k.divisor, buf.get()),
              "vekrFilter_16s_C1PV");
    });
}

py::object convolve(py::object inputObj, py::object weightsObj, long divisor, py::object output,
                    const std::string& mode, int cval, py::object threads)
{
    const Volume src = input(inputObj, {"int16"});
    const Kernel k = kernel(weightsObj, divisor, mode, cval);
    Output out(output, {src.D, src.H, src.W}, src.a);
    const int size[3] = {src.W, src.H, src.D}, origin[3] = {0, 0, 0};
    convolveBox(src.slices<const int16_t>(), src.step, size, origin, size, out.v.slices<int16_t>(), out.v.step,
                k, threadCount(threads));
    return out.finish();
}

// ---- Blocks of a larger volume (used by vekr.dask) ----
// A block call reads pieces of a whole volume of shape `full` (z, y, x):
// arrays with their origins, following each other along z over one y/x
// window.  The library is handed slice pointers addressing the whole volume,
// so its coordinates, border clamping and small-volume rules are those of the
// whole volume; only voxels inside the pieces may be read, which the caller
// guarantees by passing the pieces the call needs.  Pieces are read in place,
// so the chunks of a volume cut along z alone make a source without a copy.
// The result goes to `output` when given (a block of the final array), else
// to a new array.

std::array<int, 3> ints3(py::object obj, const char* what)
{
    const auto v = obj.cast<std::vector<py::ssize_t>>();
    if (v.size() != 3) valueError(std::string(what) + " must have 3 entries");
    std::array<int, 3> r{};
    for (int i = 0; i < 3; ++i) {
        if (v[size_t(i)] < 0 || v[size_t(i)] > INT32_MAX) valueError(std::string(what) + " out of range");
        r[size_t(i)] = int(v[size_t(i)]);
    }
    return r;
}

struct Pieces {
    std::vector<Volume> parts;
    std::vector<int> z0;
    std::array<int, 3> full{}, origin{};  // origin: the first piece's z, the window's y and x
    int step = 0;

    Pieces(py::object arrays, py::object origins, py::object fullShape,
           std::initializer_list<const char*> accepted)
    {
        full = ints3(fullShape, "source shape");
        const auto items = arrays.cast<std::vector<py::object>>();
        const auto orgs = origins.cast<std::vector<py::object>>();
        if (items.empty() || items.size() != orgs.size())
            valueError("source pieces and origins must pair up");
        bool sameStep = true;
        for (size_t i = 0; i < items.size(); ++i) {
            Volume v = input(items[i], accepted);
            const auto o = ints3(orgs[i], "source origin");
            if (i == 0) {
                origin = o;
            } else {
                if (!v.a.dtype().is(parts[0].a.dtype())) typeError("source pieces must share one dtype");
                if (o[1] != origin[1] || o[2] != origin[2] || v.H != parts[0].H || v.W != parts[0].W)
                    valueError("source pieces must share one y/x window");
                if (o[0] < z0.back() + parts.back().D) valueError("source pieces must follow each other along z");
            }
            if (full[0] < 1 || full[1] < 1 || full[2] < 1 || o[0] + v.D > full[0] || o[1] + v.H > full[1] ||
                o[2] + v.W > full[2])
                valueError("block lies outside the volume");
            sameStep = sameStep && (parts.empty() || v.step == parts[0].step);
            parts.push_back(std::move(v));
            z0.push_back(o[0]);
        }
        // One row step for all: copies only for pieces that are not chunks of one layout.
        if (!sameStep)
            for (Volume& v : parts) v = volume(py::module_::import("numpy").attr("ascontiguousarray")(v.a));
        step = parts[0].step;
    }
    const py::array& like() const { return parts[0].a; }
    // Slice pointers for z = 0 .. full[0] - 1, moved back by the window's
    // origin.  Slices no piece holds are null, or with `clamp` the nearest
    // held slice below (above, before the first).
    template <class T>
    std::vector<T*> slices(bool clamp) const
    {
        std::vector<T*> s(size_t(full[0]), nullptr);
        const std::intptr_t back =
                std::intptr_t(origin[1]) * step + std::intptr_t(origin[2]) * std::intptr_t(sizeof(T));
        for (size_t i = 0; i < parts.size(); ++i) {
            const auto own = parts[i].slices<T>();
            for (size_t z = 0; z < own.size(); ++z)
                s[size_t(z0[i]) + z] = reinterpret_cast<T*>(reinterpret_cast<std::intptr_t>(own[z]) - back);
        }
        if (clamp) {
            T* held = s[size_t(z0[0])];
            for (T*& p : s) held = p ? p : (p = held);
        }
        return s;
    }
};

// Pointers to the slices 0 .. n-1 of a volume of which `v` holds the part at
// `origin`; slices outside the block point at the nearest block slice.
template <class T>
std::vector<T*> placed(const Volume& v, const std::array<int, 3>& origin, int n)
{
    const auto own = v.slices<T>();
    std::vector<T*> s(static_cast<size_t>(n));
    const std::intptr_t back = std::intptr_t(origin[1]) * v.step + std::intptr_t(origin[2]) * std::intptr_t(sizeof(T));
    for (int z = 0; z < n; ++z) {
        const int k = std::clamp(z - origin[0], 0, v.D - 1);
        s[size_t(z)] = reinterpret_cast<T*>(reinterpret_cast<std::intptr_t>(own[size_t(k)]) - back);
    }
    return s;
}

// The output block at d0 of shape ds, checked to lie in an output of `full`.
std::array<int, 3> blockIn(const std::array<int, 3>& d0, py::object shape, const std::array<int, 3>& full)
{
    const auto ds = ints3(shape, "block shape");
    for (int i = 0; i < 3; ++i)
        if (ds[size_t(i)] < 1 || d0[size_t(i)] + ds[size_t(i)] > full[size_t(i)])
            valueError("output block lies outside the output");
    return ds;
}

// The source region for warp and remap blocks: from just inside the block to
// the far end of the volume.  Its upper bounds are the volume's, so points are
// judged and clamped as in the whole volume; every point the block serves
// lies at least two voxels above its lower bounds (the caller's reach).  The
// row kernels read the region's lowest voxel and the one below it for lanes
// that are passed over, so both must lie in the block.
VekCuboid blockRegion(const std::array<int, 3>& origin, const std::array<int, 3>& full)
{
    int o[3];
    for (int i = 0; i < 3; ++i) o[i] = origin[size_t(i)] > 0 ? origin[size_t(i)] + 1 : 0;
    return {o[2], o[1], o[0], full[2] - o[2], full[1] - o[1], full[0] - o[0]};
}

py::object zoomBlock(py::object pieces, py::object origins, py::object srcFull, py::object dstFull,
                     py::object dstOrigin, py::object dstShape, py::object order, py::object threads,
                     py::object output)
{
    const Pieces src(pieces, origins, srcFull, kResampled);
    const auto& sf = src.full;
    const auto df = ints3(dstFull, "output shape"), d0 = ints3(dstOrigin, "output origin");
    const auto ds = blockIn(d0, dstShape, df);
    const int interp = interpolation(order);
    Output out(output, std::vector<py::ssize_t>(ds.begin(), ds.end()), src.like());
    const Volume& dst = out.v;
    const int n = std::min(threadCount(threads), dst.D);
    byType(src.like(), [&](auto t) {
        using T = decltype(t);
        const auto ps = src.slices<const T>(true);
        const auto pd = placed<T>(dst, d0, d0[0] + ds[0]);
        const VekVolumeSize vs{sf[2], sf[1], sf[0]};
        const VekCuboid sv{0, 0, 0, sf[2], sf[1], sf[0]};
        runParts(n, n, [&](int p) {
            const auto [z0, z1] = slab(ds[0], n, p);
            const VekCuboid dv{d0[2], d0[1], d0[0] + z0, ds[2], ds[1], z1 - z0};
            int bytes = 0;
            check(vekrResizeGetBufSize(&sv, &dv, 1, interp, &bytes), "vekrResizeGetBufSize");
            // Kept by the thread: the blocks a Dask worker thread runs reuse it.
            auto* buf = static_cast<uint8_t*>(threadScratch(0, size_t(bytes)));
            check(Lib<T>::resize(ps.data(), &vs, src.step, &sv, pd.data(), dst.step, &dv,
                                 double(df[2]) / sf[2], double(df[1]) / sf[1], double(df[0]) / sf[0],
                                 0, 0, 0, interp, buf),
                  "vekrResize_C1PV");
        });
    });
    return out.finish();
}

// Output slices z0 .. z0 + depth - 1 over whole output planes of shape
// (H, W): the library steps the mapping along rows from the plane's corner,
// so only whole planes reproduce the whole-volume rounding.
py::object affineBlock(py::object pieces, py::object origins, py::object srcFull, py::object matrixArg,
                       py::object offsetArg, py::object dstFull, int z0, int depth, py::object order,
                       double cval, py::object threads, py::object output)
{
    const Pieces src(pieces, origins, srcFull, kResampled);
    const auto& sf = src.full;
    const auto df = ints3(dstFull, "output shape");
    double coeffs[3][4];
    warpCoeffs(matrixArg, offsetArg, coeffs);
    const int interp = interpolation(order);
    if (depth < 1 || z0 < 0 || z0 + depth > df[0] || df[1] < 1 || df[2] < 1)
        valueError("output block lies outside the output");
    Output out(output, {depth, df[1], df[2]}, src.like());
    out.fill(cval);
    const Volume& dst = out.v;
    const int n = std::min(threadCount(threads), depth);
    byType(src.like(), [&](auto t) {
        using T = decltype(t);
        const auto ps = src.slices<const T>(true);
        const auto pd = placed<T>(dst, {z0, 0, 0}, z0 + depth);
        const VekVolumeSize vs{sf[2], sf[1], sf[0]};
        const VekCuboid sv = blockRegion(src.origin, sf);
        runParts(n, n, [&](int p) {
            const auto [a, b] = slab(depth, n, p);
            const VekCuboid dv{0, 0, z0 + a, df[2], df[1], b - a};
            check(Lib<T>::warp(ps.data(), &vs, src.step, &sv, pd.data(), dst.step, &dv, coeffs, interp),
                  "vekrWarpAffine_C1PV");
        });
    });
    return out.finish();
}

py::object remapBlock(py::object pieces, py::object origins, py::object srcFull, py::object coordinates,
                      py::object order, double cval, py::object threads, py::object output)
{
    const Pieces src(pieces, origins, srcFull, kResampled);
    const auto& sf = src.full;
    return byType(src.like(), [&](auto t) {
        using T = decltype(t);
        return remap<T>(src.slices<const T>(true), {sf[2], sf[1], sf[0]}, src.step, blockRegion(src.origin, sf),
                        src.like(), coordinates, output, order, cval, threads);
    });
}

// The output block at dstOrigin of the whole volume's convolution.
py::object convolveBlock(py::object pieces, py::object origins, py::object srcFull, py::object dstOrigin,
                         py::object dstShape, py::object weightsObj, long divisor, const std::string& mode,
                         int cval, py::object threads, py::object output)
{
    const Pieces src(pieces, origins, srcFull, {"int16"});
    const auto& sf = src.full;
    const auto d0 = ints3(dstOrigin, "output origin");
    const auto ds = blockIn(d0, dstShape, sf);
    const Kernel k = kernel(weightsObj, divisor, mode, cval);
    const auto ps = src.slices<const int16_t>(false);
    // Every voxel the block reads, placed by the border mode, must be held.
    const auto& head = src.parts[0];
    const int held[3][2] = {{0, sf[0]}, {src.origin[1], src.origin[1] + head.H}, {src.origin[2], src.origin[2] + head.W}};
    for (int a = 0; a < 3; ++a) {
        const int ka = 2 - a;  // the kernel's axes run x, y, z
        for (int64_t i = int64_t(d0[size_t(a)]) - k.below[ka]; i < int64_t(d0[size_t(a)]) + ds[size_t(a)] + k.anchor[ka]; ++i) {
            const int64_t j = borderIndex(i, sf[size_t(a)], mode);
            if (j >= 0 && (j < held[a][0] || j >= held[a][1] || (a == 0 && !ps[size_t(j)])))
                valueError("source pieces miss voxels the block reads");
        }
    }
    Output out(output, std::vector<py::ssize_t>(ds.begin(), ds.end()), src.like());
    const auto pd = placed<int16_t>(out.v, d0, d0[0] + ds[0]);
    const int size[3] = {sf[2], sf[1], sf[0]}, lo[3] = {d0[2], d0[1], d0[0]};
    const int hi[3] = {lo[0] + ds[2], lo[1] + ds[1], lo[2] + ds[0]};
    convolveBox(ps, src.step, size, lo, hi, std::vector<int16_t*>(pd.begin() + d0[0], pd.end()), out.v.step, k,
                threadCount(threads));
    return out.finish();
}

}  // namespace

void initNdimage(py::module_& root)
{
    using namespace py::literals;
    py::module_ m = root.def_submodule(
        "ndimage", "Resampling and filtering of 3D volumes, shaped like scipy.ndimage.");
    m.def("zoom", &zoom, "input"_a, "zoom"_a, "order"_a = 1, "output"_a = py::none(),
          py::kw_only(), "threads"_a = py::none(), R"(Resize a volume by per-axis factors.

Parameters
----------
input : ndarray, shape (D, H, W), uint8, uint16 or float32
zoom : float or sequence of 3 floats
    Factors along (z, y, x).  The output shape is ``round(input.shape * zoom)``
    as in scipy.
order : int or str, optional
    0 nearest, 1 linear (default), 3 four-point Lagrange cubic, or by name
    ``"nearest"``, ``"linear"``, ``"cubic"``, ``"catmull-rom"`` (interpolating)
    and the smoothing ``"bspline"`` and ``"b05c03"`` cubics.
output : ndarray, optional
    Array of the output shape and the input's dtype to write into.
threads : int, optional
    Default: the library's thread count.

Returns
-------
ndarray
    The resized volume (``output`` when given).

Notes
-----
Voxel centres are aligned: output voxel ``d`` samples input coordinate
``(d + 0.5) * n_in / n_out - 0.5``, which is scipy's ``grid_mode=True``;
borders repeat the edge voxel (scipy ``mode="nearest"``).  With order 1 the
result equals ``scipy.ndimage.zoom(input, zoom, order=1, grid_mode=True,
mode="nearest")`` to float32 rounding (about 1e-5 relative) for float32 and
within 1 for integer types, which round half up.  With order 0 both pick the
voxel containing the mapped centre, but where the centre lies exactly on a
voxel boundary (downsampling by an even factor) vekr takes the lower voxel
and scipy the upper.  Order 3 is not scipy's prefiltered spline.
)");
    m.def("affine_transform", &affineTransform, "input"_a, "matrix"_a, "offset"_a = 0.0,
          "output_shape"_a = py::none(), "output"_a = py::none(), "order"_a = 1,
          "cval"_a = 0.0, py::kw_only(), "threads"_a = py::none(),
          R"(Apply an affine transform given, as in scipy, from output to input coordinates.

Parameters
----------
input : ndarray, shape (D, H, W), uint8, uint16 or float32
matrix : array_like
    (3,) diagonal, (3, 3), (3, 4) or (4, 4) homogeneous; input coordinate
    ``= matrix @ output coordinate + offset`` in (z, y, x) order.
offset : float or sequence of 3 floats, optional
    Ignored when the matrix carries a translation column.
output_shape : tuple of 3 ints, optional
    Default: the input's shape.
output : ndarray, optional
order : int or str, optional
    As for :func:`zoom` (default 1).
cval : float, optional
    Value of output voxels that map outside the input.
threads : int, optional

Returns
-------
ndarray

Raises
------
ValueError
    Non-finite or singular matrix (or one whose determinant is 1e10 or more
    in magnitude), wrong shapes.
VekrError
    The library refuses transforms whose inverse has a zero diagonal (for
    example pure axis permutations): code -56, ``vekStsAffineCoeff``.

Notes
-----
Points within ``[0, n - 1]`` on every axis are interpolated, the rest get
``cval``: scipy's ``mode="constant"``.  With order 1 and 0 the result matches
scipy to float32 rounding (order 0 rounds ties to even); integer types may
differ by 1.  Cubic weights come from tables sampled 0.01 apart.  Inputs
thinner than 4 voxels on an axis are interpolated linearly instead of
cubically, thinner than 2 by nearest voxel.
)");
    m.def("map_coordinates", &mapCoordinates, "input"_a, "coordinates"_a,
          "output"_a = py::none(), "order"_a = 1, "cval"_a = 0.0, py::kw_only(),
          "threads"_a = py::none(), R"(Sample a volume at given coordinates.

Parameters
----------
input : ndarray, shape (D, H, W), uint8, uint16 or float32
coordinates : array_like, shape (3, ...), float32 or float64
    (z, y, x) input coordinates per output point; rounded to float32.
output : ndarray, optional
    Shape ``coordinates.shape[1:]``, the input's dtype.
order : int or str, optional
    As for :func:`zoom` (default 1).
cval : float, optional
    Value of points outside ``[0, n - 1]`` on some axis.
threads : int, optional

Returns
-------
ndarray, shape coordinates.shape[1:]

Notes
-----
Matches ``scipy.ndimage.map_coordinates(..., mode="constant")`` for order 0
(ties rounded to even) and 1, to float32 rounding for float32 and within 1
for integer types.  Cubic taps are clamped to the volume.
)");
    m.def("convolve", &convolve, "input"_a, "weights"_a, "divisor"_a = 1, "output"_a = py::none(),
          "mode"_a = "reflect", "cval"_a = 0, py::kw_only(), "threads"_a = py::none(),
          R"(Integer 3D convolution of an int16 volume, divided and saturated.

Parameters
----------
input : ndarray, shape (D, H, W), int16
weights : array_like, 3D, integer dtype
    Convolution kernel; the sum of its absolute values must stay below 65536.
divisor : int, optional
    The sum is divided by it: exactly with rounding half to even for
    powers of two, via ``rint(sum * (1 / float32(divisor)))`` otherwise.
output : ndarray, optional
mode : {"reflect", "mirror", "nearest", "wrap", "constant"}
    Border extension, with scipy's meanings (default "reflect").
cval : int, optional
    Border value for ``mode="constant"``.
threads : int, optional

Returns
-------
ndarray of int16

Notes
-----
With divisor 1 the result equals ``scipy.ndimage.convolve`` on int64 data
(kernel centred as scipy centres it for ``origin=0``) saturated to int16.
)");
    // Blocks of a larger volume, for vekr.dask.
    m.def("_zoom_block", &zoomBlock);
    m.def("_affine_block", &affineBlock);
    m.def("_remap_block", &remapBlock);
    m.def("_convolve_block", &convolveBlock);
}

}  // namespace vekrpy
