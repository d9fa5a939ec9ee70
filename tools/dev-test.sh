# shellcheck shell=bash
# test [--engine VERSION] [CTEST-ARGUMENT...] -- builds with warnings as errors and runs the test suite

command_test() {
    choose_engine "$@"
    need "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}"
    build test
    ctest --preset test "${ARGUMENTS[@]}"
}
