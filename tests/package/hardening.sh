#!/usr/bin/env bash
# Looks at what the libraries of an installed tree do against whoever finds a flaw in them.
# usage: hardening.sh shared|static PREFIX
set -euo pipefail

readonly KIND="$1" PREFIX="$2"
status=0

# expect TEXT PATTERN INSTEAD: the text, which readelf wrote, has a line of the pattern.
expect() {
    if ! grep -qE -e "$2" <<<"$1"; then
        echo "FAILED: $library $3" >&2
        status=1
    fi
}

case "$KIND" in
shared) name='libvireo*.so.*' ;;
static) name='libvireo*.a' ;;
esac
mapfile -t libraries < <(find "$PREFIX" -type f -name "$name")
((${#libraries[@]} == 2)) || {
    echo "FAILED: not two libraries, but ${libraries[*]:-none}" >&2
    exit 1
}
for library in "${libraries[@]}"; do
    symbols="$(readelf --wide --symbols "$library")"
    expect "$symbols" ' __stack_chk_fail\b' "does not look at its stack before it returns"
    expect "$symbols" ' __[a-z]+_chk\b' "calls no function of the C library that looks at lengths"
    [[ "$KIND" == shared ]] || continue
    segments="$(readelf --wide --segments "$library")"
    dynamic="$(readelf --wide --dynamic "$library")"
    expect "$segments" '^ *GNU_RELRO ' "can be written to where its relocations are"
    expect "$dynamic" '\(FLAGS_1\).*\bNOW\b' "binds symbols when they are called"
    expect "$segments" '^ *GNU_STACK .* RW +0x' "runs with a stack that holds code"
done
exit "$status"
