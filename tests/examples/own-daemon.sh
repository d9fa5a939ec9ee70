#!/usr/bin/env bash
# Asks a daemon of the application's own, until it refuses. usage: own-daemon.sh PROGRAM
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

start_server "$1" "{port}"

expect "an answer" "hello from a daemon of one's own" "$(ask "$(url /)")"
expect "a bad request" 400 "$(status_of "$(url '/?a=%C3%A9')")"

# A refused connection breaks while it is written to.
trap '' PIPE

# opens DESCRIPTOR: a connection on it, which is served and stays open.
opens() {
    local line=""
    eval "exec $1<>/dev/tcp/127.0.0.1/$port"
    printf 'GET / HTTP/1.1\r\nHost: a\r\n\r\n' >&"$1" && IFS= read -r -t 60 -u "$1" line
    [[ "$line" == $'HTTP/1.1 200 OK\r' ]]
} 2>/dev/null

# Two connections are open, so that a third is refused. The daemon may still be at the end of those before.
for connection in 3 4; do
    within 20 opens "$connection" || fail "connection $connection"
    echo "ok: connection $connection"
done
if ask --output /dev/null "$(url /)" 2>/dev/null; then
    fail "a third connection is served"
fi
echo "ok: a third connection is refused"
exec 3>&- 4>&-
is_served_again() {
    ask --output /dev/null "$(url /)" 2>/dev/null
}
within 20 is_served_again || fail "a connection after the others"
stop_server TERM
