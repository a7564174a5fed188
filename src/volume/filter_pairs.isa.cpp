// Rows of 32-bit sums for the 3x3x3 and 5x5x5 filter kernels from 16-bit
// coefficient pairs.  The taps of the mirrored kernel are taken two by two in
// memory order; the two source vectors of a pair are interleaved so that one
// 16-bit multiply-add (pmaddwd, or vpdpwssd where VNNI exists) gives
// c_a * s_a + c_b * s_b per voxel.  With every coefficient inside
// -32767..32766 a pair never overflows 32 bits, and the 32-bit accumulation
// wraps like the general path, so every level gives the same bits.
#include <immintrin.h>

#include "volume/filter.h"

namespace vekr {
namespace VEKR_ISA_NS {
namespace {

#if defined(__AVX2__)
using V = __m256i;
enum { kBlock = 16 };
inline V loadV(const int16_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
inline V broadcastPair(const int32_t* p) { return _mm256_set1_epi32(*p); }
inline V zeroV() { return _mm256_setzero_si256(); }
inline V addV(V a, V b) { return _mm256_add_epi32(a, b); }
inline V interleaveLo(V a, V b) { return _mm256_unpacklo_epi16(a, b); }
inline V interleaveHi(V a, V b) { return _mm256_unpackhi_epi16(a, b); }
#if defined(__AVX512VNNI__) && defined(__AVX512VL__)
inline V madd(V acc, V ab, V c) { return _mm256_dpwssd_epi32(acc, ab, c); }
#else
inline V madd(V acc, V ab, V c) { return _mm256_add_epi32(acc, _mm256_madd_epi16(ab, c)); }
#endif
// lo holds voxels 0-3 and 8-11, hi voxels 4-7 and 12-15 (the interleave works
// per 128-bit lane).
inline void storeSums(int32_t* s, V lo, V hi)
{
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(s), _mm256_permute2x128_si256(lo, hi, 0x20));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(s + 8), _mm256_permute2x128_si256(lo, hi, 0x31));
}
#else
using V = __m128i;
enum { kBlock = 8 };
inline V loadV(const int16_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline V broadcastPair(const int32_t* p) { return _mm_load_si128(reinterpret_cast<const __m128i*>(p)); }
inline V zeroV() { return _mm_setzero_si128(); }
inline V addV(V a, V b) { return _mm_add_epi32(a, b); }
inline V interleaveLo(V a, V b) { return _mm_unpacklo_epi16(a, b); }
inline V interleaveHi(V a, V b) { return _mm_unpackhi_epi16(a, b); }
inline V madd(V acc, V ab, V c) { return _mm_add_epi32(acc, _mm_madd_epi16(ab, c)); }
inline void storeSums(int32_t* s, V lo, V hi)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(s), lo);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(s + 4), hi);
}
#endif

// Pins an accumulator in a register at this point.  Without it the compiler
// regroups the long chain of integer additions into a tree, computes every
// product first and spills them all to the stack.
inline void pin(V& acc) { __asm__("" : "+x"(acc)); }

// Sums of NB blocks of kBlock voxels starting at x.  Tap t of the mirrored
// kernel reads row t / K at column t % K; an odd tap count leaves the last
// pair with a zero coefficient, whose partner reads the same voxel again.
// Two blocks share each coefficient load; a single block splits even and odd
// pairs over two accumulators instead, to keep two dependency chains each.
template <int K, int NB>
inline void pairBlocks(const int16_t* const* rows, const int32_t* pairs, int x, int32_t* sums)
{
    constexpr int kTaps = K * K * K;
    constexpr int kPairs = (kTaps + 1) / 2;
    constexpr int kAcc = NB == 1 ? 2 : NB;
    V lo[kAcc], hi[kAcc];
    for (int a = 0; a < kAcc; ++a) lo[a] = hi[a] = zeroV();
#pragma GCC unroll 64
    for (int p = 0; p < kPairs; ++p) {
        const int ta = 2 * p;
        const int tb = 2 * p + 1 < kTaps ? 2 * p + 1 : 2 * p;
        const int16_t* ra = rows[ta / K] + ta % K + x;
        const int16_t* rb = rows[tb / K] + tb % K + x;
        const V c = broadcastPair(pairs + 4 * p);
        for (int n = 0; n < NB; ++n) {
            const V a = loadV(ra + n * kBlock);
            const V b = loadV(rb + n * kBlock);
            const int acc = NB == 1 ? (p & 1) : n;
            lo[acc] = madd(lo[acc], interleaveLo(a, b), c);
            hi[acc] = madd(hi[acc], interleaveHi(a, b), c);
            pin(lo[acc]);
            pin(hi[acc]);
        }
    }
    if (NB == 1) {
        storeSums(sums + x, addV(lo[0], lo[1]), addV(hi[0], hi[1]));
    } else {
        for (int n = 0; n < NB; ++n) storeSums(sums + x + n * kBlock, lo[n], hi[n]);
    }
}

// Pairs of blocks, a single block, then one block ending at the last voxel
// (it overlaps the one before and recomputes the same sums), so no read
// leaves the neighbourhood.
template <int K>
void pairRow(const int16_t* const* rows, const int32_t* pairs, int width, int32_t* sums)
{
    int x = 0;
    for (; x + 2 * kBlock <= width; x += 2 * kBlock) pairBlocks<K, 2>(rows, pairs, x, sums);
    if (x + kBlock <= width) {
        pairBlocks<K, 1>(rows, pairs, x, sums);
        x += kBlock;
    }
    if (x < width) pairBlocks<K, 1>(rows, pairs, width - kBlock, sums);
}

}  // namespace

void filterPairRow3(const int16_t* const* rows, const int32_t* pairs, int width, int32_t* sums)
{
    pairRow<3>(rows, pairs, width, sums);
}

void filterPairRow5(const int16_t* const* rows, const int32_t* pairs, int width, int32_t* sums)
{
    pairRow<5>(rows, pairs, width, sums);
}

}  // namespace VEKR_ISA_NS
}  // namespace vekr
