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

# log_in ARGUMENT...: prints the cookie. The arguments are curl's, for the form.
log_in() {
    ask --output /dev/null --dump-header - "$@" "$(url /)" |
        sed -n 's/^Set-Cookie: \(chat=[^;]*\); Path=\/; Max-Age=[0-9]*; HttpOnly; SameSite=Strict\r$/\1/p'
}

# say_hello COOKIE: prints what the room hears.
say_hello() {
    python3 - "$(dirname "${BASH_SOURCE[0]}")/../support" "$port" "$1" <<'EOF'
import sys

sys.path.insert(0, sys.argv[1])
sys.dont_write_bytecode = True
from websocket import WebSocket

member = WebSocket(int(sys.argv[2]), "/room", "websocket", None, {"Cookie": sys.argv[3]})
member.send(b"hello")
sys.stdout.buffer.write(member.receive()[1])
EOF
}

start_server "$1" "{port}"
expect "the page" 200 "$(status_of "$(url /)")"
expect "nobody talks without a name" 401 "$(opening)"
expect "nobody guesses a name" 401 "$(opening --cookie chat=x)"
ada="$(log_in --data name=Ada)"
bob="$(log_in --data name=Bob)"
expect "a page from elsewhere" 403 "$(opening --cookie "$ada" --header 'Origin: https://elsewhere.example')"
python3 "$(dirname "${BASH_SOURCE[0]}")/chat_client.py" "$port" "$ada" "$bob" || fail "the client"
# A name stays whole: it is of 40 bytes at most, and UTF-8 whatever comes.
longest="$(printf 'x%.0s' {1..39})"
expect "a name that is too long" 413 "$(status_of --data-urlencode "name=${longest}é" "$(url /)")"
expect "a name as long as can be" "${longest}y: hello" "$(say_hello "$(log_in --data "name=${longest}y")")"
expect "a name that is no UTF-8" $'\xEF\xBF\xBDx: hello' "$(say_hello "$(log_in --data name=%FFx)")"
expect "a login begins anew" 1 "$(ask --output /dev/null --dump-header - --cookie "$ada" \
    --data-urlencode "name=${longest}é" "$(url /)" | grep -c '^Set-Cookie: chat=;.* Max-Age=0')"
stop_server TERM
