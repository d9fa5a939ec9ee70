# shellcheck shell=bash
# bench [--engine VERSION] [--event|--tls|--sessions|--app|--throughput|--hello] [--quick] [OPTION...] -- measures the library beside the engine and peers

readonly PACKAGES_BENCH_RUN=(nginx-light wrk curl openssl python3)
readonly PACKAGES_BENCH_EVENT=(curl haproxy wrk python3)

# bench_packages INCLUDE-DIRECTORY: prints the packages that the build takes, one on each line. Boost is not among them
# when the directory has its headers: those of any version will do, and no two can be installed.
bench_packages() {
    printf '%s\n' libbenchmark-dev libcivetweb-dev libcpp-httplib-dev libwebsockets-dev
    [[ -e "$1/boost/version.hpp" ]] || echo libboost-dev
}

# A peer of the sessions. Its module is installed outside the source tree; it runs from a copy beside that.
install_ws() {
    local directory="$ROOT/build/bench${VIREO_BUILD_SUFFIX:-}/bench/ws"
    if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
        need nodejs npm
    fi
    mkdir -p "$directory"
    cp "$ROOT"/bench/peers/ws/{package.json,package-lock.json,.npmrc,server.mjs,client.mjs} "$directory/"
    (cd "$directory" && npm ci --silent)
}

# A peer for throughput. It runs from a copy beside the other programs.
install_node_http() {
    command -v node >/dev/null || need nodejs
    cp "$ROOT/bench/peers/node-http.mjs" "$ROOT/build/bench${VIREO_BUILD_SUFFIX:-}/bench/"
}

# The least programs, with the library in them.
bench_hello() {
    local directory
    build hello vireo-hello vireo-hello-core
    directory="$ROOT/build/hello${VIREO_BUILD_SUFFIX:-}/examples"
    g++ -std=c++20 -O2 -o "$directory/engine-hello" "$ROOT/bench/hello/engine.cpp" -lmicrohttpd
    PYTHONDONTWRITEBYTECODE=1 PYTHONPATH="$ROOT/bench/runner" python3 "$ROOT/bench/hello/main.py" "$@" \
        "$directory"/{engine-hello,vireo-hello-core,vireo-hello}
}

# With --build-only nothing is measured; with --event, first, a server that waits by events is held to its bounds beside
# one that polls; with --hello, first, the least programs are. Other options, --sessions, --app and --throughput among them, go to the runner; --help explains them.
command_bench() {
    local packages
    choose_engine "$@"
    set -- "${ARGUMENTS[@]}"
    mapfile -t packages < <(bench_packages /usr/include)
    [[ -z "${VIREO_BUILD_SUFFIX:-}" || " $* " != *" --publish "* ]] || die "the published figures are of the installed engine"
    if [[ "${1:-}" == --hello ]]; then
        shift
        need "${PACKAGES_BUILD[@]}" python3
        bench_hello "$@"
        return
    fi
    if [[ "${1:-}" == --event ]]; then
        shift
        need "${PACKAGES_BUILD[@]}" "${packages[@]}" "${PACKAGES_BENCH_EVENT[@]}"
        build bench bench-events bench-http-client
        exec env PYTHONDONTWRITEBYTECODE=1 PYTHONPATH="$ROOT/bench/runner" python3 "$ROOT/bench/events/main.py" \
            --build "$ROOT/build/bench${VIREO_BUILD_SUFFIX:-}" "$@"
    fi
    if [[ "$*" == "--build-only" ]]; then
        need "${PACKAGES_BUILD[@]}" "${packages[@]}"
        build bench
        return
    fi
    need "${PACKAGES_BUILD[@]}" "${packages[@]}" "${PACKAGES_BENCH_RUN[@]}"
    local newer=()
    case " $* " in
    *" --help "* | *" -h "* | *" --list "* | *" --from-results "*) ;;
    *)
        build bench
        [[ " $* " != *" --sessions "* ]] || install_ws
        if [[ " $* " == *" --throughput "* ]]; then
            install_node_http
            need "${PACKAGES_ENGINE[@]}"
            newer=(--newer-engine "$("$ROOT/tools/engine-root.sh" 1.0)/lib")
        fi
        ;;
    esac
    exec env PYTHONDONTWRITEBYTECODE=1 python3 "$ROOT/bench/runner/main.py" \
        --build "$ROOT/build/bench${VIREO_BUILD_SUFFIX:-}" "${newer[@]}" "$@"
}
