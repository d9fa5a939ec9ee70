# shellcheck shell=bash
# What the scripts share that make a directory in the user's cache from Debian's archive: its releases as this machine
# takes its own, and libmicrohttpd built from a source package.
set -euo pipefail

say() {
    echo "$(basename "$0" .sh): $*" >&2
}

die() {
    say "$@"
    exit 1
}

# The name of this machine's Debian release.
own_release() {
    sed -n 's/^VERSION_CODENAME=//p' /etc/os-release
}

# write_source_lists DIRECTORY TYPE RELEASE [CONFIGURATION]: writes apt sources for the packages of a release into the
# directory, of the type deb or deb-src: those that this machine (or the configuration) takes its own packages from, with
# the one release in the place of the other.
write_source_lists() {
    local out="$1" type="$2" release="$3" apt="${4:-/etc/apt}" own file
    own="$(own_release)"
    for file in "$apt"/sources.list "$apt"/sources.list.d/*.list; do
        if [[ -f "$file" ]]; then
            sed -nE "s/^[[:space:]]*deb[[:space:]]/$type /; /^$type .*[[:space:]]$own\b/s/([[:space:]])$own\b/\1$release/gp" \
                "$file"
        fi
    done >"$out/machine.list"
    for file in "$apt"/sources.list.d/*.sources; do
        if [[ -f "$file" ]]; then
            # A paragraph for another distribution's packages names no release of Debian's.
            awk -v RS= -v ORS='\n\n' -v own="$own" '$0 ~ "Suites:([^\n]*[[:space:]])?" own' "$file" |
                sed -E "s/^Types:.*/Types: $type/I; /^Suites:/Is/([[:space:]])$own\b/\1$release/g"
        fi
    done >"$out/machine.sources"
}

# download_source RELEASE [VERSION]: downloads libmicrohttpd's source package, of this version or the newest one of the
# release, into the current directory. apt takes lists only with the signature of a key that this machine trusts, and
# files only with the checksums of those lists. Its own configuration stays as it is.
download_source() {
    local release="$1" version="${2:-}" apt=()
    mkdir -p apt/sources apt/lists/partial apt/cache/archives/partial
    write_source_lists apt/sources deb-src "$release"
    apt=(apt-get -q -o "Dir::Etc::SourceList=/dev/null" -o "Dir::Etc::SourceParts=$PWD/apt/sources"
        -o "Dir::State::Lists=$PWD/apt/lists" -o "Dir::Cache=$PWD/apt/cache"
        -o "Acquire::AllowInsecureRepositories=false" -o "Acquire::AllowWeakRepositories=false"
        -o "Acquire::AllowDowngradeToInsecureRepositories=false" -o "APT::Get::AllowUnauthenticated=false"
        -o "APT::Sandbox::User=$(id -un)")
    "${apt[@]}" update >&2 || say "not every package list could be fetched; going on with the others"
    "${apt[@]}" source --download-only "libmicrohttpd${version:+=$version}" >&2
}

# build_engine PREFIX CONFIGURE-ARGUMENT...: builds the source package in the current directory, and installs the header
# and the library.
build_engine() {
    local prefix="$1"
    shift
    dpkg-source --no-check --extract libmicrohttpd_*.dsc source >&2
    mkdir build
    (
        cd build &&
            ../source/configure --prefix="$prefix" --enable-shared --disable-static --disable-doc --disable-examples \
                --disable-curl --disable-nls --disable-dependency-tracking "$@" &&
            make -C src/include install &&
            make -C src/microhttpd -j "$(nproc)" install-libLTLIBRARIES
    ) >build.log 2>&1 || {
        tail -n 40 build.log >&2
        die "libmicrohttpd could not be built"
    }
    grep -A 30 'Configuration Summary' build.log | grep -E 'Operating System|poll support|HTTPS|Threading|Upgrade' >&2
    rm -f "$prefix/lib/libmicrohttpd.la"
}

# Names what is made of the packages by the script that runs: changes when one of them does.
recipe_hash() {
    {
        cat "$0" "${BASH_SOURCE[0]}"
        # shellcheck disable=SC2016  # dpkg-query replaces these
        dpkg-query -W -f '${Package} ${Version}\n' "$@"
    } | sha256sum | head -c 12
}

# cached_root NAME MAKE [ARGUMENT...]: prints the path of the directory NAME in the user's cache. Unless an earlier run
# left it, it is what `MAKE DIRECTORY ARGUMENT...` makes, which runs in a directory of its own.
cached_root() {
    local root="${XDG_CACHE_HOME:-$HOME/.cache}/vireo/$1" make="$2" work
    shift 2
    if [[ ! -d "$root" ]]; then
        say "making $root"
        mkdir -p "$(dirname "$root")"
        work="$(mktemp -d "$root.XXXXXX")"
        # shellcheck disable=SC2064  # the name of now
        trap "rm -rf '$work'" EXIT
        cd "$work"
        "$make" "$work/root" "$@"
        # Another run that was quicker has made the same.
        mv -T "$work/root" "$root" 2>/dev/null || [[ -d "$root" ]]
    fi
    echo "$root"
}
