#!/usr/bin/env bash
# tideshell and Weston side by side on this machine, in interleaved rounds, each server with
# its own runtime directory and socket. Weston runs headless with the pixman renderer at
# 800 x 480 with its desktop shell and panel: the yardstick. A third server, bench/qtfloor.cpp,
# is the least any compositor on this Qt costs (same libraries, an empty Qt Quick output): it
# shows which part of a gap is the toolkit's. Prints every figure as min / median / max and
# the ratios of the medians to Weston's.
#
# Usage: bench/compare.sh [build-dir]      (default build-release, configured as Release)
# Environment: ROUNDS (default 3), IDLE_SECONDS (default 60), FRAME_SECONDS (default 5),
#              SKEY_COUNT (default 200).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build-release}
rounds=${ROUNDS:-3}
idle_s=${IDLE_SECONDS:-60}
frame_s=${FRAME_SECONDS:-5}
skey_n=${SKEY_COUNT:-200}

"$root/scripts/deps.sh"
if [ ! -f "$build/CMakeCache.txt" ]; then
    cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DTIDESHELL_BUILD_TESTS=OFF \
        >/dev/null
fi
cmake --build "$build" -j2 --target tideshell >/dev/null
cmake -S "$root/bench" -B "$build/bench" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build/bench" -j2 >/dev/null
tool=$build/bench/benchtool
client=$build/bench/benchclient

work=$(mktemp -d /tmp/tideshell-compare-XXXXXX)
live=()
stop() { # a server or client and every process it started, by pid
    local pid kids
    for pid in "$@"; do
        kids=$(pgrep -P "$pid" || true)
        kill $pid $kids 2>/dev/null || true
    done
}
cleanup() { stop "${live[@]}" 2>/dev/null || true; [ -n "${KEEP:-}" ] || rm -rf "$work"; }
trap cleanup EXIT

record() { echo "$3" >>"$work/fig.$1.$2"; } # figure server value

# Each server's pid and runtime directory, by name: tideshell, weston, qtfloor.
declare -A pid_of dir_of

# Start-up: exec to a client's first round trip done, and the server's CPU by then.
# Sets pid_of and dir_of for the server and records both figures.
launch() { # server platform [norecord]   (Weston ignores the platform)
    local server=$1 platform=$2 out dir pid ms cpu
    dir=$(mktemp -d "$work/$server-XXXXXX")
    chmod 700 "$dir"
    local sock=s$RANDOM$RANDOM
    if [ "$server" = tideshell ]; then
        port=$((20000 + RANDOM % 30000))
        out=$(env XDG_RUNTIME_DIR="$dir" QT_QPA_PLATFORM="$platform" \
            TIDESHELL_CONTROL_PORT=$port "$tool" startup "$dir/$sock" -- \
            "$build/src/tideshell" -f --wayland-socket-name "$sock" 2>"$dir/log")
    elif [ "$server" = qtfloor ]; then
        out=$(env XDG_RUNTIME_DIR="$dir" QT_QPA_PLATFORM="$platform" "$tool" startup \
            "$dir/$sock" -- "$build/bench/qtfloor" --wayland-socket-name "$sock" 2>"$dir/log")
    else
        out=$(env XDG_RUNTIME_DIR="$dir" "$tool" startup "$dir/$sock" -- weston \
            --backend=headless-backend.so --use-pixman --width=800 --height=480 \
            --socket="$sock" --no-config --log="$dir/log" 2>"$dir/err")
    fi
    read -r _ pid _ ms _ cpu <<<"$out"
    pid_of[$server]=$pid dir_of[$server]=$dir
    live+=("$pid")
    echo "$sock" >"$dir/socket"
    [ "$server" = tideshell ] && echo "$port" >"$dir/port"
    if [ -z "${3:-}" ]; then
        record startup "$server" "$ms"
        record startcpu "$server" "$cpu"
    fi
}

control() { # dir command: a datagram to that shell's control port
    printf '%s' "$2" >"/dev/udp/127.0.0.1/$(cat "$1/port")"
}

in_server() { # dir command...: a client of the server in dir (run in the background)
    local d=$1
    shift
    exec env XDG_RUNTIME_DIR="$d" WAYLAND_DISPLAY="$(cat "$d/socket")" QT_QPA_PLATFORM=wayland "$@"
}

wait_for() { # file pattern: until the file has a line matching the pattern (10 s at most)
    local i
    for i in $(seq 1000); do
        grep -q "$2" "$1" 2>/dev/null && return 0
        sleep 0.01
    done
    echo "timed out waiting for '$2' in $1" >&2
    return 1
}

# CPU of the server per frame the client showed, while the client animates.
frame_cost() { # figure server kind
    local figure=$1 server=$2 kind=$3 log pattern cpid
    local spid=${pid_of[$server]} d=${dir_of[$server]}
    log=$(mktemp "$work/client-XXXXXX")
    if [ "$kind" = shm ]; then
        in_server "$d" env WAYLAND_DEBUG=client weston-simple-shm >/dev/null 2>"$log" &
        pattern='wl_callback@[0-9]*\.done'
    else
        in_server "$d" "$client" --animate >"$log" 2>/dev/null &
        pattern='^f$'
    fi
    cpid=$!
    wait_for "$log" "$pattern"
    sleep 1
    local f0 c0 f1 c1
    f0=$(grep -c "$pattern" "$log")
    c0=$("$tool" cpu "$spid")
    sleep "$frame_s"
    f1=$(grep -c "$pattern" "$log")
    c1=$("$tool" cpu "$spid")
    kill "$cpid"
    wait "$cpid" 2>/dev/null || true
    record "$figure" "$server" "$(awk -v c=$((c1 - c0)) -v f=$((f1 - f0)) \
        'BEGIN { printf "%.3f", (f > 0 ? c / f / 1000 : 0) }')"
    record "$figure.fps" "$server" $(((f1 - f0) / frame_s))
}

