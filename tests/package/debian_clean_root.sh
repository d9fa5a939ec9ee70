#!/usr/bin/env bash
# Installs the packages in a Debian root that has a compiler and nothing of the library's, builds the consumer there by
# find_package and by pkg-config, and removes the packages again without a trace.
# usage: debian_clean_root.sh DIRECTORY-OF-PACKAGES ROOT-ARCHIVE
set -euo pipefail

# shellcheck source=tests/package/clean_root.sh
. "$(dirname "${BASH_SOURCE[0]}")/clean_root.sh"

readonly PACKAGES="$1"
open_root "$2"

mkdir -p "$root/packages" "$root/tree/tests"
cp "$PACKAGES"/*.deb "$root/packages/"
cp "$tree/CMakeLists.txt" "$root/tree/"
cp -r "$tree/tests/package" "$tree/tests/support" "$root/tree/tests/"

quietly_in_root sh -c 'apt-get -q update && apt-get -q install -y --no-install-recommends /packages/*.deb'
# shellcheck disable=SC2016  # dpkg-query replaces these
in_root dpkg-query -W -f '${Package} ${Version} ${Installed-Size} KiB\n' libvireo3 libvireo-dev vireo-doc
in_root dpkg --verify libvireo3 libvireo-dev vireo-doc
for way in find_package pkg-config; do
    in_root bash /tree/tests/package/consume.sh "$way" /usr "/tmp/consumer-$way"
done
quietly_in_root apt-get -q purge -y libvireo3 libvireo-dev vireo-doc
rest="$(find "$root/usr" "$root/etc" -iname '*vireo*')"
if [[ -n "$rest" ]]; then
    echo "FAILED: the packages left $rest" >&2
    exit 1
fi
