#!/usr/bin/env bash
# Reaches a server that wants certificates of its clients with curl, with a good one and without.
# usage: client_certificates.sh LISTEN-SERVER
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

readonly SERVER="$1"

# What curl ends with when there was no answer: the handshake fails, or, over TLS 1.3, what follows it.
readonly REFUSALS="35 52 55 56"

# authority NAME: its key and its own certificate.
authority() {
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$work/$1.key" -out "$work/$1.pem" \
        -days 2 -subj "/CN=$1" 2>/dev/null
}

# certificate NAME AUTHORITY PURPOSE: a key and a certificate of the authority.
certificate() {
    openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$work/$1.key" -out "$work/$1.csr" \
        -subj "/O=Example/CN=$1" 2>/dev/null
    openssl x509 -req -in "$work/$1.csr" -CA "$work/$2.pem" -CAkey "$work/$2.key" -days 2 -out "$work/$1.pem" \
        -extfile <(printf 'subjectAltName=DNS:localhost\nextendedKeyUsage=%s\n' "$3") 2>/dev/null
}

# ask_as NAME OPTION...: with that certificate.
ask_as() {
    local name="$1"
    shift
    ask --cert "$work/$name.pem" --key "$work/$name.key" --cacert "$work/servers.pem" "$@" "https://localhost:$port/"
}

# expect_refused WHAT COMMAND...
expect_refused() {
    local what="$1" status=0
    shift
    "$@" >"$work/answer" 2>/dev/null || status=$?
    [[ " $REFUSALS " == *" $status "* && ! -s "$work/answer" ]] || fail "$what: $status, $(<"$work/answer")"
    echo "ok: $what"
}

port_is_told_or_server_gone() {
    port="$(sed -n 's/^listening \([0-9]*\)$/\1/p' "$work/server.log")"
    [[ -n "$port" ]] || server_is_gone
}

authority servers
authority clients
certificate server servers serverAuth
certificate ada clients clientAuth
certificate server-of-clients clients serverAuth
certificate mallory servers clientAuth

: >"$work/server.log"
"$SERVER" --tls "$work/server.pem" "$work/server.key" "$work/clients.pem" 127.0.0.1:0 >"$work/server.log" 2>&1 </dev/null &
server_pid=$!
within 60 port_is_told_or_server_gone || fail "the server does not start"
server_is_running || fail "the server does not start"

for version in 1.2 1.3; do
    only=("--tlsv$version" --tls-max "$version")
    expect "a good certificate, TLS $version" "from 127.0.0.1 CN=ada,O=Example" "$(ask_as ada "${only[@]}")"
    expect_refused "none, TLS $version" ask --cacert "$work/servers.pem" "${only[@]}" "https://localhost:$port/"
    expect_refused "one of another authority, TLS $version" ask_as mallory "${only[@]}"
    expect_refused "one for servers, TLS $version" ask_as server-of-clients "${only[@]}"
done
expect "a good certificate after those" "from 127.0.0.1 CN=ada,O=Example" "$(ask_as ada)"
stop_server TERM
