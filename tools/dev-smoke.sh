# shellcheck shell=bash
# smoke -- starts ./dev demo as a newcomer would, asks it for a page and stops it

command_smoke() {
    local port=28181 log="$ROOT/build/smoke.log" pid status=0
    need curl
    "$ROOT/dev" help >/dev/null
    mkdir -p "$ROOT/build"
    # Job control, so that the demo gets an interrupt as from a terminal: without it a background job ignores them.
    set -m
    "$ROOT/dev" demo --port "$port" >"$log" 2>&1 </dev/null &
    pid=$!
    set +m
    # The command configures and builds first, which takes minutes on a fresh machine.
    until curl --silent --fail --max-time 5 "http://127.0.0.1:$port/hello"; do
        if ! kill -0 "$pid" 2>/dev/null; then
            cat "$log" >&2
            die "./dev demo ended before it answered"
        fi
        sleep 0.2
    done
    kill -INT -- "-$pid"
    wait "$pid" || status=$?
    cat "$log"
    ((status == 0)) || die "./dev demo ended with $status after an interrupt"
    echo "dev: the demo answered and stopped"
}
