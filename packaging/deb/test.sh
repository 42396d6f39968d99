#!/usr/bin/env bash
# Installs the Debian package into a fresh Debian 12 root and checks it there:
# apt installs it as the README says; velkor, found in /usr/games by a
# user's PATH, answers uciok and counts bench's nodes, velkor-tuned loads the
# tuned string; man -w finds both pages; XBoard, started under Xvfb, lists
# "Velkor" and "Velkor (tuned)" by itself, and loading the first starts the
# engine through polyglot, which announces it by that whole name, as
# XBoard's title shows; started again with the second, XBoard names it
# "Velkor (tuned)" whole too (screenshots in TEST_DIR); dpkg --purge leaves
# no file behind.
# The root is a debootstrap minbase of bookworm with what the test runs
# (man-db, XBoard, polyglot, Xvfb, xdotool, ImageMagick) and a user; it is
# made once and kept as a tarball in TEST_DIR, and each run unpacks it anew.
# Needs root (debootstrap, mount, chroot).
# Usage: packaging/deb/test.sh DEB TEST_DIR
set -euo pipefail
here=$(dirname "$(realpath "$0")")
deb=$(realpath "$1")
dir=$(realpath -m "$2")
fail() { echo "test-deb: $*" >&2; exit 1; }
[ "$(id -u)" -eq 0 ] || fail "needs root (debootstrap, mount, chroot)"
[ -f "$deb" ] || fail "no package $1"
nodes=$(grep -v '^#' "$here/../../tests/data/bench.txt")
mkdir -p "$dir"

# The arm64 package beside it (make deb makes both) holds the same files,
# with the same modes; its engine is the aarch64 build, which make deb has
# checked under qemu. This root cannot run it.
arm=${deb%_amd64.deb}_arm64.deb
if [ "$arm" != "$deb" ] && [ -f "$arm" ]; then
    files() { dpkg-deb -c "$1" | awk '{ $3 = $4 = $5 = ""; print }'; }
    diff <(files "$deb") <(files "$arm") >&2 || fail "$(basename "$arm") does not hold the files of $(basename "$deb") (above)"
    echo "test-deb: $(basename "$arm") holds the same $(files "$arm" | wc -l) paths"
fi

source "$here/../../tools/debian-root.sh"
trap root_cleanup EXIT
# As a user, with the PATH Debian gives users (/usr/games in it).
as_user() {
    chroot --userspec=player:player "$root" env -i PATH=/usr/local/bin:/usr/bin:/bin:/usr/local/games:/usr/games \
        HOME=/home/player LANG=C.UTF-8 "$@"
}

base=$dir/bookworm-base.tar.gz
root_base "$base" "$dir/debootstrap.log" man-db xboard polyglot xvfb xauth xdotool imagemagick || fail "no Debian root"
root_unpack "$base" "$dir/root"
in_root id player >/dev/null 2>&1 || in_root useradd -m -s /bin/sh player
# Every path in the root but the mounts, /tmp and the user's home (XBoard's
# settings file is the user's, not the package's), and the caches that apt
# and man-db make anew whatever they install (apt's package caches, mandb's
# CACHEDIR.TAG files); after the purge, no path in the root may name velkor.
listing() {
    (cd "$root" && find . \( -path ./proc -o -path ./dev -o -path ./tmp -o -path ./home/player \) -prune -o -print |
        grep -v -E '^\./var/cache/apt/(src)?pkgcache\.bin$|^\./var/cache/man/.*/?CACHEDIR\.TAG$' | LC_ALL=C sort)
}
listing >"$dir/files-before.txt"

name=$(basename "$deb")
cp "$deb" "$root/tmp/$name"
echo "test-deb: apt install ./$name"
(cd "$root/tmp" && in_root sh -c "cd /tmp && apt install -y ./$name" >"$dir/install.log" 2>&1) ||
    fail "apt install failed: $dir/install.log"
in_root dpkg-query -W -f='${Status} ${Version}\n' velkor | grep -q '^install ok installed' || fail "velkor is not installed"

