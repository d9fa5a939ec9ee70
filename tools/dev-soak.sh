# shellcheck shell=bash
# soak [--engine VERSION] [--minutes N] [OPTION...] -- keeps the demo under mixed load and watches what it holds

# Options go to the load generator; --help explains them. It shares its look into processes with the benchmark, and its
# WebSockets with their conformance cases.
command_soak() {
    choose_engine "$@"
    need "${PACKAGES_BUILD[@]}" python3
    build release vireo-demo
    exec env PYTHONDONTWRITEBYTECODE=1 PYTHONPATH="$ROOT/bench/runner:$ROOT/tests/websocket_conformance" \
        python3 "$ROOT/tests/soak/main.py" \
        --demo "$ROOT/build/release${VIREO_BUILD_SUFFIX-}/demo/vireo-demo" --output "$ROOT/build/soak" "${ARGUMENTS[@]}"
}
