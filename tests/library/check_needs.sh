#!/usr/bin/env bash
# The shared library tells this name, and needs these libraries and no other beside the compiler's and the system's.
# usage: check_needs.sh LIBRARY SONAME NAME.so...
set -euo pipefail

readonly LIBRARY="$1" SONAME="$2"
shift 2

# tagged TAG: the names that the dynamic section holds under this tag.
tagged() {
    readelf --dynamic --wide "$LIBRARY" | sed -nE "s/.*\\($1\\).*\\[(.*)\\]/\\1/p"
}

status=0
name="$(tagged SONAME)"
if [[ "$name" != "$SONAME" ]]; then
    echo "FAILED: the library's name is '$name', not $SONAME" >&2
    status=1
fi
own="$(tagged NEEDED | grep -vE '^(libstdc\+\+|libgcc_s|libm|libc|ld-linux[a-z0-9_-]*)\.so\.[0-9]+$' | sed -E 's/\.so\..*/.so/' | sort)"
if ! diff <(printf '%s\n' "$@" | sort) <(echo "$own"); then
    echo "FAILED: the library needs others than these: $*" >&2
    status=1
fi
exit "$status"
