# shellcheck shell=bash
# fuzz [--seconds N] [--event] [--strict] [--coverage] [FUZZER...] -- runs the fuzzers, each for so long (20 seconds)

readonly PACKAGES_FUZZ=(liburiparser-dev)

# The names of all fuzzers, one on each line: each has a directory of named seeds, and beside it a file of those without
# a name (tools/fuzz-seeds.py).
fuzz_names() {
    local directory
    for directory in "$ROOT"/fuzz/corpus/*/; do
        basename "$directory"
    done
}

# Runs one fuzzer and prints one line about it. What it finds new stays in build/fuzz/corpus, so that the next run goes
# on from there; an input that fails is kept as well.
fuzz_one() {
    local name="$1" seconds="$2" build="$ROOT/build/fuzz" options=() status=0 log
    log="$build/logs/$name.log"
    mkdir -p "$build/logs" "$build/corpus/$name" "$build/failures"
    rm -rf "${build:?}/seeds/$name"
    python3 "$ROOT/tools/fuzz-seeds.py" unpack "$ROOT/fuzz/corpus/$name.txt" "$build/seeds/$name"
    if [[ -f "$ROOT/fuzz/dictionaries/$name.dict" ]]; then
        options+=("-dict=$ROOT/fuzz/dictionaries/$name.dict")
    fi
    # What a server that never stops holds behind a run is no leak, and looking for it takes as long as the run.
    if [[ "$name" == *-road ]]; then
        options+=(-detect_leaks=0)
    fi
    # As many steps as one run of these may have: longer ones show nothing more, and no seed is longer.
    case "$name" in
    app-response | app-router | frame-codec | receive-device | response-device | set-cookie)
        options+=(-max_len=144)
        ;;
    esac
    # To keep account of which inputs are rare takes up to a third of the time, and finds no more in what is left; nor
    # do the edges tell that a road's threads come by, another time others.
    options+=(-entropic=0)
    # Each run frees what it has made: what is kept to find uses after that needs no more than a few runs' memory, and
    # with more of it the processor's caches are of no use. Where memory came from is told in three frames; an input
    # that fails tells all of them when it runs alone.
    ASAN_OPTIONS=quarantine_size_mb=16:malloc_context_size=3 UBSAN_OPTIONS=print_stacktrace=1 "$build/fuzz/$name" \
        -max_total_time="$seconds" -timeout=60 -rss_limit_mb=4096 -print_final_stats=1 \
        -artifact_prefix="$build/failures/$name-" "${options[@]}" \
        "$build/corpus/$name" "$build/seeds/$name" "$ROOT/fuzz/corpus/$name" </dev/null >"$log" 2>&1 || status=$?
    if ((status != 0)); then
        tail -n 60 "$log" >&2
        echo "fuzz: $name failed; its input is in build/failures, its log in $log" >&2
        return 1
    fi
    awk -v name="$name" '
        /^stat::number_of_executed_units:/ { runs = $2 }
        /^stat::average_exec_per_sec:/ { rate = $2 }
        / cov: / { for (i = 1; i < NF; ++i) if ($i == "cov:") covered = $(i + 1) }
        END { printf "fuzz: %-17s %10d executions, %6d a second, %6d edges\n", name, runs, rate, covered }' "$log"
}

# Two run at a time. With --coverage each only reads what it has, and how much of src/ that runs is told. With --event
# and --strict the servers of the roads wait by events, and are strict. An input that fails has to become a test with a
# name of its own.
command_fuzz() {
    local seconds=20 name names=() failed=0 coverage=0
    while (($# > 0)); do
        case "$1" in
        --seconds)
            seconds="${2:?--seconds takes a number}"
            shift 2
            ;;
        --event)
            export VIREO_TEST_WAITING=event
            shift
            ;;
        --strict)
            export VIREO_FUZZ_STRICT=1
            shift
            ;;
        --coverage)
            coverage=1
            shift
            ;;
        --one)
            fuzz_one "$2" "$3"
            return
            ;;
        *)
            names+=("$1")
            shift
            ;;
        esac
    done
    need "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}" "${PACKAGES_SANITIZE[@]}" "${PACKAGES_FUZZ[@]}"
    if ((${#names[@]} == 0)); then
        mapfile -t names < <(fuzz_names)
    fi
    if ((coverage == 1)); then
        build fuzz-coverage
        python3 "$ROOT/tools/fuzz-coverage.py" "$ROOT" "$ROOT/build/fuzz-coverage" "$ROOT/build/fuzz/corpus" "${names[@]}"
        return
    fi
    build fuzz
    for name in "${names[@]}"; do
        [[ -x "$ROOT/build/fuzz/fuzz/$name" ]] || die "there is no fuzzer '$name', but these: $(fuzz_names | xargs)"
    done
    rm -rf "$ROOT/build/fuzz/logs"
    printf '%s\n' "${names[@]}" | xargs -P 2 -I '{}' "$ROOT/dev" fuzz --one '{}' "$seconds" || failed=1
    awk '/^stat::number_of_executed_units:/ { runs += $2 } END { printf "fuzz: %d executions in all\n", runs }' \
        "$ROOT/build/fuzz/logs/"*.log
    ((failed == 0)) || die "a fuzzer has found something"
}
