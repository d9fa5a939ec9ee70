#!/usr/bin/env bash
# Reaches examples through a proxy: the WebSocket, spelled as browsers spell the handshake, and the events, of which
# many clients ask for the head alone.
# usage: reverse-proxy.sh nginx|haproxy WEBSOCKET-ECHO SERVER-SENT-EVENTS CONFIGURATION
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

readonly PROXY="$1" WEBSOCKET_ECHO="$2" SERVER_SENT_EVENTS="$3" CONFIGURATION="$4"
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
