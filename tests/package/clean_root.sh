# shellcheck shell=bash
# A Debian root to try things in. Sourced; expects the archive of one. Sets root, the directory, which is removed at the
# end, and tree, the source tree.

# shellcheck disable=SC2034  # for those who source this
tree="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
root="$(mktemp -d)"
trap 'rm -rf "$root"' EXIT

# open_root ARCHIVE. Nothing is mounted below the root, so that removing it removes nothing else.
open_root() {
    local device
    tar -x -C "$root" --exclude './dev/*' -f "$1"
    cp /etc/resolv.conf "$root/etc/resolv.conf"
    for device in null zero urandom; do
        cp -a "/dev/$device" "$root/dev/$device"
    done
}

in_root() {
    env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive chroot "$root" "$@"
}

# Runs a command in the root, whose output shows only when it fails.
quietly_in_root() {
    in_root "$@" >"$root/quiet.log" 2>&1 || {
        cat "$root/quiet.log"
        return 1
    }
}
