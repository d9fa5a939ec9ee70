# shellcheck shell=bash
# bench [--engine VERSION] [--event|--tls] [--quick] [OPTION...] -- measures the library beside the bare engine and its peers

PACKAGES_BENCH_BUILD=(libbenchmark-dev libcivetweb-dev libcpp-httplib-dev libwebsockets-dev)
# Boost's headers of any version will do, and no two can be installed.
[[ -e /usr/include/boost/version.hpp ]] || PACKAGES_BENCH_BUILD+=(libboost-dev)
readonly PACKAGES_BENCH_RUN=(nginx-light wrk curl openssl python3)
readonly PACKAGES_BENCH_EVENT=(curl haproxy wrk python3)

# With --build-only nothing is measured; with --event, first, a server that waits by events is held to its bounds beside
# one that polls. Other options go to the runner; --help explains them.
command_bench() {
    choose_engine "$@"
    set -- "${ARGUMENTS[@]}"
    [[ -z "${VIREO_BUILD_SUFFIX:-}" || " $* " != *" --publish "* ]] || die "the published figures are of the installed engine"
    if [[ "${1:-}" == --event ]]; then
        shift
        need "${PACKAGES_BUILD[@]}" "${PACKAGES_BENCH_BUILD[@]}" "${PACKAGES_BENCH_EVENT[@]}"
        build bench bench-events bench-http-client
        exec env PYTHONDONTWRITEBYTECODE=1 PYTHONPATH="$ROOT/bench/runner" python3 "$ROOT/bench/events/main.py" \
            --build "$ROOT/build/bench${VIREO_BUILD_SUFFIX:-}" "$@"
    fi
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
    exec env PYTHONDONTWRITEBYTECODE=1 python3 "$ROOT/bench/runner/main.py" \
        --build "$ROOT/build/bench${VIREO_BUILD_SUFFIX:-}" "$@"
}
