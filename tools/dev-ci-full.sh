# shellcheck shell=bash
# ci-full -- runs every check of ci, and the packages: for each night, and before a release

# shellcheck source=tools/dev-ci.sh disable=SC2153
. "$ROOT/tools/dev-ci.sh"

command_ci-full() {
    ci_run "${CI_STEPS[@]}" package
}
