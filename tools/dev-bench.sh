# shellcheck shell=bash
# bench [--quick] [--build-only] [OPTION...] -- measures the library beside the bare engine and its peers

readonly PACKAGES_BENCH_BUILD=(libbenchmark-dev libboost-dev libcivetweb-dev libcpp-httplib-dev libwebsockets-dev)
readonly PACKAGES_BENCH_RUN=(nginx-light wrk python3)
readonly SERVICE_POLICY=/usr/sbin/policy-rc.d

# Installing nginx starts it as a service on port 80, where nobody wants it for a benchmark.
install_without_services() {
    local status=0
    if [[ ! -e "$SERVICE_POLICY" ]] && command -v dpkg-query >/dev/null && ! command -v nginx >/dev/null; then
        printf '#!/bin/sh\nexit 101\n' | as_root tee "$SERVICE_POLICY" >/dev/null
        as_root chmod +x "$SERVICE_POLICY"
        (need "$@") || status=$?
        as_root rm -f "$SERVICE_POLICY"
        return "$status"
    fi
    need "$@"
}

# With --build-only nothing is measured. Other options go to the runner; --help explains them.
command_bench() {
    if [[ "$*" == "--build-only" ]]; then
        need "${PACKAGES_BUILD[@]}" "${PACKAGES_BENCH_BUILD[@]}"
        build bench
        return
    fi
    install_without_services "${PACKAGES_BUILD[@]}" "${PACKAGES_BENCH_BUILD[@]}" "${PACKAGES_BENCH_RUN[@]}"
    case " $* " in
    *" --help "* | *" -h "* | *" --list "* | *" --from-results "*) ;;
    *) build bench ;;
    esac
    exec env PYTHONDONTWRITEBYTECODE=1 python3 "$ROOT/bench/runner/main.py" --build "$ROOT/build/bench" "$@"
}
