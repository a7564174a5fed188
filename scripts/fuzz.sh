#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ with clang (ASan + UBSan) into
# build-fuzz and runs each for a bounded time from the committed seeds (plus
# what earlier runs here added).  Any finding fails the script; its input is
# left in build-fuzz/findings.
#   FUZZ_SECONDS  seconds per target (default 30)
#   FUZZ_JOBS     parallel workers per target (default 1)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
seconds="${FUZZ_SECONDS:-30}"
jobs="${FUZZ_JOBS:-1}"
bash "$root/scripts/deps.sh" clang libclang-rt-14-dev libomp-14-dev
build="$root/build-fuzz"
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVEKR_FUZZ=ON \
  -DVEKR_BUILD_TESTS=OFF -DVEKR_BUILD_BENCH=OFF -DVEKR_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$build" -j"$(nproc)" --target fuzz_checks fuzz_diff
mkdir -p "$build/findings"
for t in checks diff; do
  corpus="$build/corpus-$t"
  mkdir -p "$corpus"
  echo "fuzz_$t: ${seconds}s, $jobs worker(s)"
  ( cd "$build/findings" &&
    "$build/fuzz/fuzz_$t" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=3072 \
      -print_final_stats=1 -jobs="$jobs" -workers="$jobs" \
      -artifact_prefix="$build/findings/$t-" "$corpus" "$root/fuzz/corpus/$t" \
      > "$build/findings/$t.log" 2>&1 ) || {
    echo "fuzz_$t found a problem:"; grep -v "^#\|INFO\|Uses:" "$build/findings/$t.log" | tail -40
    exit 1
  }
  grep -E "^#[0-9]+.*DONE|stat::number_of_executed_units" "$build/findings/$t.log" | tail -2 || true
done
