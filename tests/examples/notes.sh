#!/usr/bin/env bash
# The whole service, by curl, a client of WebSockets, and uploads that break off. usage: notes.sh PROGRAM [tls]
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"
here="$(dirname "${BASH_SOURCE[0]}")"

data="$work/data"
mkdir "$data"
program="$1"

# On both kinds of addresses, where there are both.
second=""
if python3 -c 'import socket; socket.socket(socket.AF_INET6).bind(("::1", 0))' 2>/dev/null; then
    second="[::1]:"
fi

serve() {
    # Of what start_server is given only a word can be the port.
    # shellcheck disable=SC2016  # they are that shell's
    start_server bash -c 'exec "$0" "$1" "$2" "127.0.0.1:$4" ${3:+"$3$4"}' \
        "$program" "$here/../../examples/notes/page" "$data" "$second" "{port}"
}

# json METHOD PATH [BODY]: status and body.
json() {
    local body=()
    if (($# > 2)); then
        body=(--header 'Content-Type: application/json' --data-binary "$3")
    fi
    ask --request "$1" "${body[@]}" --write-out '%{stderr}%{http_code} ' "$(url "$2")" 2>&1 | tr -d '\n'
}

# header_of NAME ARGUMENT...: of curl's answer.
header_of() {
    local name="$1"
    shift
    ask --include --output - "$@" | tr -d '\r' | sed -n "s/^$name: //Ip"
}

serve
expect "no notes" "[]200 " "$(json GET /api/notes)"

# ---- Events, from before the first note ----

ask --no-buffer "$(url /api/events)" >"$work/events" &
clients+=($!)
is_heard() {
    grep -q "event_streams 1" <(ask "$(url /metrics)")
}
within 20 is_heard || fail "the stream of events"

# ---- Notes ----

expect "a note is made" '{"id":1,"text":"buy seeds"}201 ' "$(json POST /api/notes '{"text": "buy seeds"}')"
expect "another" '{"id":2,"text":"vögel füttern"}201 ' "$(json POST /api/notes '{"text": "vögel füttern"}')"
expect "it has a place" /api/notes/3 \
    "$(header_of Location --header 'Content-Type: application/json' --data '{"text": ""}' "$(url /api/notes)")"
expect "a note" '{"id":1,"text":"buy seeds"}200 ' "$(json GET /api/notes/1)"
expect "a note is changed" '{"id":1,"text":"sow"}200 ' "$(json PUT /api/notes/1 '{"text": "sow"}')"
expect "a note is deleted" "204 " "$(json DELETE /api/notes/2)"
expect "a deleted note" 404 "$(status_of "$(url /api/notes/2)")"
expect "the rest" '[{"id":1,"text":"sow"},{"id":3,"text":""}]200 ' "$(json GET /api/notes)"
for body in '' '{' '[]' '{"text": 1}'; do
    expect "a bad body: $body" 400 "$(json POST /api/notes "$body" | grep -o '...\s$' | tr -d ' ')"
done
expect "no JSON" 415 "$(status_of --data x=y "$(url /api/notes)")"
expect "a wrong method" 405 "$(status_of --request PATCH "$(url /api/notes/1)")"
are_told() {
    [[ "$(grep -c '^data: ' "$work/events")" == 5 ]]
}
within 20 are_told || fail "events: $(<"$work/events")"
expect "the last event" 'data: {"id":2,"text":"vögel füttern"}' "$(grep '^data: ' "$work/events" | tail -1)"

# ---- Pages of another origin ----

origin=(--header 'Origin: https://notes.example')
expect "a preflight" "204 https://notes.example PUT" "$(ask --include --request OPTIONS "${origin[@]}" \
    --header 'Access-Control-Request-Method: PUT' --header 'Access-Control-Request-Headers: content-type' \
    "$(url /api/notes/1)" | tr -d '\r' |
    sed -n 's/^HTTP\/1.1 \([0-9]*\).*/\1/p; s/^Access-Control-Allow-Origin: //p; s/^Access-Control-Allow-Methods: //p' |
    grep -o '204\|https.*\|PUT' | tr '\n' ' ' | sed 's/ $//')"
expect "a PUT of another origin" https://notes.example "$(header_of Access-Control-Allow-Origin "${origin[@]}" \
    --request PUT --header 'Content-Type: application/json' --data '{"text": "sow"}' "$(url /api/notes/1)")"
expect "an origin that is not allowed" "" \
    "$(header_of Access-Control-Allow-Origin --header 'Origin: https://evil.example' "$(url /api/notes)")"

# ---- Files ----

head -c 20000000 /dev/urandom >"$work/noise"
digest="$(sha256sum <"$work/noise" | cut -d ' ' -f 1)"
expect "a form with files" "$digest noise
$(printf abc | sha256sum | cut -d ' ' -f 1) a b.txt" \
    "$(ask --form "file=@$work/noise" --form 'file=abc;filename=a b.txt' --form other=field "$(url /api/files)")"