# The engine by its name, from /usr/games.
[ "$(as_user sh -c 'command -v velkor')" = /usr/games/velkor ] || fail "velkor is not found in /usr/games"
out=$(printf 'uci\nquit\n' | as_user velkor)
grep -qx uciok <<<"$out" || fail "velkor: no uciok: $out"
echo "test-deb: velkor: $(grep '^id name' <<<"$out"), uciok"
out=$(printf 'bench\n' | as_user velkor)
grep -q "^$nodes nodes in " <<<"$out" || fail "velkor: bench: $(tail -n 1 <<<"$out")"
echo "test-deb: velkor: $(grep "^$nodes nodes in " <<<"$out")"
genes=$(head -n 1 "$here/../../tools/tune/tuned.txt")
number=$(/usr/bin/python3 "$here/../../tools/tune/velkor_tune/genes.py" number)
# Arguments a GUI adds on the command line leave the tuned string in place.
for extra in "" "-fUCI"; do
    out=$(printf 'uci\nquit\n' | as_user velkor-tuned $extra)
    [ "$(grep -c '^info debug pbil\[' <<<"$out")" -eq "$number" ] && grep -qx uciok <<<"$out" ||
        fail "velkor-tuned $extra: the tuned string was not loaded: $out"
done
echo "test-deb: velkor-tuned: $number weights loaded, uciok, with and without an extra argument"

# The manual pages.
for page in velkor velkor-tuned; do
    where=$(as_user man -w "$page") || fail "man -w $page finds nothing"
    echo "test-deb: man -w $page: $where"
done
as_user sh -c 'man -P cat velkor 2>&1 >/dev/null' | grep . && fail "man velkor: warnings"

# XBoard under Xvfb, as Debian starts it (-autoInstall "ALL" in
# /etc/xboard/xboard.conf), without a first engine (-ncp). No window
# manager: the menus and dialogs open at fixed places on the 1024x768 screen.
rm -f "$dir"/xboard-*.png
cat >"$root/tmp/xboard-test.sh" <<'EOF'
#!/bin/sh
export DISPLAY=:7
Xvfb :7 -screen 0 1024x768x24 -nolisten tcp >/tmp/xvfb.log 2>&1 &
xvfb=$!
for i in $(seq 50); do xdotool getmouselocation >/dev/null 2>&1 && break; sleep 0.1; done
xboard -ncp -debug -nameOfDebugFile /tmp/xboard-debug.txt >/tmp/xboard.log 2>&1 &
xboard=$!
for i in $(seq 100); do xdotool search --name '^xboard$' >/dev/null 2>&1 && break; sleep 0.1; done
sleep 2
xdotool mousemove 272 14 click 1; sleep 1           # Engine
xdotool mousemove 345 68 click 1; sleep 2           # Load New 1st Engine...
import -window root /tmp/xboard-engine-list.png
xdotool mousemove 40 160 click 1; sleep 0.5         # the list's "Velkor"
xdotool mousemove 515 343 click 1; sleep 3          # OK: XBoard starts it through polyglot
xdotool mousemove 157 14 click 1; sleep 1           # Mode
xdotool mousemove 208 38 click 1                    # Machine White: Velkor thinks, then moves
for i in $(seq 300); do grep -q '<first : move ' /tmp/xboard-debug.txt && break; sleep 0.1; done
sleep 1
import -window root /tmp/xboard-velkor-playing.png
xdotool getwindowname "$(xdotool search --name ' vs\. ' | head -n 1)" >/tmp/xboard-title.txt
# Quit (ctrl+q, the pointer on the board: no window manager, the focus
# follows it), so that XBoard writes its settings; then the X server.
xdotool mousemove 200 300 key ctrl+q
for i in $(seq 100); do kill -0 $xboard 2>/dev/null || break; sleep 0.1; done
kill $xvfb
EOF
chmod +x "$root/tmp/xboard-test.sh"
as_user /tmp/xboard-test.sh || fail "the XBoard session failed"
cp "$root/tmp/xboard-engine-list.png" "$root/tmp/xboard-velkor-playing.png" "$dir/"
cp "$root/tmp/xboard-debug.txt" "$dir/xboard-debug.txt"
title=$(cat "$root/tmp/xboard-title.txt")
cleanup_xboard() {
    local proc
    for proc in /proc/[0-9]*; do
        [ "$(readlink "$proc/root" 2>/dev/null)" = "$root" ] && kill "${proc#/proc/}" 2>/dev/null
    done
    sleep 1
}
cleanup_xboard
rc=$root/home/player/.xboardrc
[ -f "$rc" ] || fail "XBoard wrote no settings file"
# The engine list XBoard keeps: the plugin files' lines with -fUCI.
list=$(sed -n '/^-firstChessProgramNames {/,/^}/p' "$rc")
grep -qxF $'"Velkor"\t-fcp\t\'/usr/games/velkor" -en "Velkor\' -fUCI' <<<"$list" || fail "XBoard's list has no Velkor: $list"
grep -qxF $'"Velkor\xc2\xa0(tuned)"\t-fcp\t\'/usr/games/velkor-tuned" -en "Velkor (tuned)\' -fUCI' <<<"$list" ||
    fail "XBoard's list has no Velkor (tuned): $list"
