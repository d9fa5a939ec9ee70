#!/usr/bin/env bash
# Installs the packages in a Debian root that has a compiler and nothing of the library's, the core's first, builds the
# consumers there by find_package and by pkg-config, and removes the packages again without a trace.
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

# install_packages NAME...
install_packages() {
    local name files=()
    for name in "$@"; do
        files+=("/packages/$(basename "$PACKAGES/${name}_"*.deb)")
    done
    quietly_in_root apt-get -q install -y --no-install-recommends "${files[@]}"
    # shellcheck disable=SC2016  # dpkg-query replaces these
    in_root dpkg-query -W -f '${Package} ${Version} ${Installed-Size} KiB\n' "$@"
    in_root dpkg --verify "$@"
}

# consume core|app
consume() {
    local way
    for way in find_package pkg-config; do
        in_root bash /tree/tests/package/consume.sh "$1" "$way" /usr "/tmp/consumer-$1-$way"
    done
}

# expect_nothing_of WHOSE PATTERN: no file of this name is there.
expect_nothing_of() {
    local found
    found="$(find "$root/usr" "$root/etc" -ipath "$2")"
    if [[ -n "$found" ]]; then
        echo "FAILED: of $1 there is $found" >&2
        exit 1
    fi
}

# All there is in the root, but for what apt and dpkg keep for themselves.
list_files() {
    (cd "$root" && find etc opt srv usr var -xdev ! -path 'var/cache/*' ! -path 'var/lib/apt/*' ! -path 'var/lib/dpkg/*' \
        ! -path 'var/log/*' | sort)
}

core=(libvireo3 libvireo-dev)
rest=(libvireo-app3 libvireo-app-dev vireo-doc)
quietly_in_root apt-get -q update
before="$(list_files)"
install_packages "${core[@]}"
expect_nothing_of "the toolkit" '*vireo[-/]app[./-]*'
consume core
install_packages "${rest[@]}"
consume app
for unit in service socket; do
    cmp "$tree/examples/tutorial/step7/plants.$unit" "$root/usr/share/doc/vireo-doc/examples/plants.$unit"
done
quietly_in_root apt-get -q purge -y "${core[@]}" "${rest[@]}"
expect_nothing_of "the packages" '*vireo*'
quietly_in_root apt-get -q autoremove --purge -y
diff <(echo "$before") <(list_files) || {
    echo "FAILED: the root is another one than before the packages came" >&2
    exit 1
}
