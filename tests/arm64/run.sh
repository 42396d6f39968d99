#!/usr/bin/env bash
# make test-arm64: the aarch64 engine under qemu-aarch64-static, which runs
# a static binary of another architecture with no binfmt set-up. First the
# binary itself: an aarch64 executable that needs no library (a static
# PIE); then bench counts the nodes of tests/data/bench.txt; then the Linux
# test program runs its process sessions (the command battery, the
# transcripts, a stop during an infinite search, a fixed-time search, the
# bench count) against it. Each step prints its time: under emulation they
# show that the results hold, not how fast a real ARM processor is.
# Usage: tests/arm64/run.sh RELEASE_BUILD ARM64_BUILD
set -euo pipefail
here=$(dirname "$(realpath "$0")")
release=$(realpath "$1")
engine=$(realpath "$2")/velkor
qemu=qemu-aarch64-static
fail() { echo "test-arm64: $*" >&2; exit 1; }
command -v "$qemu" >/dev/null || fail "no $qemu (Debian's qemu-user-static: make test-arm64 installs it)"
[ -x "$engine" ] || fail "no engine at $engine (make arm64)"
name=$(bash "$here/../../tools/version.sh" name)
nodes=$(grep -v '^#' "$here/../data/bench.txt")

header=$(readelf -h -l -d "$engine" 2>&1)
grep -q 'Machine: *AArch64' <<<"$header" || fail "$engine is not an aarch64 executable"
grep -q 'Type: *DYN' <<<"$header" || fail "$engine is not position-independent"
! grep -q -e 'Requesting program interpreter' -e '(NEEDED)' <<<"$header" || fail "$engine needs a loader or libraries"
echo "test-arm64: $engine: aarch64 static PIE, $(stat -c %s "$engine") bytes"

SECONDS=0
out=$(printf 'bench\n' | "$qemu" "$engine") || fail "bench: status $?"
[ "$(head -n 1 <<<"$out")" = "$name arm64 ('quit' to exit)" ] || fail "banner: $(head -n 1 <<<"$out")"
grep -q "^$nodes nodes in " <<<"$out" || fail "bench: $(tail -n 1 <<<"$out")"
echo "test-arm64: bench under qemu: $(grep "^$nodes nodes in " <<<"$out") (${SECONDS} s)"

SECONDS=0
(cd "$release" && VELKOR_WRAPPER="$qemu" VELKOR_TEST_ENGINE="$engine" VELKOR_BANNER="$name arm64 ('quit' to exit)" \
    ./tests/velkor_tests --gtest_brief=1 --gtest_filter='Sessions.*:-Sessions.TightMemory')
echo "test-arm64: the sessions under qemu passed (${SECONDS} s)"
