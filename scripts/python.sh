#!/usr/bin/env bash
# Builds the library and the Python package, then runs Debian's python3 with
# the package importable from the build tree:
#   bash scripts/python.sh -c "import vekr; print(vekr.isa())"
#   bash scripts/python.sh examples/python/render_depth.py
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/deps.sh"
cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$root/build" -j"$(nproc)" --target vekr_python >/dev/null
PYTHONPATH="$root/build/python${PYTHONPATH:+:$PYTHONPATH}" exec /usr/bin/python3 "$@"
