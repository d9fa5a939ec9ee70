#!/usr/bin/env bash
# What the toolkit's pages show compiles. usage: docs.sh COMPILER PAGES LEAST INCLUDE-DIRECTORY...
#
# Each block of C++ becomes a function, with what docs_names.h has as its arguments; one with a function, a test or an
# inline variable of its own stays as it is. All are one source, in which each page is a namespace. LEAST blocks are there.
set -euo pipefail

compiler="$1" pages="$2" least="$3"
shift 3
here="$(dirname "${BASH_SOURCE[0]}")"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

for page in "$pages"/*.md; do
    name="$(basename "$page" .md)"
    awk -v page="$page" -v name="${name//-/_}" -v includes="$work/includes" '
        BEGIN { print "namespace page_" name " {" }
        /^```cpp$/ { inside = 1; isWhole = 0; text = "#line " NR + 1 " \"" page "\"\n"; next }
        /^```$/ && inside {
            inside = 0
            print isWhole ? text : "int block" ++blocks "(PAGE_ARGUMENTS) {\n" text "}"
        }
        inside && /^#include/ { print >>includes; $0 = "" }
        inside && /^(inline |int main|TEST\()/ { isWhole = 1 }
        inside { text = text $0 "\n" }
        END { print "}" }
    ' "$page" >>"$work/blocks"
done
{
    sort -u "$work/includes"
    echo "#include \"docs_names.h\""
    cat "$work/blocks"
} >"$work/pages.cpp"
blocks="$(grep -c '^#line' "$work/pages.cpp")"
((blocks >= least)) || {
    echo "FAILED: only $blocks blocks are there" >&2
    exit 1
}
"$compiler" -std=c++20 -fsyntax-only -Wno-return-type -I "$here" "${@/#/-I}" "$work/pages.cpp"
echo "ok: $blocks blocks compile"
