#!/usr/bin/env bash
# The README's example is the program that is compiled, and that program answers.
# usage: readme_example.sh README EXAMPLE-SOURCE EXAMPLE-PROGRAM
set -euo pipefail

readme="$1" source="$2" program="$3"

# The first C++ block.
block="$(awk '/^```cpp$/ { inside = 1; next } /^```$/ { if (inside) exit } inside' "$readme")"
diff <(printf '%s\n' "$block") "$source"

# Its port is fixed: the runs of this test on one machine, of whatever users, take turns.
lock=/tmp/vireo-port-8181.lock
(umask 0 && : >>"$lock") 2>/dev/null || true
exec 4<"$lock"
flock 4

log="$(mktemp)"
"$program" 2>"$log" &
pid=$!
trap 'kill -KILL "$pid" 2>/dev/null || true; rm -f "$log"' EXIT
answer="$(curl --silent --show-error --fail --retry 50 --retry-delay 1 --retry-connrefused --max-time 20 \
    http://127.0.0.1:8181/hello/world)"
status=0
complaint="$("$program" 2>&1 >/dev/null)" || status=$?
kill -INT "$pid"
wait "$pid" || {
    echo "it ends with $?" >&2
    exit 1
}
[[ "$answer" == "hello world" ]] || {
    echo "unexpected answer: $answer" >&2
    exit 1
}
[[ "$(<"$log")" == *"http://127.0.0.1:8181/ (1 route, "*" workers)" ]] || {
    echo "it tells of its start: $(<"$log")" >&2
    exit 1
}
[[ "$status" != 0 && "$complaint" == *"127.0.0.1:8181"* ]] || {
    echo "a second one on its port ends with $status and says: $complaint" >&2
    exit 1
}
