// Spherical-harmonic state: its size, and its initialisation with the two
// coefficient tables of the recurrence method.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/simd.h"
#include "sh/sh_state.h"
#include "vekr.h"

namespace vekr::sh {

uint32_t tableEntries(uint32_t order)
{
    return (order + 1) * (order + 2) / 2;
}

uint32_t tableBytes(uint32_t order)
{
    return (tableEntries(order) * 4 + 15) & ~15u;
}

VekrSHState readState(const VekrSHState* block) noexcept
{
    // A direct state is 16 bytes, so the table pointers are read only for
    // the recurrence type.
    VekrSHState st{};
    const auto* p = reinterpret_cast<const unsigned char*>(block);
    std::memcpy(&st.order, p + offsetof(VekrSHState, order), 4);
    std::memcpy(&st.type, p + offsetof(VekrSHState, type), 4);
    if (st.type == vekrSHRecurrence) {
        std::memcpy(&st.pTableA, p + offsetof(VekrSHState, pTableA), sizeof st.pTableA);
        std::memcpy(&st.pTableB, p + offsetof(VekrSHState, pTableB), sizeof st.pTableB);
    }
    return st;
}

namespace {

// The recurrence state's size as the query reports it (32-bit arithmetic)
// and as it really is; Init refuses an order whose real size the query
// cannot report.
uint32_t recurrenceStateBytes(uint32_t order)
{
    return 2 * tableBytes(order) + 32;
}

uint64_t recurrenceStateBytes64(uint32_t order)
{
    const uint64_t entries = (uint64_t{order} + 1) * (uint64_t{order} + 2) / 2;
    return 2 * ((entries * 4 + 15) & ~uint64_t{15}) + 32;
}

// Where the tables go in a block of the reported size at `block`: table A
// at the first 16-byte boundary after the header and table B at the first
// one after A whenever both fit (always for a 16-byte-aligned block).  A
// block at an odd address may leave too little room for that padding; then
// A starts at the first 4-byte boundary after the header and B one rounded
// table later, which always fits.  The tables are then only 4-byte aligned.
void placeTables(unsigned char* block, uint32_t order, float*& A, float*& B)
{
    const uintptr_t p = reinterpret_cast<uintptr_t>(block);
    const uintptr_t end = p + recurrenceStateBytes(order);
    const uintptr_t tb = tableBytes(order);
    const uintptr_t used = uintptr_t{tableEntries(order)} * 4;
    uintptr_t a = (p + sizeof(VekrSHState) + 15) & ~uintptr_t{15};
    if (a + tb + used > end) a = (p + sizeof(VekrSHState) + 3) & ~uintptr_t{3};
    A = reinterpret_cast<float*>(a);
    B = reinterpret_cast<float*>(a + tb);
}

using simd::F4;

// sqrt(q) as q*r*(3 - q*r*r)/2 from the approximate reciprocal square root
// r of q; lanes where q is zero give zero.
F4 sqrtFromRsqrt(F4 q)
{
    const F4 r = _mm_rsqrt_ps(q);
    const F4 s = q * r * (F4(3.0f) - q * r * r) * F4(0.5f);
    return simd::andnot(q == simd::zero4(), s);
}

// Square root of four floats in 64-bit arithmetic, rounded back to 32-bit.
F4 sqrtExact(F4 q)
{
    const __m128d lo = _mm_sqrt_pd(_mm_cvtps_pd(q));
    const __m128d hi = _mm_sqrt_pd(_mm_cvtps_pd(_mm_movehl_ps(q, q)));
    return _mm_movelh_ps(_mm_cvtpd_ps(lo), _mm_cvtpd_ps(hi));
}

// Interior entry m of band l (1 <= m <= l-1), one at a time.
void interiorScalar(float* a, float* b, int64_t l, int64_t m)
{
    const float num = static_cast<float>(4 * l * l - 1);
    const float den = static_cast<float>(l * l - m * m);
    a[m] = std::sqrt(num / den);
    const float bNum = static_cast<float>(((l - 1) * (l - 1) - m * m) * (2 * l + 1));
    const float bDen = static_cast<float>((l * l - m * m) * (2 * l - 3));
    b[m] = -static_cast<float>(std::sqrt(static_cast<double>(bNum / bDen)));
}

// Interior entries m .. m+3 of band l, four at once: the quotients from a
// Newton-refined reciprocal, the square root of table A from the reciprocal
// square root, that of table B exact.  a + m and b + m are 16-byte aligned
// in the usual layout; the stores do not rely on it (placeTables).
void interiorGroup(float* a, float* b, int64_t l, int64_t m)
{
    auto f = [](int64_t v) { return static_cast<float>(v); };
    const F4 mm = simd::set4(f(m * m), f((m + 1) * (m + 1)), f((m + 2) * (m + 2)),
                             f((m + 3) * (m + 3)));
    const F4 l2(f(l * l));
    const F4 lm1sq(f((l - 1) * (l - 1)));
    const F4 den = l2 - mm;
    const F4 qa = F4(f(4 * l * l - 1)) * simd::rcpNewton(den);
    simd::storeu4(a + m, sqrtFromRsqrt(qa));
    const F4 bNum = (lm1sq - mm) * F4(f(2 * l + 1));
    const F4 bDen = den * F4(f(2 * l - 3));
    const F4 qb = bNum * simd::rcpNewton(bDen);
    simd::storeu4(b + m, sqrtExact(qb) ^ F4(-0.0f));
}

void fillTables(float* A, float* B, uint32_t order)
{
    const float y00 = static_cast<float>(1.0 / std::sqrt(4.0 * 3.14159265358979323846));
    A[0] = y00;
    A[1] = static_cast<float>(static_cast<double>(y00) * 1.7320508075688772);
    A[2] = -A[1];
    for (int64_t l = 2; l <= static_cast<int64_t>(order); ++l) {
        const int64_t o = l * (l + 1) / 2;
        float* a = A + o;
        float* b = B + o;
        const double ld = static_cast<double>(l);
        a[0] = static_cast<float>(std::sqrt(4.0 * ld * ld - 1.0) / ld);
        a[l] = static_cast<float>(-std::sqrt((2.0 * ld + 1.0) / (2.0 * ld)));
        b[0] = static_cast<float>((1.0 / ld - 1.0) * std::sqrt((2.0 * ld + 1.0) / (2.0 * ld - 3.0)));
        // Interior m = 1 .. l-1: a scalar head up to a multiple of four
        // entries (a 16-byte boundary in the usual layout), groups of four,
        // a scalar tail; the same entries take the same route wherever the
        // tables lie.
        int64_t m = 1;
        while (m <= l - 1 && ((o + m) & 3) != 0) interiorScalar(a, b, l, m++);
        for (; m + 3 <= l - 1; m += 4) interiorGroup(a, b, l, m);
        for (; m <= l - 1; ++m) interiorScalar(a, b, l, m);
    }
}

}  // namespace
}  // namespace vekr::sh

