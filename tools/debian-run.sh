#!/usr/bin/env bash
# debian-run.sh ROOT TREE CACHE OWNER COMMAND [ARGUMENT...]: runs a command as OWNER (UID:GID) in a root that debian-root.sh
# has made, with the source tree as its working directory, /vireo, and CACHE for ccache. Expects to be root in mount,
# process and network namespaces of its own, with which what is mounted here goes away, and what the command leaves
# running; whoever else runs tests has the same ports.
set -euo pipefail

root="$1" tree="$2" cache="$3" owner="$4"
shift 4

mount --make-rprivate /
mount --rbind /dev "$root/dev"
mount -t proc proc "$root/proc"
mount -t tmpfs -o mode=1777 tmpfs "$root/tmp"
mount --bind "$tree" "$root/vireo"
mount --bind "$cache" "$root/ccache"
ip link set lo up
# shellcheck disable=SC2016  # the shell in the root replaces it
exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 HOME=/tmp CCACHE_DIR=/ccache \
    VIREO_BUILD_SUFFIX="${VIREO_BUILD_SUFFIX:-}" \
    chroot --userspec="$owner" "$root" bash -c 'cd /vireo && exec "$@"' bash "$@"
