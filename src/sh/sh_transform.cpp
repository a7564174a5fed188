// Forward (projection) and inverse (reconstruction) spherical-harmonic
// transforms.  Each direction's basis comes from the same evaluation as
// vekrSH_32f with a count of one; directions are evaluated four at a time
// and every coefficient receives its additions in direction order, exactly
// as a direction-by-direction loop would add them.  The basis never leaves
// a small stack buffer.
#include <xmmintrin.h>

#include <cstdint>

#include "core/status.h"
#include "sh/sh_basis.h"
#include "sh/sh_state.h"

namespace vekr::sh {
namespace {

// Calls f(i, rows, soa, n) for blocks of up to four directions starting at
// i, in order; soa holds the block's basis as lanes (sh_basis.h), n = (L+1)^2.
// A band above 15 (possible only with a recurrence state of such an order)
// cannot be evaluated; then f gets a basis of zeros of length 0.
template <class F>
void forEachBlock(const float* x, const float* y, const float* z, int count, uint32_t L,
                  const VekrSHState& state, F&& f)
{
    alignas(16) float soa[4 * kMaxCoeffs];
    if (L > kMaxBand) {
        for (int i = 0; i < count; i += 4) f(i, count - i < 4 ? count - i : 4, soa, 0);
        return;
    }
    const int n = static_cast<int>((L + 1) * (L + 1));
    const Isa isa = bestIsa();
    alignas(16) float lx[4], ly[4], lz[4];
    for (int i = 0; i < count; i += 4) {
        const int rows = count - i < 4 ? count - i : 4;
        gatherLanes(x, y, z, i, rows, lx, ly, lz);
        basisLanes(isa, lx, ly, lz, L, state, soa);
        f(i, rows, soa, n);
    }
}

// Basis functions k .. k+3 of the four lanes, one vector per lane.
inline void lanesOf(const float* soa, int k, __m128 Y[4])
{
    Y[0] = _mm_load_ps(soa + 4 * k);
    Y[1] = _mm_load_ps(soa + 4 * k + 4);
    Y[2] = _mm_load_ps(soa + 4 * k + 8);
    Y[3] = _mm_load_ps(soa + 4 * k + 12);
    _MM_TRANSPOSE4_PS(Y[0], Y[1], Y[2], Y[3]);
}

// The sample s times the basis value, with s = 1 giving the value itself
// and s = 0 giving +0 whatever the value.
inline float scaled(float s, float y) { return s == 0.0f ? 0.0f : s * y; }

// Whether any two of the C coefficient vectors of n floats overlap.
template <int C>
bool overlapping(float* const* coef, int n)
{
    for (int a = 0; a < C; ++a)
        for (int b = a + 1; b < C; ++b)
            if (coef[a] < coef[b] + n && coef[b] < coef[a] + n) return true;
    return false;
}

// Forward step for one block: for each direction j in order and each
// channel c, coef[c] += s[j][c] * basis(j).  Every coefficient entry gets
// its additions in that order; a vector stays in a register across the four
// directions when the channels do not share memory.
template <int C>
void forwardBlock(const float* soa, int n, int rows, const float (*s)[3], float* const* coef)
{
    if (overlapping<C>(coef, n)) {
        for (int j = 0; j < rows; ++j)
            for (int c = 0; c < C; ++c)
                for (int k = 0; k < n; ++k)
                    coef[c][k] = coef[c][k] + scaled(s[j][c], soa[4 * k + j]);
        return;
    }
    __m128 scale[4][C], keep[4][C];
    for (int j = 0; j < 4; ++j)
        for (int c = 0; c < C; ++c) {
            const float v = j < rows ? s[j][c] : 0.0f;
            scale[j][c] = _mm_set1_ps(v);
            keep[j][c] = _mm_cmpneq_ps(scale[j][c], _mm_setzero_ps());
        }
    int k = 0;
    if (rows == 4) {
        for (; k + 4 <= n; k += 4) {
            __m128 Y[4];
            lanesOf(soa, k, Y);
            for (int c = 0; c < C; ++c) {
                __m128 v = _mm_loadu_ps(coef[c] + k);
                for (int j = 0; j < 4; ++j)
                    v = _mm_add_ps(v, _mm_and_ps(keep[j][c], _mm_mul_ps(scale[j][c], Y[j])));
                _mm_storeu_ps(coef[c] + k, v);
            }
        }
    }
    for (; k < n; ++k)
        for (int c = 0; c < C; ++c)
            for (int j = 0; j < rows; ++j)
                coef[c][k] = coef[c][k] + scaled(s[j][c], soa[4 * k + j]);
}

// Inverse step for one block: out(j, c, sum over k of coef[c][k] * basis(j)),
// each sum from four partial sums added pairwise, then the remaining entries.
template <int C, class Out>
void inverseBlock(const float* soa, int n, int rows, const float* const* coef, Out&& out)
{
    __m128 acc[4][C];
    for (int j = 0; j < 4; ++j)
        for (int c = 0; c < C; ++c) acc[j][c] = _mm_setzero_ps();
    int k = 0;
    for (; k + 4 <= n; k += 4) {
        __m128 Y[4];
        lanesOf(soa, k, Y);
        for (int c = 0; c < C; ++c) {
            const __m128 v = _mm_loadu_ps(coef[c] + k);
            for (int j = 0; j < 4; ++j) acc[j][c] = _mm_add_ps(acc[j][c], _mm_mul_ps(v, Y[j]));
        }
    }
    for (int j = 0; j < rows; ++j)
        for (int c = 0; c < C; ++c) {
            alignas(16) float part[4];
            _mm_store_ps(part, acc[j][c]);
            float sum = (part[0] + part[1]) + (part[2] + part[3]);
            for (int i = k; i < n; ++i) sum += coef[c][i] * soa[4 * i + j];
            out(j, c, sum);
        }
}

// Checks 2..4 shared by all six transforms, on the header copied out of the
// caller's block; returns true when there is work.  A state type that
// vekrSH_32f refuses is refused here too, before any basis is evaluated.
bool countAndOrder(int count, uint32_t L, const VekrSHState* block, VekrSHState& state,
                   VekStatus& status)
{
    state = readState(block);
    status = vekStsOk;
    if (count == 0) status = vekStsSize;
    else if (L > state.order) status = vekStsSelector;
    else if (state.type != vekrSHDirect && state.type != vekrSHRecurrence) status = vekStsSelector;
    return status == vekStsOk && count > 0;
}

}  // namespace
}  // namespace vekr::sh

