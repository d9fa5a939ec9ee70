# shellcheck shell=bash
# bench [--engine VERSION] [--quick] [OPTION...] -- measures the library beside the bare engine and its peers

PACKAGES_BENCH_BUILD=(libbenchmark-dev libcivetweb-dev libcpp-httplib-dev libwebsockets-dev)
# Boost's headers of any version will do, and no two can be installed.
[[ -e /usr/include/boost/version.hpp ]] || PACKAGES_BENCH_BUILD+=(libboost-dev)
readonly PACKAGES_BENCH_RUN=(nginx-light wrk python3)

# With --build-only nothing is measured. Other options go to the runner; --help explains them.
command_bench() {
    choose_engine "$@"
    set -- "${ARGUMENTS[@]}"
    [[ -z "${VIREO_BUILD_SUFFIX:-}" || " $* " != *" --publish "* ]] || die "the published figures are of the installed engine"
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
