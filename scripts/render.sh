#!/usr/bin/env bash
# Builds the library and vekr-render, and renders the built-in scene (or, with
# arguments, whatever they ask for; see `--help`) to a PNG.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/deps.sh"
cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=Release
cmake --build "$root/build" -j"$(nproc)" --target vekr-render
out="$root/build/vekr-render.png"
args=("$@")
for ((i = 0; i < ${#args[@]}; ++i)); do
  case "${args[$i]}" in
    -o|--output) if ((i + 1 < ${#args[@]})); then out="${args[$((i + 1))]}"; fi ;;
    -h|--help|--version) out="" ;;
  esac
done
"$root/build/examples/render/vekr-render" -o "$root/build/vekr-render.png" "$@"
if [ -n "$out" ]; then echo "picture: $(realpath -m "$out")"; fi
