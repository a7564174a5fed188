/**
 * @file vekcore.h
 * @brief vekcore: the small core services libvekr is built on.
 *
 * libvekr takes its aligned allocation and its thread count from here; the
 * library links it and installs it beside itself.  Applications need this
 * header only to allocate blocks with the alignment that the fast paths of
 * vekr.h like (vekMalloc, vekFree) or to see the thread count libvekr will
 * use (ownGetNumThreads).  Set that count through OpenMP (OMP_NUM_THREADS or
 * omp_set_num_threads()); ownGetNumThreads is exported from libvekcore, not
 * from libvekr, and is not part of vekr.h.
 */
#ifndef VEKCORE_H
#define VEKCORE_H

#include <stddef.h>

#if defined(__GNUC__)
#  define VEKCORE_API __attribute__((visibility("default")))
#else
#  define VEKCORE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** @brief A block of at least @p length bytes aligned to 64 bytes; null on failure or for 0. */
VEKCORE_API void* vekMalloc(size_t length);
/** @brief Releases a block from vekMalloc; null is accepted. */
VEKCORE_API void vekFree(void* ptr);
/** @brief Threads libvekr may use in its parallel regions: omp_get_max_threads(), at least 1. */
VEKCORE_API int ownGetNumThreads(void);

#ifdef __cplusplus
}
#endif

#endif
