#include "vekcore.h"

#include <cstdlib>

#include <omp.h>

extern "C" {

void* vekMalloc(size_t length)
{
    if (length == 0) return nullptr;
    // aligned_alloc wants a multiple of the alignment.
    const size_t rounded = (length + 63u) & ~size_t(63u);
    if (rounded < length) return nullptr;  // wrapped around
    return std::aligned_alloc(64, rounded);
}

void vekFree(void* ptr)
{
    std::free(ptr);
}

int ownGetNumThreads(void)
{
    const int n = omp_get_max_threads();
    return n > 0 ? n : 1;
}

}  // extern "C"
