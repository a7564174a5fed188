// Instruction-set levels and run-time dispatch.
//
// Kernel sources named *.isa.cpp are compiled once per level, each copy into
// its own namespace (vekr::sse41, vekr::avx2, vekr::avx512) with that level's
// compiler flags; VEKR_ISA_NS names the namespace inside such a file.  Those
// files hold functions only: no namespace-scope variables and no function-
// local statics, so nothing runs at load time with instructions the processor
// may lack.  The level is chosen once from CPUID (bestIsa); internal entry
// points take the level as an argument so tests can force each one.
#pragma once

namespace vekr {

enum class Isa : int {
    Sse41 = 0,   // SSE4.2 + POPCNT: every x86-64 processor since about 2009
    Avx2 = 1,    // AVX2 + FMA + F16C + BMI1/2 + LZCNT
    Avx512 = 2,  // AVX-512 F/BW/DQ/VL/CD + VNNI
};

enum : int { kIsaCount = 3 };  // an enumerator: no object in any file

// Whether this processor and OS can run code of the given level.
bool isaSupported(Isa isa) noexcept;
// The highest supported level, detected once and then cached.
Isa bestIsa() noexcept;
// Printable name ("sse41", "avx2", "avx512").
const char* isaName(Isa isa) noexcept;

// The CPUID and XCR0 words that decide the levels, and the decision on them
// (isaSupported reads this processor's words; tests feed made-up ones).
struct CpuWords {
    unsigned leaf1c, leaf7b, leaf7c, ext1c;  // leaf 1 ECX, leaf 7 EBX/ECX, leaf 0x80000001 ECX
    unsigned long long xcr0;                  // state the OS saves on a context switch
};
bool isaRuns(Isa isa, const CpuWords& cpu) noexcept;

}  // namespace vekr

// Headers with inline code that the per-level kernels use (the SIMD wrappers,
// the node decoders, the tracing cores) open their namespaces inside these.
// In a per-level file they expand to the level's namespace, so that every
// level gets its own copy of that code under its own names: otherwise a
// helper compiled with one level's flags and left out of line could be the
// copy the linker keeps for all of them.  Elsewhere they expand to nothing.
#ifdef VEKR_ISA_NS
#define VEKR_LEVEL_BEGIN namespace VEKR_ISA_NS {
#define VEKR_LEVEL_END }
#else
#define VEKR_LEVEL_BEGIN
#define VEKR_LEVEL_END
#endif

// Declares the same function in each level's namespace:
//   VEKR_ISA_DECLARE(void scale(float* p, int n, float s));
#define VEKR_ISA_DECLARE(decl) \
    namespace sse41 {          \
    decl;                      \
    }                          \
    namespace avx2 {           \
    decl;                      \
    }                          \
    namespace avx512 {         \
    decl;                      \
    }

// Calls the copy of a function that belongs to `isa`:
//   return VEKR_ISA_CALL(isa, scale(p, n, s));
#define VEKR_ISA_CALL(isa, call)                                         \
    ((isa) == ::vekr::Isa::Avx512 ? ::vekr::avx512::call                 \
     : (isa) == ::vekr::Isa::Avx2 ? ::vekr::avx2::call                   \
                                  : ::vekr::sse41::call)
