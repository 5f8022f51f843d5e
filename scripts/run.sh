#!/usr/bin/env bash
# Builds tideshell and starts it in the foreground with a sample client inside it.
#
# With a display (DISPLAY set) the shell runs in an 800 x 480 X window; without one it runs
# on the VNC platform at 800 x 480: connect any VNC viewer to localhost:5900 to see and use it.
# QT_QPA_PLATFORM, when set, wins (for instance linuxfb or eglfs on the device).
# Ctrl-C stops the shell and the client.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/deps.sh"
build=${TIDESHELL_BUILD_DIR:-$root/build}
cmake -S "$root" -B "$build" >/dev/null
cmake --build "$build" -j"$(nproc)" --target tideshell tidectl tide_testclient

if [ -z "${QT_QPA_PLATFORM:-}" ]; then
    if [ -n "${DISPLAY:-}" ]; then
        export QT_QPA_PLATFORM=xcb
    else
        export QT_QPA_PLATFORM=vnc:size=800x480
        echo "tideshell: VNC server on localhost:5900 (800 x 480)"
    fi
fi
if [ -z "${XDG_RUNTIME_DIR:-}" ]; then
    export XDG_RUNTIME_DIR=$(mktemp -d /tmp/tideshell-run-XXXXXX)
fi
socket=${TIDESHELL_SOCKET:-tideshell-demo}

"$build/src/tideshell" -f --wayland-socket-name "$socket" &
shell=$!
trap 'kill $shell 2>/dev/null; [ -n "${client:-}" ] && kill $client 2>/dev/null; wait' EXIT INT TERM
for _ in $(seq 100); do [ -S "$XDG_RUNTIME_DIR/$socket" ] && break; sleep 0.1; done
sleep 0.5

# Show the bar and open a sample client: a Qt window with a line edit to type into.
"$build/tools/tidectl/tidectl" topen
WAYLAND_DISPLAY=$socket QT_QPA_PLATFORM=wayland "$build/tests/client/tide_testclient" \
    --title "tideshell sample client" >/dev/null &
client=$!
echo "tideshell: running (pid $shell); try: $build/tools/tidectl/tidectl ttop"
wait $shell
