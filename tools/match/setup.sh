#!/usr/bin/env bash
# Whatever the match driver needs and the machine lacks: the opponents from
# Debian's packages, and chess.js from npm (pinned in package-lock.json).
# With --no-opponents (a tuning worker plays Velkor against Velkor) only
# Node.js and chess.js.
set -euo pipefail
cd "$(dirname "$0")"
missing=()
if [ "${1:-}" != "--no-opponents" ]; then
    for engine in glaurung toga2 stockfish; do
        [ -x /usr/games/$engine ] || missing+=("$engine")
    done
fi
command -v node >/dev/null || missing+=(nodejs npm)
if [ ${#missing[@]} -gt 0 ]; then
    if [ "$(id -u)" -ne 0 ]; then
        echo "velkor: missing Debian packages: ${missing[*]} (as root: apt-get install ${missing[*]})" >&2
        exit 1
    fi
    echo "installing ${missing[*]} from Debian's packages" >&2
    apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
[ -d node_modules/chess.js ] || npm ci --no-audit --no-fund --loglevel=error
