#!/usr/bin/env bash
# Fetches files from the example, by fair means and foul. usage: static-files.sh PROGRAM
set -euo pipefail

# shellcheck source=tests/support/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/../support/server.sh"

root="$work/root"
mkdir -p "$root/sub/.git" "$work/rootless"
echo "<h1>home</h1>" >"$root/index.html"
echo "below" >"$root/sub/file.txt"
echo "secret" >"$root/sub/.git/config"
echo "secret" >"$work/secret.txt"
echo "secret" >"$work/rootless/secret.txt"
ln -s ../secret.txt "$root/link.txt"
ln -s sub/file.txt "$root/inner.txt"
echo "ü" >"$root/grüß gott.txt"
head -c 3000000 /dev/urandom >"$root/noise.bin"
# Of a file that may still be written the tag is a weak one.
touch -d '1 hour ago' "$root/noise.bin"
: >"$root/empty.txt"
start_server "$1" "{port}" "$root"

header_of() {
    local name="$1"
    shift
    ask --dump-header - --output /dev/null "$@" | tr -d '\r' | sed -n "s/^$name: //p"
}

# ---- Files ----

expect "a directory's index" "<h1>home</h1>" "$(ask "$(url /)")"
expect "its type" "text/html; charset=utf-8" "$(header_of Content-Type "$(url /)")"
expect "a file below" below "$(ask "$(url /sub/file.txt)")"
expect "a link inside" below "$(ask "$(url /inner.txt)")"
expect "an encoded name" "ü" "$(ask "$(url /gr%C3%BC%C3%9F%20gott.txt)")"
expect "an empty file" "200 0" "$(ask --output /dev/null --write-out '%{http_code} %{size_download}' "$(url /empty.txt)")"
cmp <(ask "$(url /noise.bin)") "$root/noise.bin" || fail "a large file"
expect "HEAD" "200 3000000" "$(ask --head --output /dev/null --write-out '%{http_code} %header{content-length}' \
    "$(url /noise.bin)" || true)"
expect "POST" 405 "$(status_of --data x "$(url /)")"

# ---- Nothing that is not below the directory ----

for path in /nowhere /link.txt /sub/.git/config //index.html /sub//file.txt /C:%5csecret.txt /sub /sub/ /%2fetc/passwd \
    "$work/secret.txt"; do
    expect "not served: $path" 404 "$(status_of --path-as-is "$(url "$path")")"
done
# What no path of a URL should be.
for path in /../secret.txt /sub/../../secret.txt /%2e%2e/secret.txt /../rootless/secret.txt /./index.html \
    /index.html%00.txt /..%2fsecret.txt /sub/..%2f..%2fsecret.txt /%2e%2e%2frootless/secret.txt /..%5csecret.txt; do
    expect "not served: $path" 400 "$(status_of --path-as-is "$(url "$path")")"
done

# ---- Ranges ----

# part RANGE [CURL-ARGUMENT...]: status and number of bytes, which are compared with those of the file.
part() {
    local range="$1" status
    shift
    status="$(ask --header "Range: $range" --output "$work/part" --write-out '%{http_code}' "$@" "$(url /noise.bin)")"
    echo "$status $(stat --format=%s "$work/part")"
}

expect "the first bytes" "206 100" "$(part bytes=0-99)"
cmp "$work/part" <(head -c 100 "$root/noise.bin") || fail "the first bytes"
expect "bytes in the middle" "206 1000000" "$(part bytes=1000000-1999999)"
cmp "$work/part" <(tail -c +1000001 "$root/noise.bin" | head -c 1000000) || fail "bytes in the middle"
expect "the last bytes" "206 10" "$(part bytes=-10)"
cmp "$work/part" <(tail -c 10 "$root/noise.bin") || fail "the last bytes"
expect "from some byte on" "206 1" "$(part bytes=2999999-)"
expect "beyond the end" "206 1" "$(part bytes=2999999-4000000)"
expect "more last bytes than there are" "206 3000000" "$(part bytes=-4000000)"
expect "which part it is" "bytes 5-9/3000000" "$(header_of Content-Range --range 5-9 "$(url /noise.bin)")"
for range in bytes=3000000- bytes=-0 bytes=99999999999999999999-; do
    expect "nothing there: $range" 416 "$(part "$range" | cut -d ' ' -f 1)"
done
expect "how much there is" "bytes */3000000" "$(header_of Content-Range --range 3000000- "$(url /noise.bin)")"
for range in bytes=9-5 bytes=a-b bytes= bytes=- lines=1-2; do
    expect "no range: $range" "200 3000000" "$(part "$range")"
done
expect "two ranges that touch" "206 4" "$(part bytes=0-1,2-3)"
ask --header "Range: bytes=0-1,5-6" "$(url /noise.bin)" >"$work/parts"
for range in 0-1 5-6; do
    grep -aq "^Content-Range: bytes $range/3000000" "$work/parts" || fail "a part of two: $range"
