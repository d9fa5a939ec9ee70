#!/usr/bin/env bash
# Logs in to the chat, and talks. usage: chat.sh PROGRAM
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

# opening OPTION...: the status of the answer to a handshake.
opening() {
    status_of --max-time 2 --header 'Connection: Upgrade' --header 'Upgrade: websocket' \
        --header 'Sec-WebSocket-Version: 13' --header 'Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==' "$@" \
        "$(url /room)" || true
}

# log_in NAME: prints the cookie.
log_in() {
    ask --output /dev/null --dump-header - --data-binary "$1" "$(url /)" |
        sed -n 's/^Set-Cookie: \(chat=[^;]*\); Path=\/; HttpOnly; SameSite=Strict\r$/\1/p'
}

start_server "$1" "{port}"
expect "the page" 200 "$(status_of "$(url /)")"
expect "nobody talks without a name" 401 "$(opening)"
expect "nobody guesses a name" 401 "$(opening --cookie chat=x)"
ada="$(log_in Ada)"
bob="$(log_in Bob)"
expect "a page from elsewhere" 403 "$(opening --cookie "$ada" --header 'Origin: https://elsewhere.example')"
python3 "$(dirname "${BASH_SOURCE[0]}")/chat_client.py" "$port" "$ada" "$bob" || fail "the client"
stop_server TERM
