#!/usr/bin/env bash
# Builds the Debian packages tideshell and tidectl with dpkg-buildpackage into dist/ and
# checks them with lintian.
#
#   scripts/package.sh                  compile from a clean copy of the tree (Release flags)
#   scripts/package.sh --reuse DIR      package the programs of an existing build tree DIR
#                                       (what CI does after the tests, in seconds)
#   extra dpkg-buildpackage options     after "--", e.g. -- -aarm64 (see scripts/cross-build.sh)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
reuse=""
while [ $# -gt 0 ]; do
    case $1 in
        --reuse) reuse=$(cd "$2" && pwd); shift 2 ;;
        --) shift; break ;;
        *) echo "usage: $0 [--reuse BUILD_DIR] [-- dpkg-buildpackage options]" >&2; exit 2 ;;
    esac
done

[ -n "${TIDESHELL_SKIP_DEPS:-}" ] || bash "$root/scripts/deps.sh"
dist=${TIDESHELL_DIST_DIR:-$root/dist}
stage=${TIDESHELL_PACKAGE_DIR:-$root/build-package}
version=$(dpkg-parsechangelog -l "$root/debian/changelog" -S Version)

# dpkg-buildpackage writes into the source tree and puts its results next to it: work on a
# copy in a fixed place (so ccache finds its earlier compilations).
src=$stage/tideshell-$version
rm -rf "$src" "$stage"/*.deb "$stage"/*.ddeb "$stage"/*.buildinfo "$stage"/*.changes
mkdir -p "$src" "$dist"
tar -C "$root" --exclude=./.git --exclude='./build*' --exclude=./dist --exclude=./out -cf - . |
    tar -C "$src" -xf -
# Cross packages: which packages of the target provide its libraries (scripts/cross-build.sh).
[ -z "${TIDESHELL_SHLIBS_LOCAL:-}" ] || cp "$TIDESHELL_SHLIBS_LOCAL" "$src/debian/shlibs.local"

export TIDESHELL_REUSE_BUILD="$reuse"
if command -v ccache >/dev/null; then export TIDESHELL_CCACHE=1; fi
cd "$src"
dpkg-buildpackage -b -us -uc -j"${TIDESHELL_JOBS:-2}" "$@"

cd "$stage"
changes=$(ls tideshell_"$version"_*.changes)
cp ./*.deb ./*.buildinfo "$changes" "$dist/"
cp ./*.ddeb "$dist/" 2>/dev/null || true
echo "packages in $dist:"
ls -1 "$dist"
# lintian's errors fail the build; warnings and notes are shown.
lintian --fail-on error "$dist/$changes"
