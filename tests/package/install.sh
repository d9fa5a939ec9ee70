#!/usr/bin/env bash
# Installs a build by its components, looks at what each of them holds, and moves the result to its place: an installed
# tree has to work wherever it stands. usage: install.sh shared|static|windows BUILD PREFIX
set -euo pipefail

readonly KIND="$1" BUILD="$2" PREFIX="$3"

first="$(mktemp -d)"
trap 'rm -rf "$first"' EXIT

# files_of COMPONENT: the files that the component adds, headers and documents counted and not named.
files_of() {
    local component="$1"
    cmake --install "$BUILD" --prefix "$first/$component" --component "$component" >"$first/$component.log"
    (cd "$first/$component" && find . -type f -o -type l) | sed -E 's|^\./||; s|^lib/[a-z0-9_]+-linux-gnu/|lib/|' |
        sed -E '/^include.vireo.app/!s|^include/vireo/.*\.h$|include/vireo/*.h|
                s|^include/vireo/app/.*\.h$|include/vireo/app/*.h|; s|^share/doc/.*|share/doc/*|; s|Targets-[a-z]+\.|Targets-*.|' | sort -u
}

expect_files() {
    local component="$1"
    shift
    diff <(printf '%s\n' "$@" | sort) <(files_of "$component") || {
        echo "FAILED: the component $component" >&2
        exit 1
    }
}

version="$(sed -n 's/^Version: //p' "$BUILD/vireo.pc")"
development=("include/vireo/*.h" lib/pkgconfig/vireo.pc
    lib/cmake/Vireo/VireoConfig.cmake lib/cmake/Vireo/VireoConfigVersion.cmake
    lib/cmake/Vireo/VireoTargets.cmake "lib/cmake/Vireo/VireoTargets-*.cmake")
app_development=(include/vireo/app.h "include/vireo/app/*.h" lib/pkgconfig/vireo-app.pc
    lib/cmake/Vireo/VireoAppTargets.cmake "lib/cmake/Vireo/VireoAppTargets-*.cmake")
case "$KIND" in
shared)
    # The build that packages are made of puts the texts that Debian wants into every component.
    development+=("share/doc/*")
    app_development+=("share/doc/*")
    expect_files runtime "share/doc/*" "lib/libvireo.so.${version%%.*}" "lib/libvireo.so.$version"
    expect_files development "${development[@]}" lib/libvireo.so
    expect_files app-runtime "share/doc/*" "lib/libvireo-app.so.${version%%.*}" "lib/libvireo-app.so.$version"
    expect_files app-development "${app_development[@]}" lib/libvireo-app.so
    ;;
static)
    expect_files development "${development[@]}" lib/libvireo.a lib/cmake/Vireo/FindMicrohttpd.cmake
    expect_files app-development "${app_development[@]}" lib/libvireo-app.a lib/cmake/Vireo/FindBrotliEncoder.cmake
    ;;
windows)
    expect_files runtime bin/Vireo.dll
    expect_files development "${development[@]}" lib/libVireo.dll.a
    expect_files app-runtime bin/VireoApp.dll
    expect_files app-development "${app_development[@]}" lib/libVireoApp.dll.a
    ;;
esac
expect_files docs "share/doc/*"

cmake --install "$BUILD" --prefix "$first/all" >"$first/all.log"
rm -rf "$PREFIX"
mkdir -p "$(dirname "$PREFIX")"
mv "$first/all" "$PREFIX"
