#!/usr/bin/env bash
# debian-root.sh RELEASE PACKAGE...: makes a root of another Debian release with these packages, unless an earlier run left
# it, and prints its name. It stands in the user's cache under a name that changes with what it is made of.
#
# Expects mmdebstrap. What it makes belongs to root: sudo rm -rf removes it.
set -euo pipefail

TOOLS="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
readonly TOOLS
# shellcheck source=tools/common.sh
. "$TOOLS/common.sh"
# shellcheck source=tools/engine-source.sh
. "$TOOLS/engine-source.sh"

# Below the directory, which is this user's and so can be moved, stands the root.
make_root() {
    local directory="$1" release="$2" packages file sources=()
    packages="$(IFS=, && echo "${*:3}")"
    mkdir lists "$directory"
    write_source_lists lists deb "$release"
    for file in lists/*; do
        if [[ -s "$file" ]]; then
            sources+=("$PWD/$file")
        fi
    done
    # The directories are mounted on when something runs there.
    # shellcheck disable=SC2016  # mmdebstrap gives the hook the root
    as_root mmdebstrap --quiet --variant=apt --include="$packages" \
        --customize-hook='mkdir "$1/vireo" "$1/ccache"' "$release" "$directory/root" "${sources[@]}" >&2 ||
        die "the root cannot be made; should apt lack the key of $release, an up-to-date debian-archive-keyring has it"
}

main() {
    local release="$1" name
    name="debian-$release-$({
        recipe_hash mmdebstrap
        printf '%s\n' "${@:2}"
    } | sha256sum | head -c 12)"
    echo "$(cached_root "$name" make_root "$@")/root"
}

main "$@"
