#!/usr/bin/env bash
# Builds the Debian package velkor_<version>-<revision>_<arch>.deb (amd64 or
# arm64) from a checked release build, with Debian's own tools: dpkg-shlibdeps
# computes the dependencies (the arm64 engine is static: none),
# dpkg-gencontrol writes the control file (version from the changelog,
# installed size), dpkg-deb packs, and lintian must find no error and no
# warning. The version is the top entry of packaging/deb/changelog, whose
# upstream part must be the engine's own (tools/version.sh, from
# ENGINE_NAME): a new version is a new entry there. The package's dates are
# the changelog's, so the same tree gives the same bytes.
# Usage: packaging/deb/build.sh BINARY amd64|arm64 WORK_DIR OUT_DIR
set -euo pipefail
umask 022
here=$(dirname "$(realpath "$0")")
top=$(realpath "$here/../..")
binary=$(realpath "$1")
arch=$2
work=$3
out=$4
fail() { echo "deb: $*" >&2; exit 1; }
[ -x "$binary" ] || fail "no engine at $1"
# How the engine of each architecture is stripped and run here.
case "$arch" in
    amd64) strip=strip run=() ;;
    arm64) strip=aarch64-linux-gnu-strip run=(qemu-aarch64-static) ;;
    *) fail "'$arch' is no architecture of the package (amd64 or arm64)" ;;
esac
version=$(bash "$top/tools/version.sh")

rm -rf "$work" && mkdir -p "$work/debian" "$out"
cp "$here/changelog" "$here/control" "$work/debian/"
full=$(dpkg-parsechangelog -l "$work/debian/changelog" -S Version)
[ "${full%-*}" = "$version" ] ||
    fail "the top entry of packaging/deb/changelog is $full, the engine is $version: add an entry for $version-1"
SOURCE_DATE_EPOCH=$(date -d "$(dpkg-parsechangelog -l "$work/debian/changelog" -S Date)" +%s)
export SOURCE_DATE_EPOCH
day=$(date -u -d "@$SOURCE_DATE_EPOCH" +%Y-%m-%d)

pkg=$work/debian/velkor
games=$pkg/usr/games
doc=$pkg/usr/share/doc/velkor
install -d "$pkg/DEBIAN" "$games" "$pkg/usr/share/man/man6" "$doc" "$pkg/usr/share/games/plugins/uci" "$pkg/usr/share/lintian/overrides"

# The engine, stripped as dh_strip strips an executable, and checked again
# as packed: bench counts the nodes of tests/data/bench.txt (the arm64 one
# under qemu).
install -m 0755 "$binary" "$games/velkor"
"$strip" --remove-section=.comment --remove-section=.note "$games/velkor"
nodes=$(grep -v '^#' "$top/tests/data/bench.txt")
printf 'bench\n' | "${run[@]}" "$games/velkor" | grep -q "^$nodes nodes in " || fail "the packed engine does not count $nodes nodes in bench"
# The tuned engine's launcher, made as for the release archives: it starts
# the velkor of its own folder with the string of tools/tune/tuned.txt.
bash "$top/tools/tune/launcher.sh" linux "$games"
[ -x "$games/velkor-tuned" ] || fail "no tuned launcher (tools/tune/tuned.txt)"

# The manual page, velkor-tuned's a link to it (as dh_installman makes of a
# .so page); its version and the engine's name in its session are
# ENGINE_NAME's, the genes' number, size and names those of the gene table.
name=$(bash "$top/tools/version.sh" name)
gene() { /usr/bin/python3 "$top/tools/tune/velkor_tune/genes.py" "$1"; }
sed -e "s/@VERSION@/$version/g" -e "s/@DATE@/$day/g" -e "s/@NAME@/$name/g" -e "s/@GENE_NUMBER@/$(gene number)/g" \
    -e "s/@GENE_CHARS@/$(gene bits)/g" -e "s/@GENE_SIZE@/$(gene size)/g" -e "s/@GENE_NAMES@/$(gene names | sed 's/-/\\\\-/g')/g" \
    "$here/velkor.6.in" | gzip -9n >"$pkg/usr/share/man/man6/velkor.6.gz"
! zgrep -q @ "$pkg/usr/share/man/man6/velkor.6.gz" || fail "velkor.6.in: a placeholder is left"
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
# quoted nickname: the words are parted by TABs, and the nickname's blank is
# a no-break space (U+00A0), so the list reads "Velkor" and "Velkor (tuned)".
# XBoard starts a UCI engine through polyglot by its adapterCommand
# (/etc/xboard/xboard.conf: polyglot -noini -ec "%fcp" ...), and shows the
# name polyglot announces: the engine's own, of which polyglot drops the
# closing ")", unless polyglot's EngineName (-en) gives another. So the engine's entry (single-quoted, the way XBoard reads a
# value with blanks and double quotes) closes -ec's quotes after the path
# and gives -en: polyglot runs -ec "/usr/games/velkor" -en "Velkor" (the
# path, since root's PATH has no /usr/games), and XBoard names the engine
# "Velkor" and "Velkor (tuned)" whole, in its title as in its engine list.
nbsp=$'\xc2\xa0'
printf 'plugin spec 0.0\n"Velkor"\t-fcp\t%s\nchess\n' "'/usr/games/velkor\" -en \"Velkor'" \
    >"$pkg/usr/share/games/plugins/uci/velkor.eng"
printf 'plugin spec 0.0\n"Velkor%s(tuned)"\t-fcp\t%s\nchess\n' "$nbsp" "'/usr/games/velkor-tuned\" -en \"Velkor (tuned)'" \
    >"$pkg/usr/share/games/plugins/uci/velkor-tuned.eng"

install -m 0644 "$here/lintian-overrides" "$pkg/usr/share/lintian/overrides/velkor"

# The control file: dependencies from the libraries the engine links, then
# the fields of control and changelog, and the installed size.
if [ "$arch" = amd64 ]; then
    (cd "$work" && dpkg-shlibdeps -Tdebian/velkor.substvars debian/velkor/usr/games/velkor)
else
    echo 'shlibs:Depends=' >"$work/debian/velkor.substvars"
fi
(cd "$work" && DEB_HOST_ARCH=$arch dpkg-gencontrol -pvelkor -Pdebian/velkor -Tdebian/velkor.substvars)
(cd "$pkg" && find . -path ./DEBIAN -prune -o -type f -printf '%P\0' | LC_ALL=C sort -z | xargs -0 md5sum >DEBIAN/md5sums)
chmod 0644 "$pkg/DEBIAN/control" "$pkg/DEBIAN/md5sums"
find "$pkg" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +

deb=$out/velkor_${full}_$arch.deb
rm -f "$out"/velkor_*_"$arch".deb  # an earlier version's package goes
dpkg-deb --root-owner-group -Zxz --build "$pkg" "$deb" >/dev/null
# lintian: an error or a warning fails the package; informational tags are
# shown (their reasons are in the README).
echo "lintian $(lintian --version | sed 's/^Lintian v//'):"
lintian --display-info --fail-on error,warning "$deb" || fail "lintian found errors or warnings"
ls -l "$deb"
