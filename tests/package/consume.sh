#!/usr/bin/env bash
# Builds the consumer against the library, lets it answer one request, and stops it.
# usage: consume.sh find_package|pkg-config PREFIX BUILD [CMAKE-ARGUMENT...]
#        consume.sh add_subdirectory|FetchContent SOURCE-TREE BUILD [CMAKE-ARGUMENT...]
# VIREO_RUNNER is a program that runs the consumer, where the system itself doesn't.
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

readonly WAY="$1" WHERE="$2" BUILD="$3"
shift 3
source="$(cd "$(dirname "${BASH_SOURCE[0]}")/consumer" && pwd)"
version="$(sed -nE 's/^ +VERSION ([0-9.]+)$/\1/p' "$source/../../../CMakeLists.txt")"

build_with_cmake() {
    cmake -S "$source" -B "$BUILD" -G Ninja -D CMAKE_BUILD_TYPE=Release -D "VIREO_WAY=$WAY" "$@"
    cmake --build "$BUILD"
}

# As a makefile would.
build_with_pkg_config() {
    local flags directory
    directory="$(dirname "$(find "$WHERE" -name vireo.pc)")"
    export PKG_CONFIG_PATH="$directory"
    pkg-config --print-errors --exact-version="$version" vireo
    mkdir "$BUILD"
    read -r -a flags <<<"$(pkg-config --cflags --libs vireo)"
    echo "flags: ${flags[*]}"
    g++ -std=c++20 -o "$BUILD/consumer" "$source/main.cpp" "${flags[@]}" -Wl,-rpath,"$directory/.."
}

rm -rf "$BUILD"
case "$WAY" in
find_package) build_with_cmake -D "CMAKE_PREFIX_PATH=$WHERE" "$@" ;;
add_subdirectory | FetchContent) build_with_cmake -D "VIREO_SOURCE=$WHERE" "$@" ;;
pkg-config) build_with_pkg_config ;;
*) fail "there is no way '$WAY'" ;;
esac

program="$BUILD/consumer"
if [[ -f "$program.exe" ]]; then
    program+=.exe
fi
start_server ${VIREO_RUNNER:+"$VIREO_RUNNER"} "$program" "{port}"
expect "the answer is the library's version" "$version" "$(ask "$(url /)")"
stop_server INT
