# shellcheck shell=bash
# demo [OPTION...] -- builds the demo (Release) and runs it until Ctrl-C

command_demo() {
    need "${PACKAGES_BUILD[@]}"
    build release vireo-demo
    exec "$ROOT/build/release/demo/vireo-demo" "$@"
}
