#!/usr/bin/env bash
# Prints what the shared library exports, a mangled and a readable name on each line, in byte order. Weak functions are
# left out, and so is what describes the standard library's classes: each program that uses them has it, too.
# usage: exported_symbols.sh LIBRARY
set -euo pipefail
export LC_ALL=C

names="$(nm --dynamic --defined-only "$1" | awk '$2 !~ /^[Wu]$/ { print $3 }' | sort -u)"
paste -d '\t' <(echo "$names") <(c++filt <<<"$names") | grep -vE '\s(typeinfo|typeinfo name|vtable) for std::'
