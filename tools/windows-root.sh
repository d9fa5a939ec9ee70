#!/usr/bin/env bash
# Makes the directory that the build for Windows takes its libraries from, unless an earlier run left it, and prints its
# name: libmicrohttpd, cross-built from Debian's own source package, and the header-only libraries that are the same on
# every system. It stands in the user's cache under a name that changes with what it is made of.
#
# Expects dpkg-dev, make, xz-utils, the mingw-w64 compiler, libmicrohttpd-dev, and the packages of PACKAGES_HEADERS.
set -euo pipefail

# shellcheck source=tools/engine-source.sh
. "$(dirname "${BASH_SOURCE[0]}")/engine-source.sh"

readonly COMPILER=x86_64-w64-mingw32-gcc-posix
readonly PACKAGES_HEADERS=(libcli11-dev nlohmann-json3-dev)

# Threads and poll() as the native system offers them. "auto" stands for Windows threads; asked for by their name,
# configure doesn't look for them. The compiler's runtime becomes part of the DLL.
readonly CONFIGURE=(--host=x86_64-w64-mingw32 --with-threads=auto --enable-poll=yes --disable-epoll --enable-https=no
    "CC=$COMPILER" "CFLAGS=-O2 -g" "LDFLAGS=-static-libgcc")

# Copies the headers and the CMake package files of a package to the prefix.
copy_headers() {
    local prefix="$1" package="$2" file
    dpkg-query -L "$package" | while IFS= read -r file; do
        if [[ -f "$file" && "$file" =~ ^/usr/(include|share/cmake)/ ]]; then
            install -D -m 644 "$file" "$prefix/${file#/usr/}"
        fi
    done
}

make_libraries() {
    local prefix="$1" version="$2" package
    download_source "$(own_release)" "$version" ||
        die "the source package of libmicrohttpd $version cannot be had; after an upgrade of libmicrohttpd-dev it may"
    build_engine "$prefix" "${CONFIGURE[@]}"
    for package in "${PACKAGES_HEADERS[@]}"; do
        copy_headers "$prefix" "$package"
    done
}

main() {
    local version
    # What the tests on this system run against is what is built for the other.
    # shellcheck disable=SC2016  # dpkg-query replaces these
    version="$(dpkg-query -W -f '${source:Version}' libmicrohttpd-dev)"
    cached_root "windows-root-$version-$(recipe_hash gcc-mingw-w64-x86-64-posix "${PACKAGES_HEADERS[@]}")" \
        make_libraries "$version"
}

main
