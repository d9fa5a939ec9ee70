# shellcheck shell=bash
# What the tests share that run a server as a program and drive it with clients of their own. Sourced; expects that the
# program prints "http://127.0.0.1:PORT/", or "https:", once it serves, and ends after a signal.

# For files of the test; removed at the end.
work="$(mktemp -d)"
server_pid=""
port=""
# Processes to end with the test.
clients=()

end_of_test() {
    local pid
    for pid in "${clients[@]}" $server_pid; do
        kill -KILL "$pid" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap end_of_test EXIT

fail() {
    echo "FAILED: $*" >&2
    if [[ -f "$work/server.log" ]]; then
        echo "--- the server's output:" >&2
        cat "$work/server.log" >&2
    fi
    exit 1
}

expect() {
    local what="$1" expected="$2" actual="$3"
    if [[ "$actual" != "$expected" ]]; then
        printf -- '--- expected\n%s\n--- actual\n%s\n' "$expected" "$actual" >&2
        fail "$what"
    fi
    echo "ok: $what"
}

# within SECONDS COMMAND...: until the command succeeds.
within() {
    local deadline=$((SECONDS + $1))
    shift
    until "$@"; do
        ((SECONDS < deadline)) || return 1
        sleep 0.05
    done
}

now_ms() {
    date +%s%3N
}

url() {
    echo "http://127.0.0.1:$port$1"
}

ask() {
    curl --silent --show-error --max-time 120 "$@"
}

status_of() {
    ask --output /dev/null --write-out '%{http_code}' "$@"
}

server_is_running() {
    kill -0 "$server_pid" 2>/dev/null
}

server_is_gone() {
    ! server_is_running
}

server_is_up_or_gone() {
    grep -Eq "https?://127.0.0.1:$port/" "$work/server.log" || server_is_gone
}

# start_server COMMAND...: on a port that is free; a word "{port}" of the command stands for it.
start_server() {
    local attempt command
    for attempt in 1 2 3 4 5; do
        port=$((20000 + RANDOM % 10000))
        command=("${@/#\{port\}/$port}")
        "${command[@]}" >"$work/server.log" 2>&1 </dev/null &
        server_pid=$!
        within 60 server_is_up_or_gone || fail "the server does not start"
        if server_is_running; then
            return
        fi
        echo "port $port is taken (attempt $attempt)"
    done
    fail "the server does not start"
}

# await_end WHEN: the server has been told to end, and does with success.
await_end() {
    local status=0
    within 60 server_is_gone || fail "the server does not stop"
    wait "$server_pid" || status=$?
    server_pid=""
    expect "exit status after $1" 0 "$status"
}

# stop_server SIGNAL: the server ends with success. Sets stop_ms, the time it took.
stop_server() {
    local begin
    begin="$(now_ms)"
    kill "-$1" "$server_pid"
    await_end "SIG$1"
    stop_ms=$(($(now_ms) - begin))
    echo "ok: stopped after $stop_ms ms"
}
