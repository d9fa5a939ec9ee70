#!/usr/bin/env bash
# Each example fits on a screen or two: 80 lines in all, the whole service 180. usage: sizes.sh DIRECTORY
set -euo pipefail

status=0
for example in "$1"/*/; do
    limit=80
    [[ "$(basename "$example")" == notes ]] && limit=180
    lines="$(find "$example" \( -name '*.cpp' -o -name '*.h' \) -exec cat {} + | wc -l)"
    if ((lines > limit)); then
        echo "FAILED: $example has $lines lines of C++, more than $limit" >&2
        status=1
    fi
    echo "ok: $example $lines"
done
exit "$status"
