#!/usr/bin/env bash
# Runs the demo as a user would and drives every route with curl. usage: demo_curl.sh DEMO small|full [OPTION...]
# With "small" the transfers are short and memory is not judged: for builds with sanitizers. The options are
# the demo's.
set -euo pipefail

readonly DEMO="$1" SIZE="$2"
readonly OPTIONS=("${@:3}")
readonly MIB=1048576
# Fewer workers than requests at a time below, so that one that is not released shows.
readonly WORKERS=2

# A full transfer is several times what the demo may take of memory; the tests of large bodies move gigabytes.
readonly MAX_RESIDENT_KIB=65536
if [[ "$SIZE" == small ]]; then
    readonly ECHO_BYTES=$((16 * MIB)) UPLOAD_BYTES=$((64 * MIB)) DOWNLOAD_BYTES=$((64 * MIB))
else
    readonly ECHO_BYTES=$((128 * MIB)) UPLOAD_BYTES=$((256 * MIB)) DOWNLOAD_BYTES=$((256 * MIB))
fi
# It takes about a second; the clients that it ends would go on for a minute and more.
readonly STOP_MS=20000

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

# With strict HTTP, but for --defined.
is_strict() {
    [[ " ${OPTIONS[*]} " != *" --defined "* ]]
}

stat_value() {
    ask "$(url /stats)" | sed -n "s/.*\"$1\": \([0-9]*\).*/\1/p"
}

# The demo's largest resident size so far.
peak_kib() {
    awk '/^VmHWM:/ { print $2 }' "/proc/$server_pid/status"
}

# start [OPTION...]
start() {
    start_server "$DEMO" --port "{port}" --workers "$WORKERS" "${OPTIONS[@]}" "$@"
}

# stop: in time, whatever the demo is doing.
stop() {
    stop_server TERM
    ((stop_ms <= STOP_MS)) || fail "the stop took $stop_ms ms"
}

# Byte i is i mod 251.
pattern() {
    local bytes="$1" block="$work/pattern" i
    if [[ ! -f "$block" ]]; then
        for ((i = 0; i < 251; ++i)); do
            # shellcheck disable=SC2059  # the escape is the point
            printf "\\x$(printf %02x "$i")"
        done >"$work/period"
        for ((i = 0; i < 4096; ++i)); do
            echo "$work/period"
        done | xargs cat >"$block"
    fi
    # head ends the endless loop.
    { while cat "$block" 2>/dev/null; do :; done || true; } | head -c "$bytes"
}

zeros() {
    head -c "$1" /dev/zero
}

# ---- One after the other ----

start
expect "GET /hello" "hello world" "$(ask "$(url /hello)")"
expect "GET /inline" "hello world" "$(ask "$(url /inline)")"
[[ "$(ask "$(url /)")" == *"<title>Vireo demo</title>"* ]] || fail "GET /"
for file in / /page.css /page.js /icon.svg; do
    tag="$(ask --head "$(url "$file")" | tr -d '\r' | sed -n 's/^ETag: //p')"
    expect "GET $file with its tag" 304 "$(status_of --header "If-None-Match: $tag" "$(url "$file")")"
    expect "GET $file with another tag" 200 "$(status_of --header 'If-None-Match: "another"' "$(url "$file")")"
done

for target in / /hello /inline '/slow?ms=10' '/stream?chunks=3&ms=10' '/download?bytes=10000000' /inspect /stats; do
    expect "HEAD $target" 200 "$(status_of --head "$(url "$target")")"
done
expect "HEAD gives the length of the body" 10000000 \
    "$(ask --head "$(url '/download?bytes=10000000')" | tr -d '\r' | sed -n 's/^Content-Length: //p')"

expect "an unknown path" 404 "$(status_of "$(url /nowhere)")"
expect "a wrong method" 405 "$(status_of --request DELETE "$(url /hello)")"
expect "a wrong method is told the right ones" "GET, HEAD" \
    "$(ask --include --request DELETE "$(url /hello)" | tr -d '\r' | sed -n 's/^Allow: //p')"
for target in '/slow?ms=soon' '/slow?ms=60001' '/slow?ms=-1' '/slow?ms=' '/slow?ms=1&ms=1' '/download?bytes=1x' \
    '/stream?chunks=100001'; do
    expect "a bad argument: $target" 400 "$(status_of "$(url "$target")")"
done
if is_strict; then
    expect "UTF-8 is no parse error" "é" \
        "$(ask "$(url '/inspect?name=%C3%A9')" | sed -n '/"name"/ { n; s/ *"\(.*\)"/\1/p }')"
    bad_query='name=%00' parse_error="query parameter is no UTF-8 text"
else
    bad_query='name=%C3%A9' parse_error="query parameter value contains ASCII forbidden characters"
