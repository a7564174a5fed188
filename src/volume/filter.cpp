// Signed 16-bit volume filter: a true 3D convolution of slice-pointer volumes
// with an integer kernel, a divisor rule and saturation.  3x3x3 and 5x5x5
// kernels with 16-bit coefficients run through the pair kernels
// (filter_pairs.isa.cpp); everything else through the general path here.
// Each destination row is first summed into a 16-byte aligned row of 32-bit
// sums inside the caller's buffer and then converted by the divisor rule.
#include <immintrin.h>

#include <cstdint>

#include "core/status.h"
#include "volume/checks.h"
#include "volume/filter.h"
#include "volume/layout.h"

namespace vekr::filter {
namespace {

constexpr int32_t kPairCoeffMin = -32767;
constexpr int32_t kPairCoeffMax = 32766;
constexpr int64_t kPairSumLimit = 98302;

inline int64_t roundUp16(int64_t n) { return (n + 15) & ~int64_t{15}; }

inline int32_t* alignedSums(uint8_t* buffer)
{
    const auto p = reinterpret_cast<uintptr_t>(buffer);
    return reinterpret_cast<int32_t*>((p + 15) & ~uintptr_t{15});
}

// sums[x] += c * row[x] for x < width, wrapping in 32 bits.
void accumulateTap(const int16_t* row, int32_t c, int width, int32_t* sums) noexcept
{
    const __m128i cv = _mm_set1_epi32(c);
    int x = 0;
    for (; x + 8 <= width; x += 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + x));
        __m128i* s = reinterpret_cast<__m128i*>(sums + x);
        const __m128i lo = _mm_mullo_epi32(_mm_cvtepi16_epi32(v), cv);
        const __m128i hi = _mm_mullo_epi32(_mm_cvtepi16_epi32(_mm_srli_si128(v, 8)), cv);
        _mm_store_si128(s, _mm_add_epi32(_mm_load_si128(s), lo));
        _mm_store_si128(s + 1, _mm_add_epi32(_mm_load_si128(s + 1), hi));
    }
    if (x + 4 <= width) {
        const __m128i v = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(row + x));
        __m128i* s = reinterpret_cast<__m128i*>(sums + x);
        _mm_store_si128(s, _mm_add_epi32(_mm_load_si128(s), _mm_mullo_epi32(_mm_cvtepi16_epi32(v), cv)));
        x += 4;
    }
    for (; x < width; ++x) {
        const uint32_t prod = static_cast<uint32_t>(c) * static_cast<uint32_t>(int32_t{row[x]});
        sums[x] = static_cast<int32_t>(static_cast<uint32_t>(sums[x]) + prod);
    }
}

// Any kernel shape and any 32-bit coefficients: the kd * kh source rows of
// each destination row are accumulated tap by tap into the row of sums.
void generalPath(const int16_t* const* src, ptrdiff_t srcStep, int16_t* const* dst,
                 ptrdiff_t dstStep, const VekVolumeSize& roi, const int32_t* kernel,
                 const VekVolumeSize& ks, const int32_t anchor[3], const Divisor& dv,
                 int32_t* sums)
{
    const int width = roi.width;
    for (int z = 0; z < roi.depth; ++z) {
        for (int y = 0; y < roi.height; ++y) {
            for (int x = 0; x < width; ++x) sums[x] = 0;
            for (int k = 0; k < ks.depth; ++k) {
                const int16_t* slice = src[z + anchor[2] - k];
                for (int j = 0; j < ks.height; ++j) {
                    const int16_t* row = slice + (y + anchor[1] - j) * srcStep + anchor[0];
                    const int32_t* coeff = kernel + (static_cast<ptrdiff_t>(k) * ks.height + j) * ks.width;
                    for (int i = 0; i < ks.width; ++i) {
                        if (coeff[i] != 0) accumulateTap(row - i, coeff[i], width, sums);
                    }
                }
            }
            scaleRow(sums, dst[z] + y * dstStep, width, dv);
        }
    }
}

