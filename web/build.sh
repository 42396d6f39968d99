#!/usr/bin/env bash
# Assembles the static site of Velkor in a browser: the page, the engine
# (its two WebAssembly builds, velkor.js with turns and velkor-shared.js
# without, its worker and its Node entry), the tuned weights, the board
# widget and rules from npm (pinned in web/package-lock.json), each with
# its licence, the app's icons (drawn by icon.mjs) and its service worker,
# which precache.mjs names after the build and gives the list of every
# file. Every file is served from the site itself; it needs no special
# headers (with cross-origin isolation headers the engine runs faster).
# Usage: web/build.sh ENGINE_BUILD SITE
set -euo pipefail
here=$(dirname "$(realpath "$0")")
engine=$(realpath "$1")
site=$(realpath -m "$2")
cd "$here"
[ node_modules/.package-lock.json -nt package-lock.json ] || npm ci --no-audit --no-fund --loglevel=error
rm -rf "$site" && mkdir -p "$site/engine" "$site/vendor/chess.js" "$site/vendor/cm-chessboard"
cp src/* "$site/"
cp engine/worker.js engine/velkor.mjs engine/ring.mjs "$engine/velkor.js" "$engine/velkor.wasm" \
    "$engine/velkor-shared.js" "$engine/velkor-shared.wasm" "$site/engine/"
chmod +x "$site/engine/velkor.mjs"
cp ../LICENSE "$site/engine/LICENSE"
# The tuned string is the first line of the tuner's file.
head -n 1 ../tools/tune/tuned.txt >"$site/engine/tuned.txt"
cp node_modules/chess.js/dist/esm/chess.js node_modules/chess.js/LICENSE "$site/vendor/chess.js/"
cp -r node_modules/cm-chessboard/src node_modules/cm-chessboard/LICENSE "$site/vendor/cm-chessboard/"
mkdir -p "$site/vendor/cm-chessboard/assets/pieces" "$site/vendor/cm-chessboard/assets/extensions"
cp node_modules/cm-chessboard/assets/chessboard.css "$site/vendor/cm-chessboard/assets/"
cp node_modules/cm-chessboard/assets/pieces/standard.svg "$site/vendor/cm-chessboard/assets/pieces/"
for extension in markers promotion-dialog arrows; do
    mkdir -p "$site/vendor/cm-chessboard/assets/extensions/$extension"
    cp node_modules/cm-chessboard/assets/extensions/$extension/*.css node_modules/cm-chessboard/assets/extensions/$extension/*.svg \
        "$site/vendor/cm-chessboard/assets/extensions/$extension/" 2>/dev/null || true
done
mkdir -p "$site/icons"
# The sizes the manifest names.
for size in $(node -e 'JSON.parse(require("fs").readFileSync("src/manifest.webmanifest", "utf8")).icons.forEach((i) => console.log(i.sizes.split("x")[0]))'); do
    node icon.mjs "$size" "$site/icons/icon-$size.png"
done
# Last: the service worker lists every other file of the site.
node precache.mjs "$site"
echo "web: $(du -sh "$site" | cut -f1) in $site (velkor.wasm $(stat -c %s "$site/engine/velkor.wasm") bytes)"
