#!/usr/bin/env bash
# The smallest server on the core alone. usage: hello-core.sh PROGRAM
set -euo pipefail

program="$1"

# Its port is fixed: the runs of the tests of such programs on one machine, of whatever users, take turns.
lock=/tmp/vireo-port-8181.lock
(umask 0 && : >>"$lock") 2>/dev/null || true
exec 4<"$lock"
flock 4

# The program serves until it reads a character: this shell holds the other end of its input.
exec 3> >("$program")
answer="$(curl --silent --show-error --fail --retry 50 --retry-delay 1 --retry-connrefused --max-time 20 \
    http://127.0.0.1:8181/)"
status=0
complaint="$("$program" 2>&1 >/dev/null </dev/null)" || status=$?
echo >&3
exec 3>&-
[[ "$answer" == "hello world" ]] || {
    echo "unexpected answer: $answer" >&2
    exit 1
}
[[ "$status" != 0 && "$complaint" == *"port 8181"* ]] || {
    echo "a second one on its port ends with $status and says: $complaint" >&2
    exit 1
}
