#!/usr/bin/env bash
# Takes a picture of the shell as the device's screen shows it: the shell runs on Qt's vnc
# platform at 800 x 480, where Qt composes every window into one screen image exactly as on
# the device's framebuffer, and the picture is read back from that image. The bar is shown,
# a client is maximised, then each further argument is sent as one control command (tidectl
# syntax), a moment after the one before.
# Usage: scripts/screenshot.sh [OUTPUT.png] [command ...]
#   scripts/screenshot.sh menu.png "skey 0,16777275,0,1" "skey 0,16777275,0,0"   # F12
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=${1:-$root/build/screenshot.png}
shift || true
bash "$root/scripts/deps.sh"
build=${TIDESHELL_BUILD_DIR:-$root/build}
cmake -S "$root" -B "$build" >/dev/null
cmake --build "$build" -j"$(nproc)" --target tideshell tidectl tide_testclient tide_vncgrab \
    >/dev/null

work=$(mktemp -d /tmp/tideshell-shot-XXXXXX)
vnc=$((20000 + RANDOM % 20000))
control=$((vnc + 1))
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; rm -rf "$work"; }
trap cleanup EXIT

export XDG_RUNTIME_DIR=$work
QT_QPA_PLATFORM=vnc:size=800x480:port=$vnc QT_QPA_FB_HIDECURSOR=1 \
    TIDESHELL_CONTROL_PORT=$control "$build/src/tideshell" -f --wayland-socket-name shot \
    >"$work/shell.log" 2>&1 &
pids+=($!)
for _ in $(seq 100); do [ -S "$work/shot" ] && break; sleep 0.1; done
tidectl() { "$build/tools/tidectl/tidectl" --port "$control" "$@"; }
tidectl topen
tidectl taddlabel wifi,WLAN
WAYLAND_DISPLAY=shot QT_QPA_PLATFORM=wayland "$build/tests/client/tide_testclient" --maximized \
    --title "tideshell sample client" >"$work/client.log" 2>&1 &
pids+=($!)
for _ in $(seq 100); do grep -q "focus in" "$work/client.log" 2>/dev/null && break; sleep 0.1; done
for cmd in "$@"; do
    # Word splitting is wanted: "skey 0,16777275,0,1" is a command and its argument.
    # shellcheck disable=SC2086
    tidectl $cmd
    sleep 0.3
done
sleep 1
mkdir -p "$(dirname "$out")"
"$build/tests/client/tide_vncgrab" "$vnc" "$out"
echo "screenshot: $out"
