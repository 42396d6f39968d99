#!/usr/bin/env bash
# The engine's version, read from its one definition: ENGINE_NAME in
# src/protocol/protocol.h ("Velkor 0.3.0 x64 (popcnt)"). Every other
# spelling of it (archive and package names, the manual page, the page)
# is derived from this at build time, and `check` (a test of make test,
# Version.Copies) fails when a written copy differs.
# Usage: tools/version.sh [version|name|check]
#   version (the default): the second word, 0.3.0; name: the whole ENGINE_NAME
set -euo pipefail
top=$(realpath "$(dirname "$(realpath "$0")")/..")
header=$top/src/protocol/protocol.h
name=$(sed -n 's/^ *inline constexpr const char\* ENGINE_NAME = "\(.*\)";$/\1/p' "$header")
version=$(cut -d ' ' -f 2 <<<"$name")
if [[ ! $name =~ ^Velkor\  || ! $version =~ ^[0-9]+\.[0-9]+\.[0-9]+$ ]]; then
    echo "version: no 'Velkor X.Y.Z ...' ENGINE_NAME found in $header" >&2
    exit 1
fi

# Every written copy of the version agrees with ENGINE_NAME: the top entry of
# the Debian changelog, the npm packages, and every "Velkor X.Y.Z",
# "velkor-X.Y.Z" and "velkor_X.Y.Z-R" in the project's files (the README's
# session and package names, the transcripts, comments), where the whole
# name, when written, is ENGINE_NAME. Left out: tuning/, whose campaign
# records keep what the engine printed then, and the older entries of the
# changelog. Exit status 1 and one line a drifted copy.
check() {
    cd "$top"
    drift=0
    say() { echo "version: $*" >&2; drift=1; }

    # The Debian changelog's top entry (read without dpkg's tools).
    debian=$(sed -n '1s/^velkor (\([^)]*\)) .*/\1/p' packaging/deb/changelog)
    [ "${debian%-*}" = "$version" ] || say "packaging/deb/changelog: the top entry is $debian, the engine is $version"

    # The npm workspace's packages (the npm package velkor among them) and
    # their entries in its one lock file.
    for file in package.json client/package.json tools/match/package.json web/package.json; do
        found=$(sed -n '0,/"version"/s/^  "version": "\(.*\)",$/\1/p' "$file")
        [ "$found" = "$version" ] || say "$file: version '$found', the engine is $version"
    done
    [ "$(sed -n '0,/"version"/s/^  "version": "\(.*\)",$/\1/p' package-lock.json)" = "$version" ] ||
        say "package-lock.json: its version is not the engine's $version"
    for entry in '' client tools/match web; do
        found=$(awk -v key="    \"$entry\": {" '$0 == key { on = 1; next } on && /^    }/ { on = 0 }
            on && /^      "version": / { gsub(/[",]/, "", $2); print $2 }' package-lock.json)
        [ "$found" = "$version" ] || say "package-lock.json, workspace '$entry': version '$found', the engine is $version"
    done

    # Every other copy in the project's files.
    if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
        files() { git ls-files -z; }
    else
        files() { find . -path ./build -prune -o -path ./node_modules -prune -o -type f -printf '%P\0'; }
    fi
    copies=0
    while IFS= read -r hit; do
        where=${hit%%:*} rest=${hit#*:}; where=$where:${rest%%:*}; text=${rest#*:}
        copies=$((copies + 1))
        case "$text" in
            "Velkor "*) [ "$text" = "Velkor $version" ] || [ "$text" = "$name" ] ||
                say "$where: '$text' where the engine is '$name'" ;;
            velkor_*) [ "$text" = "velkor_${debian}_" ] || say "$where: '$text' where the package is velkor_${debian}_" ;;
            *) [ "$text" = "velkor-$version" ] || say "$where: '$text' where the engine is $version" ;;
        esac
    done < <(files | grep -z -v -E '^(tuning/|packaging/deb/changelog$)' | xargs -0 grep -I -n -o -E \
        "Velkor [0-9]+\.[0-9]+\.[0-9]+( [^ ]+ \([^) ]*\)?)?|velkor-[0-9]+\.[0-9]+\.[0-9]+|velkor_[0-9][^_ ]*_" 2>/dev/null)
    [ $drift -eq 0 ] || exit 1
    echo "version: $version ($name): the changelog, the npm packages and $copies written copies agree"
}

case "${1:-version}" in
    version) echo "$version" ;;
    name) echo "$name" ;;
    check) check ;;
    *) echo "usage: tools/version.sh [version|name|check]" >&2; exit 2 ;;
esac
