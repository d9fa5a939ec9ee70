#!/usr/bin/env bash
# Uploads to the example. usage: upload.sh PROGRAM
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

kept="$work/kept"
mkdir "$kept"
start_server "$1" "{port}" "$kept"

head -c 50000000 /dev/urandom >"$work/noise"
expect "an upload" "50000000 bytes, SHA-256 $(sha256sum <"$work/noise" | cut -d ' ' -f 1)" \
    "$(ask --data-binary "@$work/noise" "$(url /)")"
expect "an upload in chunks" "50000000 bytes, SHA-256 $(sha256sum <"$work/noise" | cut -d ' ' -f 1)" \
    "$(ask --request POST --upload-file - "$(url /)" <"$work/noise")"
cmp "$work/noise" "$kept/$(sha256sum <"$work/noise" | cut -d ' ' -f 1)" || fail "the file that is kept"
expect "an empty upload" "0 bytes, SHA-256 $(sha256sum </dev/null | cut -d ' ' -f 1)" "$(ask --data '' "$(url /)")"
expect "no upload" 405 "$(status_of "$(url /)")"
head -c 100000000 /dev/zero >"$work/zeros"
expect "an upload that is announced too large" 413 "$(status_of --data-binary "@$work/zeros" "$(url /)")"
expect "a large upload in chunks" 413 \
    "$(status_of --request POST --header 'Transfer-Encoding: chunked' --data-binary "@$work/zeros" "$(url /)")"
expect "only whole uploads are kept" 2 "$(find "$kept" -type f | wc -l)"
python3 "$(dirname "${BASH_SOURCE[0]}")/broken_uploads.py" "$port" "$kept" || fail "uploads that break off"

peak="$(awk '/^VmHWM:/ { print $2 }' "/proc/$server_pid/status")"
echo "ok: at most $peak KiB resident"
stop_server TERM
expect "nothing else stays behind" 2 "$(find "$kept" -type f | wc -l)"
