#!/usr/bin/env bash
# Installs from Debian's packages what the Windows targets need and the
# machine lacks, as tools/setup.sh does for the others: as root it installs
# them; otherwise it names them in one line and fails.
# Usage: tests/windows/setup.sh build|test|dist
set -euo pipefail
case "${1:-}" in
    build) wanted=(cmake g++-mingw-w64-x86-64) ;;
    test) wanted=(libgtest-dev wine64) ;;
    dist) wanted=(g++ cmake g++-mingw-w64-x86-64 wine64 zip) ;;
    *) echo "usage: tests/windows/setup.sh build|test|dist" >&2; exit 2 ;;
esac
missing=()
for pkg in "${wanted[@]}"; do
    case "$pkg" in
        g++|cmake|zip) command -v "$pkg" >/dev/null && continue ;;
        g++-mingw-w64-x86-64) command -v x86_64-w64-mingw32-g++ >/dev/null && continue ;;
        wine64) { command -v wine64 || test -x /usr/lib/wine/wine64; } >/dev/null && continue ;;
    esac
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || missing+=("$pkg")
done
[ ${#missing[@]} -eq 0 ] && exit 0
if [ "$(id -u)" -ne 0 ]; then
    echo "velkor: missing Debian packages: ${missing[*]} (as root: apt-get install ${missing[*]})" >&2
    exit 1
fi
echo "installing ${missing[*]} from Debian's packages" >&2
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
