#!/usr/bin/env bash
# Listens to the example's events. usage: server-sent-events.sh PROGRAM
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

start_server "$1" "{port}"

# events COUNT CURL-ARGUMENT...: the first events, as lines of "id data".
events() {
    local count="$1"
    shift
    # An event has three lines. The client ends when head does.
    { curl --silent --no-buffer --max-time 60 "$@" "$(url /events)" || true; } | head -n $((3 * count)) | awk '
        /^id: / { id = $2 }
        /^data: / { print id, substr($0, 7) }'
}

expect "events" "$(printf '%s\n' "1 tick 1" "2 tick 2" "3 tick 3")" "$(events 3)"
expect "events go on where a client left" "42 tick 42" "$(events 1 --header 'Last-Event-ID: 41')"
expect "their type" text/event-stream "$(ask --head --output /dev/null --write-out '%{content_type}' "$(url /events)")"
expect "another path" 404 "$(status_of "$(url /)")"

# Many more listeners than workers.
for ((i = 0; i < 20; ++i)); do
    events 3 >"$work/events.$i" &
    clients+=($!)
done
wait "${clients[@]}"
clients=()
for ((i = 0; i < 20; ++i)); do
    [[ "$(wc -l <"$work/events.$i")" == 3 ]] || fail "listener $i"
done
echo "ok: 20 listeners"
stop_server TERM
