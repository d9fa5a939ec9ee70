# shellcheck shell=bash
# clean -- removes what the other commands built

command_clean() {
    rm -rf "$ROOT/build"
}
