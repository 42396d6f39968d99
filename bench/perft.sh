#!/usr/bin/env bash
# Perft speed of Velkor against Debian's stockfish (`go perft`), side by side.
# Usage: bench/perft.sh [path/to/velkor]
set -euo pipefail
VELKOR=${1:-build/release/velkor}
STOCKFISH=${STOCKFISH:-/usr/games/stockfish}

[ -x "$STOCKFISH" ] || bash "$(dirname "$0")/../tools/setup.sh" perft-bench

now_ns() { date +%s%N; }

RUNS=${RUNS:-3}  # each figure is the best of this many runs

# Velkor reports its own time; the closing line is "N nodes in T ms, ...".
velkor_run() {  # fen depth -> "nodes ms"
    for _ in $(seq "$RUNS"); do
        printf 'position fen %s\nperft %s\nquit\n' "$1" "$2" | "$VELKOR" | awk '/ nodes in / { print $1, $4 }'
    done | sort -n -k2 | head -n 1
}

# Stockfish prints no time: take the wall time of the run less that of a
# depth 1 run, which is start-up alone.
stockfish_ms() {  # fen depth -> ms of the whole process
    local t0 t1
    t0=$(now_ns)
    printf 'position fen %s\ngo perft %s\nquit\n' "$1" "$2" | "$STOCKFISH" >/dev/null
    t1=$(now_ns)
    echo $(( (t1 - t0) / 1000000 ))
}
stockfish_run() {  # fen depth -> "nodes ms"
    local nodes start full
    nodes=$(printf 'position fen %s\ngo perft %s\nquit\n' "$1" "$2" | "$STOCKFISH" | awk '/Nodes searched/ { print $3 }')
    start=$(for _ in $(seq "$RUNS"); do stockfish_ms "$1" 1; done | sort -n | head -n 1)
    full=$(for _ in $(seq "$RUNS"); do stockfish_ms "$1" "$2"; done | sort -n | head -n 1)
    echo "$nodes $(( full - start ))"
}

printf '%-10s %5s %12s %9s %12s %9s %12s %7s\n' position depth nodes velkor_ms velkor_nps sf_ms sf_nps ratio
run() {  # name fen depth
    local v s
    v=($(velkor_run "$2" "$3"))
    s=($(stockfish_run "$2" "$3"))
    [ "${v[0]}" = "${s[0]}" ] || echo "node counts differ: velkor ${v[0]}, stockfish ${s[0]}" >&2
    awk -v name="$1" -v d="$3" -v n="${v[0]}" -v vm="${v[1]}" -v sm="${s[1]}" 'BEGIN {
        vm = vm < 1 ? 1 : vm; sm = sm < 1 ? 1 : sm
        printf "%-10s %5d %12d %9d %12.0f %9d %12.0f %7.2f\n", name, d, n, vm, n / vm * 1000, sm, n / sm * 1000, sm / vm }'
}
run start "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1" 6
run kiwipete "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1" 5
echo "ratio = stockfish time / velkor time (above 1: Velkor is faster)"
