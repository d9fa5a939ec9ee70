#!/usr/bin/env bash
# Installs the packages in a Debian root that has a compiler and nothing of the library's, builds the consumer there by
# find_package and by pkg-config, and removes the packages again without a trace.
# usage: debian_clean_root.sh DIRECTORY-OF-PACKAGES ROOT-ARCHIVE
set -euo pipefail

readonly PACKAGES="$1" ARCHIVE="$2"
tree="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"

root="$(mktemp -d)"
trap 'rm -rf "$root"' EXIT
# No mount is made below the root, so that removing it removes nothing else.
tar -x -C "$root" --exclude './dev/*' -f "$ARCHIVE"
cp /etc/resolv.conf "$root/etc/resolv.conf"
for device in null zero urandom; do
    [[ -e "$root/dev/$device" ]] || cp -a "/dev/$device" "$root/dev/$device"
done
ln -sfn /proc/self/fd "$root/dev/fd"
mkdir -p "$root/packages" "$root/tree/tests"
cp "$PACKAGES"/*.deb "$root/packages/"
cp "$tree/CMakeLists.txt" "$root/tree/"
cp -r "$tree/tests/package" "$tree/tests/support" "$root/tree/tests/"

in_root() {
    env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive chroot "$root" "$@"
}

in_root sh -c 'apt-get -q update && apt-get -q install -y --no-install-recommends /packages/*.deb' >"$root/install.log" || {
    cat "$root/install.log"
    exit 1
}
# shellcheck disable=SC2016  # dpkg-query replaces these
in_root dpkg-query -W -f '${Package} ${Version} ${Installed-Size} KiB\n' libvireo3 libvireo-dev vireo-doc
in_root dpkg --verify libvireo3 libvireo-dev vireo-doc
for way in find_package pkg-config; do
    in_root bash /tree/tests/package/consume.sh "$way" /usr "/tmp/consumer-$way"
done
in_root ls /usr/share/doc/vireo-doc
in_root apt-get -q purge -y libvireo3 libvireo-dev vireo-doc >"$root/purge.log"
rest="$(find "$root/usr" "$root/etc" -iname '*vireo*')"
if [[ -n "$rest" ]]; then
    echo "FAILED: the packages left $rest" >&2
    exit 1
fi
