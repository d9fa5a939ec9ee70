#!/usr/bin/env bash
# Runs examples for Windows under Wine and drives them from this side.
# usage: windows.sh RUNNER UPLOAD STATIC_FILES (the program that runs Windows programs, and the two examples)
set -euo pipefail

readonly RUNNER="$1" UPLOAD="$2" STATIC_FILES="$3"
readonly BYTES=20000000

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

files_kept() {
    find "$work/kept" -type f | wc -l
}
one_file_is_kept() {
    (($(files_kept) == 1))
}

head -c "$BYTES" /dev/urandom >"$work/noise"
digest="$(sha256sum <"$work/noise" | cut -d ' ' -f 1)"

# ---- Uploads; Wine shows / as its drive's root ----

mkdir "$work/kept"
start_server "$RUNNER" "$UPLOAD" "{port}" "$work/kept"
expect "an upload" "$BYTES bytes, SHA-256 $digest" "$(ask --data-binary "@$work/noise" "$(url /)")"
cmp "$work/noise" "$work/kept/$digest" || fail "the file that is kept"
expect "the same in chunks" "$BYTES bytes, SHA-256 $digest" \
    "$(ask --request POST --header 'Transfer-Encoding: chunked' --data-binary "@$work/noise" "$(url /)")"
# One that breaks off: more is announced than comes.
exec 3<>"/dev/tcp/127.0.0.1/$port"
printf 'PUT / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 3000000\r\n\r\n' >&3
head -c 2000000 "$work/noise" >&3
exec 3>&-
within 60 one_file_is_kept || fail "a file stays of an upload that breaks off"
echo "ok: an upload that breaks off leaves nothing"
expect "no upload" 405 "$(status_of "$(url /)")"
stop_server INT # Wine makes a Ctrl-C of it

# ---- Files ----

start_server "$RUNNER" "$STATIC_FILES" "{port}" "$work/kept"
ask --output "$work/received" "$(url "/$digest")"
cmp "$work/noise" "$work/received" || fail "a file"
echo "ok: a file"
expect "a part of it" "$(tail -c +1000001 "$work/noise" | head -c 100000 | sha256sum)" \
    "$(ask --range 1000000-1099999 "$(url "/$digest")" | sha256sum)"
tag="$(ask --head "$(url "/$digest")" | tr -d '\r' | sed -n 's/^ETag: //p')"
expect "one that has not changed" 304 "$(status_of --header "If-None-Match: $tag" "$(url "/$digest")")"
mkdir "$work/kept/Folder"
echo linked >"$work/kept/Folder/File.txt"
ln -s Folder "$work/kept/Link"
expect "a file in a directory" linked "$(ask "$(url /Folder/File.txt)")"
expect "a file behind a link" linked "$(ask "$(url /Link/File.txt)")"
for name in folder/File.txt Folder/file.txt "%66older/File.txt" LINK/File.txt Link/FILE.txt; do
    expect "no file in other letters: $name" 404 "$(status_of "$(url "/$name")")"
done
for name in "..%5cnoise" "$digest." "$digest%20" "$digest::%24DATA" con nul.txt "%2e%2e/noise"; do
    expect "no file: $name" 4 "$(status_of --path-as-is "$(url "/$name")" | head -c 1)"
done
stop_server INT
