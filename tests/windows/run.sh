#!/usr/bin/env bash
# make test-windows: the Windows engine under wine. The Linux test program
# runs its process sessions (the command battery, the transcripts, a stop
# during an infinite search, a fixed-time search, the bench count) against
# velkor.exe started from launcher.exe, on pipes made as a Windows GUI makes
# them. Then the inputs a launcher doesn't give: a pipe from Linux, which
# wine can't peek (searches must still run to their limits), and files (an
# unread rest is waiting input; the end ends an infinite search).
# Usage: tests/windows/run.sh RELEASE_BUILD WINDOWS_BUILD WINE_PREFIX
set -euo pipefail
here=$(dirname "$(realpath "$0")")
release=$(realpath "$1")
windows=$(realpath "$2")
source "$here/../../tools/wine.sh" "$3"
exe=$windows/velkor.exe
name=$(bash "$here/../../tools/version.sh" name)
level=$(sed -n 's/^VELKOR_ARCH:STRING=//p' "$windows/CMakeCache.txt")
nodes=$(grep -v '^#' "$here/../data/bench.txt")

# Now and then one engine process started under wine ends with status 1
# having printed nothing, not even the banner that is the engine's first
# line (here: in about one run of the sessions in ten, a different session
# each time). The sessions then get a second run, which must pass whole.
sessions() {
    (cd "$release" && VELKOR_WRAPPER="$WINE $windows/launcher.exe" VELKOR_TEST_ENGINE="$exe" \
        VELKOR_BANNER="$name Windows $level ('quit' to exit)" \
        ./tests/velkor_tests --gtest_filter='Sessions.*:-Sessions.TightMemory')
}
sessions || { echo "test-windows: the sessions failed once under wine; running them again" >&2; sessions; }

fail() { echo "test-windows: $*" >&2; exit 1; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

out=$(printf 'bench\n' | timeout 600 "$WINE" "$exe") || fail "bench from a Linux pipe: status $?"
[ "$(grep -c '^bestmove ' <<<"$out")" = 4 ] && grep -q "^$nodes nodes in " <<<"$out" ||
    fail "bench from a Linux pipe: $(tail -n 1 <<<"$out")"

# A block of the file ends with go infinite; the rest waits, so it stops at once.
{ head -c $((65536 - 12)) /dev/zero | tr '\0' '\n'; printf 'go infinite\nisready\n'; } >"$tmp/rest.txt"
out=$(timeout 120 "$WINE" "$exe" <"$tmp/rest.txt") || fail "file with a rest: status $?"
[ "$(tail -n 2 <<<"$out" | cut -d ' ' -f 1 | tr '\n' ' ')" = "bestmove readyok " ] || fail "file with a rest: $out"

printf 'go infinite\n' >"$tmp/end.txt"
out=$(timeout 120 "$WINE" "$exe" <"$tmp/end.txt") || fail "file ending behind go infinite: status $?"
[ "$(tail -n 1 <<<"$out" | cut -d ' ' -f 1)" = bestmove ] || fail "file ending behind go infinite: $out"
echo "test-windows: sessions, bench from a Linux pipe and file input passed"
