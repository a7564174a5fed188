// Shared pieces of the libFuzzer targets: buffers placed at decoded
// alignments, outputs filled with a sentinel that must survive refused calls,
// one decoded pointer that may be null, and the failure report.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "vekr.h"

#define FUZZ_REQUIRE(cond, ...)                                                  \
    do {                                                                         \
        if (!(cond)) {                                                           \
            std::fprintf(stderr, "%s:%d: %s: ", __FILE__, __LINE__, #cond);      \
            std::fprintf(stderr, __VA_ARGS__);                                   \
            std::fprintf(stderr, "\n");                                          \
            std::abort();                                                        \
        }                                                                        \
    } while (0)

namespace fuzz {

constexpr uint8_t kSentinel = 0xA7;

// Owns every buffer of one call.  Each buffer is exactly as large as asked
// (so the sanitizers see any access past it), placed 0, 4, 8 or 12 bytes
// past a 16-byte boundary as decoded.  Outputs start sentinel-filled, in/out
// buffers with decoded bytes; both are remembered and compared by
// untouched().  Of the pointers a function checks, the one decoded as
// `nullAt` (counting in the order they are made) comes back null.
enum Kind { In, Out, InOut, Scratch };  // Scratch: zeros, not compared

class Arena {
public:
    explicit Arena(FuzzedDataProvider& in) : in_(in)
    {
        const uint8_t n = in.ConsumeIntegral<uint8_t>();
        nullAt_ = n < 208 ? -1 : n % 8;
        alignMode_ = in.ConsumeIntegralInRange<int>(0, 2);
    }

    // n elements of T; `shift` forces the distance past a 64-byte boundary.
    template <class T>
    T* make(int64_t n, Kind kind, bool checked = false, int shift = -1)
    {
        if (checked && checks_++ == nullAt_) {
            nulled_ = true;
            return nullptr;
        }
        const size_t bytes = size_t(n > 0 ? n : 0) * sizeof(T);
        if (shift < 0)
            shift = sizeof(T) != 4 || alignMode_ == 0 ? 0
                    : alignMode_ == 1                ? 4
                                                     : 4 * in_.ConsumeIntegralInRange<int>(0, 3);
        // The block ends where the buffer ends, so that overruns are caught.
        blocks_.emplace_back(static_cast<uint8_t*>(
            ::operator new(shift + bytes + (bytes == 0), std::align_val_t{64})));
        uint8_t* p = blocks_.back().get() + shift;
        if (kind == Out || kind == Scratch) {
            std::memset(p, kind == Out ? kSentinel : 0, bytes);
        } else {
            const std::vector<uint8_t> d = in_.ConsumeBytes<uint8_t>(bytes);
            std::memset(p, 0, bytes);
            if (!d.empty()) std::memcpy(p, d.data(), d.size());
        }
        if (kind == Out || kind == InOut) outs_.push_back({p, std::vector<uint8_t>(p, p + bytes)});
        return reinterpret_cast<T*>(p);
    }
    template <class T>
    T* out(int64_t n, bool checked = false) { return make<T>(n, Out, checked); }
    template <class T>
    T* in(int64_t n, bool checked = false) { return make<T>(n, In, checked); }
    // An input whose elements are decoded in [lo, hi].
    int* ints(int64_t n, int lo, int hi, bool checked = false)
    {
        int* p = make<int>(n, In, checked);
        for (int64_t i = 0; p && i < n; ++i) p[i] = in_.ConsumeIntegralInRange<int>(lo, hi);
        return p;
    }
    // A planar triple: the record is the checked pointer, the planes never null.
    template <class T>
    T* const* planes(int64_t n, Kind kind, bool checked = true)
    {
        T** rec = make<T*>(3, Scratch, checked);
        if (!rec) return nullptr;
        for (int c = 0; c < 3; ++c) rec[c] = make<T>(n, kind);
        return rec;
    }
    // p itself, unless this checked pointer is the one to be null.
    template <class P>
    P checked(P p)
    {
        if (checks_++ != nullAt_) return p;
        nulled_ = true;
        return nullptr;
    }
    bool nulled() const { return nulled_; }
    // True when no output or in/out byte has changed since it was made.
    bool untouched() const
    {
        for (const auto& o : outs_)
            if (!o.before.empty() && std::memcmp(o.p, o.before.data(), o.before.size()) != 0) return false;
        return true;
    }

private:
    struct Free {
        void operator()(uint8_t* p) const { ::operator delete(p, std::align_val_t{64}); }
    };
    struct Saved {
        const uint8_t* p;
        std::vector<uint8_t> before;
    };
    FuzzedDataProvider& in_;
    std::vector<std::unique_ptr<uint8_t, Free>> blocks_;
    std::vector<Saved> outs_;
    int nullAt_ = -1, alignMode_ = 0, checks_ = 0;
    bool nulled_ = false;
};

// Decoded doubles: mostly ordinary values in [lo, hi], sometimes one of the
// values that break careless arithmetic.
inline double decodeDouble(FuzzedDataProvider& in, double lo, double hi)
{
    static const double special[] = {0.0, -1.0, 1e-300, 5e-324, 1e300, -1e300,
                                     __builtin_nan(""), __builtin_inf(), -__builtin_inf()};
    const uint8_t k = in.ConsumeIntegral<uint8_t>();
    if (k >= 232) return special[k % 9];
    return lo + (hi - lo) * in.ConsumeProbability<double>();
}

}  // namespace fuzz
