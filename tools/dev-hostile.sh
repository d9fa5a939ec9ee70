# shellcheck shell=bash
# hostile [--connections N] [--seconds N] [--defined] -- attacks the demo with slow clients, and asks it meanwhile

readonly PACKAGES_HOSTILE=(curl slowhttptest)
readonly HOSTILE_PORT=28191 HOSTILE_KINDS=(headers body read)

# Asks for a path five times a second until the file is gone; writes status and seconds of each answer.
hostile_ask() {
    local path="$1" going="$2"
    while [[ -e "$going" ]]; do
        curl --silent --output /dev/null --max-time 90 --write-out '%{http_code} %{time_total}\n' \
            "http://127.0.0.1:$HOSTILE_PORT$path" || true
        sleep 0.2
    done
}

# Prints how many of the answers were good and how long the slowest took.
hostile_answers() {
    awk '$1 == 200 { ++good; if ($2 > slowest) slowest = $2 }
        END { printf "%d of %d answered, the slowest after %.3f s", good, NR, slowest }' "$1"
}

hostile_attack() {
    local kind="$1" connections="$2" seconds="$3" options=()
    case "$kind" in
    headers) options=(-H -u "http://127.0.0.1:$HOSTILE_PORT/hello") ;;
    body) options=(-B -s 100000 -u "http://127.0.0.1:$HOSTILE_PORT/upload") ;;
    read) options=(-X -w 512 -y 1024 -n 5 -z 32 -u "http://127.0.0.1:$HOSTILE_PORT/download?bytes=1000000") ;;
    esac
    slowhttptest "${options[@]}" -c "$connections" -r "$connections" -i 5 -l "$seconds" -p 5 -v 1
}

# Nobody must be lost: each of the healthy clients gets its answer. Not soon from a worker, with slow bodies and slow
# readers: they take all of them for as long. With --defined each request that waits for one is polled in turn, too
# (docs/hostile-clients.md).
command_hostile() {
    local connections=1000 seconds=20 kind logs="$ROOT/build/hostile" going asking demo path failed=0 options=()
    while (($# > 0)); do
        case "$1" in
        --connections)
            connections="$2"
            shift
            ;;
        --seconds)
            seconds="$2"
            shift
            ;;
        --defined) options+=("$1") ;;
        *) die "hostile takes --connections, --seconds and --defined, not '$1'" ;;
        esac
        shift
    done
    need "${PACKAGES_BUILD[@]}" "${PACKAGES_HOSTILE[@]}"
    build release vireo-demo
    mkdir -p "$logs"
    ulimit -n "$(ulimit -H -n)"
    "$ROOT/build/release/demo/vireo-demo" --port "$HOSTILE_PORT" "${options[@]}" \
        >"$logs/server.log" 2>&1 </dev/null &
    demo=$!
    # shellcheck disable=SC2064  # the process is known now
    trap "kill $demo 2>/dev/null || true" EXIT
    until curl --silent --fail --output /dev/null "http://127.0.0.1:$HOSTILE_PORT/inline"; do
        kill -0 "$demo" 2>/dev/null || die "the demo does not start, see $logs/server.log"
        sleep 0.1
    done
    for kind in "${HOSTILE_KINDS[@]}"; do
        going="$(mktemp)"
        asking=()
        for path in inline hello; do
            hostile_ask "/$path" "$going" >"$logs/$kind-$path.log" &
            asking+=($!)
        done
        hostile_attack "$kind" "$connections" "$seconds" >"$logs/$kind.log" 2>&1 || true
        rm -f "$going"
        wait "${asking[@]}"
        for path in inline hello; do
            echo "hostile: $connections slow $kind, /$path: $(hostile_answers "$logs/$kind-$path.log")"
            if grep -qv '^200 ' "$logs/$kind-$path.log"; then
                failed=1
            fi
        done
    done
    # Its clients gone, the server is as it was.
    for _ in {1..100}; do
        curl --silent "http://127.0.0.1:$HOSTILE_PORT/stats" >"$logs/stats.json" || true
        if grep -q '"requestsActive": 1,' "$logs/stats.json"; then
            break
        fi
        sleep 0.1
    done
    grep -q '"requestsActive": 1,' "$logs/stats.json" || die "requests of clients that are gone stay: $(<"$logs/stats.json")"
    kill -TERM "$demo"
    wait "$demo" || die "the demo did not end well"
    ((failed == 0)) || die "a healthy client was not answered"
    echo "hostile: the server stood it, and holds nothing of it"
}
