#!/usr/bin/env bash
# The engine's version, read from its one definition: ENGINE_NAME in
# src/protocol/protocol.h ("Velkor 0.3.0 x64 (popcnt)"). Every other
# spelling of it (archive and package names, the manual page, the page)
# is derived from this at build time; tests/version/check.sh fails when a
# written copy differs.
# Usage: tools/version.sh [version|name]
#   version (the default): the second word, 0.3.0; name: the whole ENGINE_NAME
set -euo pipefail
header=$(dirname "$(realpath "$0")")/../src/protocol/protocol.h
name=$(sed -n 's/^ *inline constexpr const char\* ENGINE_NAME = "\(.*\)";$/\1/p' "$header")
version=$(cut -d ' ' -f 2 <<<"$name")
if [[ ! $name =~ ^Velkor\  || ! $version =~ ^[0-9]+\.[0-9]+\.[0-9]+$ ]]; then
    echo "version: no 'Velkor X.Y.Z ...' ENGINE_NAME found in $header" >&2
    exit 1
fi
case "${1:-version}" in
    version) echo "$version" ;;
    name) echo "$name" ;;
    *) echo "usage: tools/version.sh [version|name]" >&2; exit 2 ;;
esac
