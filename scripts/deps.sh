#!/usr/bin/env bash
# Installs whatever of scripts/packages.txt is missing (Debian 12, as root or through sudo):
# the plain lines, and the lines of each GROUP named on the command line ("deps.sh cross").
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
groups=" $* "
wanted=()
while read -r first second; do
    case $first in
        '' | '#'*) ;;
        *:) [[ $groups == *" ${first%:} "* ]] && wanted+=("$second") ;;
        *) wanted+=("$first") ;;
    esac
done <"$here/packages.txt"
missing=()
for p in "${wanted[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -q
$sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
