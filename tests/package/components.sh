#!/usr/bin/env bash
# Which components find_package() finds, and what it says of others. usage: components.sh PREFIX BUILD
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

readonly PREFIX="$1" BUILD="$2"

# Configures a project that finds Vireo with these words behind it, and says what it has found.
find_vireo() {
    rm -rf "$BUILD"
    mkdir -p "$BUILD"
    cat >"$BUILD/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.25)
project(finder LANGUAGES CXX)
find_package(Vireo 3.0 CONFIG $1)
get_property(TARGETS DIRECTORY PROPERTY IMPORTED_TARGETS)
list(FILTER TARGETS INCLUDE REGEX "^Vireo::(vireo|app)$")
list(SORT TARGETS)
message(STATUS "found: \${Vireo_FOUND} \${TARGETS}")
END
    cmake -S "$BUILD" -B "$BUILD/build" -D "CMAKE_PREFIX_PATH=$PREFIX" 2>&1 | tr -s ' \n' ' ' || true
}

expect_found() {
    [[ "$(find_vireo "$1")" == *"found: $2"* ]] || fail "find_package(... $1) is not: $2"
}

expect_found "REQUIRED" "1 Vireo::app;Vireo::vireo"
expect_found "REQUIRED COMPONENTS core" "1 "
expect_found "REQUIRED COMPONENTS core app" "1 Vireo::app;Vireo::vireo"
expect_found "REQUIRED COMPONENTS core OPTIONAL_COMPONENTS tea" "1 "
expect_found "COMPONENTS tea" "0 "
[[ "$(find_vireo "REQUIRED COMPONENTS tea")" == *"there is no 'tea' here"* ]] || fail "a wrong component has no message"
