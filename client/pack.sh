#!/usr/bin/env bash
# Packs the npm package velkor-VERSION.tgz: the client, its types, README
# and example page, and the WebAssembly engine of the site build (velkor.js,
# velkor.wasm, the browser's worker) with the worker thread that runs it
# under Node. The package's version is the engine's.
# Usage: client/pack.sh SITE VERSION WORK_DIR OUT_DIR
set -euo pipefail
here=$(dirname "$(realpath "$0")")
site=$(realpath "$1")
version=$2
work=$(realpath -m "$3")
out=$(realpath -m "$4")
[[ $version =~ ^[0-9]+\.[0-9]+\.[0-9]+$ ]] || { echo "npm: '$version' is no version" >&2; exit 1; }
rm -rf "$work" && mkdir -p "$work/engine" "$work/example" "$out"
cp "$here"/{index.js,index.d.ts,uci.js,README.md} "$work/"
cp "$here"/../LICENSE "$work/"
cp "$here"/example/* "$work/example/"
cp "$site"/engine/{velkor.js,velkor.wasm,worker.js} "$here/node-worker.cjs" "$work/engine/"
# The emscripten output is CommonJS to Node, whatever the package's type.
echo '{ "type": "commonjs" }' >"$work/engine/package.json"
sed "s/\"version\": \"[^\"]*\"/\"version\": \"$version\"/" "$here/package.json" >"$work/package.json"
rm -f "$out/velkor-$version.tgz"
(cd "$work" && npm pack --silent --pack-destination "$out" >/dev/null)
echo "npm: $out/velkor-$version.tgz ($(stat -c %s "$out/velkor-$version.tgz") bytes, $(tar -tzf "$out/velkor-$version.tgz" | wc -l) files)"
