// Shared pieces of the Python bindings: argument checks that raise the
// documented exceptions, the error type for negative library statuses,
// aligned scratch planes and the worker-thread helper.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <omp.h>

#include <array>
#include <cstdint>
#include <exception>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "vekr.h"

namespace vekrpy {

namespace py = pybind11;

// A negative library status; turned into vekr.VekrError (with .code and
// .name) when it reaches Python.  Plain C++ so worker threads may throw it.
struct StatusError {
    VekStatus code;
    const char* function;
};
inline void check(VekStatus st, const char* function)
{
    if (st < 0) throw StatusError{st, function};
}

[[noreturn]] inline void valueError(const std::string& msg)
{
    throw py::value_error(msg);
}
[[noreturn]] inline void typeError(const std::string& msg)
{
    throw py::type_error(msg);
}

// Accepted dtypes are listed by their numpy names.
template <class T>
inline bool isDtype(const py::array& a)
{
    return a.dtype().is(py::dtype::of<T>());
}
std::string dtypeName(const py::array& a);

// `obj` as an ndarray (no copy for ndarrays); TypeError naming `accepted`
// when its dtype is none of them ("float32", "float64", "int16", ...).
py::array asArray(py::handle obj, const char* what, std::initializer_list<const char*> accepted);

// A float array of shape (..., 3) made C-contiguous float32 (copied only when
// it is not already), after the dtype check: float32 or float64.
py::array_t<float> vectors3(py::handle obj, const char* what);
// A single 3-vector (any real numbers), checked to be finite.
std::array<float, 3> vector3(py::handle obj, const char* what);

void requireNdim(const py::array& a, const char* what, std::initializer_list<int> ndims);

// Thread count from the `threads=` argument: None gives the library's own
// count (the OpenMP maximum), otherwise at least 1.
int threadCount(py::object threads);

// Runs fn(part) for part in [0, parts) on up to `threads` threads with the
// GIL released.  Each worker asks the library for one OpenMP thread so the
// calls inside it do not fork again.  The first exception is rethrown.
template <class Fn>
void runParts(int parts, int threads, Fn&& fn)
{
    if (parts <= 0) return;
    if (threads > parts) threads = parts;
    if (threads < 1) threads = 1;
    std::vector<std::exception_ptr> errors(threads);
    auto worker = [&](int t) {
        omp_set_num_threads(1);
        try {
            for (int p = t; p < parts; p += threads) fn(p);
        } catch (...) {
            errors[t] = std::current_exception();
        }
    };
    {
        py::gil_scoped_release release;
        if (threads == 1) {
            const int saved = omp_get_max_threads();
            worker(0);
            omp_set_num_threads(saved);
        } else {
            std::vector<std::thread> pool;
            for (int t = 0; t < threads; ++t) pool.emplace_back(worker, t);
            for (auto& th : pool) th.join();
        }
    }
    for (auto& e : errors)
        if (e) std::rethrow_exception(e);
}

// 64-byte aligned scratch memory of n elements (never handed to Python).
template <class T>
struct Scratch {
    struct Free {
        void operator()(T* p) const { std::free(p); }
    };
    std::unique_ptr<T, Free> mem;
    explicit Scratch(size_t n)
        : mem(static_cast<T*>(std::aligned_alloc(64, ((n * sizeof(T) + 63) / 64 + 1) * 64)))
    {
        if (!mem) throw std::bad_alloc();
    }
    T* get() const { return mem.get(); }
    T& operator[](size_t i) const { return mem.get()[i]; }
};

// Scratch of at least `bytes` (64-byte aligned) that stays with the calling
// thread and is reused by every chunk it runs, so the chunks of a large call
// allocate (and fault in) nothing.  Two slots per thread.
inline void* threadScratch(int slot, size_t bytes)
{
    struct Slot {
        Scratch<uint8_t> mem{64};
        size_t capacity = 64;
    };
    thread_local Slot slots[2];
    Slot& s = slots[slot];
    if (s.capacity < bytes) {
        s.mem = Scratch<uint8_t>(bytes);
        s.capacity = bytes;
    }
    return s.mem.get();
}

void initRays(py::module_& m);
void initSh(py::module_& m);
void initNdimage(py::module_& m);

}  // namespace vekrpy
