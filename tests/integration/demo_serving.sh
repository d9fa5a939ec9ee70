#!/usr/bin/env bash
# What the demo does by waiting for events, driven with curl. usage: demo_serving.sh DEMO
set -euo pipefail

readonly DEMO="$1"
# Fewer than listeners, so that a stream that holds one shows.
readonly WORKERS=2 LISTENERS=8
readonly MIB=1048576

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

# publish TEXT: prints how many streams it went to.
publish() {
    ask --data-binary "$1" "$(url /events)" | tr -dc 0-9
}

# listen FILE: what arrives goes there as it comes. The client ends with the stream.
listen() {
    curl --silent --no-buffer --max-time 120 --output "$1" "$(url /events)" &
    clients+=($!)
}

# holds FILE TEXT
holds() {
    [[ -f "$1" && "$(tr '\n' '|' <"$1")" == *"$2"* ]]
}

# ---- The options ----

for option in "--max-body 1" "--upload-window 65536" "--drain-seconds 1" "--access-log $work/access.log" \
    "--listen 127.0.0.1:0" "--unix $work/socket" --drain-button; do
    # shellcheck disable=SC2086  # two words
    expect "--defined with ${option%% *}" 1 "$("$DEMO" --defined $option >"$work/refusal" 2>&1 && echo 0 || echo 1)"
    grep -q -- "--defined excludes ${option%% *}" "$work/refusal" || fail "the refusal: $(<"$work/refusal")"
done
expect "an upload window below the least" 1 "$("$DEMO" --upload-window 65535 >/dev/null 2>&1 && echo 0 || echo 1)"

# ---- The port ----

port_is_told() {
    port="$(sed -n 's|^Vireo demo: http://127.0.0.1:\([1-9][0-9]*\)/ .*|\1|p' "$work/server.log")"
    [[ -n "$port" ]]
}
# start OPTION...: on a port that the system finds.
start() {
    : >"$work/server.log"
    "$DEMO" --port 0 --workers "$WORKERS" "$@" >"$work/server.log" 2>&1 </dev/null &
    server_pid=$!
    within 60 port_is_told || fail "the demo does not tell its port"
}

for mode in --defined --all-interfaces; do
    start "$mode"
    expect "GET /hello on a port that the system has found, $mode" "hello world" "$(ask "$(url /hello)")"
    expect "a second demo on that port" 1 "$("$DEMO" --port "$port" "$mode" 2>"$work/refusal" >&2 && echo 0 || echo $?)"
    grep -q "could not be started on port $port: another program listens there" "$work/refusal" ||
        fail "the reason: $(<"$work/refusal")"
    stop_server TERM
done

# ---- Listeners ----

told() {
    sed -n 's|^Vireo demo: \(.*\) (Ctrl-C ends it)$|\1|p' "$work/server.log"
}
as_many_are_told() {
    [[ "$(told | wc -l)" == "$1" ]]
}
# start_at COUNT OPTION...: sets addresses, of so many listeners.
start_at() {
    : >"$work/server.log"
    "$DEMO" --workers "$WORKERS" "${@:2}" >"$work/server.log" 2>&1 </dev/null &
    server_pid=$!
    within 60 as_many_are_told "$1" || fail "the demo does not tell its addresses"
    mapfile -t addresses < <(told)
}
has_ipv6() {
    python3 -c 'import socket; socket.socket(socket.AF_INET6).bind(("::1", 0))' 2>/dev/null
}
# without_port URL: only if it has one.
without_port() {
    sed -n 's|:[1-9][0-9]*/$||p' <<<"$1"
}
# refused_start WHY OPTION...: the reason is told, and nobody is served.
refused_start() {
    expect "exit status with ${*:2}" 1 "$("$DEMO" "${@:2}" 2>"$work/refusal" >&2 && echo 0 || echo $?)"
    expect "why" "Vireo demo: the server could not be started: $1" "$(grep '^Vireo demo' "$work/refusal")"
}

start_at 3 --listen 127.0.0.1:0 --unix "$work/socket" --listen 127.0.0.2:0
expect "an address" "http://127.0.0.1" "$(without_port "${addresses[0]}")"
expect "another address" "http://127.0.0.2" "$(without_port "${addresses[1]}")"
expect "the path of a Unix socket" "unix:$work/socket" "${addresses[2]}"
expect "GET /hello there" "hello world" "$(ask "${addresses[0]}hello")"
expect "GET /hello at another address" "hello world" "$(ask "${addresses[1]}hello")"
expect "GET /hello at a Unix socket" "hello world" "$(ask --unix-socket "$work/socket" http://localhost/hello)"
refused_start "Cannot listen @300.1.1.1:80 : no IP address" --listen 300.1.1.1:80
taken="${addresses[1]#http://}"
taken="${taken%/}"
refused_start "Cannot listen @$taken : Address already in use" --unix "$work/other" --listen "$taken"
[[ ! -e "$work/other" ]] || fail "the file of a Unix socket stays"
refused_start "Cannot listen @unix:$work/socket : another socket listens there" --unix "$work/socket"
stop_server TERM
[[ ! -e "$work/socket" ]] || fail "the file of a Unix socket stays"
"$DEMO" --listen 127.0.0.1 >"$work/refusal" 2>&1 && fail "no port, and still it starts"
grep -q "'127.0.0.1' is not ADDRESS:PORT" "$work/refusal" || fail "the refusal: $(<"$work/refusal")"
for option in "--port 0" --all-interfaces; do
    # shellcheck disable=SC2086  # two words
    timeout 20 "$DEMO" --listen 127.0.0.1:0 $option >"$work/refusal" 2>&1 && fail "--listen with $option"
    grep -q -- "${option%% *} excludes --listen" "$work/refusal" || fail "the refusal: $(<"$work/refusal")"
