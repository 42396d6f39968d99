#!/usr/bin/env bash
# The bench command's time and speed, and beside it Debian's ethereal-chess
# searching the same positions for the same time each.
# Usage: bench/search.sh [path/to/velkor]
set -euo pipefail
VELKOR=${1:-build/release/velkor}
ETHEREAL=${ETHEREAL:-/usr/games/ethereal-chess}

if [ ! -x "$ETHEREAL" ]; then
    echo "installing Debian's ethereal-chess for the comparison" >&2
    apt-get update -qq && apt-get install -y -qq ethereal-chess >/dev/null
fi

out=$(printf 'bench\n' | "$VELKOR")  # nothing after bench: a waiting line would stop it
# The positions are the engine's own: the FEN line of each board that bench shows.
mapfile -t POSITIONS < <(echo "$out" | sed -n 's/^fen = //p')
summary=$(echo "$out" | tail -n 1)
# Time and nodes of each search: its last "info depth" line before its bestmove.
mapfile -t velkor < <(echo "$out" | awk '
    /^info depth/ { for (i = 1; i < NF; i++) { if ($i == "time") t = $(i + 1); if ($i == "nodes") n = $(i + 1) } }
    /^bestmove/ { print t, n }')

ethereal_run() {  # fen ms -> "ms nodes" of its last report
    (printf 'uci\nisready\nucinewgame\nposition fen %s\ngo movetime %s\n' "$1" "$2"
     sleep "$(awk -v ms="$2" 'BEGIN { print ms / 1000 + 1 }')"
     printf 'quit\n') | "$ETHEREAL" | awk '
        /^info depth/ { for (i = 1; i < NF; i++) { if ($i == "time") t = $(i + 1); if ($i == "nodes") n = $(i + 1) } }
        END { print t, n }'
}

echo "bench: $summary"
printf '%-9s %10s %12s %12s %12s %12s %7s\n' position ms velkor_nodes velkor_nps ethereal_n ethereal_nps ratio
vt=0; vn=0; et=0; en=0
for i in "${!POSITIONS[@]}"; do
    read -r ms nodes <<<"${velkor[$i]}"
    budget=$(( ms < 100 ? 100 : ms ))
    read -r ems enodes <<<"$(ethereal_run "${POSITIONS[$i]}" "$budget")"
    awk -v p=$((i + 1)) -v ms="$ms" -v n="$nodes" -v ems="$ems" -v en="$enodes" 'BEGIN {
        vm = ms < 1 ? 1 : ms; em = ems < 1 ? 1 : ems
        printf "%-9d %10d %12d %12.0f %12d %12.0f %7.2f\n", p, ms, n, n / vm * 1000, en, en / em * 1000, (n / vm) / (en / em) }'
    vt=$((vt + ms)); vn=$((vn + nodes)); et=$((et + ems)); en=$((en + enodes))
done
awk -v vt="$vt" -v vn="$vn" -v et="$et" -v en="$en" 'BEGIN {
    printf "%-9s %10d %12d %12.0f %12d %12.0f %7.2f\n", "all", vt, vn, vn / vt * 1000, en, en / et * 1000, (vn / vt) / (en / et) }'
echo "ratio = velkor nodes per second / ethereal nodes per second"
