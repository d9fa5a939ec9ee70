#!/usr/bin/env bash
# Goes the README's road to a server of one's own, line by line, in a Debian root, with what is committed. usage: newcomer.sh ROOT-ARCHIVE
set -euo pipefail

# shellcheck source=tests/package/clean_root.sh
. "$(dirname "${BASH_SOURCE[0]}")/clean_root.sh"

open_root "$1"
git -c safe.directory="$tree" clone --quiet --no-hardlinks "$tree" "$root/origin"

# The program of the example, on a port that nothing else on this machine is likely to use.
port=$((20000 + RANDOM % 10000))
sed -i "s/{.port = 8181}/{.port = $port}/" "$root/origin/examples/hello/main.cpp"
git -C "$root/origin" -c user.name=test -c user.email=test@localhost commit --quiet --all --message "Another port"

awk '/^## / { here = ($0 == "## A server of your own") } here && /^```$/ { exit } here && inside; /^```sh$/ { inside = here }' \
    "$tree/README.md" >"$root/road.sh"
echo "the road has $(wc -l <"$root/road.sh") lines"
[[ -s "$root/road.sh" ]]

# Far more than the build takes, so that a busy machine is no error; but less than CTest waits.
limit=1500
begin=$SECONDS
in_root env VIREO=/origin HOME=/root bash -euo pipefail -c 'cd && . /road.sh' >"$root/road.log" 2>&1 </dev/null &
pid=$!
answer=""
# The server is on the road's last line.
until answer="$(curl --silent --max-time 5 "http://127.0.0.1:$port/hello/world")"; do
    if ! kill -0 "$pid" 2>/dev/null || ((SECONDS - begin > limit)); then
        kill "$pid" 2>/dev/null || true
        cat "$root/road.log" >&2
        echo "FAILED: the road does not end at a server" >&2
        exit 1
    fi
    sleep 0.2
done
echo "answered \"$answer\" after $((SECONDS - begin)) s"
[[ "$answer" == "hello world" ]]
# The server is what the road's shell waits for.
server=$pid
while child="$(cat "/proc/$server/task/$server/children")" && [[ -n "$child" ]]; do
    server="${child%% *}"
done
kill -TERM "$server"
wait "$pid"