done

if has_ipv6; then
    start_at 2 --listen "[::1]:0" --listen "*:0"
    expect "an IPv6 address" "http://[::1]" "$(without_port "${addresses[0]}")"
    expect "every address" "http://localhost" "$(without_port "${addresses[1]}")"
    expect "GET /hello over IPv6" "hello world" "$(ask "${addresses[0]}hello")"
    for version in --ipv4 --ipv6; do
        expect "GET /hello at every address, $version" "hello world" "$(ask "$version" "${addresses[1]}hello")"
    done
    stop_server TERM
else
    echo "skipped: this machine has no address ::1"
fi

# ---- Health ----

for mode in --defined --all-interfaces; do
    start "$mode"
    expect "GET /healthz, $mode" "ok" "$(ask "$(url /healthz)")"
    stop_server TERM
done

# ---- What is told of exchanges ----

start --defined
expect "no metrics with --defined" 404 "$(status_of "$(url /metrics)")"
stop_server TERM

start --access-log "$work/access.log"
expect "GET /hello" "hello world" "$(ask --user-agent 'a "bird"' --referer there "$(url '/hello?name=vireo')")"
expect "GET /nowhere" 404 "$(status_of --user-agent '' "$(url /nowhere)")"
combined() {
    [[ "$(sed 's/\[[^]]*\]/[TIME]/' "$work/access.log")" == '127.0.0.1 - - [TIME] "GET /hello?name=vireo HTTP/1.1" 200 12 "there" "a \x22bird\x22"
127.0.0.1 - - [TIME] "GET /nowhere HTTP/1.1" 404 22 "-" "-"' ]]
}
within 20 combined || fail "the access log: $(<"$work/access.log")"
echo "ok: the access log"
ask --dump-header "$work/head" "$(url /metrics)" >"$work/metrics"
expect "the type of the metrics" "application/openmetrics-text; version=1.0.0; charset=utf-8" \
    "$(tr -d '\r' <"$work/head" | sed -n 's/^Content-Type: //p')"
expect "their counts" "$(printf '%s\n' 'vireo_exchange_responses_total{class="2xx",code="200"} 1' \
    'vireo_exchange_responses_total{class="4xx",code="404"} 1' 'vireo_demo_event_streams 0' \
    'vireo_demo_websockets_open 0' '# EOF' | sort)" \
    "$(grep -E '^vireo_exchange_responses_total|^vireo_demo_[ew]|EOF' "$work/metrics" | sort)"
stop_server TERM
start --access-log -
expect "GET /hello" "hello world" "$(ask "$(url /hello)")"
within 20 grep -q '"GET /hello HTTP/1.1" 200' "$work/server.log" || fail "no access log on the output"
echo "ok: the access log on the output"
stop_server TERM

start --max-body 1000
expect "POST /upload of as much as may be" '  "size": 1000,' \
    "$(head -c 1000 /dev/zero | ask --data-binary @- "$(url /upload)" | grep size)"
read -r status sent < <(head -c $((64 * MIB)) /dev/zero | ask --output /dev/null \
    --write-out '%{http_code} %{size_upload}\n' --request POST --header 'Transfer-Encoding:' \
    --header "Content-Length: $((64 * MIB))" --upload-file - "$(url /upload)" || true)
expect "POST /upload of more" 413 "$status"
((sent < 4 * MIB)) || fail "$sent bytes were sent"
stop_server TERM

start

# ---- Events ----

for ((i = 0; i < LISTENERS; ++i)); do
    listen "$work/events.$i"
done
for ((i = 0; i < LISTENERS; ++i)); do
    within 20 holds "$work/events.$i" ": this stream is open||" || fail "listener $i"
done
echo "ok: $LISTENERS listeners and $WORKERS workers"
expect "GET /hello beside them" "hello world" "$(ask "$(url /hello)")"
expect "an event goes to all" "$LISTENERS" "$(publish "an event")"
publish $'two lines\r\nof three\rby any\nline end\n' >/dev/null
for ((i = 0; i < LISTENERS; ++i)); do
    within 20 holds "$work/events.$i" "open||data: an event||data: two lines|data: of three|data: by any|data: line end||" ||
        fail "the events of listener $i: $(<"$work/events.$i")"
done
echo "ok: each line is one of data"
expect "their type" text/event-stream "$(ask --head --output /dev/null --write-out '%{content_type}' "$(url /events)")"

# ---- A listener that does not read ----

exec 3<>"/dev/tcp/127.0.0.1/$port"
printf 'GET /events HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n' >&3
all_listen() {
    [[ "$(publish "who listens?")" == $((LISTENERS + 1)) ]]
}
within 20 all_listen || fail "the silent listener is not there"
# More than the system keeps for a socket. One client for all, and one event after the other.
head -c 8000 /dev/zero | tr '\0' x >"$work/event"
for ((i = 0; i < 250; ++i)); do
    printf 'url = "%s"\noutput = /dev/null\n' "$(url /events)"
done >"$work/flood"
silent_one_is_dropped() {
    ask --data-binary "@$work/event" --config "$work/flood"
    [[ "$(publish "who is left?")" == "$LISTENERS" ]]
}
within 60 silent_one_is_dropped || fail "a listener that does not read is kept"
grep -q "the client of an event stream reads too slowly" "$work/server.log" || fail "nothing says why it was dropped"
echo "ok: a listener that does not read is dropped"
exec 3>&-
for ((i = 0; i < LISTENERS; ++i)); do
    within 20 holds "$work/events.$i" "who is left?||" || fail "listener $i was dropped, too"
done
echo "ok: the others go on"

# ---- What is refused before it is sent ----

zeros() {
    head -c $((256 * MIB)) /dev/zero
}
# refused WHAT CURL-ARGUMENT...: with 413, and most of the body was never sent.
refused() {
    local status sent
    read -r status sent < <(zeros | ask --output /dev/null --write-out '%{http_code} %{size_upload}\n' \
        --request POST --header 'Transfer-Encoding:' --header "Content-Length: $((256 * MIB))" --upload-file - "${@:2}" ||
        true)
    expect "$1" 413 "$status"
    ((sent < 4 * MIB)) || fail "$1: $sent bytes were sent"
}
refused "too large an event" "$(url /events)"
refused "too large an event, asked for before" --header 'Expect: 100-continue' "$(url /events)"
zeros() {
    head -c $((256 * MIB + 1)) /dev/zero
}
expect "too large an echo" 413 "$(zeros | ask --output /dev/null --write-out '%{http_code}' --request POST \
    --header 'Transfer-Encoding:' --header "Content-Length: $((256 * MIB + 1))" --upload-file - "$(url /echo)" || true)"

# ---- The end ----

stop_server TERM
# ends_well WHAT: each client.
ends_well() {
    local client
    for client in "${clients[@]}"; do
        wait "$client" || fail "$1: a client was cut off"
    done
    clients=()
    echo "ok: $1"
}
ends_well "the streams ended"

# ---- A drain ----

is_draining() {
    [[ "$(status_of "$(url /healthz)")" == 503 ]]
}
active() {
    (($(ask "$(url /stats)" | sed -n 's/.*"requestsActive": \([0-9]*\).*/\1/p') > $1))
}

start --drain-seconds 10
listen "$work/events"
within 20 holds "$work/events" "open" || fail "the listener"
ask --fail --output "$work/slow" "$(url '/slow?ms=3000')" &
clients+=($!)
within 20 active 2 || fail "the slow request does not arrive"
kill -INT "$server_pid"
within 20 is_draining || fail "the server does not say that it is draining"
echo "ok: 503 while draining"
expect "GET /hello while draining" "hello world, close" \
    "$(ask --include "$(url /hello)" | tr -d '\r' | awk '/^Connection:/ { how = $2 } END { print $0 ", " how }')"
expect "a stream that is opened while draining ends" ": this stream is open" "$(ask "$(url /events)")"
await_end "a drain"
ends_well "what was under way was finished"
[[ "$(<"$work/slow")" =~ ^answered\ after ]] || fail "the slow request: $(<"$work/slow")"
grep -q '^Vireo demo: [1-9][0-9]* finished, 0 cut off$' "$work/server.log" || fail "what the drain has come to"

# drain_status CURL-ARGUMENT...
drain_status() {
    status_of --request POST "$@" "$(url /drain)"
}
start
expect "POST /drain where it is not offered" 404 "$(drain_status --header 'X-Drain: now')"
stop_server TERM
start --drain-seconds 10 --drain-button
expect "POST /drain as a page from elsewhere can send it" 403 "$(drain_status)"
expect "GET /healthz after it" ok "$(ask "$(url /healthz)")"
ask --fail --output "$work/slow" "$(url '/slow?ms=3000')" &
clients+=($!)
within 20 active 1 || fail "the slow request does not arrive"
expect "POST /drain" 202 "$(drain_status --header 'X-Drain: now')"
expect "POST /drain again" 202 "$(drain_status --header 'X-Drain: now')"
await_end "POST /drain"
ends_well "what was under way at POST /drain was finished"

start --drain-seconds 1
curl --silent --output /dev/null "$(url '/slow?ms=60000')" &
clients+=($!)
within 20 active 1 || fail "the slow request does not arrive"
stop_server INT
grep -q '^Vireo demo: [0-9]* finished, 1 cut off$' "$work/server.log" || fail "what the drain has come to"
! wait "${clients[0]}" || fail "the slow request was answered"
clients=()
echo "ok: a drain ends in time"
echo "all passed after $SECONDS s"
