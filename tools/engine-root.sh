#!/usr/bin/env bash
# engine-root.sh VERSION: makes the directory that a build against another version of the engine takes it from, unless an
# earlier run left it, and prints its name: libmicrohttpd with TLS, built for this system from the source package of the
# Debian release that has this version. It stands in the user's cache under a name that changes with what it is made of.
#
# Expects dpkg-dev, make, xz-utils, g++ and libgnutls28-dev.
set -euo pipefail

# shellcheck source=tools/engine-source.sh
. "$(dirname "${BASH_SOURCE[0]}")/engine-source.sh"

# Which Debian release has the versions that begin so.
declare -rA RELEASES=([1.0]=trixie)

make_engine() {
    local prefix="$1" version="$2"
    download_source "${RELEASES[$version]}" ||
        die "the source package cannot be had; should apt lack the key of ${RELEASES[$version]}, an up-to-date" \
            "debian-archive-keyring has it"
    [[ -n "$(compgen -G "libmicrohttpd_$version.*.dsc")" ]] || die "${RELEASES[$version]} has another version"
    # With the flags that Debian builds with, so that it compares with the installed one.
    build_engine "$prefix" --enable-https=yes "CFLAGS=$(dpkg-buildflags --get CFLAGS)" \
        "CPPFLAGS=$(dpkg-buildflags --get CPPFLAGS)" "LDFLAGS=$(dpkg-buildflags --get LDFLAGS)"
}

main() {
    local version="$1"
    [[ -v "RELEASES[$version]" ]] || die "no Debian release is known for version '$version', but for: ${!RELEASES[*]}"
    cached_root "engine-$version-$(recipe_hash gcc libgnutls28-dev)" make_engine "$version"
}

main "$@"
