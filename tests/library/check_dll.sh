#!/usr/bin/env bash
# Checks that a DLL built with MinGW exports what the headers declare with its macro and nothing else, and that it needs
# nothing but the DLLs that it stands on and the system; that it may be loaded anywhere and holds no code in its data.
# usage: check_dll.sh DLL OBJDUMP INCLUDE_DIRECTORY MACRO NEEDED_DLL...
set -euo pipefail

readonly DLL="$1" OBJDUMP="$2" INCLUDE="$3" MACRO="$4"
shift 4
# The stack protector takes its random number from advapi32.dll.
readonly ALLOWED_IMPORTS=(advapi32.dll bcrypt.dll kernel32.dll msvcrt.dll ws2_32.dll "${@,,}")

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

# ---- What it does against whoever finds a flaw in it ----

for mark in DYNAMIC_BASE HIGH_ENTROPY_VA NX_COMPAT; do
    grep -qE "^[[:space:]]+$mark\$" <<<"$tables" || problem "the DLL is not marked $mark"
done

# ---- Exports ----

# Names only, without arguments: "ql::http::WebSocket::WriteHeader", "vtable for qlMutex".
mapfile -t exports < <(sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/s/^[[:space:]]*\[ *[0-9]*\] //p' <<<"$tables" |
    c++filt | sed -E 's/\[abi:cxx11\]//; s/operator\(\)/operator/; s/\(.*//' | sort -u)
echo "exports: ${#exports[@]} names"
((${#exports[@]} > 0)) || problem "no exports found"

# What stands behind the macro: the name of a class; or, of a function, its own, with that of the class it stands in. The
# names of classes and functions at the beginning of a line are those of namespaces.
declared="$(find "$INCLUDE" -name '*.h' -exec cat {} + | awk -v macro="(^|[^A-Za-z_])$MACRO " '
    { line = $0; sub(/^ *template *<[^>]*> /, "", line) }
    line ~ /^(class|struct) [^;]*$/ { split(line, words, /[ :]+/); inside = words[2] "::" }
    line ~ macro && line ~ /(class|struct) / {
        sub(/.*(class|struct) [A-Z_]+ ([A-Z_]+\("[a-z]+"\) )?/, "", line)
        sub(/[^A-Za-z0-9].*/, "", line)
        print "class " line
        next
    }
    line ~ macro {
        sub(/operator\(\)/, "operator", line)
        sub(/\(.*/, "", line)
        sub(/.*[ &*]/, "", line)
        print "function " (($0 ~ /^ /) ? inside : "") line
    }
    /^}/ { inside = "" }')"
mapfile -t classes < <(sed -n 's/^class //p' <<<"$declared" | sort -u)
mapfile -t functions < <(sed -n 's/^function //p' <<<"$declared" | sort -u)
echo "declared: ${#classes[@]} classes, ${#functions[@]} functions"

declare -A is_class is_function is_found
for name in "${classes[@]}"; do
    is_class[$name]=1
done
for name in "${functions[@]}"; do
    is_function[$name]=1
done

# A member's last component but one is its class, or a class nested in it; a table or type information is the class's own.
for export in "${exports[@]}"; do
    name="${export##* for }"
    found=""
    if [[ "$name" != "$export" ]]; then
        name="${name##*::}"
        found="${is_class[$name]:+$name}"
    else
        for part in ${name//::/ }; do
            if [[ -n "${is_class[$part]:-}" ]]; then
                found="$part"
            fi
        done
        function="${name##*::}"
        scope="${name%"$function"}"
        scope="${scope%::}"
        member="${scope##*::}::$function"
        for function in "$member" "$function"; do
            if [[ -z "$found" && -n "${is_function[$function]:-}" ]]; then
                found="$function"
            fi
        done
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
