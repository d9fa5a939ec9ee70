#!/usr/bin/env bash
# Each example fits on a screen or two: 80 lines in all, the whole service 180, a step of the tutorial 230 without its
# test, and of the cluster what is not its bus, which is to be copied as it is. usage: sizes.sh DIRECTORY
set -euo pipefail

status=0
for example in "$1"/*/ "$1"/tutorial/*/; do
    limit=80
    case "$example" in
    */notes/) limit=180 ;;
    */tutorial/ | */coming-from/) continue ;; # of several programs each
    */tutorial/*) limit=230 ;;
    esac
    lines="$(find "$example" \( -name '*.cpp' -o -name '*.h' \) ! -name test.cpp ! -name 'RedisBus.*' -exec cat {} + | wc -l)"
    if ((lines > limit)); then
        echo "FAILED: $example has $lines lines of C++, more than $limit" >&2
        status=1
    fi
    echo "ok: $example $lines"
done
exit "$status"
