#!/usr/bin/env bash
# Which components find_package() finds, and what it says of others. usage: components.sh PREFIX BUILD
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

readonly PREFIX="$1" BUILD="$2"

# Configures a project that finds Vireo with these words behind it, and says what it has found: whether Vireo, which of
# the components core, app and tea, and which of the libraries.
find_vireo() {
    rm -rf "$BUILD/project"
    mkdir -p "$BUILD/project"
    cat >"$BUILD/project/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.25)
project(finder LANGUAGES CXX)
find_package(Vireo 3.0 CONFIG $1)
foreach(NAME IN ITEMS Vireo Vireo_core Vireo_app Vireo_tea)
    if(\${NAME}_FOUND)
        string(APPEND FOUND " \${NAME}")
    endif()
endforeach()
foreach(NAME IN ITEMS Vireo::vireo Vireo::app)
    if(TARGET \${NAME})
        string(APPEND FOUND " \${NAME}")
    endif()
endforeach()
message(STATUS "found:\${FOUND}.")
END
    cmake -S "$BUILD/project" -B "$BUILD/project/build" -D "CMAKE_PREFIX_PATH=$prefix" 2>&1 | tr -s ' \n' ' ' || true
}

expect_found() {
    [[ "$(find_vireo "$1")" == *"found:$2."* ]] || fail "find_package(... $1) in $prefix is not: $2"
}

expect_message() {
    [[ "$(find_vireo "$1")" == *"there is no '$2' here"* ]] || fail "find_package(... $1) in $prefix has no message of '$2'"
}

readonly ALL=" Vireo Vireo_core Vireo_app Vireo::vireo Vireo::app" CORE=" Vireo Vireo_core Vireo::vireo"

prefix="$PREFIX"
expect_found "REQUIRED" "$ALL"
expect_found "REQUIRED COMPONENTS core" "$ALL"
expect_found "REQUIRED COMPONENTS core app" "$ALL"
expect_found "REQUIRED COMPONENTS core OPTIONAL_COMPONENTS tea" "$ALL"
expect_found "COMPONENTS tea" " Vireo_core Vireo_app Vireo::vireo Vireo::app"
expect_message "REQUIRED COMPONENTS tea" tea

# The core alone, as its packages have it.
prefix="$BUILD/core"
rm -rf "$prefix"
mkdir -p "$BUILD"
cp -a "$PREFIX" "$prefix"
find "$prefix" ! -type d \( -name 'VireoAppTargets*.cmake' -o -name 'libvireo-app*' \) -delete
expect_found "REQUIRED" "$CORE"
expect_found "REQUIRED COMPONENTS core OPTIONAL_COMPONENTS app" "$CORE"
expect_found "COMPONENTS core app" " Vireo_core Vireo::vireo"
expect_message "REQUIRED COMPONENTS app" app
