#!/usr/bin/env bash
# Takes a picture of the running shell as a person sees it: the shell in an 800 x 480 X
# display (Xvfb), the bar shown, a client maximised, and optionally the soft keyboard.
# Usage: scripts/screenshot.sh [OUTPUT.png] [extra tidectl command ...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=${1:-$root/build/screenshot.png}
shift || true
bash "$root/scripts/deps.sh"
build=${TIDESHELL_BUILD_DIR:-$root/build}
cmake -S "$root" -B "$build" >/dev/null
cmake --build "$build" -j"$(nproc)" --target tideshell tidectl tide_testclient >/dev/null

work=$(mktemp -d /tmp/tideshell-shot-XXXXXX)
display=:$((90 + RANDOM % 100))
Xvfb "$display" -screen 0 800x480x24 -nolisten tcp >"$work/xvfb.log" 2>&1 &
xvfb=$!
pids=($xvfb)
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; rm -rf "$work"; }
trap cleanup EXIT
for _ in $(seq 50); do xdpyinfo -display "$display" >/dev/null 2>&1 && break; sleep 0.1; done

export DISPLAY=$display XDG_RUNTIME_DIR=$work QT_QPA_PLATFORM=xcb
"$build/src/tideshell" -f --wayland-socket-name shot >"$work/shell.log" 2>&1 &
pids+=($!)
for _ in $(seq 100); do [ -S "$work/shot" ] && break; sleep 0.1; done
sleep 0.5
tidectl=$build/tools/tidectl/tidectl
"$tidectl" topen
"$tidectl" taddlabel wifi,WLAN
WAYLAND_DISPLAY=shot QT_QPA_PLATFORM=wayland "$build/tests/client/tide_testclient" --maximized \
    --title "tideshell sample client" >"$work/client.log" 2>&1 &
pids+=($!)
for _ in $(seq 100); do grep -q "focus in" "$work/client.log" 2>/dev/null && break; sleep 0.1; done
for cmd in "$@"; do "$tidectl" $cmd; done
sleep 1
mkdir -p "$(dirname "$out")"
import -display "$display" -window root "$out"
echo "screenshot: $out"