for round in $(seq "$rounds"); do
    echo "round $round of $rounds" >&2
    if [ $((round % 2)) -eq 1 ]; then order="tideshell weston"; else order="weston tideshell"; fi
    for s in $order qtfloor; do
        launch "$s" "offscreen:configfile=$root/tests/screen-800x480.json"
        sleep 1 # the next start-up is timed on a settled machine (Weston starts clients)
    done
    tdir=${dir_of[tideshell]}

    # Idle: the bar (and its clock) shown; Weston's panel shows its clock.
    control "$tdir" topen
    sleep 3
    declare -A ctxt0
    for s in tideshell weston qtfloor; do
        record rss "$s" "$(awk -v k="$("$tool" rss "${pid_of[$s]}")" \
            'BEGIN { printf "%.1f", k / 1024 }')"
        ctxt0[$s]=$("$tool" ctxt "${pid_of[$s]}")
    done
    sleep "$idle_s"
    for s in tideshell weston qtfloor; do
        record wakeups "$s" $((($("$tool" ctxt "${pid_of[$s]}") - ctxt0[$s]) * 60 / idle_s))
    done
    stop "${pid_of[qtfloor]}"

    for s in $order; do frame_cost shm "$s" shm; done

    # A key sent over the control port, to the key event in the focused client.
    klog=$(mktemp "$work/keys-XXXXXX")
    in_server "$tdir" "$client" >"$klog" 2>/dev/null &
    kpid=$!
    wait_for "$klog" '^ready'
    sleep 0.5
    "$tool" skey "$(cat "$tdir/port")" "$skey_n" "$klog" >"$work/skey.out" || true
    kill "$kpid"
    wait "$kpid" 2>/dev/null || true
    read -r _ _ _ p99 _ <"$work/skey.out" || true
    record skey tideshell "${p99:-lost}"
    stop "${pid_of[tideshell]}"

    # The framebuffer path: Qt composes every window into one screen image, as linuxfb does
    # on the device; the bar and the keyboard are shown over the animating client.
    for s in tideshell qtfloor; do
        launch "$s" "vnc:size=800x480:port=$((20000 + RANDOM % 30000))" norecord
    done
    control "${dir_of[tideshell]}" topen
    control "${dir_of[tideshell]}" "kbdshow 0"
    sleep 1
    for kind in shm qt; do
        for s in $order qtfloor; do frame_cost "fb-$kind" "$s" "$kind"; done
    done
    stop "${pid_of[@]}"
    live=()
done

# Prints "min / median / max" of a figure's values.
stats() {
    [ -f "$1" ] || { echo "-"; return; }
    sort -g "$1" | awk '{ v[NR] = $1 } END {
        m = NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2
        printf "%s / %s / %s", v[1], m, v[NR] }'
}
median() { [ -f "$1" ] && sort -g "$1" | awk '{ v[NR] = $1 } END {
    print NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
ratio() { # figure server: its median over Weston's
    awk -v t="$(median "$work/fig.$1.$2" || true)" -v w="$(median "$work/fig.$1.weston" || true)" \
        'BEGIN { if (t != "" && w != "" && w + 0 > 0) printf "%.2fx", t / w; else print "-" }'
}
row() { # figure label
    printf '| %s | %s | %s | %s | %s | %s |\n' "$2" "$(stats "$work/fig.$1.tideshell")" \
        "$(stats "$work/fig.$1.weston")" "$(ratio "$1" tideshell)" \
        "$(stats "$work/fig.$1.qtfloor")" "$(ratio "$1" qtfloor)"
}

echo "tideshell vs Weston $(weston --version | awk '{print $2}') (headless, pixman, desktop shell" \
    "and panel), 800 x 480, $rounds rounds, $(nproc) cores, $(date -u +%Y-%m-%d)"
echo "figures are min / median / max; a ratio is of the medians, to Weston's;" \
    "Qt floor: bench/qtfloor.cpp, an empty compositor on the same Qt libraries"
echo
echo "| figure | tideshell | Weston | ratio | Qt floor | floor ratio |"
echo "|---|---|---|---|---|---|"
row startup "exec to a first client's round trip done (ms)"
row startcpu "server CPU used by then (ms)"
row rss "idle RSS, every process, bar shown (MiB)"
row wakeups "idle wake-ups per minute, bar and clock shown"
row shm "CPU per frame, weston-simple-shm, offscreen (ms)"
row fb-shm "CPU per frame, weston-simple-shm, framebuffer path (ms)"
row fb-qt "CPU per frame, maximised Qt client, framebuffer path (ms)"
row skey "skey datagram to the client's key event, p99 (ms)"
echo
echo "frames per second seen by the clients (median): offscreen shm $(median "$work/fig.shm.fps.tideshell") /" \
    "$(median "$work/fig.shm.fps.weston"), framebuffer shm $(median "$work/fig.fb-shm.fps.tideshell") /" \
    "$(median "$work/fig.fb-shm.fps.weston"), framebuffer Qt $(median "$work/fig.fb-qt.fps.tideshell") /" \
    "$(median "$work/fig.fb-qt.fps.weston") (tideshell / Weston)"
echo "framebuffer path: tideshell on QT_QPA_PLATFORM=vnc with the bar and the keyboard shown;" \
    "Weston with its panel; the Qt floor on vnc with the client alone"
