# shellcheck shell=bash
# test [CTEST-ARGUMENT...] -- builds with warnings as errors and runs the test suite

command_test() {
    need "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}"
    build test
    ctest --preset test "$@"
}
