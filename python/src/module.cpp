// The extension module vekr._vekr: version, ISA level, the shared argument
// helpers and the error translation; the families register themselves.
#include <cmath>

#include "common.h"
#include "core/isa.h"
#include "vekr_status.h"

namespace vekrpy {

namespace {

std::string joinNames(std::initializer_list<const char*> names)
{
    std::string s;
    size_t i = 0;
    for (const char* n : names) {
        if (i > 0) s += (i + 1 == names.size()) ? " or " : ", ";
        s += n;
        ++i;
    }
    return s;
}

}  // namespace

std::string dtypeName(const py::array& a)
{
    return py::str(a.dtype()).cast<std::string>();
}

py::array asArray(py::handle obj, const char* what, std::initializer_list<const char*> accepted)
{
    py::array a = py::array::ensure(obj);
    if (!a) typeError(std::string(what) + " must be an array of " + joinNames(accepted));
    const std::string name = dtypeName(a);
    for (const char* n : accepted)
        if (name == n) return a;
    typeError(std::string(what) + " must be " + joinNames(accepted) + ", got " + name);
}

void requireNdim(const py::array& a, const char* what, std::initializer_list<int> ndims)
{
    for (int n : ndims)
        if (a.ndim() == n) return;
    std::string s;
    for (int n : ndims) s += (s.empty() ? "" : " or ") + std::to_string(n);
    valueError(std::string(what) + " must have " + s + " dimensions, got " +
               std::to_string(a.ndim()));
}

py::array_t<float> vectors3(py::handle obj, const char* what)
{
    py::array a = asArray(obj, what, {"float32", "float64"});
    if (a.ndim() < 1 || a.shape(a.ndim() - 1) != 3)
        valueError(std::string(what) + " must have shape (..., 3)");
    return py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(a);
}

std::array<float, 3> vector3(py::handle obj, const char* what)
{
    py::array_t<double, py::array::c_style | py::array::forcecast> a;
    try {
        a = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(obj);
    } catch (py::error_already_set&) {
    }
    if (!a) typeError(std::string(what) + " must be three real numbers");
    if (a.size() != 3 || a.ndim() != 1) valueError(std::string(what) + " must have shape (3,)");
    std::array<float, 3> v{};
    for (int c = 0; c < 3; ++c) {
        if (!std::isfinite(a.at(c))) valueError(std::string(what) + " must be finite");
        v[c] = static_cast<float>(a.at(c));
    }
    return v;
}

int threadCount(py::object threads)
{
    if (threads.is_none()) return std::max(1, omp_get_max_threads());
    const long n = threads.cast<long>();
    if (n < 1 || n > 1024) valueError("threads must be between 1 and 1024");
    return static_cast<int>(n);
}

}  // namespace vekrpy

PYBIND11_MODULE(_vekr, m)
{
    namespace py = pybind11;
    using namespace vekrpy;
    m.doc() = "Compiled part of the vekr package; use the names re-exported by `vekr`.";

    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p) std::rethrow_exception(p);
        } catch (const StatusError& e) {
            py::object cls = py::module_::import("vekr._errors").attr("VekrError");
            py::object err = cls(e.code, vekrStatusName(e.code), e.function);
            PyErr_SetObject(cls.ptr(), err.ptr());
        }
    });

    m.def(
        "version",
        [] {
            const VekLibraryVersion* v = vekrGetLibVersion();
            py::dict d;
            d["major"] = v->major;
            d["minor"] = v->minor;
            d["major_build"] = v->majorBuild;
            d["build"] = v->build;
            d["target_cpu"] = std::string(v->targetCpu, strnlen(v->targetCpu, 4));
            d["name"] = v->name;
            d["version"] = v->version;
            d["build_date"] = v->buildDate;
            return d;
        },
        R"(The library's version record.

Returns
-------
dict
    ``major``, ``minor``, ``major_build``, ``build`` (int), ``target_cpu``,
    ``name``, ``version`` and ``build_date`` (str), as the C function
    ``vekrGetLibVersion`` reports them.
)");
    m.def(
        "isa", [] { return vekr::isaName(vekr::bestIsa()); },
        R"(The instruction-set level the library's kernels run at on this processor.

Returns
-------
str
    ``"avx512"``, ``"avx2"`` or ``"sse41"`` (SSE4.2, the baseline).
)");

    initRays(m);
    initSh(m);
    initNdimage(m);
}
