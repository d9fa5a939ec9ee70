# shellcheck shell=bash
# package [CTEST-ARGUMENT...] -- makes the Debian packages, and tests what users hold

# shellcheck source=tools/dev-windows.sh disable=SC2153
. "$ROOT/tools/dev-windows.sh"

readonly PACKAGES_PACKAGE=(dpkg-dev file lintian mmdebstrap curl python3)
# What the clean root starts from: a compiler, and nothing of the library or its dependencies.
readonly PACKAGES_ROOT=(g++ cmake ninja-build pkg-config curl)

# Makes the archive of a Debian root from where this machine takes its packages, unless an earlier run has, and prints
# its name.
package_clean_root() {
    local archive="$ROOT/build/package-root.tar" sources=() file list suite
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list /etc/apt/sources.list.d/*.sources; do
        if [[ -s "$file" ]]; then
            sources+=("$file")
        fi
    done
    if [[ ! -f "$archive" ]]; then
        echo "package: making a clean Debian root" >&2
        list="${PACKAGES_ROOT[*]}"
        suite="$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)"
        as_root mmdebstrap --quiet --variant=apt --include="${list// /,}" "$suite" "$archive.new.tar" "${sources[@]}" >&2
        as_root chown "$(id -u)" "$archive.new.tar"
        mv "$archive.new.tar" "$archive"
    fi
    echo "$archive"
}

command_package() {
    local build="$ROOT/build/package" clean_root status=0
    need "${PACKAGES_BUILD[@]}" "${PACKAGES_WINDOWS[@]}" "${PACKAGES_PACKAGE[@]}"

    build_package
    "$ROOT/dev" docs
    rm -rf "$build/packages"
    (cd "$build" && cpack >"$build/cpack.log") || {
        cat "$build/cpack.log" >&2
        die "the packages could not be made"
    }
    build package-static
    windows_environment "$ROOT/build/package-windows"
    build package-windows
    windows_prepare_wine

    clean_root="$(package_clean_root)"
    cmake -S "$ROOT/tests/package" -B "$ROOT/build/package-tests" -G Ninja -D "VIREO_SHARED_BUILD=$build" \
        -D "VIREO_STATIC_BUILD=$build-static" -D "VIREO_WINDOWS_BUILD=$build-windows" -D "VIREO_CLEAN_ROOT=$clean_root" \
        -D "CMAKE_CXX_COMPILER_LAUNCHER=$(command -v ccache || true)" >/dev/null
    ctest --test-dir "$ROOT/build/package-tests" --output-on-failure "$@" || status=$?
    windows_wine_server -k || true
    ls -l "$build"/packages/*.deb
    return "$status"
}