echo "test-deb: XBoard's engine list: Velkor, Velkor (tuned) ($dir/xboard-engine-list.png)"
# polyglot runs the engine and announces it by the entry's whole name, which XBoard's title shows.
grep -qF 'polyglot -noini -ec "/usr/games/velkor" -en "Velkor" ' "$dir/xboard-debug.txt" || fail "XBoard did not start Velkor's entry"
grep -q 'feature .*myname="Velkor"' "$dir/xboard-debug.txt" || fail "polyglot did not announce Velkor by its whole name"
move=$(grep -m 1 -o '<first : move [a-h1-8qrbn]*' "$dir/xboard-debug.txt" | sed 's/.* //') || true
[ -n "$move" ] || fail "Velkor made no move for XBoard"
[ "$title" = "Velkor vs. player" ] || fail "XBoard's title is '$title', not 'Velkor vs. player'"
echo "test-deb: XBoard loaded Velkor through polyglot: $(grep -m 1 -o 'myname="[^"]*"' "$dir/xboard-debug.txt"), title '$title', first move $move ($dir/xboard-velkor-playing.png)"

# The tuned engine, from the list XBoard saved (-fe picks an entry by its
# nickname), playing White from the start.
cat >"$root/tmp/xboard-tuned.sh" <<'EOF'
#!/bin/sh
export DISPLAY=:7
Xvfb :7 -screen 0 1024x768x24 -nolisten tcp >/tmp/xvfb.log 2>&1 &
xvfb=$!
for i in $(seq 50); do xdotool getmouselocation >/dev/null 2>&1 && break; sleep 0.1; done
xboard -fe "$(printf 'Velkor\302\240(tuned)')" -initialMode MachineWhite -debug -nameOfDebugFile /tmp/xboard-tuned.txt \
    >/tmp/xboard.log 2>&1 &
xboard=$!
for i in $(seq 300); do grep -q '<first : move ' /tmp/xboard-tuned.txt 2>/dev/null && break; sleep 0.1; done
sleep 1
import -window root /tmp/xboard-tuned-playing.png
xdotool getwindowname "$(xdotool search --name ' vs\. ' | head -n 1)" >/tmp/xboard-title.txt
kill $xboard
for i in $(seq 100); do kill -0 $xboard 2>/dev/null || break; sleep 0.1; done
kill $xvfb
EOF
chmod +x "$root/tmp/xboard-tuned.sh"
as_user /tmp/xboard-tuned.sh || fail "the XBoard session of Velkor (tuned) failed"
cleanup_xboard
cp "$root/tmp/xboard-tuned-playing.png" "$root/tmp/xboard-tuned.txt" "$dir/"
title=$(cat "$root/tmp/xboard-title.txt")
grep -qF 'polyglot -noini -ec "/usr/games/velkor-tuned" -en "Velkor (tuned)" ' "$dir/xboard-tuned.txt" ||
    fail "XBoard did not start Velkor (tuned)'s entry"
grep -q '<first : move [a-h1-8]' "$dir/xboard-tuned.txt" || fail "Velkor (tuned) made no move for XBoard"
[ "$title" = "Velkor (tuned) vs. player" ] || fail "XBoard's title is '$title', not 'Velkor (tuned) vs. player'"
echo "test-deb: XBoard loaded Velkor (tuned): $(grep -m 1 -o 'myname="[^"]*"' "$dir/xboard-tuned.txt"), title '$title' ($dir/xboard-tuned-playing.png)"

# The purge: every path the package brought goes, and nothing else changes.
in_root dpkg --purge velkor >"$dir/purge.log" 2>&1 || fail "dpkg --purge failed: $dir/purge.log"
rm -f "$root/tmp/$name"
listing >"$dir/files-after.txt"
if ! diff -u "$dir/files-before.txt" "$dir/files-after.txt" >"$dir/files.diff"; then
    cat "$dir/files.diff" >&2
    fail "dpkg --purge left the root changed (above)"
fi
left=$(cd "$root" && find . \( -path ./proc -o -path ./dev -o -path ./tmp -o -path ./home/player \) -prune -o -iname '*velkor*' -print)
[ -z "$left" ] || fail "dpkg --purge left: $left"
echo "test-deb: dpkg --purge velkor: the root's $(wc -l <"$dir/files-after.txt") paths are those before the install"
echo "test-deb: all passed"
