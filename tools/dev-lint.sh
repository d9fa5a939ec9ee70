# shellcheck shell=bash
# lint [CHECK...] -- checks layout, clang-tidy, thread annotations, shell scripts, conventions

readonly LINT_CHECKS=(format shell conventions threads tidy)
# What the names of secrets have in them.
readonly SECRET='([Ss]ignature|[Ss]ecret|[Pp]assword|[Tt]oken|[Hh]mac)'

lint_format() {
    local found
    has_lint_version || {
        echo "lint: format is skipped: the sources are laid out by clang-format $LINT_VERSION, and this is another version"
        return
    }
    if ! found="$(project_files '*.h' '*.cpp' | xargs -r -d '\n' clang-format --dry-run -Werror 2>&1)"; then
        # One line for each file: the places matter little, as a command puts them right.
        grep -oE '^[^: ]+:[0-9]+:[0-9]+: error' <<<"$found" | cut -d: -f1 | sort -u >&2 || echo "$found" >&2
        echo "dev: ./dev format lays these files out" >&2
        return 1
    fi
}

lint_shell() {
    project_files dev .ci/run '*.sh' | xargs -r -d '\n' shellcheck
}

# Prints the lines of the files read from standard input that match the pattern, but those that match the other one;
# finding one is a failure.
forbid() {
    local what="$1" pattern="$2" but="${3:-^$}" found
    found="$(xargs -r -d '\n' grep -nHIE -e "$pattern" | grep -vE -e "$but" || true)"
    if [[ -n "$found" ]]; then
        printf '%s:\n%s\n' "$what" "$found" >&2
        return 1
    fi
}

# Fails where no line of the file matches the pattern.
demand() {
    local what="$1" pattern="$2" file="$3"
    if ! grep -qE -e "$pattern" "$file"; then
        echo "no more: $what: $file" >&2
        return 1
    fi
}

# Prints those of the files read from standard input whose first line doesn't state the licence; finding one is a failure.
lack_licence() {
    local file status=0
    while IFS= read -r file; do
        if [[ "$(head -n 1 "$file")" != "// SPDX-License-Identifier: MIT" ]]; then
            echo "the licence is not the first line: $file" >&2
            status=1
        fi
    done
    return "$status"
}

lint_conventions() {
    local status=0
    project_files '*.h' '*.cpp' | grep -vE '_(posix|windows)\.(h|cpp)$' |
        forbid "platform code outside the platform halves" '\b_WIN(32|64)\b' || status=1
    project_files 'src/*.h' 'src/*.cpp' 'include/*.h' | grep -v '^src/engine/' |
        forbid "the engine's header outside the engine room" '#include <microhttpd\.h>' || status=1
    # An application's compiler may read them in another encoding.
    project_files 'include/*.h' | LC_ALL=C forbid "a public header is not ASCII" '[^[:space:] -~]' || status=1
    # It stands on the core's public headers, and compiles a few helpers of the core's a second time.
    project_files 'src/app/*.h' 'src/app/*.cpp' 'tests/app/*.h' 'tests/app/*.cpp' |
        forbid "the toolkit reaches into the core" '#include "' \
            '"(vireo/|app/|support/|frame/(ExceptionLog|HttpSyntax|InvalidArgument|NeverDestroyed|Utf8)\.h")' || status=1
    # Any other comparison ends at the first byte that is wrong, and tells by its time how many were right.
    project_files 'src/app/middleware/*.h' 'src/app/middleware/*.cpp' |
        forbid "a secret is compared by something else than isSameText()" \
            "\b(mem|str)cmp\(|\bequal\(|\.compare\(|$SECRET\w*(\([^)]*\))? *[!=]=|[!=]= *[][:alnum:]_:.*>-]*$SECRET" ||
        status=1
    demand "signatures are compared by isSameText()" 'if \(isSameText\(signature, signatureOf\(' \
        src/app/middleware/SignedText.cpp || status=1
    demand "isSameText() looks at every byte" 'return impl::isSameSecret<' src/app/middleware/Authentication.cpp || status=1
    # Written so that this file doesn't match itself.
    project_files | forbid "unfinished work" '\b(TO[D]O|FIX[M]E)\b' || status=1
    project_files 'include/*.h' 'src/*.h' | lack_licence || status=1
    return "$status"
}

# Also shows that the library, the examples and the demo build without a warning of clang's.
lint_threads() {
    build tidy
}

# A finding in a header is made once for each file that includes it, so that the report itself goes to a file.
lint_tidy() {
    local log="$ROOT/build/tidy/clang-tidy.log"
    has_lint_version || {
        echo "lint: tidy is skipped: the checks are those of clang-tidy $LINT_VERSION, and this is another version"
        return
    }
    # For the compile commands and the generated headers.
    cmake --preset tidy >/dev/null
    if ! python3 "$ROOT/tools/tidy.py" --root "$ROOT" --build "$ROOT/build/tidy" src examples demo >"$log" 2>&1; then
        sed 's/\x1b\[[0-9;]*m//g' "$log" | grep -E ' (error|warning): ' | sort -u >&2
        echo "dev: with more context in $log" >&2
        return 1
    fi
}

# Runs every check even if one fails; each in a process of its own, where an error still ends it.
command_lint() {
    local check start failed=()
    need "${PACKAGES_BUILD[@]}" "${PACKAGES_LINT[@]}"
    if (($# == 1)); then
        [[ " ${LINT_CHECKS[*]} " == *" $1 "* ]] || die "lint has no check '$1', but these: ${LINT_CHECKS[*]}"
        "lint_$1"
        return
    fi
    for check in "${@:-${LINT_CHECKS[@]}}"; do
        start=$SECONDS
        echo "lint: $check"
        "$ROOT/dev" lint "$check" || failed+=("$check")
        echo "lint: $check took $((SECONDS - start)) s"
    done
    if ((${#failed[@]} > 0)); then
        die "lint found something in: ${failed[*]}"
    fi
    echo "lint: nothing found"
}
