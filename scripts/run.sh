#!/usr/bin/env bash
# Builds tideshell and starts it in the foreground with a sample client inside it.
#
# The shell runs on Qt's VNC platform at 800 x 480, which composes the screen as the device's
# framebuffer does. With a display (DISPLAY set) a VNC viewer shows it in an 800 x 480 window;
# without one, connect any VNC viewer to localhost:5900 (TIDESHELL_VNC_PORT changes the port).
# QT_QPA_PLATFORM, when set, wins (for instance linuxfb or eglfs on the device, xcb on a
# desktop, where the shell's windows become X windows on the whole screen).
# Ctrl-C stops the shell and the client.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/deps.sh"
build=${TIDESHELL_BUILD_DIR:-$root/build}
cmake -S "$root" -B "$build" >/dev/null
cmake --build "$build" -j"$(nproc)" --target tideshell tidectl tide_testclient

# Without a platform given the shell runs as on the device: Qt composes its windows into one
# 800 x 480 screen image, served over VNC. With a display a viewer shows that screen in an
# 800 x 480 window; without one any VNC viewer can connect.
viewer=""
if [ -z "${QT_QPA_PLATFORM:-}" ]; then
    port=${TIDESHELL_VNC_PORT:-5900}
    export QT_QPA_PLATFORM=vnc:size=800x480:port=$port
    if [ -n "${DISPLAY:-}" ]; then
        viewer="xtigervncviewer -RemoteResize=0 -AcceptClipboard=0 localhost::$port"
    else
        echo "tideshell: VNC server on localhost:$port (800 x 480)"
    fi
fi
if [ -z "${XDG_RUNTIME_DIR:-}" ]; then
    export XDG_RUNTIME_DIR=$(mktemp -d /tmp/tideshell-run-XXXXXX)
fi
socket=${TIDESHELL_SOCKET:-tideshell-demo}

"$build/src/tideshell" -f --wayland-socket-name "$socket" &
shell=$!
trap 'kill $shell ${client:-} ${viewer_pid:-} 2>/dev/null; wait' EXIT INT TERM
# The shell takes commands from the moment its socket accepts.
for _ in $(seq 100); do [ -S "$XDG_RUNTIME_DIR/$socket" ] && break; sleep 0.1; done
if [ -n "$viewer" ]; then
    $viewer >/dev/null 2>&1 &
    viewer_pid=$!
fi

# Show the bar and open a sample client: a Qt window with a line edit to type into.
"$build/tools/tidectl/tidectl" topen
WAYLAND_DISPLAY=$socket QT_QPA_PLATFORM=wayland "$build/tests/client/tide_testclient" \
    --title "tideshell sample client" >/dev/null &
client=$!
echo "tideshell: running (pid $shell); try: $build/tools/tidectl/tidectl ttop"
wait $shell
