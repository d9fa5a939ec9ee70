# shellcheck shell=bash
# abi [--record] -- compares the shared library's border with the recorded one, or records it

readonly PACKAGES_ABI=(abigail-tools xz-utils)

# The description of the border is made of what the headers show, with every private member, whose size counts, too.
abi_describe() {
    readelf --section-headers "$1" | grep '\.debug_info' >/dev/null || die "$1 has no debug information, which tells the types"
    abidw --headers-dir "$ROOT/include" --headers-dir "$ROOT/build/package/include" --drop-private-types \
        --no-corpus-path --no-comp-dir-path --no-show-locs "$1"
}

# Fails on every change but an addition. By the types that changed: a member at the end of a class counts, too, because
# applications derive from these classes and hold them.
abi_compare() {
    local library="$1" baseline="$2" old status=0
    old="$(mktemp --suffix=.abi)"
    xz --decompress --stdout "$baseline" >"$old"
    abidiff --leaf-changes-only --no-added-syms --no-show-locs --headers-dir2 "$ROOT/include" \
        --headers-dir2 "$ROOT/build/package/include" --drop-private-types "$old" "$library" || status=$?
    rm -f "$old"
    if ((status != 0)); then
        die "the border differs from $baseline: docs/compatibility.md says what that means"
    fi
    echo "abi: compatible with $(basename "$baseline")"
}

command_abi() {
    local library="$ROOT/build/package/src/libvireo.so" major symbols baseline
    need "${PACKAGES_BUILD[@]}" "${PACKAGES_ABI[@]}" dpkg-dev
    build_package
    major="$(sed -nE 's/^ +VERSION ([0-9]+)\..*/\1/p' "$ROOT/CMakeLists.txt")"
    symbols="$ROOT/abi/libvireo.so.$major.symbols"
    baseline="$ROOT/abi/libvireo.so.$major.abi.xz"
    if [[ "${1:-}" == --record ]]; then
        "$ROOT/tests/library/exported_symbols.sh" "$library" >"$symbols"
        abi_describe "$library" | xz -9 >"$baseline"
        echo "abi: recorded $(wc -l <"$symbols") symbols; commit abi/ with the change that wants it"
        return
    fi
    "$ROOT/tests/library/check_symbols.sh" "$library" "$symbols"
    abi_compare "$library" "$baseline"
}
