# shellcheck shell=bash
# browser -- tests the demo and the notes with Chromium, Firefox and a client library: WebSockets and events

command_browser() {
    local modules="$ROOT/build/browser"
    need "${PACKAGES_BUILD[@]}" nginx-light chromium firefox-esr fonts-dejavu-core libnss3-tools openssl
    if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
        need nodejs npm
    fi
    build release vireo-demo vireo-notes
    # The modules are installed outside the source tree; the tests run from a copy beside them.
    mkdir -p "$modules"
    cp "$ROOT"/tests/browser/{package.json,package-lock.json,.npmrc,authority.mjs,firefox.mjs,servers.mjs,*.test.mjs} "$modules/"
    (
        cd "$modules" || exit
        npm ci --silent
        VIREO_DEMO="$ROOT/build/release/demo/vireo-demo" \
            VIREO_PROXY_CONFIGURATION="$ROOT/examples/reverse-proxy/nginx.conf" \
            VIREO_NOTES="$ROOT/build/release/examples/vireo-notes" \
            VIREO_NOTES_PAGE="$ROOT/examples/notes/page" \
            VIREO_SCREENSHOTS="$ROOT/build/screenshots" \
            node --test --test-concurrency=1 websocket.test.mjs demo.test.mjs notes.test.mjs
    )
    echo "dev: screenshots are in build/screenshots"
}
