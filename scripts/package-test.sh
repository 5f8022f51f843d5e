#!/usr/bin/env bash
# Builds the Debian packages, installs them with dpkg, runs the installed shell offscreen
# until it serves and its control port answers the installed tidectl, stops it, and removes
# the packages again, checking that nothing of them is left.
#
#   scripts/package-test.sh [--reuse BUILD_DIR]    (options go to scripts/package.sh)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
start=$(date +%s)

bash "$root/scripts/package.sh" "$@"
dist=${TIDESHELL_DIST_DIR:-$root/dist}
version=$(dpkg-parsechangelog -l "$root/debian/changelog" -S Version)
arch=$(dpkg --print-architecture)
debs=("$dist/tideshell_${version}_$arch.deb" "$dist/tidectl_${version}_$arch.deb")
built=$(date +%s)

work=$(mktemp -d)
shell_pid=""
installed=0
cleanup() {
    [ -z "$shell_pid" ] || kill "$shell_pid" 2>/dev/null || true
    [ $installed = 0 ] || $sudo dpkg -P tideshell tidectl >/dev/null 2>&1 || true
    rm -rf "$work"
}
trap cleanup EXIT

installed=1
$sudo dpkg -i "${debs[@]}"
files=$(dpkg -L tideshell tidectl | sort -u)
for f in /usr/bin/tideshell /usr/bin/tidectl /lib/systemd/system/tideshell.service \
    /usr/share/man/man1/tideshell.1.gz /usr/share/man/man1/tidectl.1.gz \
    /usr/share/bash-completion/completions/tidectl \
    /usr/share/doc/tideshell/examples/startmenu/.Setting/datetime.menu; do
    grep -qx "$f" <<<"$files" || { echo "FAIL: $f is not in the packages" >&2; exit 1; }
done
# Any complaint counts (an unknown key is only a warning to systemd).
complaints=$(systemd-analyze verify /lib/systemd/system/tideshell.service 2>&1)
[ -z "$complaints" ] || { echo "$complaints"; echo "FAIL: systemd-analyze verify" >&2; exit 1; }

# The installed shell, offscreen, on its own socket and control port.
mkdir -m 0700 "$work/run"
port=$((40000 + RANDOM % 20000))
XDG_RUNTIME_DIR="$work/run" QT_QPA_PLATFORM=offscreen QT_QUICK_BACKEND=software \
    TIDESHELL_CONTROL_PORT=$port /usr/bin/tideshell -f --wayland-socket-name pkgtest \
    >"$work/log" 2>&1 &
shell_pid=$!
# Wait for the events themselves: the Wayland socket, then the answer to a datagram that the
# installed tidectl sends ("taddlabel" without a comma makes the shell complain on stderr).
wait_for() { # seconds, then a command that succeeds once the event happened
    local deadline=$((SECONDS + $1))
    shift
    until "$@"; do
        kill -0 "$shell_pid" 2>/dev/null || { cat "$work/log"; echo "FAIL: shell ended" >&2; exit 1; }
        [ $SECONDS -lt $deadline ] || { cat "$work/log"; echo "FAIL: timeout: $*" >&2; exit 1; }
        sleep 0.1
    done
}
wait_for 20 test -S "$work/run/pkgtest"
answered() {
    /usr/bin/tidectl --port "$port" taddlabel nocomma
    grep -q 'wrong param!!' "$work/log"
}
wait_for 20 answered
kill -TERM "$shell_pid"
status=0
wait "$shell_pid" || status=$?
shell_pid=""
[ "$status" -eq 0 ] || { cat "$work/log"; echo "FAIL: shell exit status $status" >&2; exit 1; }

$sudo dpkg -r tideshell tidectl
installed=0
for f in $files; do
    if [ ! -d "$f" ] && { [ -e "$f" ] || [ -L "$f" ]; }; then
        echo "FAIL: $f is left after dpkg -r" >&2
        exit 1
    fi
done
# Purging also forgets that the unit was enabled.
left=$(dpkg-query -W -f='${db:Status-Abbrev} ${Package}\n' tideshell tidectl 2>/dev/null |
    awk '$1 == "rc" {print $2}')
[ -z "$left" ] || $sudo dpkg -P $left >/dev/null
wants=/etc/systemd/system/multi-user.target.wants/tideshell.service
if [ -L "$wants" ]; then
    echo "FAIL: $wants is left after dpkg -P" >&2
    exit 1
fi
echo "package test passed: packages built in $((built - start)) s;" \
    "installed, run and removed in $(($(date +%s) - built)) s"
