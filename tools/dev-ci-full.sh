# shellcheck shell=bash
# ci-full -- runs every check of ci, and those that take longer: for each night, and before a release

# shellcheck source=tools/dev-ci.sh disable=SC2153
. "$ROOT/tools/dev-ci.sh"

# What has a build of its own, or more than one. Together with the others it is more than a change should wait for.
readonly CI_FULL_STEPS=(
    "test --compiler clang"
    "debian13"
    "coverage"
    "mutate --count 8 --jobs 1"
    "interleavings"
    "soak --minutes 1 --tls"
    "soak --minutes 1 --engine 1.0"
    "hostile --seconds 5"
    "badnet --seconds 15"
    "fuzz --event --strict form-road http-road session-road websocket-road"
    "bench --build-only"
    "bench --event --quick"
    "bench --hello --rounds 3"
    "package"
)

command_ci-full() {
    ci_run "${CI_STEPS[@]}" "${CI_FULL_STEPS[@]}"
}
