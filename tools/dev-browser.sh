# shellcheck shell=bash
# browser -- tests the demo with Chromium, Firefox and a client library: WebSockets and events, through nginx and over TLS

command_browser() {
    local modules="$ROOT/build/browser"
    need "${PACKAGES_BUILD[@]}" nginx-light chromium firefox-esr fonts-dejavu-core libnss3-tools openssl
    if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
        need nodejs npm
    fi
    build release vireo-demo
    # The modules are installed outside the source tree; the tests run from a copy beside them.
    mkdir -p "$modules"
    cp "$ROOT"/tests/browser/{package.json,package-lock.json,.npmrc,authority.mjs,firefox.mjs,servers.mjs,websocket.test.mjs} "$modules/"
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
