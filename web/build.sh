#!/usr/bin/env bash
# Assembles the static site of Velkor in a browser: the page, the engine
# (velkor.js and velkor.wasm from the WebAssembly build, its worker and its
# Node entry), the tuned weights, and the board widget and rules from npm
# (pinned in web/package-lock.json), each with its licence. The page names
# the engine's version. Every file is
# served from the site itself; it needs no special headers.
# Usage: web/build.sh ENGINE_BUILD SITE
set -euo pipefail
here=$(dirname "$(realpath "$0")")
engine=$(realpath "$1")
site=$(realpath -m "$2")
cd "$here"
[ node_modules/.package-lock.json -nt package-lock.json ] || npm ci --no-audit --no-fund --loglevel=error
rm -rf "$site" && mkdir -p "$site/engine" "$site/vendor/chess.js" "$site/vendor/cm-chessboard"
cp src/* "$site/"
# The engine's version (tools/version.sh) in the page's title and heading.
version=$(bash ../tools/version.sh)
sed -i "s/@VERSION@/$version/g" "$site/index.html"
! grep -rq @VERSION@ "$site" || { echo "web: a @VERSION@ is left in $site" >&2; exit 1; }
cp engine/worker.js engine/velkor.mjs "$engine/velkor.js" "$engine/velkor.wasm" "$site/engine/"
chmod +x "$site/engine/velkor.mjs"
cp ../LICENSE "$site/engine/LICENSE"
# The tuned string is the first line of the tuner's file.
head -n 1 ../tools/tune/tuned.txt >"$site/engine/tuned.txt"
cp node_modules/chess.js/dist/esm/chess.js node_modules/chess.js/LICENSE "$site/vendor/chess.js/"
cp -r node_modules/cm-chessboard/src node_modules/cm-chessboard/LICENSE "$site/vendor/cm-chessboard/"
mkdir -p "$site/vendor/cm-chessboard/assets/pieces" "$site/vendor/cm-chessboard/assets/extensions"
cp node_modules/cm-chessboard/assets/chessboard.css "$site/vendor/cm-chessboard/assets/"
cp node_modules/cm-chessboard/assets/pieces/standard.svg "$site/vendor/cm-chessboard/assets/pieces/"
for extension in markers promotion-dialog; do
    mkdir -p "$site/vendor/cm-chessboard/assets/extensions/$extension"
    cp node_modules/cm-chessboard/assets/extensions/$extension/*.css node_modules/cm-chessboard/assets/extensions/$extension/*.svg \
        "$site/vendor/cm-chessboard/assets/extensions/$extension/" 2>/dev/null || true
done
echo "web: $(du -sh "$site" | cut -f1) in $site (velkor.wasm $(stat -c %s "$site/engine/velkor.wasm") bytes)"
