// vekr.sh: real spherical harmonics of bands 0..15 for arrays of directions.
// Directions are normalised into aligned x, y, z planes once per call; the
// library then runs on chunks of them on the requested threads.
#include <algorithm>
#include <cmath>

#include "common.h"

namespace vekrpy {
namespace {

constexpr size_t kChunk = 4096;

struct Directions {
    std::vector<py::ssize_t> lead;
    size_t n = 0;
    Scratch<float> planes{0};
    const float* x() const { return planes.get(); }
    const float* y() const { return planes.get() + n; }
    const float* z() const { return planes.get() + 2 * n; }
    int parts() const { return static_cast<int>((n + kChunk - 1) / kChunk); }
    uint32_t count(int p) const { return uint32_t(std::min(kChunk, n - size_t(p) * kChunk)); }
};

Directions directions(py::object obj)
{
    py::array_t<float> d = vectors3(obj, "directions");
    Directions out;
    out.lead.assign(d.shape(), d.shape() + d.ndim() - 1);
    out.n = d.size() / 3;
    if (out.n == 0) valueError("directions must not be empty");
    out.planes = Scratch<float>(out.n * 3);
    const float* p = d.data();
    for (size_t i = 0; i < out.n; ++i) {
        const double x = p[i * 3], y = p[i * 3 + 1], z = p[i * 3 + 2];
        const double len = std::sqrt(x * x + y * y + z * z);
        if (!(len > 0.0) || !std::isfinite(len))
            valueError("directions must be finite and non-zero");
        out.planes[i] = float(x / len);
        out.planes[out.n + i] = float(y / len);
        out.planes[2 * out.n + i] = float(z / len);
    }
    return out;
}

uint32_t bandLimit(int L, const char* what)
{
    if (L < 0 || L > 15) valueError(std::string(what) + " must be between 0 and 15");
    return uint32_t(L);
}

// A state of the chosen method, sized and initialised for bands 0..L.
struct State {
    Scratch<uint8_t> mem{0};
    State(uint32_t L, const std::string& method)
    {
        VekrSHType type;
        if (method == "direct")
            type = vekrSHDirect;
        else if (method == "recurrence")
            type = vekrSHRecurrence;
        else
            valueError("method must be 'direct' or 'recurrence'");
        uint32_t size = 0;
        check(vekrSHGetSize_32f(L, type, &size), "vekrSHGetSize_32f");
        mem = Scratch<uint8_t>(size);
        check(vekrSHInit_32f(get(), L, type), "vekrSHInit_32f");
    }
    VekrSHState* get() const { return reinterpret_cast<VekrSHState*>(mem.get()); }
};

py::array_t<float> floats(py::object obj, const char* what)
{
    return py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(
        asArray(obj, what, {"float32", "float64"}));
}

std::vector<py::ssize_t> shapeOf(const py::array& a)
{
    return std::vector<py::ssize_t>(a.shape(), a.shape() + a.ndim());
}

py::array basis(py::object dirs, int L, const std::string& method, py::object threads)
{
    const uint32_t l = bandLimit(L, "L");
    const Directions d = directions(dirs);
    State st(l, method);
    const size_t k = size_t(l + 1) * (l + 1);
    auto shape = d.lead;
    shape.push_back(py::ssize_t(k));
    py::array_t<float> out(shape);
    float* po = out.mutable_data();
    runParts(d.parts(), threadCount(threads), [&](int p) {
        const size_t s = size_t(p) * kChunk;
        check(vekrSH_32f(d.x() + s, d.y() + s, d.z() + s, d.count(p), po + s * k, l, st.get()),
              "vekrSH_32f");
    });
    return std::move(out);
}

py::array band(py::object dirs, int l, py::object threads)
{
    const uint32_t b = bandLimit(l, "l");
    const Directions d = directions(dirs);
    auto shape = d.lead;
    shape.push_back(py::ssize_t(2 * b + 1));
    py::array_t<float> out(shape);
    float* po = out.mutable_data();
    runParts(d.parts(), threadCount(threads), [&](int p) {
        const size_t s = size_t(p) * kChunk;
        check(vekrSHBand_32f(d.x() + s, d.y() + s, d.z() + s, int(d.count(p)),
                             po + s * (2 * b + 1), b),
              "vekrSHBand_32f");
    });
    return std::move(out);
}

py::array project(py::object dirs, py::object values, int L, py::object scaleArg,
                  const std::string& method, py::object threads)
{
    const uint32_t l = bandLimit(L, "L");
    const Directions d = directions(dirs);
    py::array_t<float> v = floats(values, "values");
    auto vs = shapeOf(v);
    int channels = 1;
    if (vs != d.lead) {
        auto lead3 = d.lead;
        lead3.push_back(3);
        if (vs != lead3)
            valueError("values must have the directions' shape (...) or (..., 3)");
        channels = 3;
    }
    State st(l, method);
    const size_t k = size_t(l + 1) * (l + 1);
    const int parts = d.parts();
    std::vector<float> partial(size_t(parts) * channels * k, 0.0f);
    const float* pv = v.data();
    runParts(parts, threadCount(threads), [&](int p) {
        const size_t s = size_t(p) * kChunk;
        float* acc = &partial[size_t(p) * channels * k];
        if (channels == 1) {
            check(vekrSHTFwd_32f_C1I(d.x() + s, d.y() + s, d.z() + s, pv + s, int(d.count(p)),
                                     acc, l, st.get()),
                  "vekrSHTFwd_32f_C1I");
        } else {
            float* const c[3] = {acc, acc + k, acc + 2 * k};
            check(vekrSHTFwd_32f_C3P3I(d.x() + s, d.y() + s, d.z() + s, pv + s * 3,
                                       int(d.count(p)), c, l, st.get()),
                  "vekrSHTFwd_32f_C3P3I");
        }
    });
    const double scale =
        scaleArg.is_none() ? 4.0 * M_PI / double(d.n) : scaleArg.cast<double>();
    std::vector<py::ssize_t> shape{py::ssize_t(k)};
    if (channels == 3) shape.push_back(3);
    py::array_t<float> out(shape);
    float* po = out.mutable_data();
    for (size_t i = 0; i < k; ++i)
        for (int c = 0; c < channels; ++c) {
            double sum = 0.0;
            for (int p = 0; p < parts; ++p) sum += partial[(size_t(p) * channels + c) * k + i];
            po[i * channels + c] = float(sum * scale);
        }
    return std::move(out);
}

py::array reconstruct(py::object coeffs, py::object dirs, const std::string& method,
                      py::object threads)
{
    py::array_t<float> c = floats(coeffs, "coeffs");
    if (c.ndim() < 1 || c.ndim() > 2 || (c.ndim() == 2 && c.shape(1) != 3))
        valueError("coeffs must have shape ((L+1)**2,) or ((L+1)**2, 3)");
    const size_t k = size_t(c.shape(0));
    const uint32_t l = uint32_t(std::lround(std::sqrt(double(k)))) - 1;
    if (k == 0 || size_t(l + 1) * (l + 1) != k || l > 15)
        valueError("coeffs must hold (L+1)**2 values per channel with L between 0 and 15");
    const int channels = c.ndim() == 2 ? 3 : 1;
    const Directions d = directions(dirs);
    State st(l, method);
    Scratch<float> planes(k * 3);
    for (size_t i = 0; i < k; ++i)
        for (int ch = 0; ch < channels; ++ch) planes[ch * k + i] = c.data()[i * channels + ch];
    const float* const cp[3] = {planes.get(), planes.get() + k, planes.get() + 2 * k};
    auto shape = d.lead;
    if (channels == 3) shape.push_back(3);
    py::array_t<float> out(shape);
    float* po = out.mutable_data();
    runParts(d.parts(), threadCount(threads), [&](int p) {
        const size_t s = size_t(p) * kChunk;
        if (channels == 1)
            check(vekrSHTInv_32f_C1(cp[0], l, d.x() + s, d.y() + s, d.z() + s, po + s,
                                    int(d.count(p)), st.get()),
                  "vekrSHTInv_32f_C1");
        else
            check(vekrSHTInv_32f_P3C3(cp, l, d.x() + s, d.y() + s, d.z() + s, po + s * 3,
                                      int(d.count(p)), st.get()),
                  "vekrSHTInv_32f_P3C3");
    });
    return std::move(out);
}

}  // namespace

void initSh(py::module_& root)
{
    using namespace py::literals;
    py::module_ m = root.def_submodule("sh", "Real spherical harmonics, bands 0 to 15.");
    m.def("basis", &basis, "directions"_a, "L"_a, "method"_a = "direct", py::kw_only(),
          "threads"_a = py::none(), R"(All real spherical-harmonic basis functions of bands 0..L.

Parameters
----------
directions : array_like, shape (..., 3), float32 or float64
    Directions; normalised here (they need not have unit length).
L : int
    Highest band, 0 to 15.
method : {"direct", "recurrence"}
    Closed-form polynomials (rounded once from float64) or the tabulated
    three-term recurrence in float32.  Both give the same functions.
threads : int, optional

Returns
-------
ndarray of float32, shape (..., (L+1)**2)
    Basis function (l, m) at index ``l*l + l + m``.  The basis is the
    orthonormal real one with the Condon-Shortley phase:
    ``Y(l, m) = sqrt(2) * K * P_l^m(cos theta) * cos(m phi)`` for m > 0,
    ``K * P_l^0`` for m = 0 and ``sqrt(2) * K * P_l^|m| * sin(|m| phi)`` for
    m < 0, where ``P_l^m`` includes the factor (-1)**m.  So
    ``Y(1, -1) = -0.4886 y`` and ``Y(1, 1) = -0.4886 x``.

Raises
------
TypeError
    directions not float32 or float64.
ValueError
    Shape not (..., 3), a zero or non-finite direction, L out of range, an
    unknown method.
)");
    m.def("band", &band, "directions"_a, "l"_a, py::kw_only(), "threads"_a = py::none(),
          R"(The 2l + 1 basis functions of one band l (closed forms).

Parameters
----------
directions : array_like, shape (..., 3), float32 or float64
l : int
    Band, 0 to 15.
threads : int, optional

Returns
-------
ndarray of float32, shape (..., 2*l + 1)
    Entry ``l + m`` holds Y(l, m); equal to the columns ``l*l .. l*l + 2l``
    of :func:`basis`.
)");
    m.def("project", &project, "directions"_a, "values"_a, "L"_a, py::kw_only(),
          "scale"_a = py::none(), "method"_a = "direct", "threads"_a = py::none(),
          R"(Project samples of a function on the sphere onto bands 0..L.

Parameters
----------
directions : array_like, shape (..., 3), float32 or float64
values : array_like, float32 or float64, shape (...) or (..., 3)
    One sample per direction, one or three channels.
L : int
    Highest band, 0 to 15.
scale : float, optional
    Factor applied to the sum ``sum_i values_i * Y(directions_i)``.  Default
    ``4 * pi / N``, the Monte Carlo weight of N uniformly spread directions.
method : {"direct", "recurrence"}
threads : int, optional

Returns
-------
ndarray of float32, shape ((L+1)**2,) or ((L+1)**2, 3)
)");
    m.def("reconstruct", &reconstruct, "coeffs"_a, "directions"_a, py::kw_only(),
          "method"_a = "direct", "threads"_a = py::none(),
          R"(Evaluate a spherical-harmonic expansion at directions.

Parameters
----------
coeffs : array_like, shape ((L+1)**2,) or ((L+1)**2, 3), float32 or float64
directions : array_like, shape (..., 3), float32 or float64
method : {"direct", "recurrence"}
threads : int, optional

Returns
-------
ndarray of float32, shape (...) or (..., 3)
    ``sum_k coeffs[k] * Y_k(direction)`` per channel, summed in float32.
)");
}

}  // namespace vekrpy
