/*
 * vekcore: the small core services the vekr library is built on.
 * 64-byte aligned allocation and the thread count the library may use.
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

/* A block of at least `length` bytes aligned to 64 bytes; null on failure or for 0. */
VEKCORE_API void* vekMalloc(size_t length);
/* Releases a block from vekMalloc; null is accepted. */
VEKCORE_API void vekFree(void* ptr);
/* Threads the library may use: the OpenMP runtime's thread count, at least 1. */
VEKCORE_API int ownGetNumThreads(void);

#ifdef __cplusplus
}
#endif

#endif