using vekr::sh::countAndOrder;
using vekr::sh::forEachBlock;
using vekr::sh::forwardBlock;
using vekr::sh::inverseBlock;

extern "C" VEKR_API VekStatus vekrSHTFwd_32f_C1I(const float* pX, const float* pY,
                                                 const float* pZ, const float* pSrc, int count,
                                                 float* pSrcDstCoeffs, uint32_t L,
                                                 const VekrSHState* pState)
{
    if (!pX || !pY || !pZ || !pSrc || !pSrcDstCoeffs || !pState) return vekStsNullPtr;
    VekStatus status;
    VekrSHState state;
    if (!countAndOrder(count, L, pState, state, status)) return status;
    float* const coef[1] = {pSrcDstCoeffs};
    forEachBlock(pX, pY, pZ, count, L, state, [&](int i, int rows, const float* soa, int n) {
        float s[4][3];
        for (int j = 0; j < rows; ++j) s[j][0] = pSrc[i + j];
        forwardBlock<1>(soa, n, rows, s, coef);
    });
    return vekStsOk;
}

extern "C" VEKR_API VekStatus vekrSHTFwd_32f_C3P3I(const float* pX, const float* pY,
                                                   const float* pZ, const float* pSrc, int count,
                                                   float* const pSrcDstCoeffs[3], uint32_t L,
                                                   const VekrSHState* pState)
{
    if (!pX || !pY || !pZ || !pSrc || !pSrcDstCoeffs || !pState) return vekStsNullPtr;
    if (!pSrcDstCoeffs[0] || !pSrcDstCoeffs[1] || !pSrcDstCoeffs[2]) return vekStsNullPtr;
    VekStatus status;
    VekrSHState state;
    if (!countAndOrder(count, L, pState, state, status)) return status;
    forEachBlock(pX, pY, pZ, count, L, state, [&](int i, int rows, const float* soa, int n) {
        float s[4][3];
        for (int j = 0; j < rows; ++j)
            for (int c = 0; c < 3; ++c) s[j][c] = pSrc[3 * int64_t(i + j) + c];
        forwardBlock<3>(soa, n, rows, s, pSrcDstCoeffs);
    });
    return vekStsOk;
}

