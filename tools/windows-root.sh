#!/usr/bin/env bash
# Makes the directory that the build for Windows takes its libraries from, unless an earlier run left it, and prints its
# name: libmicrohttpd, cross-built from Debian's own source package, and the header-only libraries that are the same on
# every system. It stands in the user's cache under a name that changes with what it is made of.
#
# Expects dpkg-dev, make, xz-utils, the mingw-w64 compiler, libmicrohttpd-dev, and the packages of PACKAGES_HEADERS.
set -euo pipefail

readonly COMPILER=x86_64-w64-mingw32-gcc-posix
readonly PACKAGES_HEADERS=(libcli11-dev nlohmann-json3-dev)

# Threads and poll() as the native system offers them. "auto" stands for Windows threads; asked for by their name,
# configure doesn't look for them. The compiler's runtime becomes part of the DLL.
readonly CONFIGURE=(--host=x86_64-w64-mingw32 --enable-shared --disable-static --with-threads=auto --enable-poll=yes
    --disable-epoll --enable-https=no --disable-doc --disable-examples --disable-curl --disable-nls
    --disable-dependency-tracking "CC=$COMPILER" "CFLAGS=-O2 -g" "LDFLAGS=-static-libgcc")

say() {
    echo "windows-root: $*" >&2
}

die() {
    say "$@"
    exit 1
}

# Writes apt sources for source packages into the directory: those that this machine takes its packages from.
write_source_lists() {
    local out="$1" file
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
        if [[ -f "$file" ]]; then
            sed -nE 's/^[[:space:]]*deb[[:space:]]/deb-src /p' "$file"
        fi
    done >"$out/machine.list"
    for file in /etc/apt/sources.list.d/*.sources; do
        if [[ -f "$file" ]]; then
            sed -E 's/^Types:.*/Types: deb-src/I' "$file"
            echo
        fi
    done >"$out/machine.sources"
}

# Downloads the source package of this version into the current directory. apt takes lists only with the signature of a
# key that this machine trusts, and files only with the checksums of those lists. Its own configuration stays as it is.
download_source() {
    local version="$1" apt=()
    mkdir -p apt/sources apt/lists/partial apt/cache/archives/partial
    write_source_lists apt/sources
    apt=(apt-get -q -o "Dir::Etc::SourceList=/dev/null" -o "Dir::Etc::SourceParts=$PWD/apt/sources"
        -o "Dir::State::Lists=$PWD/apt/lists" -o "Dir::Cache=$PWD/apt/cache"
        -o "Acquire::AllowInsecureRepositories=false" -o "Acquire::AllowWeakRepositories=false"
        -o "Acquire::AllowDowngradeToInsecureRepositories=false" -o "APT::Get::AllowUnauthenticated=false"
        -o "APT::Sandbox::User=$(id -un)")
    "${apt[@]}" update >&2 || say "not every package list could be fetched; going on with the others"
    "${apt[@]}" source --download-only "libmicrohttpd=$version" >&2 ||
        die "the source package of libmicrohttpd $version cannot be had; after an upgrade of libmicrohttpd-dev it may"
}

build_engine() {
    local prefix="$1"
    mkdir build
    cd build
    {
        ../source/configure --prefix="$prefix" "${CONFIGURE[@]}" &&
            make -C src/include install &&
            make -C src/microhttpd -j "$(nproc)" install-libLTLIBRARIES
    } >../build.log 2>&1 || {
        tail -n 40 ../build.log >&2
        die "libmicrohttpd could not be built"
    }
    cd ..
    grep -A 30 'Configuration Summary' build.log | grep -E 'Operating System|poll support|HTTPS|Threading|Upgrade' >&2
    rm -f "$prefix/lib/libmicrohttpd.la"
}

# Copies the headers and the CMake package files of a package to the prefix.
copy_headers() {
    local prefix="$1" package="$2" file
    dpkg-query -L "$package" | while IFS= read -r file; do
        if [[ -f "$file" && "$file" =~ ^/usr/(include|share/cmake)/ ]]; then
            install -D -m 644 "$file" "$prefix/${file#/usr/}"
        fi
    done
}

main() {
    local version recipe root work package
    # What the tests on this system run against is what is built for the other.
    # shellcheck disable=SC2016  # dpkg-query replaces these
    version="$(dpkg-query -W -f '${source:Version}' libmicrohttpd-dev)"
    # shellcheck disable=SC2016
    recipe="$(
        sha256sum "${BASH_SOURCE[0]}" | cut -d ' ' -f 1
        dpkg-query -W -f '${Package} ${Version}\n' gcc-mingw-w64-x86-64-posix "${PACKAGES_HEADERS[@]}"
    )"
    root="${XDG_CACHE_HOME:-$HOME/.cache}/vireo/windows-root-$version-$(sha256sum <<<"$recipe" | head -c 12)"
    if [[ ! -d "$root" ]]; then
        say "making $root"
        mkdir -p "$(dirname "$root")"
        work="$(mktemp -d "$root.XXXXXX")"
        # shellcheck disable=SC2064  # the name of now
        trap "rm -rf '$work'" EXIT
        cd "$work"
        download_source "$version"
        dpkg-source --no-check --extract "libmicrohttpd_${version#*:}.dsc" source >&2
        build_engine "$work/root"
        for package in "${PACKAGES_HEADERS[@]}"; do
            copy_headers "$work/root" "$package"
        done
        # Another run that was quicker has made the same.
        mv -T "$work/root" "$root" 2>/dev/null || [[ -d "$root" ]]
    fi
    echo "$root"
}

main
