# shellcheck shell=bash
# hostile [--count N] [--seconds N] [OPTION...] -- attacks servers with hostile clients of each kind, and asks them meanwhile

# Options go to the driver; --help explains them. Each healthy client has to get its answer, the memory to stay below a
# stated sum, and everything to be given back. Not soon from a worker, with slow bodies and slow readers: they take all of
# them for as long (docs/hostile-clients.md).
command_hostile() {
    need "${PACKAGES_BUILD[@]}" python3
    build release vireo-demo vireo-static-files
    exec env PYTHONDONTWRITEBYTECODE=1 PYTHONPATH="$ROOT/bench/runner:$ROOT/tests/websocket_conformance" \
        python3 "$ROOT/tests/hostile/main.py" --demo "$ROOT/build/release/demo/vireo-demo" \
        --files "$ROOT/build/release/examples/vireo-static-files" --output "$ROOT/build/hostile" "$@"
}
