// The library reaches vekMalloc only through these two wrappers.
#pragma once

#include <cstdint>

namespace vekr {

// count 32-bit elements (count * 4 bytes); null without allocating for count <= 0.
void* malloc32(int32_t count) noexcept;
// count 8-byte units (count * 8 bytes); null without allocating for count <= 0.
void* malloc64(int32_t count) noexcept;
// Releases a block from either wrapper (null is accepted).
void freeBlock(void* p) noexcept;

}  // namespace vekr
