#!/usr/bin/env bash
# Whatever the match driver needs and the machine lacks: the opponents from
# Debian's packages, and chess.js from npm (pinned in the project's one
# package-lock.json, at the top of the repository).
# With --no-opponents (a tuning worker plays Velkor against Velkor) only
# Node.js and chess.js.
set -euo pipefail
cd "$(dirname "$0")"
setup=../setup.sh
[ "${1:-}" = "--no-opponents" ] || bash "$setup" opponents
bash "$setup" node
cd ../..
[ node_modules/.package-lock.json -nt package-lock.json ] || npm ci --no-audit --no-fund --loglevel=error
