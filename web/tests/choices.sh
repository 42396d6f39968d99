#!/usr/bin/env bash
# make bench-web-choices: what each build choice of the WebAssembly engine
# costs or gains under Node, against the shipped build (-O3, the search's
# turns by ASYNCIFY, no SIMD, no link-time optimisation): the same engine
# built without the turns (what a shared-memory design would run), at -O2,
# with SIMD, and with link-time optimisation. Each in build/wasm-NAME.
# Usage: web/tests/choices.sh NATIVE_BINARY SITE BUILD_ROOT
set -euo pipefail
here=$(dirname "$(realpath "$0")")
native=$1 site=$2 root=$3
export NODE_PATH=/usr/share/nodejs
builds=()
for choice in noyield O2 simd lto; do
    case $choice in
        noyield) flags=(-DVELKOR_WEB_YIELD=OFF) ;;
        O2) flags=("-DCMAKE_CXX_FLAGS_RELEASE=-O2 -DNDEBUG") ;;
        simd) flags=(-DCMAKE_CXX_FLAGS=-msimd128) ;;
        lto) flags=(-DCMAKE_CXX_FLAGS=-flto) ;;
    esac
    dir=$root/wasm-$choice
    emcmake cmake -S "$here/../.." -B "$dir" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF "${flags[@]}" >/dev/null
    cmake --build "$dir" -j "$(nproc)" --target velkor >/dev/null
    cp "$here/../engine/velkor.mjs" "$dir/"
    echo "$choice: velkor.wasm $(stat -c %s "$dir/velkor.wasm") bytes"
    builds+=("$choice=$dir")
done
node "$here/bench.mjs" "$native" "$site" "${builds[@]}"
