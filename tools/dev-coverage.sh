# shellcheck shell=bash
# coverage [CTEST-ARGUMENT...] -- runs the test suite and reports which lines and branches of src/ it runs

readonly PACKAGES_COVERAGE=(gcovr)
# In percent. Below them the command fails.
readonly COVERAGE_LINES=95 COVERAGE_BRANCHES=85

# The branches that the compiler makes for exceptions, and those that it knows nobody takes, are not counted: nobody
# wrote them. Failing allocations have tests of their own.
command_coverage() {
    local build="$ROOT/build/coverage"
    need "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}" "${PACKAGES_COVERAGE[@]}"
    build coverage
    find "$build" -name '*.gcda' -delete
    ctest --preset coverage "$@"
    mkdir -p "$build/report"
    gcovr --root "$ROOT" --filter "$ROOT/src/" --exclude-throw-branches --exclude-unreachable-branches \
        --object-directory "$build/src" --sort-uncovered --print-summary \
        --html-details "$build/report/index.html" --txt "$build/report/lines.txt" --json-summary "$build/report/summary.json" \
        --fail-under-line "$COVERAGE_LINES" --fail-under-branch "$COVERAGE_BRANCHES" "$build/src"
    echo "dev: the report is build/coverage/report/index.html"
}
