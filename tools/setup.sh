#!/usr/bin/env bash
# Installs from Debian's packages what a make target needs and the machine
# lacks. As root it installs them; otherwise it names them in one line and
# fails, so that nothing half-works.
# Every script and make target of the project installs through here.
# Usage: tools/setup.sh build|test|repin|tune|web|windows|windows-test|dist|arm64|arm64-test|node|opponents|fuzz|valgrind|perft-bench|search-bench|deb|deb-test
set -euo pipefail
# The opponents of the match driver: the packages of its table of engines.
read -ra opponents <<<"$(awk -F'|' '!/^[[:space:]]*(#|$)/ { gsub(/[[:space:]]/, "", $2); printf "%s ", $2 }' \
    "$(dirname "$0")/match/opponents.txt")"
case "${1:-}" in
    build) wanted=(g++ cmake) ;;
    # The tests: GoogleTest, clang with its fuzzer runtime, Node.js for the
    # match driver and the opponents it plays, the tuner's Python packages.
    test) wanted=(g++ cmake libgtest-dev clang clang-format-14 libclang-rt-14-dev nodejs npm "${opponents[@]}"
        python3-pytest python3-pyflakes python3-numpy python3-distributed python3-matplotlib) ;;
    # make repin: the test program, and Python for the tool that rewrites their data.
    repin) wanted=(libgtest-dev python3) ;;
    # The tuner and its Dask workers: Python's numerics, Dask, plots, Node.js for the games.
    tune) wanted=(nodejs npm python3-numpy python3-distributed python3-matplotlib) ;;
    # Windows: the cross compiler, wine to run the tests, zip for the archives.
    windows) wanted=(cmake g++-mingw-w64-x86-64) ;;
    windows-test) wanted=(libgtest-dev wine64) ;;
    # 64-bit ARM Linux: the cross compiler, and qemu to run its engine here.
    arm64) wanted=(cmake g++-aarch64-linux-gnu) ;;
    arm64-test) wanted=(libgtest-dev qemu-user-static) ;;
    dist) wanted=(g++ cmake g++-mingw-w64-x86-64 wine64 zip g++-aarch64-linux-gnu qemu-user-static) ;;
    # The engine as WebAssembly and the browser its page is tested in.
    web) wanted=(emscripten nodejs npm chromium) ;;
    # The match driver and the engines it plays against.
    node) wanted=(nodejs npm) ;;
    opponents) wanted=("${opponents[@]}") ;;
    # The fuzz targets (clang's libFuzzer), memcheck, and the engines the benchmarks compare with.
    fuzz) wanted=(clang libclang-rt-14-dev) ;;
    valgrind) wanted=(valgrind) ;;
    perft-bench) wanted=(stockfish) ;;
    search-bench) wanted=(ethereal-chess) ;;
    # The Debian package: dpkg's tools for the control file, lintian to
    # check it; its test makes a Debian 12 root with debootstrap (what the
    # test runs in that root, XBoard and Xvfb among them, goes in the root).
    # The arm64 package's engine is stripped and run by the cross tools.
    deb) wanted=(dpkg-dev lintian binutils g++-aarch64-linux-gnu qemu-user-static) ;;
    deb-test) wanted=(debootstrap) ;;
    *) echo "usage: tools/setup.sh build|test|repin|tune|web|windows|windows-test|dist|arm64|arm64-test|node|opponents|fuzz|valgrind|perft-bench|search-bench|deb|deb-test" >&2; exit 2 ;;
esac
missing=()
# A package counts as present when Debian has it installed, or when the
# command it brings is there from elsewhere (a Node.js of another origin).
for pkg in "${wanted[@]}"; do
    case "$pkg" in
        nodejs) cmd=node ;;
        npm|g++|cmake|clang|zip|valgrind) cmd=$pkg ;;
        g++-mingw-w64-x86-64) cmd=x86_64-w64-mingw32-g++ ;;
        g++-aarch64-linux-gnu) cmd=aarch64-linux-gnu-g++ ;;
        qemu-user-static) cmd=qemu-aarch64-static ;;
        wine64) cmd=/usr/lib/wine/wine64 ;;  # Debian keeps the 64-bit loader off the PATH
        *) cmd= ;;
    esac
    [ -n "$cmd" ] && command -v "$cmd" >/dev/null && continue
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || missing+=("$pkg")
done
[ ${#missing[@]} -eq 0 ] && exit 0
if [ "$(id -u)" -ne 0 ]; then
    echo "velkor: missing Debian packages: ${missing[*]} (as root: apt-get install ${missing[*]})" >&2
    exit 1
fi
echo "installing ${missing[*]} from Debian's packages" >&2
export DEBIAN_FRONTEND=noninteractive DEBCONF_NOWARNINGS=yes
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
