# shellcheck shell=bash
# soak [--minutes N] [OPTION...] -- keeps the demo under mixed load and watches what it holds

# Options go to the load generator; --help explains them. It shares its look into processes with the benchmark, and its
# WebSockets with their conformance cases.
command_soak() {
    need "${PACKAGES_BUILD[@]}" python3
    build release vireo-demo
    exec env PYTHONDONTWRITEBYTECODE=1 PYTHONPATH="$ROOT/bench/runner:$ROOT/tests/websocket_conformance" \
        python3 "$ROOT/tests/soak/main.py" \
        --demo "$ROOT/build/release/demo/vireo-demo" --output "$ROOT/build/soak" "$@"
}
