// Internal interface of the signed 16-bit volume filter (3D convolution with
// an integer kernel and a divisor).  The export lives in filter.cpp; the
// pieces here are shared with the tests, which force each instruction set.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/isa.h"
#include "vekr.h"

namespace vekr::filter {

// How a 32-bit sum becomes an output voxel, fixed once per call.
enum class DivRule {
    One,    // divisor 1: saturate
    Shift,  // divisor 2^n, n >= 1: arithmetic shift rounding half to even
    Float,  // anything else: float product with the reciprocal, rounded to even
};

struct Divisor {
    DivRule rule = DivRule::One;
    int shift = 0;        // n for DivRule::Shift
    float recip = 1.0f;   // 1.0f / float(divisor) for DivRule::Float
};

Divisor makeDivisor(int32_t divisor) noexcept;

// One sum converted by the divisor rule and saturated to int16.
int16_t scaleSum(int32_t sum, const Divisor& d) noexcept;

// A row of sums converted to int16: groups of 16, then one of 8, one of 4,
// then single voxels.  sums must be 16-byte aligned.
void scaleRow(const int32_t* sums, int16_t* dst, int width, const Divisor& d) noexcept;

// Which kernel evaluates the sums.
enum class Path { Cube3, Cube5, General };

// The path a call takes (the pair kernels need 16-bit coefficients whose sum
// stays small, and a row of at least 16 voxels).
Path choosePath(const int32_t* kernel, const VekVolumeSize& kernelSize, int width) noexcept;

// Bytes of work buffer that vekrFilterGetBufSize reports, as 32-bit signed
// arithmetic gives them.
int32_t bufferSize(int width, const VekVolumeSize& kernelSize, int channels) noexcept;

// Bytes of the work buffer a path uses for a destination row of `width`.
int64_t bufferUse(Path path, int width) noexcept;

// The whole filter after the argument checks, with the kernel set of `isa`
// for the pair paths.  Steps are in elements.  Returns false, having written
// nothing, when the path needs more buffer than the query reports (where the
// query's 32-bit arithmetic has wrapped).
bool run(const int16_t* const* src, ptrdiff_t srcStep, int16_t* const* dst, ptrdiff_t dstStep,
         const VekVolumeSize& roi, const int32_t* kernel, const VekVolumeSize& kernelSize,
         const int32_t anchor[3], int32_t divisor, uint8_t* buffer, Isa isa);

// As run(), but with the path forced (tests compare paths with each other).
void runPath(Path path, const int16_t* const* src, ptrdiff_t srcStep, int16_t* const* dst,
             ptrdiff_t dstStep, const VekVolumeSize& roi, const int32_t* kernel,
             const VekVolumeSize& kernelSize, const int32_t anchor[3], int32_t divisor,
             uint8_t* buffer, Isa isa);

}  // namespace vekr::filter

namespace vekr {
// Row of sums for a K x K x K kernel (K = 3 or 5) from 16-bit coefficient
// pairs.  rows[k * K + j] points at the leftmost column of the neighbourhood
// of voxel 0 in the j-th row of the k-th slice, both counted in memory order
// (the kernel mirrored); pairs holds the mirrored coefficients two by two,
// each pair repeated over 16 bytes.  width >= 16.
VEKR_ISA_DECLARE(void filterPairRow3(const int16_t* const* rows, const int32_t* pairs, int width,
                                     int32_t* sums))
VEKR_ISA_DECLARE(void filterPairRow5(const int16_t* const* rows, const int32_t* pairs, int width,
                                     int32_t* sums))
}  // namespace vekr
