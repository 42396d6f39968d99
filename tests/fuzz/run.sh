#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for the given number
# of seconds on a copy of its seed corpus. A crash, a leak or a hang of more
# than 10 s fails the run; its input is left in build/fuzz/artifacts/.
# Usage: tests/fuzz/run.sh SECONDS [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/../.."
SECONDS_EACH=${1:-15}
shift || true
TARGETS=${*:-commands fen moves}

bash tools/setup.sh fuzz
cmake -S . -B build/fuzz -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ -DVELKOR_FUZZ=ON >/dev/null
cmake --build build/fuzz -j "$(nproc)" >/dev/null

mkdir -p build/fuzz/artifacts
for target in $TARGETS; do
    corpus=build/fuzz/corpus/$target
    mkdir -p "$corpus"
    cp -n tests/fuzz/corpus/"$target"/* "$corpus"/ 2>/dev/null || true
    echo "fuzz_$target: $SECONDS_EACH s"
    if ! build/fuzz/fuzz_"$target" -max_total_time="$SECONDS_EACH" -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix=build/fuzz/artifacts/"$target"- -print_final_stats=1 "$corpus" \
        >build/fuzz/"$target".log 2>&1; then
        tail -n 40 build/fuzz/"$target".log
        echo "fuzz_$target failed: see build/fuzz/$target.log and build/fuzz/artifacts/" >&2
        exit 1
    fi
    grep -E '^stat::number_of_executed_units|^Done' build/fuzz/"$target".log | tail -n 2
done
