# shellcheck shell=bash
# test [--compiler clang] [--engine VERSION] [CTEST-ARGUMENT...] -- builds with warnings as errors and runs the test suite

command_test() {
    local preset=test
    if [[ "${1:-}" == --compiler ]]; then
        [[ "${2:?--compiler takes a name}" == clang ]] || die "the suite is built by g++ or, with --compiler, by clang"
        preset=test-clang
        need "${PACKAGES_CLANG[@]}"
        shift 2
    fi
    choose_engine "$@"
    # That each test needs no other is shown with the installed engine; to start a process for each takes half the time.
    if ((${#ENGINE_OPTIONS[@]} > 0)); then
        ENGINE_OPTIONS+=(-D VIREO_TEST_PROGRAMS_WHOLE=ON)
    fi
    need "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}"
    build "$preset"
    ctest --preset "$preset" "${ARGUMENTS[@]}"
}
