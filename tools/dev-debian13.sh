# shellcheck shell=bash
# debian13 [CTEST-ARGUMENT...] -- builds and runs the test suite in a root of Debian 13, with what that release has

readonly DEBIAN13_RELEASE=trixie
readonly PACKAGES_DEBIAN13=(mmdebstrap ccache iproute2)

# The build is in build/test-debian13, whose files name the tree as it is called in the root.
command_debian13() {
    local root cache
    need "${PACKAGES_DEBIAN13[@]}"
    # shellcheck disable=SC2153  # ROOT is the tree's, root is Debian's
    root="$("$ROOT/tools/debian-root.sh" "$DEBIAN13_RELEASE" "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}")"
    cache="$(ccache --get-config cache_dir)"
    mkdir -p "$cache"
    as_root env VIREO_BUILD_SUFFIX=-debian13 unshare --mount --pid --net --fork --kill-child \
        "$ROOT/tools/debian-run.sh" "$root" "$ROOT" "$cache" "$(id -u):$(id -g)" ./dev test "$@"
}
