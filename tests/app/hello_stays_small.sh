#!/usr/bin/env bash
# What the compiler has to read for the smallest server stays small, so that it is compiled in a second or so: little more
# than the few standard headers that the toolkit's cannot do without, which are of another length in each compiler.
# usage: hello_stays_small.sh COMPILER SOURCE INCLUDE-DIRECTORY...
set -euo pipefail

readonly STANDARD=(chrono concepts exception functional memory optional span string vector)

compiler="$1" source="$2"
shift 2

# Counts the lines of a program on standard input.
count() {
    "$compiler" -std=c++20 -E -x c++ "$@" - | wc -l
}

standard="$(printf '#include <%s>\n' "${STANDARD[@]}" | count)"
((standard > 10000))
limit=$((standard + 4000))
lines="$(count "${@/#/-I}" <"$source")"
echo "$lines lines, at most $limit"
((lines > standard && lines <= limit))
