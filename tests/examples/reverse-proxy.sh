#!/usr/bin/env bash
# Reaches examples through a proxy: the WebSocket, spelled as browsers spell the handshake, and the events, of which
# many clients ask for the head alone; and an application that trusts the proxy, with headers that a client has forged.
# usage: reverse-proxy.sh nginx|haproxy WEBSOCKET-ECHO SERVER-SENT-EVENTS TRUSTING CONFIGURATION
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

readonly PROXY="$1" WEBSOCKET_ECHO="$2" SERVER_SENT_EVENTS="$3" TRUSTING="$4" CONFIGURATION="$5"
here="$(dirname "${BASH_SOURCE[0]}")"

# shellcheck source=tests/support/proxy.sh
. "$here/../support/proxy.sh"

start_server "$WEBSOCKET_ECHO" "{port}"
start_proxy "$PROXY" "$CONFIGURATION"
expect "a plain request" 426 "$(status_of "http://127.0.0.1:$proxy_port/")"
for spelling in websocket WebSocket WEBSOCKET; do
    python3 "$here/websocket_client.py" echo "$proxy_port" /ws "$spelling" ||
        fail "Upgrade: $spelling through $PROXY: $(<"$work/proxy.log")"
    echo "ok: Upgrade: $spelling"
done
stop_proxy
stop_server TERM

start_server "$SERVER_SENT_EVENTS" "{port}"
start_proxy "$PROXY" "$CONFIGURATION"
python3 "$here/head_beside_others.py" "$proxy_port" || fail "HEAD through $PROXY: $(<"$work/proxy.log")"
stop_proxy
stop_server TERM

# From another address than the proxy's: of hops that are trusted, too, the one before would be asked for.
readonly FORGED=(--header 'X-Forwarded-For: 203.0.113.66' --header 'X-Forwarded-Proto: https'
    --header 'X-Forwarded-Host: forged.example' --header 'X-Request-Id: forged' --interface 127.0.0.2)
start_server "$TRUSTING" "{port}"
start_proxy "$PROXY" "$CONFIGURATION"
for path in / /ws; do
    told="$(ask "${FORGED[@]}" "http://127.0.0.1:$proxy_port$path")"
    expect "no forged header passes, at $path" "127.0.0.2 http 127.0.0.1:$proxy_port" "${told% *}"
    [[ "$told" != *forged* ]] || fail "a forged id passes: $told"
done
expect "without a proxy the same are believed" "203.0.113.66 https forged.example forged" \
    "$(ask "${FORGED[@]:0:8}" "$(url /)")"
stop_proxy
stop_server TERM
