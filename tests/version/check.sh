#!/usr/bin/env bash
# Every written copy of the engine's version agrees with its one definition,
# ENGINE_NAME in src/protocol/protocol.h (read by tools/version.sh): the
# top entry of the Debian changelog, the npm packages, and every
# "Velkor X.Y.Z", "velkor-X.Y.Z" and "velkor_X.Y.Z-R" in the project's files
# (the README's session and package names, the transcripts, comments),
# where the whole name, when written, is ENGINE_NAME. Left out: tuning/,
# whose campaign records keep what the engine printed then, and the older
# entries of the changelog. Exit status 1 and one line a drifted copy.
set -euo pipefail
top=$(realpath "$(dirname "$0")/../..")
cd "$top"
version=$(bash tools/version.sh)
name=$(bash tools/version.sh name)
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
