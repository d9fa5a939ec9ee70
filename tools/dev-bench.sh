# shellcheck shell=bash
# bench [--quick] [--build-only] [OPTION...] -- measures the library beside the bare engine and its peers

readonly PACKAGES_BENCH_BUILD=(libbenchmark-dev libboost-dev libcivetweb-dev libcpp-httplib-dev libwebsockets-dev)
readonly PACKAGES_BENCH_RUN=(nginx-light wrk python3)

# With --build-only nothing is measured. Other options go to the runner; --help explains them.
command_bench() {
    if [[ "$*" == "--build-only" ]]; then
        need "${PACKAGES_BUILD[@]}" "${PACKAGES_BENCH_BUILD[@]}"
        build bench
        return
    fi
    need "${PACKAGES_BUILD[@]}" "${PACKAGES_BENCH_BUILD[@]}" "${PACKAGES_BENCH_RUN[@]}"
    case " $* " in
    *" --help "* | *" -h "* | *" --list "* | *" --from-results "*) ;;
    *) build bench ;;
    esac
    exec env PYTHONDONTWRITEBYTECODE=1 python3 "$ROOT/bench/runner/main.py" --build "$ROOT/build/bench" "$@"
}
