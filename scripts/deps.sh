#!/usr/bin/env bash
# Installs the Debian packages the build, tests, benchmarks and renderer need,
# only those that are missing; with arguments, those packages instead.
set -euo pipefail
need=(cmake g++ make pkg-config python3 libgtest-dev libbenchmark-dev libpng-dev
      libstb-dev libassimp-dev libembree-dev python3-scipy binutils doxygen
      python3-dev python3-numpy pybind11-dev python3-pybind11 python3-pytest
      python3-dask python3-distributed python3-zarr)
[ $# -gt 0 ] && need=("$@")
missing=()
for p in "${need[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get -o DPkg::Lock::Timeout=900 install -y -qq "${missing[@]}" >/dev/null
fi
