// The instruction-set levels this processor runs, for tests that hold every
// level's kernels to the same results.
#pragma once

#include <vector>

#include "core/isa.h"

namespace vekr::test {

// The instruction-set levels this processor runs.
inline std::vector<Isa> supportedIsas()
{
    std::vector<Isa> out;
    for (int i = 0; i < kIsaCount; ++i)
        if (isaSupported(static_cast<Isa>(i))) out.push_back(static_cast<Isa>(i));
    return out;
}

}  // namespace vekr::test
