#!/usr/bin/env bash
# Listens to the example's events. usage: server-sent-events.sh PROGRAM
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

start_server "$1" "{port}"

# events COUNT CURL-ARGUMENT...: the first events, as lines of "id data", each id without the part that all have.
events() {
    local count="$1"
    shift
    # An event has three lines. The client ends when head does.
    { curl --silent --no-buffer --max-time 60 "$@" "$(url /events)" || true; } | head -n $((3 * count)) | awk '
        /^id: / { id = $2; sub(/^.*-/, "", id) }
        /^data: / { print id, substr($0, 7) }'
}

# from ID: what the three events from there on are.
from() {
    printf '%s\n' "$1 tick $1" "$(($1 + 1)) tick $(($1 + 1))" "$(($1 + 2)) tick $(($1 + 2))"
}

run="$({ curl --silent --no-buffer --max-time 60 "$(url /events)" || true; } | sed -n '/^id: / { s/^id: //; s/[0-9]*$//p; q }')"
first="$(events 3)"
id="${first%% *}"
expect "events" "$(from "$id")" "$first"
expect "events go on where a client left" "$(from "$id")" "$(events 3 --header "Last-Event-ID: $run$((id - 1))")"
expect "a client of another run gets all that is kept" "$(from 1)" "$(events 3 --header "Last-Event-ID: another-1")"
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