fi
expect "a parse error" 400 "$(status_of "$(url "/hello?$bad_query")")"
expect "a parse error has the library's message" "$parse_error" "$(ask "$(url "/hello?$bad_query")")"
expect "/inspect shows what a parse error is about" '  "parseErrorKind": "argument of the query",
  "parseErrorField": "name"' "$(ask "$(url "/inspect?$bad_query")" | grep -E '"parseError(Kind|Field)"')"
expect "an upgrade that is none" 426 "$(status_of --header 'Connection: Upgrade' --header 'Upgrade: websocket' "$(url /ws)")"

expect "PATCH /inspect" "$(
    cat <<END
{
  "method": "PATCH",
  "url": "/inspect?b=2&a=%41+%2B&b=3&flag",
  "path": "/inspect",
  "headers": {
    "content-length": [
      "4"
    ],
    "content-type": [
      "text/x-note"
    ],
    "cookie": [
      "bird=vireo; song=long"
    ],
    "host": [
      "example.org"
    ],
    "x-list": [
      "one",
      "\"two, three\"",
      "four"
    ]
  },
  "cookies": {
    "bird": [
      "vireo"
    ],
    "song": [
      "long"
    ]
  },
  "query": {
    "a": [
      "A +"
    ],
    "b": [
      "2",
      "3"
    ],
    "flag": [
      ""
    ]
  },
  "clientAddress": "127.0.0.1",
  "parseError": null
}
END
)" "$(ask --request PATCH --data body --user-agent '' --cookie 'bird=vireo; song=long' --header 'Accept:' \
    --header 'Content-Type: text/x-note' --header 'Host: example.org' --header 'X-List: one, "two, three"' \
    --header 'X-List: four' "$(url '/inspect?b=2&a=%41+%2B&b=3&flag')")"
no_content=(TRACE)
is_strict || no_content+=(CONNECT)
for method in "${no_content[@]}"; do
    expect "$method /inspect" 405 "$(status_of --request "$method" "$(url /inspect)")"
    expect "$method is told the methods of /inspect" "GET, POST, PUT, DELETE, OPTIONS, HEAD, PATCH, QUERY" \
        "$(ask --include --request "$method" "$(url /inspect)" | tr -d '\r' | sed -n 's/^Allow: //p')"
done
if is_strict; then
    for method in CONNECT BREW; do
        expect "$method is refused" 501 "$(status_of --request "$method" "$(url /inspect)")"
    done
    expect "a target that does not begin with a slash" 400 "$(status_of --request-target 80/hello "$(url /)")"
    expect "an absolute target" "hello world" "$(ask --request-target http://example.org/hello "$(url /)")"
else
    expect "/inspect shows a parse error" '  "parseError": "Unexpected HTTP method",
  "parseErrorKind": "method",
  "parseErrorField": ""' "$(ask --request BREW "$(url /inspect)" | grep parseError)"
fi

expect "POST /echo keeps body and type" "text/x-note|to and fro" \
    "$(ask --header 'Content-Type: text/x-note' --data 'to and fro' --write-out '\n%{content_type}\n' "$(url /echo)" |
        { read -r body && read -r type && echo "$type|$body"; })"
expect "POST /echo of nothing" "200 0" \
    "$(ask --request POST --output /dev/null --write-out '%{http_code} %{size_download}' "$(url /echo)")"
expect "POST /echo of chunks" "in chunks" "$(echo "in chunks" | ask --request POST --upload-file - "$(url /echo)")"

ask --dump-header "$work/head" --output "$work/lines" --write-out '%{time_starttransfer} %{time_total}\n' \
    "$(url '/stream?chunks=5&ms=300')" >"$work/times"
expect "GET /stream sends all chunks" 5 "$(grep -c '^chunk [0-9]* of 5 after [0-9]* ms$' "$work/lines")"
expect "GET /stream has no Content-Length" chunked "$(tr -d '\r' <"$work/head" | sed -n 's/^Transfer-Encoding: //p')"
expect "GET /stream sends each chunk when it is written" yes \
    "$(awk '{ print ($2 - $1 > 0.6 ? "yes" : "no, but in these seconds: " $0) }' "$work/times")"
expect "GET /stream of no chunk" "200 0" \
    "$(ask --output /dev/null --write-out '%{http_code} %{size_download}' "$(url '/stream?chunks=0')")"
cmp <(ask "$(url '/download?bytes=1000000')") <(pattern 1000000) || fail "GET /download sends the documented bytes"
echo "ok: GET /download sends the documented bytes"

# ---- Side by side ----

# Many more slow ones than workers, and still there is one for the next.
readonly SLOW=8
for ((i = 0; i < SLOW; ++i)); do
    ask "$(url '/slow?ms=8000')" >"$work/slow.$i" &
    clients+=($!)
