#!/usr/bin/env bash
# Figures for the shell on this machine, printed, never judged: start-up time, memory idle
# and with clients, CPU while a client animates, and control-port throughput. Runs the shell
# on the offscreen platform at 800 x 480 (the device's panel size) with a private runtime
# directory and port. Usage: bench/run.sh [build-dir]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-${TIDESHELL_BUILD_DIR:-$root/build}}
cmake --build "$build" -j"$(nproc)" --target tideshell tide_testclient >/dev/null

work=$(mktemp -d /tmp/tideshell-bench-XXXXXX)
export XDG_RUNTIME_DIR=$work
export QT_QPA_PLATFORM="offscreen:configfile=$root/tests/screen-800x480.json"
export TIDESHELL_CONTROL_PORT=$((40000 + RANDOM % 20000))
export QT_LOGGING_RULES="tideshell.windowserver=true"
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; rm -rf "$work"; }
trap cleanup EXIT

now_ms() { echo $(( $(date +%s%N) / 1000000 )); }
rss_kb() { awk '/VmRSS/ {print $2}' "/proc/$1/status"; }
cpu_ticks() { awk '{print $14 + $15}' "/proc/$1/stat"; }
start_shell() {
    "$build/src/tideshell" -f --wayland-socket-name bench >"$work/shell.log" 2>&1 &
    shell=$!
    pids+=("$shell")
    until grep -q "server window Hide TitleBarWidget" "$work/shell.log" 2>/dev/null; do sleep 0.005; done
}
client_env() { env WAYLAND_DISPLAY=bench QT_QPA_PLATFORM=wayland "$@"; }

# Start-up: from exec to the bar built (clients can connect before that).
times=()
for _ in 1 2 3 4 5; do
    t0=$(now_ms)
    start_shell
    times+=($(( $(now_ms) - t0 )))
    kill "$shell"; wait "$shell" 2>/dev/null || true
done
sorted=($(printf '%s\n' "${times[@]}" | sort -n))
echo "start-up to bar built (ms): median ${sorted[2]}, runs ${times[*]}"

start_shell
sleep 1
echo "memory idle (RSS kB): $(rss_kb "$shell")"

client_env "$build/tests/client/tide_testclient" --maximized >/dev/null 2>&1 &
pids+=($!)
client_env weston-eventdemo >/dev/null 2>&1 &
pids+=($!)
sleep 1.5
echo "memory with two clients (RSS kB): $(rss_kb "$shell")"

# An animating client: the shell composites every frame it commits.
client_env env WAYLAND_DEBUG=1 weston-simple-shm 2>"$work/shm.log" >/dev/null &
pids+=($!)
sleep 1
hz=$(getconf CLK_TCK)
c0=$(cpu_ticks "$shell"); t0=$(now_ms)
sleep 5
c1=$(cpu_ticks "$shell"); t1=$(now_ms)
frames=$(grep -c 'wl_callback@[0-9]*\.done' "$work/shm.log" || true)
echo "frames shown to weston-simple-shm per second: $(( frames * 1000 / (t1 - t0 + 1000) ))"
echo "CPU while weston-simple-shm animates (% of one core): $(( (c1 - c0) * 100000 / hz / (t1 - t0) ))"
echo "memory with three clients (RSS kB): $(rss_kb "$shell")"

# Control port: batches of colour commands, each acknowledged by its debug line.
exec 3>"/dev/udp/127.0.0.1/$TIDESHELL_CONTROL_PORT"
n=0; total=5000; t0=$(now_ms)
while [ $n -lt $total ]; do
    for _ in $(seq 50); do printf 'ttextcolor 1,2,3,255' >&3; done
    n=$((n + 50))
    until [ "$(grep -c 'set title text color to' "$work/shell.log")" -ge $n ]; do sleep 0.002; done
done
t1=$(now_ms)
echo "control port: $total commands in $((t1 - t0)) ms ($(( total * 1000 / (t1 - t0 + 1) )) per second, sender and log reading included)"
