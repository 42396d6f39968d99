#!/usr/bin/env bash
# Whatever the match driver needs and the machine lacks: the opponents from
# Debian's packages, and chess.js from npm (pinned in package-lock.json).
# With --no-opponents (a tuning worker plays Velkor against Velkor) only
# Node.js and chess.js.
set -euo pipefail
cd "$(dirname "$0")"
setup=../setup.sh
[ "${1:-}" = "--no-opponents" ] || bash "$setup" opponents
bash "$setup" node
[ -d node_modules/chess.js ] || npm ci --no-audit --no-fund --loglevel=error