done
# Beside the one that asks.
all_slow_under_way() {
    (($(stat_value requestsActive) > SLOW))
}
within 20 all_slow_under_way || fail "the slow requests do not arrive"
expect "GET /hello beside GET /slow" "hello world" "$(ask "$(url /hello)")"
all_slow_under_way || fail "GET /hello waited for GET /slow"
wait "${clients[@]}" || fail "GET /slow"
clients=()
for ((i = 0; i < SLOW; ++i)); do
    [[ "$(<"$work/slow.$i")" =~ ^answered\ after\ ([89]|[1-9][0-9])[0-9]{3}\ ms$ ]] || fail "GET /slow: $(<"$work/slow.$i")"
done
echo "ok: GET /slow"

# ---- Large bodies; the download first, while the demo is small ----

expect "GET /download of $DOWNLOAD_BYTES bytes" "$(pattern "$DOWNLOAD_BYTES" | sha256sum)" \
    "$(ask "$(url "/download?bytes=$DOWNLOAD_BYTES")" | sha256sum)"
peak="$(peak_kib)"
[[ "$SIZE" == small ]] || ((peak < MAX_RESIDENT_KIB)) || fail "the download took $peak KiB of memory"
echo "ok: at most $peak KiB resident so far"

sum="$(zeros "$UPLOAD_BYTES" | sha256sum)"
expect "POST /upload of $UPLOAD_BYTES bytes" "{
  \"size\": $UPLOAD_BYTES,
  \"sha256\": \"${sum%% *}\"
}" "$(zeros "$UPLOAD_BYTES" | ask --request POST --header 'Expect:' --upload-file - "$(url /upload)")"

head -c "$ECHO_BYTES" /dev/urandom >"$work/noise"
expect "POST /echo of $ECHO_BYTES bytes" "$(sha256sum <"$work/noise")" \
    "$(ask --header 'Expect:' --data-binary "@$work/noise" "$(url /echo)" | sha256sum)"
rm "$work/noise"

# ---- Clients that go away ----

abort() {
    ! curl --silent --output /dev/null --max-time 0.5 --limit-rate 1M "$@" || fail "the abort was none: $*"
}
for ((i = 0; i < 2 * WORKERS; ++i)); do
    abort "$(url '/download?bytes=1073741824')"
    abort --request POST --upload-file - "$(url /upload)" < <(zeros $((64 * MIB)))
    abort --request POST --upload-file - "$(url /echo)" < <(zeros $((64 * MIB)))
done
abort "$(url '/stream?chunks=100&ms=100')"
all_aborts_seen() {
    # All but the stream's, which the server notices when it writes the next chunks.
    (($(ask "$(url /stats)" | awk '/"(ClientAbort|ReadError|WriteError)":/ { sum += $2 } END { print sum + 0 }') >= 6 * WORKERS))
}
within 20 all_aborts_seen || fail "abnormal ends: $(ask "$(url /stats)")"
echo "ok: abnormal ends are counted"
expect "the workers are free after the aborts" "hello world" "$(ask "$(url /hello)")"
only_this_request() {
    (($(stat_value requestsActive) == 1))
}
within 20 only_this_request || fail "a request was not collected: $(ask "$(url /stats)")"
echo "ok: every request is collected"

# ---- The end ----

expect "a second demo on the same port" 1 "$("$DEMO" --port "$port" >/dev/null 2>&1 && echo 0 || echo $?)"

# Stopped while requests wait for a worker, workers wait for clients, and a pause is under way.
for target in '/slow?ms=60000' '/stream?chunks=1000&ms=50'; do
    curl --silent --output /dev/null "$(url "$target")" &
    clients+=($!)
done
for ((i = 0; i <= WORKERS; ++i)); do
    curl --silent --output /dev/null --limit-rate 1M "$(url '/download?bytes=1073741824')" &
    clients+=($!)
done
curl --silent --output /dev/null --limit-rate 1M --request POST --upload-file - "$(url /upload)" \
    < <(zeros $((64 * MIB))) &
clients+=($!)
all_clients_there() {
    (($(stat_value requestsActive) >= 4 + WORKERS))
}
within 20 all_clients_there || fail "not all clients are there: $(ask "$(url /stats)")"
stop
wait "${clients[@]}" || true
clients=()

# A handshake makes an ordinary request then, where HTTP is strict.
start --no-websocket
expect "WebSockets can be switched off" "$(is_strict && echo 426 || echo 500)" "$(status_of --header 'Connection: Upgrade' --header 'Upgrade: WebSocket' \
    --header 'Sec-WebSocket-Version: 13' --header 'Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==' "$(url /ws)")"
stop
echo "all passed after $SECONDS s"
