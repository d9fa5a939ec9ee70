#!/usr/bin/env bash
# Reaches a server with curl at every kind of listener: addresses of both kinds, Unix sockets, also from behind HAProxy,
# and sockets that it was started with.
# usage: listen.sh LISTEN-SERVER
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

readonly SERVER="$1"
here="$(dirname "${BASH_SOURCE[0]}")"
ports=()

is_listening_or_gone() {
    grep -q "^listening" "$work/server.log" || server_is_gone
}

# start COMMAND...: sets ports, of the server that says them.
start() {
    # Before the server does it, so that nothing of the last one is read.
    : >"$work/server.log"
    "$@" >"$work/server.log" 2>&1 </dev/null &
    server_pid=$!
    within 60 is_listening_or_gone || fail "the server does not start"
    server_is_running || fail "the server does not start"
    read -ra ports < <(sed -n 's/^listening//p' "$work/server.log")
}

is_logged() {
    grep -q "$1" "$work/server.log"
}

# Where the server has observers.
expect_logged() {
    if [[ "${VIREO_TEST_WAITING:-}" == event ]]; then
        within 20 is_logged "$1" || fail "the access log says nothing of $1"
        echo "ok: the access log says $1"
    fi
}

# At a Unix socket it might, with every answer.
expect_quiet() {
    ! is_logged libmicrohttpd || fail "the engine complains: $(<"$work/server.log")"
    echo "ok: the engine complains of nothing"
}

has_ipv6() {
    python3 -c 'import socket; socket.socket(socket.AF_INET6).bind(("::1", 0))' 2>/dev/null
}

start "$SERVER" 127.0.0.1:0 "unix:$work/socket"
expect "over IPv4" "from 127.0.0.1" "$(ask "http://127.0.0.1:${ports[0]}/")"
expect "the port of a Unix socket" 0 "${ports[1]}"
expect "over a Unix socket" "from " "$(ask --unix-socket "$work/socket" http://localhost/)"
expect "its mode" 600 "$(stat --format %a "$work/socket")"
head -c 3000000 /dev/zero >"$work/body"
expect "an upload over a Unix socket" 200 \
    "$(status_of --unix-socket "$work/socket" --data-binary "@$work/body" http://localhost/)"
for _ in {1..50}; do echo "url = http://localhost/"; done >"$work/requests"
expect "many requests on a connection" 50 "$(ask --unix-socket "$work/socket" --config "$work/requests" | grep -c from)"
expect_logged "^unix: - - "
expect_quiet
if ((EUID == 0)); then
    chmod 0711 "$work"
    expect "another user at a socket of mode 600" 000 \
        "$(cd /; setpriv --reuid 65534 --clear-groups curl --silent --output /dev/null --write-out '%{http_code}' \
            --unix-socket "$work/socket" http://localhost/ || true)"
fi
stop_server TERM
[[ ! -e "$work/socket" ]] || fail "the socket's file stays"
echo "ok: the socket's file is removed"

if has_ipv6; then
    start "$SERVER" "[::1]:0" "*:0"
    expect "over IPv6" "from ::1" "$(ask "http://[::1]:${ports[0]}/")"
    expect "dual stack over IPv6" "from ::1" "$(ask "http://[::1]:${ports[1]}/")"
    expect "dual stack over IPv4" "from 127.0.0.1" "$(ask "http://127.0.0.1:${ports[1]}/")"
    expect_logged "^127.0.0.1 - - "
    expect_logged "^::1 - - "
    stop_server TERM
else
    echo "skipped: this machine has no address ::1"
fi

# A server that was killed leaves its file.
start "$SERVER" "unix:$work/socket"
{
    kill -KILL "$server_pid"
    wait "$server_pid" || true
} 2>/dev/null
[[ -S "$work/socket" ]] || fail "nothing was left behind"
start "$SERVER" "unix:$work/socket"
expect "in the place of one that was killed" "from " "$(ask --unix-socket "$work/socket" http://localhost/)"
expect "what a second one says" "Cannot listen @unix:$work/socket : another socket listens there" \
    "$("$SERVER" "unix:$work/socket" 2>/dev/null || true)"
expect "the first one after that" "from " "$(ask --unix-socket "$work/socket" http://localhost/)"

haproxy_port=$((30000 + RANDOM % 2000))
sed -e "s/:8180/:$haproxy_port/" -e "s|127.0.0.1:8181|$work/socket|" "$here/../../examples/reverse-proxy/haproxy.cfg" \
    >"$work/haproxy.cfg"
PATH="$PATH:/usr/sbin" haproxy -f "$work/haproxy.cfg" >"$work/haproxy.log" 2>&1 </dev/null &
clients=($!)
haproxy_serves() {
    curl --silent --output /dev/null "http://127.0.0.1:$haproxy_port/"
}
within 20 haproxy_serves || fail "haproxy does not start: $(<"$work/haproxy.log")"
expect "behind HAProxy" "from " "$(ask "http://127.0.0.1:$haproxy_port/")"
expect "an upload behind HAProxy" 200 "$(status_of --data-binary "@$work/body" "http://127.0.0.1:$haproxy_port/")"
kill "${clients[0]}"
wait "${clients[0]}" || true
clients=()
stop_server TERM

# Sockets that listened before the server was there, and stay when it goes.
start python3 "$here/activate.py" 0 "$work/activated" -- "$SERVER" environment
expect "an inherited socket" "from 127.0.0.1" "$(ask "http://127.0.0.1:${ports[0]}/")"
expect "an inherited Unix socket" "from " "$(ask --unix-socket "$work/activated" http://localhost/)"
kill -HUP "$server_pid"
if [[ "${VIREO_TEST_WAITING:-}" != event ]]; then
    # Whom it had let in it would cut off.
    within 20 is_logged "^ended" || fail "the server does not end"
fi
expect "an inherited socket across a restart" "from 127.0.0.1" "$(ask "http://127.0.0.1:${ports[0]}/")"
expect "an inherited Unix socket across a restart" "from " "$(ask --unix-socket "$work/activated" http://localhost/)"
two_have_started() {
    [[ "$(grep -c "^listening" "$work/server.log")" == 2 ]]
}
within 20 two_have_started || fail "the server was not restarted"
stop_server TERM
[[ -S "$work/activated" ]] || fail "the inherited socket's file is removed"
echo "ok: the inherited socket's file stays"
