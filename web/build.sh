#!/usr/bin/env bash
# Assembles the static site of Velkor in a browser: the page, the engine
# (its two WebAssembly builds, velkor.js with turns and velkor-shared.js
# without, its worker and its Node entry), the engine's client and the game
# review (client/), the tuned weights, the board widget and rules from npm
# (pinned in the project's one package-lock.json), each with its licence,
# the app's icons (drawn by icon.mjs) and its service worker, which
# precache.mjs names after the build and gives the list of every file. The
# page names the engine's version. Every file is served from the site
# itself; it needs no special headers (with cross-origin isolation headers
# the engine runs faster).
# Usage: web/build.sh ENGINE_BUILD SITE
set -euo pipefail
here=$(dirname "$(realpath "$0")")
engine=$(realpath "$1")
site=$(realpath -m "$2")
cd "$here"
[ ../node_modules/.package-lock.json -nt ../package-lock.json ] || (cd .. && npm ci --no-audit --no-fund --loglevel=error)
modules=../node_modules
rm -rf "$site" && mkdir -p "$site/engine" "$site/vendor/chess.js" "$site/vendor/cm-chessboard"
cp src/* "$site/"
mkdir -p "$site/client" && cp ../client/uci.js ../client/review.js ../client/pgn.js "$site/client/"
# The engine's version (tools/version.sh) in the page's title and heading.
version=$(bash ../tools/version.sh)
sed -i "s/@VERSION@/$version/g" "$site/index.html"
! grep -rq @VERSION@ "$site" || { echo "web: a @VERSION@ is left in $site" >&2; exit 1; }
cp engine/worker.js engine/velkor.mjs engine/ring.mjs "$engine/velkor.js" "$engine/velkor.wasm" \
    "$engine/velkor-shared.js" "$engine/velkor-shared.wasm" "$site/engine/"
chmod +x "$site/engine/velkor.mjs"
cp ../LICENSE "$site/engine/LICENSE"
# The tuned string is the first line of the tuner's file.
head -n 1 ../tools/tune/tuned.txt >"$site/engine/tuned.txt"
cp $modules/chess.js/dist/esm/chess.js $modules/chess.js/LICENSE "$site/vendor/chess.js/"
cp -r $modules/cm-chessboard/src $modules/cm-chessboard/LICENSE "$site/vendor/cm-chessboard/"
mkdir -p "$site/vendor/cm-chessboard/assets/pieces" "$site/vendor/cm-chessboard/assets/extensions"
cp $modules/cm-chessboard/assets/chessboard.css "$site/vendor/cm-chessboard/assets/"
cp $modules/cm-chessboard/assets/pieces/standard.svg "$site/vendor/cm-chessboard/assets/pieces/"
for extension in markers promotion-dialog arrows; do
    mkdir -p "$site/vendor/cm-chessboard/assets/extensions/$extension"
    cp $modules/cm-chessboard/assets/extensions/$extension/*.css $modules/cm-chessboard/assets/extensions/$extension/*.svg \
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
