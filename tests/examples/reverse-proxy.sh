#!/usr/bin/env bash
# Reaches examples through a proxy: the WebSocket, spelled as browsers spell the handshake, and the events, of which
# many clients ask for the head alone.
# usage: reverse-proxy.sh nginx|haproxy WEBSOCKET-ECHO SERVER-SENT-EVENTS CONFIGURATION
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

readonly PROXY="$1" WEBSOCKET_ECHO="$2" SERVER_SENT_EVENTS="$3" CONFIGURATION="$4"
here="$(dirname "${BASH_SOURCE[0]}")"

proxy_port=""
proxy_pid=""
proxy_is_up_or_gone() {
    curl --silent --output /dev/null "http://127.0.0.1:$proxy_port/" || ! kill -0 "$proxy_pid" 2>/dev/null
}

# In front of the server that was started last.
start_proxy() {
    local command
    for _ in 1 2 3 4 5; do
        proxy_port=$((30000 + RANDOM % 2000))
        sed -e "s/:8180/:$proxy_port/" -e "s/:8181/:$port/" "$CONFIGURATION" >"$work/proxy.conf"
        case "$PROXY" in
        nginx) command=(nginx -p "$work" -e stderr -c "$work/proxy.conf") ;;
        haproxy) command=(haproxy -f "$work/proxy.conf") ;;
        *) fail "there is no way to run $PROXY" ;;
        esac
        PATH="$PATH:/usr/sbin" "${command[@]}" >"$work/proxy.log" 2>&1 </dev/null &
        proxy_pid=$!
        within 20 proxy_is_up_or_gone || fail "$PROXY does not start"
        if kill -0 "$proxy_pid" 2>/dev/null; then
            clients=("$proxy_pid")
            return
        fi
    done
    fail "$PROXY does not start: $(<"$work/proxy.log")"
}

stop_proxy() {
    kill "$proxy_pid"
    wait "$proxy_pid" || true
    clients=()
}

start_server "$WEBSOCKET_ECHO" "{port}"
start_proxy
expect "a plain request" 426 "$(status_of "http://127.0.0.1:$proxy_port/")"
for spelling in websocket WebSocket WEBSOCKET; do
    python3 "$here/websocket_client.py" echo "$proxy_port" /ws "$spelling" ||
        fail "Upgrade: $spelling through $PROXY: $(<"$work/proxy.log")"
    echo "ok: Upgrade: $spelling"
done
stop_proxy
stop_server TERM

start_server "$SERVER_SENT_EVENTS" "{port}"
start_proxy
python3 "$here/head_beside_others.py" "$proxy_port" || fail "HEAD through $PROXY: $(<"$work/proxy.log")"
stop_proxy
stop_server TERM