// The K x K x K kernel mirrored and packed two coefficients to a 32-bit word
// (first tap in the low half), each word repeated four times.
void packPairs(const int32_t* kernel, int taps, int32_t* pairs) noexcept
{
    for (int p = 0; 2 * p < taps; ++p) {
        const int32_t a = kernel[taps - 1 - 2 * p];
        const int32_t b = 2 * p + 1 < taps ? kernel[taps - 2 - 2 * p] : 0;
        const uint32_t word = (static_cast<uint32_t>(a) & 0xFFFFu) | (static_cast<uint32_t>(b) << 16);
        for (int l = 0; l < 4; ++l) pairs[4 * p + l] = static_cast<int32_t>(word);
    }
}

template <int K>
void pairPath(const int16_t* const* src, ptrdiff_t srcStep, int16_t* const* dst,
              ptrdiff_t dstStep, const VekVolumeSize& roi, const int32_t* kernel,
              const int32_t anchor[3], const Divisor& dv, int32_t* sums, Isa isa)
{
    // The packed pairs follow the row of sums; both stay inside the buffer
    // size that vekrFilterGetBufSize gives.
    int32_t* pairs = sums + roundUp16(roi.width);
    packPairs(kernel, K * K * K, pairs);
    const int16_t* rows[K * K];
    for (int z = 0; z < roi.depth; ++z) {
        for (int y = 0; y < roi.height; ++y) {
            for (int k = 0; k < K; ++k) {
                const int16_t* slice = src[z + anchor[2] - (K - 1) + k];
                for (int j = 0; j < K; ++j) {
                    rows[k * K + j] =
                        slice + (y + anchor[1] - (K - 1) + j) * srcStep + (anchor[0] - (K - 1));
                }
            }
            if (K == 3)
                VEKR_ISA_CALL(isa, filterPairRow3(rows, pairs, roi.width, sums));
            else
                VEKR_ISA_CALL(isa, filterPairRow5(rows, pairs, roi.width, sums));
            scaleRow(sums, dst[z] + y * dstStep, roi.width, dv);
        }
    }
}

}  // namespace

// The query's 32-bit arithmetic, wrapping (unsigned) where it overflows.
int32_t bufferSize(int width, const VekVolumeSize& ks, int channels) noexcept
{
    auto u = [](int v) { return static_cast<uint32_t>(v); };
    const uint32_t sums = ((u(width) * u(channels) + 15u) & ~15u) * 4u;
    const uint32_t coeffs = ((u(ks.width) + 1u) / 2u) * 16u * u(ks.height) * u(ks.depth) * 2u;
    return static_cast<int32_t>(sums + coeffs);
}

int64_t bufferUse(Path path, int width) noexcept
{
    // Up to 15 bytes to align the row of sums, the row, and for the pair
    // paths the packed coefficients after the row rounded to 16.
    if (path == Path::General) return 15 + int64_t{4} * width;
    const int64_t pairs = path == Path::Cube3 ? (27 + 1) / 2 : (125 + 1) / 2;
    return 15 + 4 * roundUp16(width) + 16 * pairs;
}

Path choosePath(const int32_t* kernel, const VekVolumeSize& ks, int width) noexcept
{
    const bool cube3 = ks.width == 3 && ks.height == 3 && ks.depth == 3;
    const bool cube5 = ks.width == 5 && ks.height == 5 && ks.depth == 5;
    if ((!cube3 && !cube5) || width < 16) return Path::General;
    const int taps = ks.width * ks.height * ks.depth;
    int64_t total = 0;
    for (int t = 0; t < taps; ++t) {
        if (kernel[t] < kPairCoeffMin || kernel[t] > kPairCoeffMax) return Path::General;
        total += kernel[t];
    }
    if (total >= kPairSumLimit) return Path::General;
    return cube3 ? Path::Cube3 : Path::Cube5;
}

