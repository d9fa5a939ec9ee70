# shellcheck shell=bash
# browser -- tests the demo's WebSockets and events with Chromium and a client library, through nginx

command_browser() {
    local modules="$ROOT/build/browser"
    need "${PACKAGES_BUILD[@]}" nginx-light chromium fonts-dejavu-core
    if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
        need nodejs npm
    fi
    build release vireo-demo
    # The modules are installed outside the source tree; the tests run from a copy beside them.
    mkdir -p "$modules"
    cp "$ROOT"/tests/browser/{package.json,package-lock.json,.npmrc,servers.mjs,websocket.test.mjs} "$modules/"
    (
        cd "$modules" || exit
        npm ci --silent
        VIREO_DEMO="$ROOT/build/release/examples/demo/vireo-demo" \
            VIREO_PROXY_CONFIGURATION="$ROOT/examples/reverse-proxy/nginx.conf" \
            VIREO_SCREENSHOTS="$ROOT/build/screenshots" \
            node --test websocket.test.mjs
    )
    echo "dev: screenshots are in build/screenshots"
}
