#!/usr/bin/env bash
# Builds the library with its tests, benchmarks and examples, and runs the tests.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/deps.sh"
bash "$root/scripts/fetch-data.sh"
cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=Release
cmake --build "$root/build" -j"$(nproc)"
cd "$root/build"
ctest --output-on-failure -j"$(nproc)"
