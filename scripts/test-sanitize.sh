#!/usr/bin/env bash
# Builds and runs the tests again under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/deps.sh"
cmake -S "$root" -B "$root/build-asan" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVEKR_SANITIZE=ON \
      -DVEKR_BUILD_BENCH=OFF
cmake --build "$root/build-asan" -j"$(nproc)"
cd "$root/build-asan"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --output-on-failure -j"$(nproc)"
