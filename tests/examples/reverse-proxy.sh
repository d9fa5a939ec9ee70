#!/usr/bin/env bash
# Reaches the WebSocket example through a proxy, spelled as browsers spell the handshake.
# usage: reverse-proxy.sh nginx|haproxy PROGRAM CONFIGURATION
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

readonly PROXY="$1" PROGRAM="$2" CONFIGURATION="$3"

start_server "$PROGRAM" "{port}"

proxy_port=""
proxy_pid=""
proxy_is_up_or_gone() {
    curl --silent --output /dev/null "http://127.0.0.1:$proxy_port/" || ! kill -0 "$proxy_pid" 2>/dev/null
}
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
        break
    fi
done
((${#clients[@]} > 0)) || fail "$PROXY does not start: $(<"$work/proxy.log")"

expect "a plain request" 426 "$(status_of "http://127.0.0.1:$proxy_port/")"
for spelling in websocket WebSocket WEBSOCKET; do
    python3 "$(dirname "${BASH_SOURCE[0]}")/websocket_client.py" echo "$proxy_port" /ws "$spelling" ||
        fail "Upgrade: $spelling through $PROXY: $(<"$work/proxy.log")"
    echo "ok: Upgrade: $spelling"
done
kill "$proxy_pid"
wait "$proxy_pid" || true
clients=()
stop_server TERM
