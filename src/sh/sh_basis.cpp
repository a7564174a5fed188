// vekrSH_32f: the basis of bands 0..L for a list of directions, by the
// method of the state, written direction after direction.
#include <xmmintrin.h>

#include <cstdint>

#include "core/status.h"
#include "sh/sh_basis.h"
#include "sh/sh_state.h"

namespace vekr::sh {

void basisLanes(Isa isa, const float* x, const float* y, const float* z, unsigned L,
                const VekrSHState& state, float* soa)
{
    if (state.type == vekrSHDirect)
        VEKR_ISA_CALL(isa, shDirectLanes(x, y, z, L, soa));
    else
        recurrenceLanes(x, y, z, L, state.pTableA, state.pTableB, soa);
}

void lanesToRows(const float* soa, int n, int rows, float* out, int stride, bool stream)
{
    int k = 0;
    if (rows == 4) {
        // Streaming stores need every row start 16-byte aligned.
        stream = stream && aligned16(out) && (stride & 3) == 0;
        for (; k + 4 <= n; k += 4) {
            __m128 r0 = _mm_load_ps(soa + 4 * k);
            __m128 r1 = _mm_load_ps(soa + 4 * k + 4);
            __m128 r2 = _mm_load_ps(soa + 4 * k + 8);
            __m128 r3 = _mm_load_ps(soa + 4 * k + 12);
            _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
            if (stream) {
                _mm_stream_ps(out + k, r0);
                _mm_stream_ps(out + stride + k, r1);
                _mm_stream_ps(out + 2 * stride + k, r2);
                _mm_stream_ps(out + 3 * stride + k, r3);
            } else {
                _mm_storeu_ps(out + k, r0);
                _mm_storeu_ps(out + stride + k, r1);
                _mm_storeu_ps(out + 2 * stride + k, r2);
                _mm_storeu_ps(out + 3 * stride + k, r3);
            }
        }
    }
    for (int j = 0; j < rows; ++j)
        for (int i = k; i < n; ++i) out[j * stride + i] = soa[4 * i + j];
}

namespace {

constexpr int64_t kStreamBytes = int64_t(8) << 20;

VekStatus evaluate(Isa isa, const float* pX, const float* pY, const float* pZ, uint32_t count,
                   float* pDst, uint32_t L, const VekrSHState& state)
{
    if (L > kMaxBand) return vekStsSelector;
    const int32_t total = static_cast<int32_t>(count);
    if (total < 0) return vekStsOk;
    const int n = static_cast<int>((L + 1) * (L + 1));
    alignas(16) float soa[4 * kMaxCoeffs];
    alignas(16) float lx[4], ly[4], lz[4];
    // An output far larger than the caches is written around them.
    const bool stream = int64_t(total) * n * 4 >= kStreamBytes;
    for (int64_t i = 0; i < total; i += 4) {
        const int rows = total - i < 4 ? static_cast<int>(total - i) : 4;
        gatherLanes(pX, pY, pZ, i, rows, lx, ly, lz);
        basisLanes(isa, lx, ly, lz, L, state, soa);
        lanesToRows(soa, n, rows, pDst + i * n, n, stream);
    }
    if (stream) _mm_sfence();
    return vekStsOk;
}

}  // namespace

// The whole export at a chosen instruction-set level (tests force levels).
VekStatus basis(Isa isa, const float* pX, const float* pY, const float* pZ, uint32_t count,
                float* pDst, uint32_t L, const VekrSHState* pState)
{
    if (!pX || !pY || !pZ || !pDst || !pState) return vekStsNullPtr;
    const VekrSHState state = readState(pState);
    if (count == 0) return vekStsSize;
    if (L > state.order) return vekStsSelector;
    if (state.type != vekrSHDirect && state.type != vekrSHRecurrence) return vekStsSelector;
    return evaluate(isa, pX, pY, pZ, count, pDst, L, state);
}

}  // namespace vekr::sh

extern "C" VEKR_API VekStatus vekrSH_32f(const float* pX, const float* pY, const float* pZ,
                                         uint32_t count, float* pDst, uint32_t L,
                                         const VekrSHState* pState)
{
    return vekr::sh::basis(vekr::bestIsa(), pX, pY, pZ, count, pDst, L, pState);
}
