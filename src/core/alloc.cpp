#include "core/alloc.h"

#include "vekcore.h"

namespace vekr {

void* malloc32(int32_t count) noexcept
{
    if (count <= 0) return nullptr;
    return vekMalloc(static_cast<size_t>(static_cast<int64_t>(count) * 4));
}

void* malloc64(int32_t count) noexcept
{
    if (count <= 0) return nullptr;
    return vekMalloc(static_cast<size_t>(static_cast<int64_t>(count) * 8));
}

void freeBlock(void* p) noexcept
{
    vekFree(p);
}

}  // namespace vekr
