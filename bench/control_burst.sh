#!/usr/bin/env bash
# Loss on the control port: an unpaced burst of 20,000 commands, then 50,000 commands a
# second for some seconds (2 unless given). Every command is numbered (see udpsend.c); the shell's debug lines
# show how many were carried out and whether in order. Prints figures, judges nothing.
# Usage: bench/control_burst.sh [build-dir] [seconds]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-${TIDESHELL_BUILD_DIR:-$root/build}}
seconds=${2:-2}
cmake --build "$build" -j2 --target tideshell >/dev/null

work=$(mktemp -d /tmp/tideshell-burst-XXXXXX)
export XDG_RUNTIME_DIR=$work
export QT_QPA_PLATFORM="offscreen:configfile=$root/tests/screen-800x480.json"
export TIDESHELL_CONTROL_PORT=$((40000 + RANDOM % 20000))
export TIDESHELL_CONFIG=$work/none.conf
export QT_LOGGING_RULES="tideshell.windowserver=true;qt.qpa.*=false"
shell=
cleanup() { [ -n "$shell" ] && kill "$shell" 2>/dev/null; rm -rf "$work"; }
trap cleanup EXIT

cc -O2 -o "$work/udpsend" "$root/bench/udpsend.c"
"$build/src/tideshell" -f --wayland-socket-name burst >"$work/shell.log" 2>&1 &
shell=$!
until grep -q "server window Hide TitleBarWidget" "$work/shell.log" 2>/dev/null; do sleep 0.01; done

# Waits until the shell has carried out everything sent so far: a malformed command at the
# end answers with a fixed line, and is sent again while the socket may still be full.
settle() { # from-line
    while ! tail -n +"$1" "$work/shell.log" | grep -q '^set window color failed$'; do
        printf 'twindowcolor' >"/dev/udp/127.0.0.1/$TIDESHELL_CONTROL_PORT"
        sleep 0.2
    done
}

report() { # label sent from-line
    local carried inorder
    carried=$(tail -n +"$3" "$work/shell.log" | grep -c '^set title text color to' || true)
    inorder=$(tail -n +"$3" "$work/shell.log" | awk '/^set title text color to/ {
        n = $6 * 65536 + $7 * 256 + $8; if (n <= last && seen) bad++; last = n; seen = 1 }
        END { print bad ? "OUT OF ORDER (" bad ")" : "in order" }')
    echo "$1: $carried of $2 carried out ($(( ($2 - carried) * 100 / $2 ))% lost), $inorder"
}

from=$(( $(wc -l <"$work/shell.log") + 1 ))
t0=$(date +%s%N)
"$work/udpsend" "$TIDESHELL_CONTROL_PORT" 20000 | sed 's/^/  burst: /'
settle "$from"
report "unpaced burst" 20000 "$from"
echo "  carried out within $(( ($(date +%s%N) - t0) / 1000000 )) ms of the first send"

from=$(( $(wc -l <"$work/shell.log") + 1 ))
"$work/udpsend" "$TIDESHELL_CONTROL_PORT" $((seconds * 50000)) 50000 | sed 's/^/  sustained: /'
settle "$from"
report "50,000 per second for $seconds s" $((seconds * 50000)) "$from"
