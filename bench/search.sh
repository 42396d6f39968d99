#!/usr/bin/env bash
# The bench command's speed against the build of a reference commit, side by
# side, and beside it Debian's ethereal-chess searching the same positions for
# the same time each.
# Usage: bench/search.sh [path/to/velkor]   (REF=commit RUNS=n CPU=n to change them)
set -euo pipefail
VELKOR=${1:-build/release/velkor}
REF=${REF:-e7ebd35}
RUNS=${RUNS:-3}  # each speed is the best of this many runs, the two binaries in turn
ETHEREAL=${ETHEREAL:-/usr/games/ethereal-chess}
ROOT=$(cd "$(dirname "$0")/.." && pwd)
REFDIR=$ROOT/build/reference

# The reference commit, built once in a folder of its own.
ref_commit=$(git -C "$ROOT" rev-parse --short "$REF")
if [ ! -x "$REFDIR/build/velkor" ] || [ "$(cat "$REFDIR/commit" 2>/dev/null)" != "$ref_commit" ]; then
    echo "building $ref_commit in $REFDIR" >&2
    rm -rf "$REFDIR"
    mkdir -p "$REFDIR/src"
    git -C "$ROOT" archive "$ref_commit" | tar -x -C "$REFDIR/src"
    cmake -S "$REFDIR/src" -B "$REFDIR/build" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF >/dev/null
    cmake --build "$REFDIR/build" -j 2 --target velkor >/dev/null
    echo "$ref_commit" >"$REFDIR/commit"
fi
REFERENCE=$REFDIR/build/velkor

[ -x "$ETHEREAL" ] || bash "$ROOT/tools/setup.sh" search-bench

# Both binaries run on one and the same processor: on a virtual machine the
# processors need not be equally fast (here one ran the bench 10-30 % slower
# than the other, whichever binary it was), and the scheduler picks either.
# CPU=n names another one; taskset missing, they run where they fall.
pin=()
if command -v taskset >/dev/null; then pin=(taskset -c "${CPU:-0}"); fi

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
bench_ms() { awk '/ nodes in / { print $4 }' "$1"; }
# Nothing after bench on its input: a waiting line would stop the search.
for r in $(seq "$RUNS"); do
    printf 'bench\n' | "${pin[@]}" "$VELKOR" >"$tmp/new.$r"
    printf 'bench\n' | "${pin[@]}" "$REFERENCE" >"$tmp/ref.$r"
done
best() {  # prefix -> the file of the fastest run
    for r in $(seq "$RUNS"); do echo "$(bench_ms "$tmp/$1.$r") $tmp/$1.$r"; done | sort -n | head -n 1 | cut -d' ' -f2
}
new=$(best new)
ref=$(best ref)

# Same trees: the same nodes, best moves and final scores.
signature() { grep -a -E '^(bestmove|info score)|nodes in' "$1" | sed 's/ in [0-9]* ms.*//'; }
if ! diff <(signature "$new") <(signature "$ref") >/dev/null; then
    echo "the searches differ from $ref_commit:" >&2
    diff <(signature "$new") <(signature "$ref") >&2 || true
    exit 1
fi

nodes=$(awk '/ nodes in / { print $1 }' "$new")
printf '%-20s %12s %9s %12s\n' bench nodes ms nodes/s
awk -v n="$nodes" -v a="$(bench_ms "$new")" -v b="$(bench_ms "$ref")" -v ref="$ref_commit" 'BEGIN {
    printf "%-20s %12d %9d %12.0f\n", "velkor", n, a, n / a * 1000
    printf "%-20s %12d %9d %12.0f\n", "velkor " ref, n, b, n / b * 1000
    printf "speed ratio = %.2f (best of '"$RUNS"' each; the same nodes, best moves and scores)\n\n", b / a }'

# Ethereal on the bench positions, each for as long as Velkor took: time and
# nodes of each of Velkor's searches are its last "info depth" line before
# its bestmove, the positions its own "fen = " lines.
mapfile -t positions < <(awk '/^fen = / { sub(/^fen = /, ""); print }' "$new")
mapfile -t velkor < <(awk '
    /^info depth/ { for (i = 1; i < NF; i++) { if ($i == "time") t = $(i + 1); if ($i == "nodes") n = $(i + 1) } }
    /^bestmove/ { print t, n }' "$new")

ethereal_run() {  # fen ms -> "ms nodes" of its last report
    (printf 'uci\nisready\nucinewgame\nposition fen %s\ngo movetime %s\n' "$1" "$2"
     sleep "$(awk -v ms="$2" 'BEGIN { print ms / 1000 + 1 }')"
     printf 'quit\n') | "$ETHEREAL" | awk '
        /^info depth/ { for (i = 1; i < NF; i++) { if ($i == "time") t = $(i + 1); if ($i == "nodes") n = $(i + 1) } }
        END { print t, n }'
}

printf '%-9s %10s %12s %12s %12s %12s %7s\n' position ms velkor_nodes velkor_nps ethereal_n ethereal_nps ratio
vt=0; vn=0; et=0; en=0
for i in "${!positions[@]}"; do
    read -r ms n <<<"${velkor[$i]}"
    budget=$(( ms < 100 ? 100 : ms ))
    read -r ems enodes <<<"$(ethereal_run "${positions[$i]}" "$budget")"
    awk -v p=$((i + 1)) -v ms="$ms" -v n="$n" -v ems="$ems" -v en="$enodes" 'BEGIN {
        vm = ms < 1 ? 1 : ms; em = ems < 1 ? 1 : ems
        printf "%-9d %10d %12d %12.0f %12d %12.0f %7.2f\n", p, ms, n, n / vm * 1000, en, en / em * 1000, (n / vm) / (en / em) }'
    vt=$((vt + ms)); vn=$((vn + n)); et=$((et + ems)); en=$((en + enodes))
done
awk -v vt="$vt" -v vn="$vn" -v et="$et" -v en="$en" 'BEGIN {
    vt = vt < 1 ? 1 : vt; et = et < 1 ? 1 : et
    printf "%-9s %10d %12d %12.0f %12d %12.0f %7.2f\n", "all", vt, vn, vn / vt * 1000, en, en / et * 1000, (vn / vt) / (en / et) }'
echo "ratio = velkor nodes per second / ethereal nodes per second"
