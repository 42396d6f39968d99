#!/usr/bin/env bash
# Whatever the match driver needs and the machine lacks: the opponents from
# Debian's packages, and chess.js from npm (pinned in package-lock.json).
set -euo pipefail
cd "$(dirname "$0")"
missing=()
for engine in glaurung toga2 stockfish; do
    [ -x /usr/games/$engine ] || missing+=("$engine")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "installing ${missing[*]} from Debian's packages" >&2
    apt-get update -qq && apt-get install -y -qq "${missing[@]}" >/dev/null
fi
if ! command -v node >/dev/null; then
    echo "installing Node.js from Debian's packages" >&2
    apt-get update -qq && apt-get install -y -qq nodejs npm >/dev/null
fi
[ -d node_modules/chess.js ] || npm ci --no-audit --no-fund --loglevel=error
