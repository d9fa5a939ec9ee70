#!/usr/bin/env bash
# Configures the tree as several builders do, and looks at what it would compile and link with: the compiler's protections,
# unless the builder has chosen himself, or an unoptimised build or a sanitizer cannot have them; and never in a consumer.
# usage: hardening_flags.sh SOURCE-TREE
set -euo pipefail

readonly SOURCE="$1"
version="$(sed -nE 's/^ +VERSION ([0-9.]+)$/\1/p' "$SOURCE/CMakeLists.txt")"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
status=0

# configure CMAKE-ARGUMENT...
configure() {
    builder="$*"
    rm -rf "$work/build"
    cmake -G Ninja -B "$work/build" "$@" >"$work/log" 2>&1 || {
        cat "$work/log" >&2
        echo "FAILED: cannot configure $builder" >&2
        exit 1
    }
}

configure_library() {
    configure -S "$SOURCE" -D VIREO_BUILD_TESTS=OFF "$@"
}

# expect has|lacks FILES PATTERN...: the commands that make the files of the array of that name.
expect() {
    local expected="$1" file commands pattern found
    local -n made="$2"
    shift 2
    for file in "${made[@]}"; do
        commands="$(ninja -C "$work/build" -t commands -s "$file")"
        for pattern in "$@"; do
            found=lacks
            if grep -qE -e " $pattern" <<<"$commands"; then
                found=has
            fi
            if [[ "$found" != "$expected" ]]; then
                echo "FAILED: $file of '$builder' $found $pattern" >&2
                status=1
            fi
        done
    done
}

# shellcheck disable=SC2034  # expect() is given the names of these
{
    program_code=(examples/CMakeFiles/vireo-hello.dir/hello/main.cpp.o demo/CMakeFiles/vireo-demo.dir/main.cpp.o)
    code=(src/CMakeFiles/vireo_objects.dir/frame/Vireo.cpp.o
        src/app/CMakeFiles/vireo_app_objects.dir/__/frame/HttpSyntax.cpp.o "${program_code[@]}")
    programs=(examples/vireo-hello demo/vireo-demo)
    files=("src/libvireo.so.$version" "src/app/libvireo-app.so.$version" "${programs[@]}")
    consumer_code=(CMakeFiles/consumer-app.dir/app.cpp.o)
    consumer=(consumer-app)
}
readonly COMPILING=(-fstack-protector-strong -fstack-clash-protection -fcf-protection)
readonly LENGTHS=-D_FORTIFY_SOURCE= LINKING=("-Wl,-z,relro" "-Wl,-z,now" "-Wl,-z,noexecstack")

configure_library -D CMAKE_BUILD_TYPE=Release
expect has code "${COMPILING[@]}" "${LENGTHS}[23]"
expect has files "${LINKING[@]}"
expect has program_code -fPIE
expect has programs -pie

configure_library -D CMAKE_BUILD_TYPE=Debug
expect has code "${COMPILING[@]}"
expect lacks code "$LENGTHS"

configure_library -D CMAKE_BUILD_TYPE=RelWithDebInfo -D CMAKE_CXX_FLAGS_RELWITHDEBINFO=-O0
expect lacks code "$LENGTHS"

for choice in VIREO_HARDENING=OFF VIREO_SANITIZE=address; do
    configure_library -D CMAKE_BUILD_TYPE=Release -D "$choice"
    expect lacks code "${COMPILING[@]}" "$LENGTHS"
    expect lacks files "${LINKING[@]}"
done

configure_library -D CMAKE_BUILD_TYPE=None -D CMAKE_SHARED_LINKER_FLAGS=-Wl,-z,lazy -D CMAKE_EXE_LINKER_FLAGS=-Wl,-z,lazy \
    -D "CMAKE_CXX_FLAGS=-O2 -fno-stack-protector -fno-stack-clash-protection -fcf-protection=none -D_FORTIFY_SOURCE=1"
expect lacks code "${COMPILING[@]/%/ }" "${LENGTHS}[23]"
expect lacks files "-Wl,-z,now"

for shared in ON OFF; do
    configure -S "$SOURCE/tests/package/consumer" -D CMAKE_BUILD_TYPE=Release -D VIREO_WAY=add_subdirectory \
        -D "VIREO_SOURCE=$SOURCE" -D VIREO_COMPONENTS=app -D "VIREO_BUILD_SHARED=$shared"
    expect lacks consumer_code "${COMPILING[@]}" "$LENGTHS" -fPI
    expect lacks consumer "${LINKING[@]}" -pie
done
exit "$status"
