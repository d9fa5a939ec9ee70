#!/usr/bin/env bash
# Talks to the example by WebSocket. usage: websocket-echo.sh PROGRAM
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

start_server "$1" "{port}"
python3 "$(dirname "${BASH_SOURCE[0]}")/websocket_client.py" echo "$port" || fail "the client"
expect "a plain request" 426 "$(status_of "$(url /)")"
stop_server TERM
