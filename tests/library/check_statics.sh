#!/usr/bin/env bash
# Fails when an object file makes or destroys static objects on its own: those of a static library would come after,
# and go before, an application's that use it. Only the registry of methods may, since it does so before all others.
# usage: check_statics.sh OBJECT...
set -euo pipefail

found="$(nm -A "$@" | grep -E ' _GLOBAL__sub_[ID]| __cxa_atexit$' |
    grep -vE 'MethodRegistry\.cpp\.o:.*( _GLOBAL__sub_I\.00101_| __cxa_atexit$)' || true)"
if [[ -n "$found" ]]; then
    echo "static objects that are not NeverDestroyed:" >&2
    echo "$found" >&2
    exit 1
fi
