# shellcheck shell=bash
# ci -- runs every check that a change has to pass

# Steps, one after the other; what stands behind "&" runs beside what is before it, since it waits for most of its time.
readonly CI_STEPS=(
    "test"
    "test --engine 1.0"
    "sanitize address"
    "sanitize thread"
    "lint; fuzz --seconds 10 & soak --minutes 1; soak --minutes 1 --defined"
    "abi"
    "docs"
    "smoke"
    "windows & browser"
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

ci_log() {
    echo "$ROOT/build/ci/${1// /-}.log"
}

# The parts of a text, one on each line, without the blanks around them.
ci_split() {
    sed -E "s/ *[$2] */\n/g" <<<"$1"
}

# Runs steps that are joined by semicolons, up to the first that fails. Each is a command line of ./dev. How it ended and
# how long it took stand beside its log.
ci_lane() {
    local step log start status
    while read -r step <&3; do
        log="$(ci_log "$step")"
        start=$SECONDS
        status=0
        printf '\n==== %s\n' "$step"
        # shellcheck disable=SC2086  # a step's words are its command and arguments
        "$ROOT/dev" $step </dev/null 2>&1 | tee "$log" || status=$?
        echo "$status $((SECONDS - start))" >"$log.result"
        ((status == 0)) || return "$status"
    done 3< <(ci_split "$1" ';')
}

# Runs the entries given, up to the first of which a step fails: lanes that are joined by "&". What the first prints is
# seen at once, and what the others do when it is over.
ci_run() {
    local entry step log row seconds lanes counts status=0 failure=0
    local passed=0 failed=0 skipped=0 table=() begin=$SECONDS
    rm -rf "$ROOT/build/ci"
    mkdir -p "$ROOT/build/ci"
    for entry in "$@"; do
        mapfile -t lanes < <(ci_split "$entry" '&')
        for row in "${lanes[@]:1}"; do
            ci_lane "$row" >"$(ci_log "$row")" &
        done
        ci_lane "${lanes[0]}" || true
        wait
        for row in "${lanes[@]:1}"; do
            cat "$(ci_log "$row")"
        done
        while read -r step; do
            log="$(ci_log "$step")"
            [[ -f "$log.result" ]] || continue
            read -r status seconds <"$log.result"
            ((status == 0)) || failure="$status"
            read -r -a counts <<<"$(ci_count "$log" "$status")"
            passed=$((passed + counts[0]))
            failed=$((failed + counts[1]))
            skipped=$((skipped + counts[2]))
            table+=("$(printf '%-24s %-6s %8s' "$step" "$( ((status == 0)) && echo passed || echo FAILED)" \
                "$(ci_duration "$seconds")")")
            printf '==== %s\n' "${table[-1]}"
        done < <(ci_split "$entry" '&;')
        ((failure == 0)) || break
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
    return "$failure"
}

command_ci() {
    ci_run "${CI_STEPS[@]}"
}
