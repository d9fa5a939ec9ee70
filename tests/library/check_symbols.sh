#!/usr/bin/env bash
# The shared library exports what the reviewed list says, no more and no less. usage: check_symbols.sh LIBRARY LIST
set -euo pipefail

readonly LIBRARY="$1" LIST="$2"

if ! diff --unified=0 "$LIST" <("$(dirname "${BASH_SOURCE[0]}")/exported_symbols.sh" "$LIBRARY") | cut -f 2; then
    echo "FAILED: the exported symbols differ from $LIST" >&2
    echo "docs/compatibility.md says what may change; ./dev abi --record takes the change over" >&2
    exit 1
fi
