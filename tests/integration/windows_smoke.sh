#!/usr/bin/env bash
# Runs the demo for Windows under Wine and drives it from this side: curl, and a WebSocket by hand.
# usage: windows_smoke.sh RUNNER DEMO [OPTION...] (the program that runs Windows programs, the demo, and its options)
set -euo pipefail

readonly RUNNER="$1" DEMO="$2"
readonly OPTIONS=("${@:3}")
readonly UPLOAD_BYTES=67108864 DOWNLOAD_BYTES=67108864 ECHO_BYTES=16777216

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

# Those being served are the slow one and the one that asks.
slow_request_has_arrived() {
    (($(ask "$(url /stats)" | sed -n 's/.*"requestsActive": \([0-9]*\).*/\1/p') >= 2))
}

# Reads from the WebSocket on descriptor 3.
receive_bytes() {
    timeout 60 head -c "$1" <&3
}

start_server "$RUNNER" "$DEMO" --port "{port}" --workers 2 "${OPTIONS[@]}"

expect "GET /hello" "hello world" "$(ask "$(url /hello)")"
expect "an unknown path" 404 "$(ask --output /dev/null --write-out '%{http_code}' "$(url /nowhere)")"

head -c "$UPLOAD_BYTES" /dev/urandom >"$work/sent"
head -c "$ECHO_BYTES" "$work/sent" >"$work/small"

ask --data-binary "@$work/sent" "$(url /upload)" >"$work/answer"
expect "upload: size" "$UPLOAD_BYTES" "$(sed -n 's/.*"size": \([0-9]*\).*/\1/p' "$work/answer")"
expect "upload: SHA-256 from Windows' own provider" "$(sha256sum "$work/sent" | cut -d ' ' -f 1)" \
    "$(sed -n 's/.*"sha256": "\([0-9a-f]*\)".*/\1/p' "$work/answer")"

ask --output "$work/received" "$(url "/download?bytes=$DOWNLOAD_BYTES")"
expect "download: size" "$DOWNLOAD_BYTES" "$(stat --format=%s "$work/received")"
expect "download: bytes 251 to 255 are 0 to 4" "0001020304" \
    "$(od -An -tx1 -j 251 -N 5 "$work/received" | tr -d ' \n')"

ask --data-binary "@$work/small" --output "$work/received" "$(url /echo)"
cmp "$work/small" "$work/received" || fail "echo"
echo "ok: echo of $ECHO_BYTES bytes"
ask --header 'Transfer-Encoding: chunked' --data-binary "@$work/small" --output "$work/received" "$(url /echo)"
cmp "$work/small" "$work/received" || fail "echo of a chunked upload"
echo "ok: echo of a chunked upload"

# ---- Events, to more listeners than workers ----

for i in 1 2 3; do
    curl --silent --no-buffer --max-time 120 --output "$work/events.$i" "$(url /events)" &
    clients+=($!)
done
all_hold() {
    local i
    for i in 1 2 3; do
        grep -qs "^$1" "$work/events.$i" || return
    done
}
within 60 all_hold ": this stream is open" || fail "the listeners"
expect "an event goes to all" '{"streams":3}' "$(ask --data-binary "an event" "$(url /events)")"
within 60 all_hold "data: an event" || fail "the events"
echo "ok: 3 listeners"

# ---- A WebSocket ----

exec 3<>"/dev/tcp/127.0.0.1/$port"
printf 'GET /ws HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: Upgrade\r\nUpgrade: WebSocket\r\n' >&3
printf 'Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n' >&3
accept=""
status=""
while IFS= read -r -t 60 -u 3 line && [[ "$line" != $'\r' ]]; do
    line="${line%$'\r'}"
    case "${line,,}" in
    http/*) status="${line#* }" ;;
    sec-websocket-accept:*) accept="${line#*: }" ;;
    esac
done
expect "WebSocket: status" 101 "${status%% *}"
expect "WebSocket: accept value" "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=" "$accept"
# A text frame of 5 bytes, masked with 01 02 03 04.
printf '\x81\x85\x01\x02\x03\x04\x69\x67\x6f\x68\x6e' >&3
expect "WebSocket: echo" "$(printf '\x81\x05hello' | od -An -tx1)" "$(receive_bytes 7 | od -An -tx1)"

# ---- The end, with the WebSocket open and a request being served ----

ask "$(url '/slow?ms=10000')" >/dev/null 2>&1 &
slow_pid=$!
within 60 slow_request_has_arrived || fail "the slow request does not arrive"
stop_server INT # Wine makes a Ctrl-C of it
grep -q '^Vireo demo: stopping' "$work/server.log" || fail "the demo was not stopped, but ended"
wait "$slow_pid" || true
for client in "${clients[@]}"; do
    wait "$client" || fail "a stream was cut off"
done
clients=()
echo "ok: the streams ended"
