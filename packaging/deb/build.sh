#!/usr/bin/env bash
# Builds the Debian package velkor_<version>-<revision>_amd64.deb from a
# checked release build, with Debian's own tools: dpkg-shlibdeps computes the
# dependencies, dpkg-gencontrol writes the control file (version from the
# changelog, installed size), dpkg-deb packs, and lintian must find no error
# and no warning. The upstream version is the engine's own (passed in by the
# Makefile from src/protocol/protocol.h); the Debian revision is that of the
# top entry of changelog.in. The package's dates are the changelog's, so the
# same tree gives the same bytes.
# Usage: packaging/deb/build.sh BINARY VERSION WORK_DIR OUT_DIR
set -euo pipefail
umask 022
here=$(dirname "$(realpath "$0")")
top=$(realpath "$here/../..")
binary=$(realpath "$1")
version=$2
work=$3
out=$4
fail() { echo "deb: $*" >&2; exit 1; }
[ -x "$binary" ] || fail "no engine at $1"
[[ $version =~ ^[0-9][0-9A-Za-z.+~]*$ ]] || fail "'$version' is no upstream version"

rm -rf "$work" && mkdir -p "$work/debian" "$out"
sed "s/@VERSION@/$version/g" "$here/changelog.in" >"$work/debian/changelog"
cp "$here/control" "$work/debian/control"
full=$(dpkg-parsechangelog -l "$work/debian/changelog" -S Version)
SOURCE_DATE_EPOCH=$(date -d "$(dpkg-parsechangelog -l "$work/debian/changelog" -S Date)" +%s)
export SOURCE_DATE_EPOCH
day=$(date -u -d "@$SOURCE_DATE_EPOCH" +%Y-%m-%d)

pkg=$work/debian/velkor
games=$pkg/usr/games
doc=$pkg/usr/share/doc/velkor
install -d "$pkg/DEBIAN" "$games" "$pkg/usr/share/man/man6" "$doc" "$pkg/usr/share/games/plugins/uci" "$pkg/usr/share/lintian/overrides"

# The engine, stripped as dh_strip strips an executable, and checked again
# as packed: bench counts the nodes of tests/data/bench.txt.
install -m 0755 "$binary" "$games/velkor"
strip --remove-section=.comment --remove-section=.note "$games/velkor"
nodes=$(grep -v '^#' "$top/tests/data/bench.txt")
printf 'bench\n' | "$games/velkor" | grep -q "^$nodes nodes in " || fail "the packed engine does not count $nodes nodes in bench"
# The tuned engine's launcher, made as for the release archives: it starts
# the velkor of its own folder with the string of tools/tune/tuned.txt.
bash "$top/tools/tune/launcher.sh" linux "$games"
[ -x "$games/velkor-tuned" ] || fail "no tuned launcher (tools/tune/tuned.txt)"

# The manual page, velkor-tuned's a link to it (as dh_installman makes of a .so page).
# The genes' number, size and names are those of the engine's gene table.
gene() { /usr/bin/python3 "$top/tools/tune/velkor_tune/genes.py" "$1"; }
sed -e "s/@VERSION@/$version/g" -e "s/@DATE@/$day/g" -e "s/@GENE_NUMBER@/$(gene number)/g" \
    -e "s/@GENE_CHARS@/$(gene bits)/g" -e "s/@GENE_SIZE@/$(gene size)/g" -e "s/@GENE_NAMES@/$(gene names | sed 's/-/\\\\-/g')/g" \
    "$here/velkor.6.in" | gzip -9n >"$pkg/usr/share/man/man6/velkor.6.gz"
ln -s velkor.6.gz "$pkg/usr/share/man/man6/velkor-tuned.6.gz"

# Documents: the copyright file, Debian's changelog, the project's history
# (its commits, newest first) as the upstream changelog, the README and the
# tuned string's record.
install -m 0644 "$here/copyright" "$doc/copyright"
gzip -9n <"$work/debian/changelog" >"$doc/changelog.Debian.gz"
git -C "$top" rev-parse --verify -q HEAD >/dev/null || fail "the upstream changelog is the git history: run from a git checkout"
{
    echo "Velkor $version: the project's history, one line a commit, newest first."
    echo
    git -C "$top" log --date=short --format='%ad  %s'
} | gzip -9n >"$doc/changelog.gz"
gzip -9n <"$top/README.md" >"$doc/README.md.gz"
install -m 0644 "$top/tools/tune/tuned.txt" "$doc/tuned.txt"

# XBoard's plugin files (the format's header line, the line XBoard puts in its engine
# list, then the variants). Debian's XBoard 4.9.1 adds the second line to the
# list with -fUCI, and shows the list by its first word or by a leading
# quoted nickname; it puts the whole line in quotes when it holds a blank.
# So the words are parted by TABs, and the nickname's blank is a no-break
# space (U+00A0): the list reads "Velkor" and "Velkor (tuned)", and an entry
# runs -fcp /usr/games/velkor (the path, since root's PATH has no /usr/games).
nbsp=$'\xc2\xa0'
printf 'plugin spec 0.0\n"Velkor"\t-fcp\t/usr/games/velkor\nchess\n' >"$pkg/usr/share/games/plugins/uci/velkor.eng"
printf 'plugin spec 0.0\n"Velkor%s(tuned)"\t-fcp\t/usr/games/velkor-tuned\nchess\n' "$nbsp" \
    >"$pkg/usr/share/games/plugins/uci/velkor-tuned.eng"

install -m 0644 "$here/lintian-overrides" "$pkg/usr/share/lintian/overrides/velkor"

# The control file: dependencies from the libraries the engine links, then
# the fields of control and changelog, and the installed size.
(cd "$work" && dpkg-shlibdeps -Tdebian/velkor.substvars debian/velkor/usr/games/velkor &&
    dpkg-gencontrol -pvelkor -Pdebian/velkor -Tdebian/velkor.substvars)
(cd "$pkg" && find . -path ./DEBIAN -prune -o -type f -printf '%P\0' | LC_ALL=C sort -z | xargs -0 md5sum >DEBIAN/md5sums)
chmod 0644 "$pkg/DEBIAN/control" "$pkg/DEBIAN/md5sums"
find "$pkg" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +

deb=$out/velkor_${full}_amd64.deb
dpkg-deb --root-owner-group -Zxz --build "$pkg" "$deb" >/dev/null
# lintian: an error or a warning fails the package; informational tags are
# shown (their reasons are in the README).
echo "lintian $(lintian --version | sed 's/^Lintian v//'):"
lintian --display-info --fail-on error,warning "$deb" || fail "lintian found errors or warnings"
ls -l "$deb"
