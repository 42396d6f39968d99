#!/usr/bin/env bash
# make bench-web-choices: what each build choice of the WebAssembly engine
# costs or gains under Node, beside the shipped builds (-O3, no SIMD, no
# link-time optimisation; the build with turns instrumenting only the
# functions of web/engine/asyncify.txt): the build with turns instrumenting
# what ASYNCIFY's own analysis finds, and the build without turns at -O2,
# with SIMD and with link-time optimisation. Each in build/wasm-NAME.
# Usage: web/tests/choices.sh NATIVE_BINARY SITE BUILD_ROOT
set -euo pipefail
here=$(dirname "$(realpath "$0")")
native=$1 site=$2 root=$3
export NODE_PATH=/usr/share/nodejs
builds=()
for choice in analysed-turns O2 simd lto; do
    case $choice in
        analysed-turns) flags=(-DVELKOR_WEB_ASYNCIFY_ONLY=OFF) ;;
        O2) flags=("-DCMAKE_CXX_FLAGS_RELEASE=-O2 -DNDEBUG") ;;
        simd) flags=(-DCMAKE_CXX_FLAGS=-msimd128) ;;
        lto) flags=(-DCMAKE_CXX_FLAGS=-flto) ;;
    esac
    dir=$root/wasm-$choice
    emcmake cmake -S "$here/../.." -B "$dir" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF "${flags[@]}" >/dev/null
    cmake --build "$dir" -j "$(nproc)" --target velkor velkor_shared >/dev/null
    cp "$here/../engine/velkor.mjs" "$here/../engine/ring.mjs" "$dir/"
    echo "$choice: velkor.wasm $(stat -c %s "$dir/velkor.wasm") bytes, velkor-shared.wasm $(stat -c %s "$dir/velkor-shared.wasm") bytes"
    builds+=("$choice=$dir")
done
node "$here/bench.mjs" "$native" "$site" "${builds[@]}"
