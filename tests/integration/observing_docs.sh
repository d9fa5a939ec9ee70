#!/usr/bin/env bash
# The example of the guide is the one that is compiled and tested, and its commands do what it says.
# usage: observing_docs.sh GUIDE EXAMPLE-SOURCE DEMO
set -euo pipefail

guide="$1" source="$2" demo="$3"

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

# block LANGUAGE: the first one in it.
block() {
    awk -v begin="\`\`\`$1" '$0 == begin { inside = 1; next } /^```$/ { if (inside) exit } inside' "$guide"
}

diff <(block cpp) "$source" || fail "the example in the guide is not the one that is compiled"
echo "ok: the example is the one that is compiled"

# The guide's port is fixed: the runs of this test on one machine, of whatever users, take turns.
lock=/tmp/vireo-port-8181.lock
(umask 0 && : >>"$lock") 2>/dev/null || true
exec 4<"$lock"
flock 4
port=8181

# The guide's program; its first command starts it.
vireo-demo() {
    exec "$demo" "$@"
}
cd "$work"
mapfile -t commands < <(block sh)
[[ "${commands[0]}" == "vireo-demo "*" &" ]] || fail "the first command does not start the demo: ${commands[0]}"
eval "${commands[0]%&} >server.log 2>&1 </dev/null 4<&- &"
server_pid=$!
is_serving() {
    grep -q "http://127.0.0.1:$port/" server.log
}
within 60 is_serving || fail "the demo does not serve"
asked=0
# The log is told last, a moment after the answer has gone.
is_logged() {
    (($(wc -l <access.log) == asked))
}
for command in "${commands[@]:1}"; do
    eval "$command" >>output 2>command.err || fail "$command: $(<command.err)"
    if [[ "$command" == curl* ]]; then
        ((++asked))
        within 20 is_logged || fail "$command is not in the log"
    fi
done
kill -TERM "$server_pid"
wait "$server_pid" || true
server_pid=""

while IFS= read -r line; do
    grep -qF -- "$line" output || fail "no such line: $line in: $(<output)"
done < <(block text)
echo "ok: the commands print what the guide shows"