done
head -c 1000000 "$root/noise.bin" >"$work/resumed"
ask --continue-at - --output "$work/resumed" "$(url /noise.bin)"
cmp "$work/resumed" "$root/noise.bin" || fail "a download is resumed"
echo "ok: a download is resumed"

# ---- Caches ----

tag="$(header_of ETag "$(url /noise.bin)")"
time="$(header_of Last-Modified "$(url /noise.bin)")"
expect "the time is the file's" "$(LC_ALL=C date -u -r "$root/noise.bin" '+%a, %d %b %Y %H:%M:%S GMT')" "$time"
expect "the same tag" 304 "$(status_of --header "If-None-Match: $tag" "$(url /noise.bin)")"
expect "one of some tags" 304 "$(status_of --header "If-None-Match: \"x\", W/$tag" "$(url /noise.bin)")"
expect "another tag" 200 "$(status_of --header 'If-None-Match: "x"' "$(url /noise.bin)")"
expect "the same time" 304 "$(status_of --header "If-Modified-Since: $time" "$(url /noise.bin)")"
expect "the tag counts for more" 200 \
    "$(status_of --header 'If-None-Match: "x"' --header "If-Modified-Since: $time" "$(url /noise.bin)")"
expect "the same version goes on" "206 10" "$(part bytes=0-9 --header "If-Range: $tag")"
expect "another version begins anew" "200 3000000" "$(part bytes=0-9 --header 'If-Range: "x"')"
# conditions STATUS CURL-ARGUMENT...: of the large file, whose answer then has no body.
conditions() {
    local status="$1"
    shift
    expect "$status: $*" "$status" "$(status_of "$@" "$(url /noise.bin)")"
}
earlier="$(LC_ALL=C date -u -d "$time - 1 second" '+%a, %d %b %Y %H:%M:%S GMT')"
later="$(LC_ALL=C date -u -d "$time + 1 day" '+%a, %d %b %Y %H:%M:%S GMT')"
later_rfc850="$(LC_ALL=C date -u -d "$time + 1 day" '+%A, %d-%b-%y %H:%M:%S GMT')"
later_asctime="$(LC_ALL=C date -u -d "$time + 1 day" '+%a %b %e %H:%M:%S %Y')"
for header in "If-Match: $tag" "If-Match: \"x\", $tag" "If-Match: *" "If-Unmodified-Since: $time" \
    "If-Unmodified-Since: $later" "If-Unmodified-Since: $later_rfc850" "If-Unmodified-Since: $later_asctime" \
    "If-Unmodified-Since: yesterday" "If-Modified-Since: $earlier" "If-Modified-Since: tomorrow"; do
    conditions 200 --header "$header"
done
# Only the very same bytes will do.
for header in "If-Match: \"x\"" "If-Match: W/$tag" "If-Match: \"*\"" "If-Unmodified-Since: $earlier" \
    "If-Unmodified-Since: Sun, 06 Nov 1994 08:49:37 GMT" "If-Unmodified-Since: Sunday, 06-Nov-94 08:49:37 GMT" \
    "If-Unmodified-Since: Sun Nov  6 08:49:37 1994"; do
    conditions 412 --header "$header"
    conditions 412 --head --header "$header"
done
conditions 304 --header "If-Modified-Since: $later"
conditions 304 --header "If-None-Match: *"
# What is asked first decides.
conditions 412 --header "If-Match: \"x\"" --header "If-None-Match: $tag"
conditions 412 --header "If-Unmodified-Since: $earlier" --header "If-None-Match: $tag"
conditions 412 --header "If-Match: \"x\"" --range 0-9
conditions 304 --header "If-Match: $tag" --header "If-None-Match: $tag"
conditions 200 --header "If-Match: $tag" --header "If-Unmodified-Since: $earlier"
conditions 206 --header "If-Match: $tag" --range 0-9
conditions 304 --header "If-None-Match: $tag" --range 3000000-
expect "a condition on no file" 404 "$(status_of --header 'If-Match: *' "$(url /nowhere)")"

expect "304 tells the length of the file, if any" 3000000 \
    "$(header_of Content-Length --header "If-None-Match: $tag" "$(url /noise.bin)")"
expect "304 has no body, and the connection goes on" "304 0 200 3000000" \
    "$(ask --output /dev/null --write-out '%{http_code} %{size_download} ' --header "If-None-Match: $tag" \
        "$(url /noise.bin)" --next --silent --output /dev/null --write-out '%{http_code} %{size_download}' \
        "$(url /noise.bin)")"

touch -d '2001-02-03 04:05:06 UTC' "$root/noise.bin"
expect "a changed file" 200 "$(status_of --header "If-None-Match: $tag" "$(url /noise.bin)")"
expect "its time" "Sat, 03 Feb 2001 04:05:06 GMT" "$(header_of Last-Modified "$(url /noise.bin)")"
python3 "$(dirname "${BASH_SOURCE[0]}")/conditional_files.py" "$port" "$root" || fail "conditional requests at random"
stop_server TERM
