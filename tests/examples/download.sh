#!/usr/bin/env bash
# Downloads from the example, with a slow client among others. usage: download.sh PROGRAM
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

start_server "$1" "{port}"

lines() {
    seq -f 'line %010.0f' 0 $(($1 - 1))
}

expect "a download" "$(lines 3)" "$(ask "$(url '/?lines=3')")"
expect "a large download" "$(lines 2000000 | sha256sum)" "$(ask "$(url '/?lines=2000000')" | sha256sum)"
expect "the length is known" 16000 "$(ask --head "$(url /)" | tr -d '\r' | sed -n 's/^Content-Length: //p')"
for lines in x -1 '' 1000000001; do
    expect "lines=$lines" 400 "$(status_of "$(url "/?lines=$lines")")"
done

# Of 16 GB a client takes a little, slowly, and goes.
curl --silent --output /dev/null --limit-rate 1M --max-time 1 "$(url '/?lines=1000000000')" || true
loss_is_seen() {
    grep -q '^ended after [0-9]* bytes: lost connection' "$work/server.log"
}
within 20 loss_is_seen || fail "the end of the client is not seen"
bytes="$(sed -n 's/^ended after \([0-9]*\) bytes.*/\1/p' "$work/server.log")"
((bytes < 200000000)) || fail "$bytes bytes were written to a slow client"
echo "ok: writing waited for the client: $bytes bytes"
stop_server TERM
