// Status helpers shared by every export.
#pragma once

#include <new>
#include <utility>

#include "vekr.h"

namespace vekr {

// Runs the body of an export and turns any C++ exception into a status, so
// that none crosses the C boundary.  The only exception the library can meet
// is an allocation failure inside the standard library; anything else is
// reported the same way because the caller can do nothing better with it.
template <class Body>
inline VekStatus guarded(Body&& body) noexcept
{
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        return vekStsNoMem;
    }
}

// True when p is 16-byte aligned (the condition of every 4-wide fast path).
inline bool aligned16(const void* p) noexcept
{
    return (reinterpret_cast<unsigned long long>(p) & 15u) == 0;
}

template <class... P>
inline bool allAligned16(const P*... p) noexcept
{
    return (aligned16(p) && ...);
}

}  // namespace vekr
