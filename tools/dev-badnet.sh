# shellcheck shell=bash
# badnet [--seconds N] [--seed N] [OPTION...] -- drives the demo through a bad network, and verifies each exchange

# Options go to the clients; --help explains them. They share the look into processes with the benchmark and the long run,
# and their WebSockets with the conformance cases.
command_badnet() {
    need "${PACKAGES_BUILD[@]}" python3
    build release vireo-demo
    exec env PYTHONDONTWRITEBYTECODE=1 \
        PYTHONPATH="$ROOT/bench/runner:$ROOT/tests/soak:$ROOT/tests/websocket_conformance" \
        python3 "$ROOT/tests/badnet/main.py" \
        --demo "$ROOT/build/release/demo/vireo-demo" --output "$ROOT/build/badnet" "$@"
}
