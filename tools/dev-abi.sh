# shellcheck shell=bash
# abi [--record] -- compares the shared libraries' borders with the recorded ones, or records them

readonly PACKAGES_ABI=(abigail-tools xz-utils)
# What has a border of its own, below the build directory.
readonly ABI_LIBRARIES=(src/libvireo.so src/app/libvireo-app.so)

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

# Takes the border of a library over into its record.
abi_record() {
    local library="$1" symbols="$2" baseline="$3"
    "$ROOT/tests/library/exported_symbols.sh" "$library" >"$symbols"
    abi_describe "$library" | xz -9 >"$baseline"
    echo "abi: recorded $(wc -l <"$symbols") symbols of $(basename "$library"); commit abi/ with the change that wants it"
}

command_abi() {
    local major name library record
    need "${PACKAGES_BUILD[@]}" "${PACKAGES_ABI[@]}" dpkg-dev
    build_package
    major="$(sed -nE 's/^ +VERSION ([0-9]+)\..*/\1/p' "$ROOT/CMakeLists.txt")"
    for name in "${ABI_LIBRARIES[@]}"; do
        library="$ROOT/build/package/$name"
        record="$ROOT/abi/$(basename "$name").$major"
        if [[ "${1:-}" == --record ]]; then
            abi_record "$library" "$record.symbols" "$record.abi.xz"
        else
            "$ROOT/tests/library/check_symbols.sh" "$library" "$record.symbols"
            abi_compare "$library" "$record.abi.xz"
        fi
    done
}
