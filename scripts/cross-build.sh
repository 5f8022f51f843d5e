#!/usr/bin/env bash
# Cross-builds tideshell for an ARM Debian 12 device and runs the unit tests that can run
# under qemu-user:
#
#   scripts/cross-build.sh arm64|armhf [--package] [--no-tests]
#
# 1. A sysroot of the target's -dev packages in build-cross-ARCH/sysroot, made once with
#    mmdebstrap --variant=extract (no emulation; absolute symlinks made relative).
# 2. Debian's cross compiler with cmake/debian-cross.cmake and the host's Qt tools, into
#    build-cross-ARCH/build.
# 3. The unit tests that start no other program, through qemu-user-static (Debian 12's qemu
#    cannot start processes for Qt 6.4, which asks for CLONE_PIDFD).
# 4. With --package: the Debian packages for ARCH from that build, into dist/.
#
# TIDESHELL_CROSS_SECURITY=0 makes the sysroot without the bookworm-security suite;
# TIDESHELL_MIRROR changes the mirror (default http://deb.debian.org/debian).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
arch=${1:-}
case $arch in
    arm64) triplet=aarch64-linux-gnu qemu=qemu-aarch64-static ;;
    armhf) triplet=arm-linux-gnueabihf qemu=qemu-arm-static ;;
    *) echo "usage: $0 arm64|armhf [--package] [--no-tests]" >&2; exit 2 ;;
esac
shift
package=0 tests=1
for opt in "$@"; do
    case $opt in
        --package) package=1 ;;
        --no-tests) tests=0 ;;
        *) echo "unknown option $opt" >&2; exit 2 ;;
    esac
done

bash "$root/scripts/deps.sh" cross
work=${TIDESHELL_CROSS_DIR:-$root/build-cross-$arch}
sysroot=$work/sysroot
mirror=${TIDESHELL_MIRROR:-http://deb.debian.org/debian}
mkdir -p "$work"
t0=$SECONDS

# The target's libraries and headers: what building the shell and its tests needs.
# (qt6-wayland: the compositor's CMake files name its plugins.)
target_packages=(libc6-dev libstdc++-12-dev qt6-base-dev qt6-base-private-dev
    qt6-declarative-dev qt6-wayland-dev qt6-wayland libxkbcommon-dev libsystemd-dev)
if [ ! -f "$sysroot/.complete" ]; then
    rm -rf "$sysroot"
    suites=("deb $mirror bookworm main" "deb $mirror bookworm-updates main")
    [ "${TIDESHELL_CROSS_SECURITY:-1}" = 0 ] ||
        suites+=("deb ${mirror%/debian}/debian-security bookworm-security main")
    make_sysroot() {
        # The .deb files are kept for a moment: their shlibs files tell the package build
        # which packages the target's libraries come from.
        mmdebstrap --variant=extract --architectures="$arch" --skip=cleanup/apt/cache \
            --include="$(IFS=,; echo "${target_packages[*]}")" bookworm "$sysroot" "$@"
    }
    if ! make_sysroot "${suites[@]}"; then
        [ "${TIDESHELL_CROSS_SECURITY:-1}" = 0 ] && exit 1
        echo "sysroot: trying again without bookworm-security" >&2
        rm -rf "$sysroot"
        make_sysroot "${suites[@]:0:2}"
    fi
    # Links such as usr/lib/TRIPLET/libm.so -> /lib/TRIPLET/libm.so.6 would point into the
    # build machine's own root.
    find "$sysroot" -type l -lname '/*' -print0 | while IFS= read -r -d '' link; do
        target=$(readlink "$link")
        ln -sfn "$(realpath -m --relative-to="$(dirname "$link")" "$sysroot$target")" "$link"
    done
    debs=("$sysroot"/var/cache/apt/archives/*.deb)
    [ -f "${debs[0]}" ] || { echo "no packages kept in the sysroot" >&2; exit 1; }
    for deb in "${debs[@]}"; do
        dpkg-deb --ctrl-tarfile "$deb" | tar -xOf - ./shlibs 2>/dev/null || true
    done >"$sysroot/shlibs.local"
    rm -f "${debs[@]}"
    touch "$sysroot/.complete"
fi
t1=$SECONDS

export TIDESHELL_CROSS_TRIPLET=$triplet TIDESHELL_SYSROOT=$sysroot
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$work/build" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/debian-cross.cmake" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTIDESHELL_BUILD_TESTS=$([ $tests = 1 ] && echo ON || echo OFF) \
    "${launcher[@]}" >/dev/null
cmake --build "$work/build" -j"${TIDESHELL_JOBS:-2}"
t2=$SECONDS
file "$work/build/src/tideshell" "$work/build/tools/tidectl/tidectl"

if [ $tests = 1 ]; then
    # Tests that start programs (the shell, clients, tidectl, the clock program) stay out.
    skipped=()
    for src in $(grep -lE 'QProcess|ShellHarness|LineProcess|ClockProgram' "$root"/tests/*/tst_*.cpp); do
        skipped+=($(sed -nE "s/.*add_tide_test\(([A-Za-z0-9_]+) SOURCES $(basename "$src").*/\1/p" \
            "$(dirname "$src")/CMakeLists.txt"))
    done
    echo "under $qemu, leaving out: ${skipped[*]}"
    QT_PLUGIN_PATH=$sysroot/usr/lib/$triplet/qt6/plugins \
        ctest --test-dir "$work/build" -j"${TIDESHELL_JOBS:-2}" --output-on-failure \
        -E "^($(IFS='|'; echo "${skipped[*]}"))\$"
fi
t3=$SECONDS

if [ $package = 1 ]; then
    CC=$triplet-gcc CXX=$triplet-g++ DEB_BUILD_OPTIONS=nocheck \
        TIDESHELL_DIST_DIR=${TIDESHELL_DIST_DIR:-$root/dist} TIDESHELL_SKIP_DEPS=1 \
        TIDESHELL_SHLIBS_LOCAL=$sysroot/shlibs.local TIDESHELL_PACKAGE_DIR=$work/package \
        bash "$root/scripts/package.sh" --reuse "$work/build" -- -a"$arch" -Pcross,nocheck -d
fi
t4=$SECONDS
echo "cross-build $arch: sysroot $((t1 - t0)) s, build $((t2 - t1)) s, tests $((t3 - t2)) s," \
    "packages $((t4 - t3)) s"
