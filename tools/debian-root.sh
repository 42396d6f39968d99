# Fresh Debian 12 roots for the tests that try the project as a new machine
# or a new user gets it. Sourced by bash scripts that run as root.
#
# root_base TARBALL LOG PACKAGES...: a debootstrap minbase of bookworm with
#   the packages, made once and kept as TARBALL (debootstrap's and apt's
#   output in LOG); later calls keep the tarball as it is.
# root_unpack TARBALL ROOT: ROOT made anew from the tarball, /proc and /dev
#   mounted in it.
# in_root CMD...: CMD as root in $root, with a clean environment.
# root_cleanup: ends every process living in a root made here and unmounts
#   what was mounted; scripts set it as their EXIT trap.
root_mirror=${DEB_MIRROR:-http://deb.debian.org/debian}
root_mounted=()
root_dirs=()

root_cleanup() {
    local dir proc
    for dir in "${root_dirs[@]}"; do
        for proc in /proc/[0-9]*; do
            [ "$(readlink "$proc/root" 2>/dev/null)" = "$dir" ] && kill "${proc#/proc/}" 2>/dev/null
        done
    done
    sleep 0.5
    for ((i = ${#root_mounted[@]} - 1; i >= 0; i--)); do
        umount "${root_mounted[i]}" 2>/dev/null || umount -l "${root_mounted[i]}"
    done
    root_mounted=()
}

# Mounts what programs in the root need: /proc, /dev for /dev/null and the
# like, its terminals, and a /dev/shm of its own for browsers and Python's semaphores.
root_enter() {
    root_dirs+=("$1")
    mount -t proc proc "$1/proc" && root_mounted+=("$1/proc")
    mount --bind /dev "$1/dev" && root_mounted+=("$1/dev")
    mount --bind /dev/pts "$1/dev/pts" && root_mounted+=("$1/dev/pts")
    mount -t tmpfs -o mode=1777 shm "$1/dev/shm" && root_mounted+=("$1/dev/shm")
}

in_root() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"; }

root_base() {
    local base=$1 log=$2
    shift 2
    [ -f "$base" ] && return 0
    [ "$(id -u)" -eq 0 ] || { echo "a Debian root needs root (debootstrap, mount, chroot)" >&2; return 1; }
    command -v debootstrap >/dev/null || bash "$(dirname "${BASH_SOURCE[0]}")/setup.sh" deb-test
    local make=$base.make
    echo "making a Debian 12 root (debootstrap --variant=minbase bookworm $root_mirror), kept as $base"
    rm -rf "$make" && mkdir -p "$(dirname "$base")"
    debootstrap --variant=minbase bookworm "$make" "$root_mirror" >"$log" 2>&1 ||
        { echo "debootstrap failed: $log" >&2; return 1; }
    cp /etc/resolv.conf "$make/etc/resolv.conf"
    root=$make
    root_enter "$root"
    if [ $# -gt 0 ]; then
        { in_root apt-get update -qq && in_root apt-get install -y -qq --no-install-recommends "$@"; } >>"$log" 2>&1 ||
            { echo "installing $* in the root failed: $log" >&2; return 1; }
    fi
    in_root apt-get clean
    root_cleanup
    tar -C "$make" -czf "$base.part" . && mv "$base.part" "$base"
    rm -rf "$make"
}

root_unpack() {
    root=$2
    rm -rf "$root" && mkdir -p "$root"
    tar -C "$root" -xzf "$1"
    root_enter "$root"
}
