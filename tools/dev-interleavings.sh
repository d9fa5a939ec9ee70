# shellcheck shell=bash
# interleavings [--times N] -- runs threads in N times as many orders as the tests do (10), and puts known bugs back in

command_interleavings() {
    local times=10
    if [ "${1-}" = "--times" ]; then
        [[ "${2-}" =~ ^[1-9][0-9]*$ ]] || die "--times wants a number"
        times="$2"
        shift 2
    fi
    [ $# = 0 ] || die "interleavings takes no '$1'"
    need "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}" python3
    build test interleaving_tests
    VIREO_INTERLEAVINGS="$times" "$ROOT/build/test/tests/interleaving/interleaving_tests" --gtest_brief=1
    PYTHONDONTWRITEBYTECODE=1 python3 "$ROOT/tests/interleaving/known_bugs.py" --root "$ROOT" --build "$ROOT/build/test"
}
