#!/usr/bin/env bash
# Builds tideshell with its tests and runs every test. Installs missing Debian packages first.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/deps.sh"
build=${TIDESHELL_BUILD_DIR:-$root/build}
cmake -S "$root" -B "$build" -DTIDESHELL_BUILD_TESTS=ON >/dev/null
cmake --build "$build" -j"$(nproc)"
cd "$build"
ctest --output-on-failure -j2 --timeout 300 "$@"