// The type is read as the integer it is passed as before anything compares
// it with the enumerators (the header gives VekrSHType a fixed 32-bit type in
// C++ so that every value a caller passes is a valid one).
extern "C" VEKR_API VekStatus vekrSHGetSize_32f(uint32_t order, VekrSHType type, uint32_t* pSize)
{
    if (!pSize) return vekStsNullPtr;
    const int32_t t = static_cast<int32_t>(type);
    if (t == vekrSHDirect) {
        if (order > vekr::sh::kMaxBand) return vekStsSize;
        *pSize = 16;
        return vekStsOk;
    }
    if (t == vekrSHRecurrence) {
        *pSize = vekr::sh::recurrenceStateBytes(order);
        return vekStsOk;
    }
    return vekStsSelector;
}

extern "C" VEKR_API VekStatus vekrSHInit_32f(VekrSHState* pState, uint32_t order, VekrSHType type)
{
    if (!pState) return vekStsNullPtr;
    const uint32_t t = static_cast<uint32_t>(static_cast<int32_t>(type));
    // The state may sit at any address, so it is written byte-wise.
    unsigned char* block = reinterpret_cast<unsigned char*>(pState);
    if (t == vekrSHDirect) {
        if (order > vekr::sh::kMaxBand) return vekStsSize;
        // The direct state is 16 bytes: order, type and eight zero bytes.
        std::memset(block, 0, 16);
        std::memcpy(block, &order, 4);
        std::memcpy(block + 4, &t, 4);
        return vekStsOk;
    }
    if (t != vekrSHRecurrence) return vekStsSelector;
    // From order 32767 on the query's 32-bit size wraps; such a block is
    // smaller than the tables.
    if (vekr::sh::recurrenceStateBytes64(order) > UINT32_MAX) return vekStsSize;

    std::memset(block, 0, vekr::sh::recurrenceStateBytes(order));
    std::memcpy(block, &order, 4);
    std::memcpy(block + 4, &t, 4);
    float* A;
    float* B;
    vekr::sh::placeTables(block, order, A, B);
    std::memcpy(block + offsetof(VekrSHState, pTableA), &A, sizeof A);
    std::memcpy(block + offsetof(VekrSHState, pTableB), &B, sizeof B);
    vekr::sh::fillTables(A, B, order);
    return vekStsOk;
}
