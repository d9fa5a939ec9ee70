#!/usr/bin/env bash
# What another release is taken from is where this machine takes Debian's own packages from, and nothing else of its lists.
set -euo pipefail

tools="$(cd "$(dirname "${BASH_SOURCE[0]}")/../../tools" && pwd)"
# shellcheck source=tools/engine-source.sh
. "$tools/engine-source.sh"

own_release() {
    echo oldrelease
}

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/apt/sources.list.d" "$work/out"
cat >"$work/apt/sources.list" <<'END'
deb file:/debian oldrelease main
deb [signed-by=/key.gpg] file:/debian oldrelease-updates main
# deb file:/debian oldrelease-backports main
END
cat >"$work/apt/sources.list.d/tools.list" <<'END'
deb file:/tools tools-oldrelease main
END
cat >"$work/apt/sources.list.d/debian.sources" <<'END'
Types: deb deb-src
URIs: file:/oldrelease
Suites: oldrelease oldrelease-security
Components: main

Types: deb
URIs: file:/tools
Suites: tools-oldrelease
Components: main
END

write_source_lists "$work/out" deb newrelease "$work/apt"

diff "$work/out/machine.list" - <<'END' || die "the lists of one line are others"
deb file:/debian newrelease main
deb [signed-by=/key.gpg] file:/debian newrelease-updates main
END
diff -B "$work/out/machine.sources" - <<'END' || die "the lists in paragraphs are others"
Types: deb
URIs: file:/oldrelease
Suites: newrelease newrelease-security
Components: main
END
