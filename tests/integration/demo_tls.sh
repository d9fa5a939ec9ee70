#!/usr/bin/env bash
# The demo over TLS, driven with curl, openssl and a WebSocket of Python's ssl. usage: demo_tls.sh DEMO PYTHON
set -euo pipefail

readonly DEMO="$1" PYTHON="$2"
readonly DOWNLOAD_BYTES=104857600 UPLOAD_BYTES=33554432 RELOADS=20

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"
support="$(cd "$(dirname "${BASH_SOURCE[0]}")/../support" && pwd)"

secure() {
    echo "https://localhost:$port$1"
}

ask_securely() {
    ask --cacert "$work/ca.pem" "$@"
}

# certificate NAME: a key and a certificate of the authority, for localhost.
certificate() {
    openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$work/$1.key" -out "$work/$1.csr" \
        -subj "/CN=$1" 2>/dev/null
    openssl x509 -req -in "$work/$1.csr" -CA "$work/ca.pem" -CAkey "$work/ca.key" -days 2 -out "$work/$1.pem" \
        -extfile <(printf 'subjectAltName=DNS:localhost,IP:127.0.0.1\nauthorityKeyIdentifier=keyid\n') 2>/dev/null
}

# install NAME: as the demo's certificate.
install() {
    cp "$work/$1.pem" "$work/chain.pem"
    cp "$work/$1.key" "$work/key.pem"
}

# client OPTION...: what openssl says of a handshake and of what comes until the server closes.
client() {
    printf 'GET /hello HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n' |
        timeout 60 openssl s_client -connect "127.0.0.1:$port" -servername localhost -CAfile "$work/ca.pem" \
            -ign_eof "$@" 2>&1 || true
}

# says WHAT PATTERN TEXT
says() {
    grep -q -- "$2" <<<"$3" || fail "$1: $3"
    echo "ok: $1"
}

subject() {
    client | sed -n 's/^subject=.*CN *= *//p'
}

port_is_told() {
    port="$(sed -n 's|^Vireo demo: https://127.0.0.1:\([1-9][0-9]*\)/ .*|\1|p' "$work/server.log")"
    [[ -n "$port" ]]
}
# start OPTION...: on a port that the system finds.
start() {
    : >"$work/server.log"
    "$DEMO" "$@" >"$work/server.log" 2>&1 </dev/null &
    server_pid=$!
    within 60 port_is_told || fail "the demo does not tell its port"
}

# told TEXT: within a while.
is_told() {
    grep -q -- "$1" "$work/server.log"
}

openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$work/ca.key" -out "$work/ca.pem" \
    -days 2 -subj "/CN=Test authority" -addext keyUsage=critical,keyCertSign,cRLSign 2>/dev/null
certificate first
certificate second
install first

# ---- Requests ----

start --port 0 --tls "$work/chain.pem" "$work/key.pem"
expect "GET /hello" "hello world" "$(ask_securely "$(secure /hello)")"
expect "who trusts nobody is warned" 60 "$(ask "$(secure /hello)" 2>/dev/null && echo 0 || echo $?)"
expect "a request in the clear is not answered" 52 \
    "$(curl --silent --max-time 60 "$(url /hello)" && echo 0 || echo $?)"
expect "GET /hello after that" "hello world" "$(ask_securely "$(secure /hello)")"

pattern() {
    "$PYTHON" -c "import sys; sys.stdout.buffer.write((bytes(range(251)) * ($DOWNLOAD_BYTES // 251 + 1))[:$DOWNLOAD_BYTES])"
}
expect "a download of 100 MiB" "$(pattern | sha256sum)" \
    "$(ask_securely "$(secure "/download?bytes=$DOWNLOAD_BYTES")" | sha256sum)"
head -c "$UPLOAD_BYTES" /dev/urandom >"$work/sent"
expect "an echo of 32 MiB" "$(sha256sum <"$work/sent")" \
    "$(ask_securely --header "Expect:" --data-binary "@$work/sent" "$(secure /echo)" | sha256sum)"

# ---- Handshakes ----

for version in tls1_2 tls1_3; do
    says "$version" "Verify return code: 0 (ok)" "$(client "-$version")"
    says "$version ends with an answer" "hello world" "$(client "-$version")"
    client "-$version" -sess_out "$work/session" >"$work/full"
    says "$version, the first time" "^New, " "$(<"$work/full")"
    says "$version, taken up again" "^Reused, " "$(client "-$version" -sess_in "$work/session")"
