# shellcheck shell=bash
# cluster [--sockets N] [--measure] -- drives three processes behind HAProxy whose rooms are joined by Redis

command_cluster() {
    need "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}"
    build release vireo-cluster
    exec python3 -B "$ROOT/tests/cluster/main.py" --program "$ROOT/build/release/examples/vireo-cluster" \
        --configuration "$ROOT/examples/cluster/haproxy.cfg" "$@"
}
