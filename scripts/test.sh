#!/usr/bin/env bash
# Builds tideshell with its tests and runs every test. Installs missing Debian packages first.
# Then makes the Debian packages from the same build and checks that they install, run and
# remove cleanly (scripts/package-test.sh, about 45 s; TIDESHELL_SKIP_PACKAGE_TEST=1 skips it).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/deps.sh"
build=${TIDESHELL_BUILD_DIR:-$root/build}
cmake -S "$root" -B "$build" -DTIDESHELL_BUILD_TESTS=ON >/dev/null
cmake --build "$build" -j"$(nproc)"
(cd "$build" && ctest --output-on-failure -j2 --timeout 300 "$@")
if [ -z "${TIDESHELL_SKIP_PACKAGE_TEST:-}" ]; then
    TIDESHELL_SKIP_DEPS=1 bash "$root/scripts/package-test.sh" --reuse "$build"
fi