done
for version in tls1 tls1_1; do
    says "$version is refused" "New, (NONE)" "$(client "-$version" -cipher "ALL:@SECLEVEL=0")"
done
says "ALPN" "ALPN protocol: http/1.1" "$(client -alpn h2,http/1.1)"
says "another protocol alone is refused" "New, (NONE)" "$(client -alpn h2)"

# ---- WebSockets ----

"$PYTHON" -B - "$support" "$port" "$work/ca.pem" <<'END'
import ssl, sys
sys.path.insert(0, sys.argv[1])
from websocket import TEXT, WebSocket
tls = ssl.create_default_context(cafile=sys.argv[3])
for upgrade in ("WebSocket", "websocket"):
    socket = WebSocket(int(sys.argv[2]), "/ws", upgrade, tls)
    for message in (b"hello", b"m" * 20000, b"again"):
        socket.send(message)
        while (received := socket.receive())[1] != message:
            pass
    socket.close()
END
echo "ok: WebSockets over TLS"

# ---- Another certificate ----

# ask_anew: a connection for each request.
ask_anew() {
    while [[ ! -e "$work/stop" ]]; do
        ask_securely --fail --output /dev/null "$(secure /hello)" || return 1
        echo >>"$work/anew"
    done
}
# ask_on_one: all requests on one connection, as long as somebody says what to ask for.
ask_on_one() {
    "$PYTHON" -B - "$port" "$work" <<'END'
import http.client, os, ssl, sys
port, work = int(sys.argv[1]), sys.argv[2]
connection = http.client.HTTPSConnection("localhost", port, timeout=60, context=ssl.create_default_context(cafile=work + "/ca.pem"))
connection.connect()
connection.auto_open = False
with open(work + "/kept", "a", buffering=1) as answers:
    while not os.path.exists(work + "/stop"):
        connection.request("GET", "/hello")
        answer = connection.getresponse()
        if answer.status != 200 or answer.read() != b"hello world\n":
            sys.exit("another answer")
        print(file=answers)
END
}
: >"$work/anew"
: >"$work/kept"
ask_anew &
clients+=($!)
ask_on_one &
clients+=($!)
has_answers() {
    (($(wc -l <"$work/anew") > $1 && $(wc -l <"$work/kept") > $2))
}
# Both get some more.
have_more_answers() {
    within 20 has_answers "$(($(wc -l <"$work/anew") + 2))" "$(($(wc -l <"$work/kept") + 2))" ||
        fail "the clients get no more answers"
}
have_more_answers

expect "the certificate at first" first "$(subject)"
cp "$work/second.pem" "$work/chain.pem"
kill -HUP "$server_pid"
within 20 is_told "the former certificate stays: $work/chain.pem, $work/key.pem : " || fail "the broken pair is not told"
expect "the certificate after a reload of a broken pair" first "$(subject)"
has_reloaded() {
    (($(grep -c reloaded "$work/server.log") == $1))
}
for ((i = 1; i <= RELOADS; ++i)); do
    if ((i % 2 != 0)); then next=second; else next=first; fi
    install "$next"
    kill -HUP "$server_pid"
    within 20 has_reloaded "$i" || fail "the reload is not told"
    [[ "$(subject)" == "$next" ]] || fail "the certificate after reload $i"
    have_more_answers
done
: >"$work/stop"
for pid in "${clients[@]}"; do
    wait "$pid" || fail "a request failed meanwhile"
done
clients=()
echo "ok: no request of $(cat "$work/anew" "$work/kept" | wc -l) failed while the certificate changed $RELOADS times"
stop_server TERM

# ---- Broken from the begin, and made at the start ----

expect "a key of another certificate" 1 \
    "$("$DEMO" --port 0 --tls "$work/first.pem" "$work/second.key" >"$work/refusal" 2>&1 && echo 0 || echo $?)"
grep -q "vireo-demo: $work/first.pem, $work/second.key : " "$work/refusal" || fail "the reason: $(<"$work/refusal")"

start --tls-throw-away --unix "$work/socket" --listen 127.0.0.1:0
expect "a certificate that was thrown away later" "hello world" "$(ask --insecure "$(secure /hello)")"
expect "a Unix socket beside it" "hello world" "$(ask --unix-socket "$work/socket" http://localhost/hello)"
stop_server INT
echo "all passed after $SECONDS s"