extern "C" VEKR_API VekStatus vekrSHTFwd_32f_P3I(const float* pX, const float* pY,
                                                 const float* pZ, const float* const pSrc[3],
                                                 int count, float* const pSrcDstCoeffs[3],
                                                 uint32_t L, const VekrSHState* pState)
{
    if (!pX || !pY || !pZ || !pSrc || !pSrcDstCoeffs || !pState) return vekStsNullPtr;
    if (!pSrcDstCoeffs[0] || !pSrcDstCoeffs[1] || !pSrcDstCoeffs[2]) return vekStsNullPtr;
    if (!pSrc[0] || !pSrc[1] || !pSrc[2]) return vekStsNullPtr;
    VekStatus status;
    VekrSHState state;
    if (!countAndOrder(count, L, pState, state, status)) return status;
    forEachBlock(pX, pY, pZ, count, L, state, [&](int i, int rows, const float* soa, int n) {
        float s[4][3];
        for (int j = 0; j < rows; ++j)
            for (int c = 0; c < 3; ++c) s[j][c] = pSrc[c][i + j];
        forwardBlock<3>(soa, n, rows, s, pSrcDstCoeffs);
    });
    return vekStsOk;
}

extern "C" VEKR_API VekStatus vekrSHTInv_32f_C1(const float* pSrcCoeffs, uint32_t L,
                                                const float* pX, const float* pY,
                                                const float* pZ, float* pDst, int count,
                                                const VekrSHState* pState)
{
    if (!pX || !pY || !pZ || !pDst || !pSrcCoeffs || !pState) return vekStsNullPtr;
    VekStatus status;
    VekrSHState state;
    if (!countAndOrder(count, L, pState, state, status)) return status;
    const float* const coef[1] = {pSrcCoeffs};
    forEachBlock(pX, pY, pZ, count, L, state, [&](int i, int rows, const float* soa, int n) {
        inverseBlock<1>(soa, n, rows, coef, [&](int j, int, float v) { pDst[i + j] = v; });
    });
    return vekStsOk;
}

extern "C" VEKR_API VekStatus vekrSHTInv_32f_P3(const float* const pSrcCoeffs[3], uint32_t L,
                                                const float* pX, const float* pY,
                                                const float* pZ, float* const pDst[3],
                                                int count, const VekrSHState* pState)
{
    if (!pX || !pY || !pZ || !pDst || !pSrcCoeffs || !pState) return vekStsNullPtr;
    if (!pSrcCoeffs[0] || !pSrcCoeffs[1] || !pSrcCoeffs[2]) return vekStsNullPtr;
    if (!pDst[0] || !pDst[1] || !pDst[2]) return vekStsNullPtr;
    VekStatus status;
    VekrSHState state;
    if (!countAndOrder(count, L, pState, state, status)) return status;
    forEachBlock(pX, pY, pZ, count, L, state, [&](int i, int rows, const float* soa, int n) {
        inverseBlock<3>(soa, n, rows, pSrcCoeffs,
                        [&](int j, int c, float v) { pDst[c][i + j] = v; });
    });
    return vekStsOk;
}

extern "C" VEKR_API VekStatus vekrSHTInv_32f_P3C3(const float* const pSrcCoeffs[3], uint32_t L,
                                                  const float* pX, const float* pY,
                                                  const float* pZ, float* pDst, int count,
                                                  const VekrSHState* pState)
{
    if (!pX || !pY || !pZ || !pDst || !pSrcCoeffs || !pState) return vekStsNullPtr;
    if (!pSrcCoeffs[0] || !pSrcCoeffs[1] || !pSrcCoeffs[2]) return vekStsNullPtr;
    VekStatus status;
    VekrSHState state;
    if (!countAndOrder(count, L, pState, state, status)) return status;
    forEachBlock(pX, pY, pZ, count, L, state, [&](int i, int rows, const float* soa, int n) {
        inverseBlock<3>(soa, n, rows, pSrcCoeffs,
                        [&](int j, int c, float v) { pDst[3 * int64_t(i + j) + c] = v; });
    });
    return vekStsOk;
}
