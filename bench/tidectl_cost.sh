#!/usr/bin/env bash
# What one tidectl call costs next to the least a C program needs to send one datagram
# (send1.c), measured with hyperfine. Nothing listens on the port; the datagrams are lost.
# Usage: bench/tidectl_cost.sh [build-dir]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-${TIDESHELL_BUILD_DIR:-$root/build}}
cmake --build "$build" -j2 --target tidectl >/dev/null
work=$(mktemp -d /tmp/tidectl-cost-XXXXXX)
trap 'rm -rf "$work"' EXIT
cc -O2 -o "$work/send1" "$root/bench/send1.c"
port=$((40000 + RANDOM % 20000))
hyperfine -N --warmup 50 --runs 1000 --export-json "$work/times.json" \
    "$work/send1 $port topen" "$build/tools/tidectl/tidectl --port $port topen" | grep -v '^ *$'
python3 - "$work/times.json" <<'PY'
import json, sys
r = json.load(open(sys.argv[1]))["results"]
print("tidectl / minimal C sender: %.2fx (means %.3f ms / %.3f ms)"
      % (r[1]["mean"] / r[0]["mean"], r[1]["mean"] * 1e3, r[0]["mean"] * 1e3))
PY
