#!/usr/bin/env bash
# Builds the library and runs the main job.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/deps.sh"
cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=Release
cmake --build "$root/build" -j"$(nproc)" --target vekr-hello
"$root/build/examples/hello/vekr-hello" "$@"
