#!/usr/bin/env bash
# Checks a release build before make dist packs it: bench, sent alone on
# standard input, counts the nodes of tests/data/bench.txt (velkor.exe runs
# under wine, an aarch64 velkor under qemu-aarch64-static), and a build for x86-64-v2 has no instruction of a later
# level, BMI1 and BMI2 above all: its compiler settings define no __BMI__,
# and its code holds no BMI1, BMI2 or AVX instruction. (tzcnt is left out:
# it is how "rep bsf" disassembles, which processors without BMI1 run as
# bsf.)
# Usage: packaging/check-binary.sh BUILD_DIR WINE_PREFIX
set -euo pipefail
here=$(dirname "$(realpath "$0")")
build=$1
level=$(sed -n 's/^VELKOR_ARCH:STRING=//p' "$build/CMakeCache.txt")
nodes=$(grep -v '^#' "$here/../tests/data/bench.txt")
fail() { echo "check-binary: $build: $*" >&2; exit 1; }
# The compiler CMake found (a cross compiler comes from the toolchain file, not the cache).
compiler=$(sed -n 's/^set(CMAKE_CXX_COMPILER "\(.*\)")$/\1/p' "$build"/CMakeFiles/*/CMakeCXXCompiler.cmake | head -n 1)
[ -n "$compiler" ] || fail "no compiler recorded"
if [ -f "$build/velkor.exe" ]; then
    binary=$build/velkor.exe
    source "$here/../tools/wine.sh" "$2"
    out=$(printf 'bench\n' | "$WINE" "$binary") || fail "bench: status $?"
elif readelf -h "$build/velkor" | grep -q 'Machine: *AArch64'; then
    binary=$build/velkor
    out=$(printf 'bench\n' | qemu-aarch64-static "$binary") || fail "bench under qemu: status $?"
else
    binary=$build/velkor
    out=$(printf 'bench\n' | "$binary") || fail "bench: status $?"
fi
grep -q "^$nodes nodes in " <<<"$out" || fail "bench: $(tail -n 1 <<<"$out")"
if [ "$level" = x86-64-v2 ]; then
    ! "$compiler" -march="$level" -dM -E -x c++ /dev/null | grep -q '__BMI' || fail "-march=$level turns BMI on"
    later=$(objdump -d --no-show-raw-insn "$binary" | awk -F '\t' 'NF >= 2 {split($2, w, " "); print w[1]}' |
        { grep -E '^(andn|bextr|blsi|blsmsk|blsr|bzhi|lzcnt|mulx|pdep|pext|rorx|sarx|shlx|shrx|v[a-z0-9]+)$' || true; } |
        sort -u | tr '\n' ' ')
    [ -z "$later" ] || fail "instructions beyond $level: $later"
fi
echo "check-binary: $binary ($level): $(grep "^$nodes nodes in " <<<"$out")"
