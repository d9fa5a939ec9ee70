#!/usr/bin/env bash
# Builds a consumer of the core or of the toolkit, lets it answer, and stops it.
# usage: consume.sh core|app find_package|pkg-config PREFIX BUILD [CMAKE-ARGUMENT...]
#        consume.sh core|app add_subdirectory|FetchContent SOURCE-TREE BUILD [CMAKE-ARGUMENT...]
# VIREO_RUNNER is a program that runs the consumer, where the system itself doesn't.
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

readonly LIBRARY="$1" WAY="$2" WHERE="$3" BUILD="$4"
shift 4
case "$LIBRARY" in
core) consumer=consumer main=main.cpp components=core package=vireo ;;
app) consumer=consumer-app main=app.cpp components="core;app" package=vireo-app ;;
*) fail "there is no library '$LIBRARY'" ;;
esac
source="$(cd "$(dirname "${BASH_SOURCE[0]}")/consumer" && pwd)"
version="$(sed -nE 's/^ +VERSION ([0-9.]+)$/\1/p' "$source/../../../CMakeLists.txt")"

build_with_cmake() {
    cmake -S "$source" -B "$BUILD" -G Ninja -D CMAKE_BUILD_TYPE=Release -D "VIREO_WAY=$WAY" \
        -D "VIREO_COMPONENTS=$components" "$@"
    cmake --build "$BUILD" --target "$consumer"
}

# As a makefile would.
build_with_pkg_config() {
    local flags directory
    directory="$(dirname "$(find "$WHERE" -name "$package.pc")")"
    export PKG_CONFIG_PATH="$directory"
    pkg-config --print-errors --exact-version="$version" "$package"
    mkdir "$BUILD"
    read -r -a flags <<<"$(pkg-config --cflags --libs "$package")"
    echo "flags: ${flags[*]}"
    g++ -std=c++20 -Wall -Wextra -Werror -o "$BUILD/$consumer" "$source/$main" "${flags[@]}" \
        -Wl,-rpath,"$directory/.."
}

rm -rf "$BUILD"
case "$WAY" in
find_package) build_with_cmake -D "CMAKE_PREFIX_PATH=$WHERE" "$@" ;;
add_subdirectory | FetchContent) build_with_cmake -D "VIREO_SOURCE=$WHERE" "$@" ;;
pkg-config) build_with_pkg_config ;;
*) fail "there is no way '$WAY'" ;;
esac

program="$BUILD/$consumer"
if [[ -f "$program.exe" ]]; then
    program+=.exe
fi
start_server ${VIREO_RUNNER:+"$VIREO_RUNNER"} "$program" "{port}"
expect "the answer is the library's version" "$version" "$(ask "$(url /)")"
if [[ "$LIBRARY" == app ]]; then
    expect "an error is what was thrown" $'no coffee\n418' "$(ask --write-out '%{http_code}' "$(url /error)")"
fi
stop_server INT
