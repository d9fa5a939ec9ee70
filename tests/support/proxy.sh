# shellcheck shell=bash
# shellcheck disable=SC2034,SC2154
# A reverse proxy in front of a server of server.sh, which is sourced before. Its configuration listens on port 8180 and
# passes on to 8181; what is used here are others.

proxy_port=""
proxy_pid=""
proxy_is_up_or_gone() {
    curl --silent --output /dev/null "http://127.0.0.1:$proxy_port/" || ! kill -0 "$proxy_pid" 2>/dev/null
}

# start_proxy nginx|haproxy CONFIGURATION: in front of the server that was started last.
start_proxy() {
    local proxy="$1" configuration="$2" command
    for _ in 1 2 3 4 5; do
        proxy_port=$((30000 + RANDOM % 2000))
        sed -e "s/:8180/:$proxy_port/" -e "s/:8181/:$port/" "$configuration" >"$work/proxy.conf"
        case "$proxy" in
        nginx) command=(nginx -p "$work" -e stderr -c "$work/proxy.conf") ;;
        haproxy) command=(haproxy -f "$work/proxy.conf") ;;
        *) fail "there is no way to run $proxy" ;;
        esac
        PATH="$PATH:/usr/sbin" "${command[@]}" >"$work/proxy.log" 2>&1 </dev/null &
        proxy_pid=$!
        within 20 proxy_is_up_or_gone || fail "$proxy does not start"
        if kill -0 "$proxy_pid" 2>/dev/null; then
            clients=("$proxy_pid")
            return
        fi
    done
    fail "$proxy does not start: $(<"$work/proxy.log")"
}

stop_proxy() {
    kill "$proxy_pid"
    wait "$proxy_pid" || true
    clients=()
}
