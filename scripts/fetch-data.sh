#!/usr/bin/env bash
# Fetches real meshes and volumes from Debian's libcgal-demo package into
# data/ (not committed).  Uses ../shared/data as a fallback when offline.
set -uo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
mkdir -p "$root/data"
cd "$root/data"
want=(bunny00.off armadillo.off skull_2.9.inr)
have=1
for f in "${want[@]}"; do [ -s "$f" ] || have=0; done
[ "$have" = 1 ] && exit 0
tmp="$(mktemp -d)"
trap 'rm -rf "$tmp"' EXIT
if (cd "$tmp" && apt-get download libcgal-demo >/dev/null 2>&1); then
  deb="$(ls "$tmp"/libcgal-demo_*.deb | head -n1)"
  (cd "$tmp" && dpkg-deb -x "$deb" x)
  tarball="$(find "$tmp/x" -name data.tar.gz | head -n1)"
  if [ -n "$tarball" ]; then
    for f in "${want[@]}"; do
      member="$(tar tzf "$tarball" | grep -E "(^|/)$f\$" | head -n1)"
      [ -n "$member" ] && tar xzf "$tarball" -O "$member" > "$f"
    done
  fi
fi
for f in bunny00.off skull_2.9.inr; do
  if [ ! -s "$f" ] && [ -s "$root/../shared/data/$f" ]; then cp "$root/../shared/data/$f" .; fi
done
ls -l "$root/data" >&2
exit 0
