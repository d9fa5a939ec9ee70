#!/usr/bin/env bash
# Runs a Windows program under Wine: no screen, a Wine prefix of the build's own, and the DLLs of the build in reach.
# CTest calls it for each test.
#
# Expects VIREO_WINE_PREFIX, the prefix, and VIREO_WINE_PATH, the directories with DLLs, separated by colons.
set -euo pipefail

readonly WINE=/usr/lib/wine

unset DISPLAY WAYLAND_DISPLAY
export WINEPREFIX="$VIREO_WINE_PREFIX" WINEDEBUG=-all WINESERVER="$WINE/wineserver64"
# Without these, the first start in a new prefix asks for downloads and writes to the user's menus.
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
# Wine shows / as drive Z.
WINEPATH="Z:${VIREO_WINE_PATH//:/;Z:}"
export WINEPATH="${WINEPATH//\//\\}"

# Debian's Wine comes without the preloader that keeps low addresses free. Where the kernel spreads addresses, one start
# in some thousands finds its heap in the place of what Windows has at a fixed address, and fails.
fixed_addresses=()
if setarch -R true 2>/dev/null; then
    fixed_addresses=(setarch -R)
fi
exec "${fixed_addresses[@]}" "$WINE/wine64" "$@"