void runPath(Path path, const int16_t* const* src, ptrdiff_t srcStep, int16_t* const* dst,
             ptrdiff_t dstStep, const VekVolumeSize& roi, const int32_t* kernel,
             const VekVolumeSize& ks, const int32_t anchor[3], int32_t divisor,
             uint8_t* buffer, Isa isa)
{
    const Divisor dv = makeDivisor(divisor);
    int32_t* sums = alignedSums(buffer);
    switch (path) {
    case Path::Cube3:
        pairPath<3>(src, srcStep, dst, dstStep, roi, kernel, anchor, dv, sums, isa);
        break;
    case Path::Cube5:
        pairPath<5>(src, srcStep, dst, dstStep, roi, kernel, anchor, dv, sums, isa);
        break;
    case Path::General:
        generalPath(src, srcStep, dst, dstStep, roi, kernel, ks, anchor, dv, sums);
        break;
    }
}

bool run(const int16_t* const* src, ptrdiff_t srcStep, int16_t* const* dst, ptrdiff_t dstStep,
         const VekVolumeSize& roi, const int32_t* kernel, const VekVolumeSize& ks,
         const int32_t anchor[3], int32_t divisor, uint8_t* buffer, Isa isa)
{
    const Path path = choosePath(kernel, ks, roi.width);
    const int32_t reported = bufferSize(roi.width, ks, 1);
    if (bufferUse(path, roi.width) > reported) return false;
    runPath(path, src, srcStep, dst, dstStep, roi, kernel, ks, anchor, divisor, buffer, isa);
    return true;
}

}  // namespace vekr::filter

extern "C" VEKR_API VekStatus vekrFilterGetBufSize(const VekVolumeSize* pDstRoiSize,
                                                   const VekVolumeSize* pKernelSize,
                                                   int nChannel, int* pSize)
{
    if (!pSize) return vekStsNullPtr;
    // The two size records are required as well; a null one is refused the
    // same way rather than dereferenced.
    if (!pDstRoiSize || !pKernelSize) return vekStsNullPtr;
    const VekVolumeSize& roi = *pDstRoiSize;
    const VekVolumeSize& ks = *pKernelSize;
    if (!vekr::volume::validVolumeSize(roi)) return vekStsSize;
    if (!vekr::volume::validVolumeSize(ks)) return vekStsSize;
    if (nChannel != 1) return vekStsChannelCount;
    *pSize = vekr::filter::bufferSize(roi.width, ks, nChannel);
    return vekStsOk;
}

extern "C" VEKR_API VekStatus vekrFilter_16s_C1PV(const int16_t* const pSrc[], int srcStep,
                                                  int16_t* const pDst[], int dstStep,
                                                  const VekVolumeSize* pDstRoiSize,
                                                  const int32_t* pKernel,
                                                  const VekVolumeSize* pKernelSize,
                                                  const int32_t anchor[3], int divisor,
                                                  uint8_t* pBuffer)
{
    if (!pSrc || !pDst || !pKernel || !pBuffer) return vekStsNullPtr;
    if (!pDstRoiSize || !pKernelSize || !anchor) return vekStsNullPtr;
    const VekVolumeSize& roi = *pDstRoiSize;
    const VekVolumeSize& ks = *pKernelSize;
    if (!vekr::volume::validVolumeSize(roi)) return vekStsSize;
    if (!vekr::volume::validVolumeSize(ks)) return vekStsSize;
    if (divisor == 0) return vekStsSize;
    return vekr::guarded([&] {
        using vekr::volume::rowStepElements;
        const bool done = vekr::filter::run(pSrc, rowStepElements<int16_t>(srcStep), pDst,
                                            rowStepElements<int16_t>(dstStep), roi, pKernel,
                                            ks, anchor, divisor, pBuffer, vekr::bestIsa());
        return done ? vekStsOk : vekStsSize;
    });
}
