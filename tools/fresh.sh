#!/usr/bin/env bash
# The README's two commands as a new user runs them: in a fresh Debian 12
# root (debootstrap minbase with git and make, nothing else; made once and
# kept as a tarball in TEST_DIR, unpacked anew on every run), on a clone of
# the current commit, as root: `make run` answers uci, then `make test`
# passes. Each one's time is printed; their output is in TEST_DIR.
# Needs root (debootstrap, mount, chroot) and the network (Debian's and
# npm's registries).
# Usage: tools/fresh.sh TEST_DIR
set -euo pipefail
top=$(realpath "$(dirname "$0")/..")
dir=$(realpath -m "$1")
fail() { echo "test-fresh: $*" >&2; exit 1; }
[ "$(id -u)" -eq 0 ] || fail "needs root (debootstrap, mount, chroot)"
source "$top/tools/debian-root.sh"
trap root_cleanup EXIT

commit=$(git -C "$top" rev-parse HEAD)
git -C "$top" diff --quiet HEAD || echo "test-fresh: uncommitted changes are not tried, only $commit"
mkdir -p "$dir"
root_base "$dir/bookworm-git-make.tar.gz" "$dir/debootstrap.log" git make || fail "no Debian root"
root_unpack "$dir/bookworm-git-make.tar.gz" "$dir/root"
cp /etc/resolv.conf "$root/etc/resolv.conf"
# A network whose TLS goes through a proxy of its own has its CA trusted by
# every machine on it: the root gets it too, and nothing else of the host.
extra=()
if [ -n "${NODE_EXTRA_CA_CERTS:-}" ] && [ -f "$NODE_EXTRA_CA_CERTS" ]; then
    mkdir -p "$root/etc/ssl" && cp "$NODE_EXTRA_CA_CERTS" "$root/etc/ssl/network-ca.crt"
    extra=(NODE_EXTRA_CA_CERTS=/etc/ssl/network-ca.crt)
fi
git clone -q --no-local "$top" "$root/root/velkor"
git -C "$root/root/velkor" checkout -q --detach "$commit"
echo "test-fresh: $(in_root sh -c '. /etc/os-release; echo "$PRETTY_NAME"'), $commit cloned into /root/velkor"

# Both as root in the clone, output in TEST_DIR and on the terminal.
timed() {  # NAME STDIN COMMAND: runs it, prints its time, fails with its log
    local name=$1 input=$2 start rc
    shift 2
    start=$(date +%s)
    set +e
    in_root "${extra[@]}" sh -c "cd /root/velkor && $*" <"$input" 2>&1 | tee "$dir/$name.log"
    rc=${PIPESTATUS[0]}
    set -e
    elapsed[$name]=$(($(date +%s) - start))
    echo "test-fresh: $* took ${elapsed[$name]} s (exit $rc, output in $dir/$name.log)"
    [ "$rc" -eq 0 ] || fail "$* failed"
}
declare -A elapsed
printf 'uci\nquit\n' >"$dir/uci.in"
timed make-run "$dir/uci.in" make run
grep -q '^uciok$' "$dir/make-run.log" || fail "make run did not answer uciok"
timed make-test /dev/null make test
echo "test-fresh: all passed: make run ${elapsed[make-run]} s, make test ${elapsed[make-test]} s, on a fresh Debian 12 root"
