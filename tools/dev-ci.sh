# shellcheck shell=bash
# ci -- runs every check that a change has to pass

readonly CI_STEPS=(
    "test"
    "sanitize address"
    "sanitize thread"
    "lint"
    "fuzz --seconds 12"
    "soak --minutes 1"
    "soak --minutes 1 --defined"
    "abi"
    "docs"
    "smoke"
    "browser"
    "windows"
)

ci_duration() {
    printf '%d:%02d' $(($1 / 60)) $(($1 % 60))
}

# Adds up the summaries that ctest and node's test runner wrote to the log: "passed failed skipped". ctest's totals hold
# the skipped tests, but not the disabled ones. A step that runs no tests counts as one.
ci_count() {
    local log="$1" status="$2"
    awk -v status="$status" '
        /^[0-9]+% tests passed, [0-9]+ tests failed out of [0-9]+/ { failed += $4; total += $NF }
        /^[ \t]+[0-9]+ - .* \(Skipped\)$/ { skipped += 1 }
        /^# tests [0-9]+$/ { total += $3 }
        /^# fail [0-9]+$/ { failed += $3 }
        END {
            if (total == 0) total = 1
            if (status != 0 && failed == 0) failed = 1
            passed = total - failed - skipped
            print (passed > 0 ? passed : 0), failed + 0, skipped + 0
        }' "$log"
}

# Runs the steps given. Each is a command line of ./dev; the first one that fails ends the run.
ci_run() {
    local step status start counts log row
    local passed=0 failed=0 skipped=0 table=() begin=$SECONDS logs="$ROOT/build/ci"
    mkdir -p "$logs"
    for step in "$@"; do
        start=$SECONDS
        status=0
        log="$logs/${step// /-}.log"
        printf '\n==== %s\n' "$step"
        # shellcheck disable=SC2086  # a step's words are its command and arguments
        "$ROOT/dev" $step </dev/null 2>&1 | tee "$log" || status=$?
        read -r -a counts <<<"$(ci_count "$log" "$status")"
        passed=$((passed + counts[0]))
        failed=$((failed + counts[1]))
        skipped=$((skipped + counts[2]))
        table+=("$(printf '%-24s %-6s %8s' "$step" "$( ((status == 0)) && echo passed || echo FAILED)" \
            "$(ci_duration $((SECONDS - start)))")")
        printf '==== %s\n' "${table[-1]}"
        if ((status != 0)); then
            break
        fi
    done
    echo
    for row in "${table[@]}"; do
        echo "$row"
    done
    printf '%-24s %-6s %8s\n\n' total "" "$(ci_duration $((SECONDS - begin)))"
    if ((skipped > 0)); then
        echo "$passed passed, $failed failed, $skipped skipped"
    else
        echo "$passed passed, $failed failed"
    fi
    return "$status"
}

command_ci() {
    ci_run "${CI_STEPS[@]}"
}