expect "a file" "$digest" "$(ask --upload-file "$work/noise" "$(url /api/files)")"
expect "it is served" "$digest" "$(ask "$(url "/files/$digest")" | sha256sum | cut -d ' ' -f 1)"
expect "a part of it" 206 "$(status_of --range 5-9 "$(url "/files/$digest")")"
expect "only whole uploads are kept" 2 "$(find "$data/files" -type f | wc -l)"
python3 "$here/broken_uploads.py" "$port" "$data/files" PUT /api/files /api/files || fail "uploads that break off"

# ---- The page ----

expect "the page" "<title>Notes</title>" "$(ask "$(url /)" | grep title)"
expect "it is compressed" gzip "$(header_of Content-Encoding --header 'Accept-Encoding: gzip' "$(url /notes.js)")"
expect "what is compressed is the same" "$(sha256sum <"$here/../../examples/notes/page/notes.js")" \
    "$(ask --compressed "$(url /notes.js)" | sha256sum)"
expect "its policy" "default-src 'self'; base-uri 'self'; form-action 'self'" "$(header_of Content-Security-Policy "$(url /)")"

# ---- Chat ----

# opening OPTION...: the status of the answer to a handshake.
opening() {
    status_of --max-time 2 --header 'Connection: Upgrade' --header 'Upgrade: websocket' \
        --header 'Sec-WebSocket-Version: 13' --header 'Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==' "$@" \
        "$(url /chat/lobby)" || true
}

# log_in NAME: prints the cookie.
# log_in NAME [CURL-ARGUMENT... URL]
log_in() {
    local name="$1"
    shift
    header_of Set-Cookie --data-urlencode "name=$name" "${@:-$(url /login)}" | sed -n 's/; .*HttpOnly.*//p'
}

ada="$(log_in Ada)"
bob="$(log_in Bob)"
expect "a login begins anew" 1 "$(header_of Set-Cookie --cookie "$ada" \
    --data "name=$(printf 'x%.0s' {1..101})" "$(url /login)" | grep -c '^session=;.* Max-Age=0')"
expect "nobody talks without a name" 401 "$(opening)"
expect "nobody guesses a name" 401 "$(opening --cookie "${ada%?}")"
expect "a page from elsewhere" 403 "$(opening --cookie "$ada" --header 'Origin: https://elsewhere.example')"
python3 "$here/chat_client.py" "$port" "$ada" "$bob" /chat/lobby /chat/kitchen || fail "the chat"

# ---- Operation ----

expect "it is well" "ok 200" "$(ask --write-out ' %{http_code}' "$(url /health)" | tr -d '\n')"
expect "it counts" 1 "$(ask "$(url /metrics)" | grep -c '^vireo_exchange_responses_total{class="4xx",code="415"} 1$')"
python3 "$here/upload_through_stop.py" "$port" "$server_pid" "$data/files" /api/files || fail "an upload at the end"
status=0
wait "$server_pid" || status=$?
server_pid=""
expect "exit status after it" 0 "$status"
expect "only whole uploads are there at the end" 2 "$(find "$data/files" -type f | wc -l)"
expect "the access log" 1 "$(grep -c '"DELETE /api/notes/2 HTTP/1.1" 204' "$data/access.log")"
serve
expect "notes stay" '[{"id":1,"text":"sow"},{"id":3,"text":""}]200 ' "$(json GET /api/notes)"
if [[ -n "$second" ]]; then
    expect "the other address" ok "$(ask --globoff "http://[::1]:$port/health")"
fi
stop_server INT

if [[ "${2:-}" == tls ]]; then
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 -subj /CN=localhost \
        -addext subjectAltName=IP:127.0.0.1,IP:::1,DNS:localhost -out "$data/chain.pem" -keyout "$data/key.pem" 2>/dev/null
    serve
    secure=(--cacert "$data/chain.pem")
    place="https://127.0.0.1:$port"
    notes='[{"id":1,"text":"sow"},{"id":3,"text":""}]'
    expect "over TLS" "$notes" "$(ask "${secure[@]}" "$place/api/notes")"
    if [[ -n "$second" ]]; then
        expect "over TLS and IPv6" "$notes" "$(ask "${secure[@]}" "https://[::1]:$port/api/notes")"
    fi
    expect "its cookies are for TLS" Secure \
        "$(header_of Set-Cookie "${secure[@]}" --data name=Ada "$place/login" | grep -o Secure)"
    ask --no-buffer "${secure[@]}" "$place/api/events" >"$work/secure_events" &
    clients+=($!)
    is_heard_over_tls() {
        grep -q "event_streams 1" <(ask "${secure[@]}" "$place/metrics")
    }
    within 20 is_heard_over_tls || fail "the stream of events over TLS"
    ask "${secure[@]}" --output /dev/null --header 'Content-Type: application/json' --data '{"text": "weed"}' \
        "$place/api/notes"
    is_told_over_tls() {
        grep -q '^data: .*"text":"weed"' "$work/secure_events"
    }
    within 20 is_told_over_tls || fail "events over TLS: $(<"$work/secure_events")"
    ada="$(log_in Ada "${secure[@]}" "$place/login")"
    bob="$(log_in Bob "${secure[@]}" "$place/login")"
    python3 "$here/chat_client.py" "$port" "$ada" "$bob" /chat/lobby /chat/kitchen "$data/chain.pem" ||
        fail "the chat over TLS"
    stop_server TERM
fi
