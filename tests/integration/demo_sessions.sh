#!/usr/bin/env bash
# WebSockets of the demo with clients that others have written: directly, over TLS, and through proxies that are set up
# as usual. usage: demo_sessions.sh DEMO PYTHON [tls]
set -euo pipefail

readonly DEMO="$1" PYTHON="$2"
here="$(dirname "${BASH_SOURCE[0]}")"

# shellcheck source=tests/support/server.sh
. "$here/../support/server.sh"
# shellcheck source=tests/support/proxy.sh
. "$here/../support/proxy.sh"

# talk WHERE URL [CERTIFICATE]
talk() {
    "$PYTHON" -B "$here/session_clients.py" "${@:2}" || fail "$1"
    echo "ok: $1"
}

start_server "$DEMO" --port "{port}"
talk "directly" "ws://127.0.0.1:$port"
start_proxy nginx "$here/ordinary-nginx.conf"
talk "through nginx" "ws://127.0.0.1:$proxy_port"
stop_proxy
start_proxy haproxy "$here/ordinary-haproxy.cfg"
talk "through HAProxy" "ws://127.0.0.1:$proxy_port"
stop_proxy
stop_server TERM

if [[ "${3-}" != tls ]]; then
    exit
fi
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$work/key.pem" -out "$work/chain.pem" \
    -days 2 -subj "/CN=localhost" -addext "subjectAltName=DNS:localhost" 2>/dev/null
start_server "$DEMO" --port "{port}" --tls "$work/chain.pem" "$work/key.pem"
talk "over TLS" "wss://localhost:$port" "$work/chain.pem"
stop_server TERM
