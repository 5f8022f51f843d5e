#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, with AddressSanitizer and UndefinedBehaviorSanitizer) and
# runs each one for a while on its seed corpus.
#   scripts/fuzz.sh [SECONDS] [TARGET...]   SECONDS per target, default 20;
#                                           targets: controlcommand commandline menuentry pinyin
# Inputs that find new paths collect in <build>/corpus/<target>; a crash or a failed check
# leaves its input in <build> as crash-<target>-* and makes the script fail.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-20}
[ $# -gt 0 ] && shift
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(controlcommand commandline menuentry pinyin)
build=${TIDESHELL_FUZZ_BUILD_DIR:-$root/build-fuzz}

launcher=()
if command -v ccache >/dev/null; then
    launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
cmake -S "$root" -B "$build" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTIDESHELL_FUZZ=ON -DTIDESHELL_BUILD_TESTS=OFF \
    "${launcher[@]}" >/dev/null
cmake --build "$build" -j2 --target "${targets[@]/#/fuzz_}"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}
for t in "${targets[@]}"; do
    corpus=$build/corpus/$t
    mkdir -p "$corpus"
    dict=()
    [ -f "$root/fuzz/$t.dict" ] && dict=(-dict="$root/fuzz/$t.dict")
    log=$build/fuzz-$t.log
    if ! "$build/fuzz/fuzz_$t" -max_total_time="$seconds" -print_final_stats=1 -timeout=10 \
        -rss_limit_mb=2048 -artifact_prefix="$build/crash-$t-" "${dict[@]}" \
        "$corpus" "$root/fuzz/corpus/$t" >"$log" 2>&1; then
        tail -n 60 "$log"
        echo "fuzz_$t found a problem; the input is in $build/crash-$t-*"
        exit 1
    fi
    echo "fuzz_$t: $(grep -E '^stat::(number_of_executed_units|average_exec_per_sec|new_units_added|peak_rss_mb)' "$log" | tr '\n' ' ')"
done
