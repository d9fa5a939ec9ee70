#!/usr/bin/env bash
# What the compiler has to read for the smallest server stays small, so that it is compiled in a second or so.
# usage: hello_stays_small.sh COMPILER SOURCE INCLUDE-DIRECTORY...
set -euo pipefail

limit=95000
compiler="$1" source="$2"
shift 2
lines="$("$compiler" -std=c++20 -E "${@/#/-I}" "$source" | wc -l)"
echo "$lines lines, at most $limit"
((lines > 0 && lines <= limit))
