#!/usr/bin/env bash
# Checks that a DLL built with MinGW exports what the headers declare with VIREO_API and nothing else, and that it needs
# nothing but the engine and the system. usage: check_dll.sh DLL OBJDUMP INCLUDE_DIRECTORY
set -euo pipefail

readonly DLL="$1" OBJDUMP="$2" INCLUDE="$3"
readonly ALLOWED_IMPORTS=(bcrypt.dll kernel32.dll libmicrohttpd-12.dll msvcrt.dll ws2_32.dll)

status=0
problem() {
    echo "FAILED: $*" >&2
    status=1
}

tables="$("$OBJDUMP" -p "$DLL")"

# ---- Imports ----

mapfile -t imports < <(sed -n 's/^[[:space:]]*DLL Name: //p' <<<"$tables" | tr '[:upper:]' '[:lower:]' | sort)
echo "imports: ${imports[*]}"
((${#imports[@]} > 0)) || problem "no imports found"
for import in "${imports[@]}"; do
    [[ " ${ALLOWED_IMPORTS[*]} " == *" $import "* ]] || problem "the DLL needs $import"
done

# ---- Exports ----

# Names only, without arguments: "ql::http::WebSocket::WriteHeader", "vtable for qlMutex".
mapfile -t exports < <(sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/s/^[[:space:]]*\[ *[0-9]*\] //p' <<<"$tables" |
    c++filt | sed -E 's/\[abi:cxx11\]//; s/\(.*//' | sort -u)
echo "exports: ${#exports[@]} names"
((${#exports[@]} > 0)) || problem "no exports found"

headers="$(find "$INCLUDE" -name '*.h' -exec cat {} +)"
mapfile -t classes < <(sed -nE 's/.*\b(class|struct) VIREO_API ([A-Z_]+\("[a-z]+"\) )?([A-Za-z0-9]+).*/\3/p' <<<"$headers" |
    sort -u)
mapfile -t functions < <(grep -E '\bVIREO_API\b' <<<"$headers" | grep -vE '\b(class|struct) VIREO_API' |
    sed -nE 's/.*\b([A-Za-z0-9]+)\(.*/\1/p' | sort -u)
echo "declared: ${#classes[@]} classes, ${#functions[@]} functions"

declare -A is_class is_function is_found
for name in "${classes[@]}"; do
    is_class[$name]=1
done
for name in "${functions[@]}"; do
    is_function[$name]=1
done

# A member's last component but one is its class, or a class nested in it.
for export in "${exports[@]}"; do
    name="${export#vtable for }"
    name="${name#typeinfo for }"
    found=""
    for part in ${name//::/ }; do
        if [[ -n "${is_class[$part]:-}" ]]; then
            found="$part"
        fi
    done
    if [[ -z "$found" && -n "${is_function[${name##*::}]:-}" ]]; then
        found="${name##*::}"
    fi
    if [[ -z "$found" ]]; then
        problem "the DLL exports '$export', which no header declares so"
    else
        is_found[$found]=1
    fi
done
for name in "${classes[@]}" "${functions[@]}"; do
    [[ -n "${is_found[$name]:-}" ]] || problem "the headers declare $name, but the DLL exports nothing of it"
done

exit "$status"
