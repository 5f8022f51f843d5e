#!/usr/bin/env bash
# Builds tideshell with its tests and runs every test; makes the Debian packages from the same
# build and checks that they install, run and remove cleanly (scripts/package-test.sh); then
# builds it once more with AddressSanitizer and UndefinedBehaviorSanitizer and runs every test
# again under them; last runs each fuzz target briefly. Installs missing Debian packages first.
#   TIDESHELL_SKIP_PACKAGE_TEST=1 skips the packages, TIDESHELL_SANITIZE_PASS=0 the sanitizer
#   pass, FUZZ_SECONDS=0 the fuzzing; arguments go to both ctest runs.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/deps.sh"

launcher=()
if command -v ccache >/dev/null; then
    launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

build=${TIDESHELL_BUILD_DIR:-$root/build}
cmake -S "$root" -B "$build" -DTIDESHELL_BUILD_TESTS=ON "${launcher[@]}" >/dev/null
cmake --build "$build" -j"$(nproc)"
(cd "$build" && ctest --output-on-failure -j2 --timeout 300 "$@")
if [ -z "${TIDESHELL_SKIP_PACKAGE_TEST:-}" ]; then
    TIDESHELL_SKIP_DEPS=1 bash "$root/scripts/package-test.sh" --reuse "$build"
fi

if [ "${TIDESHELL_SANITIZE_PASS:-1}" != 0 ]; then
    asan=${TIDESHELL_ASAN_BUILD_DIR:-$root/build-asan}
    cmake -S "$root" -B "$asan" -DTIDESHELL_BUILD_TESTS=ON -DTIDESHELL_SANITIZE=ON \
        "${launcher[@]}" >/dev/null
    cmake --build "$asan" -j"$(nproc)"
    # Every process a test starts (the shell, the clients) inherits these. Leaks are only
    # forgiven inside the third-party libraries listed in lsan.supp.
    # libc has no frame pointers: with the fast unwinder a leak allocated through it (asprintf
    # in libxkbcommon, say) shows no caller, and no suppression can name the library.
    export ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:detect_stack_use_after_return=0:check_initialization_order=1:fast_unwind_on_malloc=0
    export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
    export LSAN_OPTIONS=suppressions=$root/scripts/lsan.supp:print_suppressions=0
    (cd "$asan" && ctest --output-on-failure -j2 --timeout 600 "$@")
    unset ASAN_OPTIONS UBSAN_OPTIONS LSAN_OPTIONS
fi

seconds=${FUZZ_SECONDS:-10}
if [ "$seconds" != 0 ]; then
    bash "$root/scripts/fuzz.sh" "$seconds"
fi
