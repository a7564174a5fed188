#!/usr/bin/env bash
# Race check: builds fuzz/race_stress.cpp and the library with clang and
# ThreadSanitizer into build-tsan and runs it with LLVM's Archer tool loaded
# into the OpenMP runtime, so that TSan knows the runtime's barriers.  Any
# report, or any result that differs from its single-threaded run, fails.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/deps.sh" clang libclang-rt-14-dev libomp-14-dev
archer="$(dpkg -L libomp-14-dev | grep '/libarcher\.so$' | head -n1)"
[ -n "$archer" ] || { echo "libarcher.so not found"; exit 1; }
build="$root/build-tsan"
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVEKR_TSAN=ON \
  -DVEKR_BUILD_TESTS=OFF -DVEKR_BUILD_BENCH=OFF -DVEKR_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$build" -j"$(nproc)" --target race_stress
# Three threads per parallel region even on a two-core machine.
OMP_NUM_THREADS=3 OMP_TOOL_LIBRARIES="$archer" \
  TSAN_OPTIONS="halt_on_error=1 exitcode=66 ignore_noninstrumented_modules=1" \
  "$build/fuzz/race_stress"
