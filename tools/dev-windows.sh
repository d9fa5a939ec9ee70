# shellcheck shell=bash
# windows [CTEST-ARGUMENT...] -- builds for 64-bit Windows with mingw-w64 and tests under Wine

readonly PACKAGES_WINDOWS=(g++-mingw-w64-x86-64-posix libz-mingw-w64-dev wine64 cmake ninja-build make ccache curl
    googletest dpkg-dev xz-utils libmicrohttpd-dev libcli11-dev nlohmann-json3-dev)
readonly WINDOWS_SKIPS="$ROOT/tests/windows-skips.txt"

# The names of the tests in a build directory, one on each line; those of the test programs that CTest runs whole are
# asked of them. Without those labelled "posix", which test how other systems fail, and without the values of parameters,
# which Google Test may write with addresses.
windows_test_names() {
    local line command="" name
    # No label of a test preset applies: all are listed.
    ctest --test-dir "$1" -N -V -LE '^posix$' | tr -d '\r' | while IFS= read -r line; do
        case "$line" in
        *': Test command: '*)
            command="${line#*: Test command: }"
            ;;
        ' '*'Test '*'#'*': '*)
            name="${line#*: }"
            if [[ "$command" == *' "--gtest_filter=*"' || "$command" == *' "--gtest_filter=-'* ]]; then
                # The words of the command are quoted for a shell. Values stand in names for their numbers, as CTest has
                # them where it knows each test.
                eval "$command --gtest_list_tests" </dev/null | tr -d '\r' | awk -v name="$name" '
                    /^[^ ].*\./ {
                        sub(/\/[0-9]+\. +#.*= +/, "/")
                        sub(/\.( +#.*)?$/, "")
                        suite = (name ~ /^event\./ ? "event." : "") $0 "."
                    }
                    /^  / {
                        sub(/\/[0-9]+[ #]+GetParam\(\) = /, "/")
                        sub(/  # .*/, "")
                        print suite substr($0, 3)
                    }'
            else
                echo "${name%%  # GetParam*}"
            fi
            ;;
        esac
    done | sort
}

# The rows of tests/windows-skips.txt whose second column is one of "A|B".
windows_rows() {
    grep -E "^[^# ]+ \| ($1) \| " "$WINDOWS_SKIPS"
}

# Makes the Wine prefix, which takes a while, unless an earlier run has.
windows_prepare_wine() {
    if [[ ! -f "$VIREO_WINE_PREFIX/ready" ]]; then
        echo "windows: making a Wine prefix"
        rm -rf "$VIREO_WINE_PREFIX"
        mkdir -p "$VIREO_WINE_PREFIX"
        "$ROOT/tools/windows-run.sh" wineboot --init >"$VIREO_WINE_PREFIX.log" 2>&1 || {
            cat "$VIREO_WINE_PREFIX.log" >&2
            die "Wine cannot make its prefix"
        }
        touch "$VIREO_WINE_PREFIX/ready"
    fi
}

windows_wine_server() {
    env WINEPREFIX="$VIREO_WINE_PREFIX" WINEDEBUG=-all /usr/lib/wine/wineserver64 "$@"
}

# Checks the list of the skipped tests, and shows it: each of them exists, they are few, and no test of the suite on this
# system is missing on the other but those that are listed as absent.
windows_check_skips() {
    local build="$1" names all skipped absent missing stale
    names="$(windows_test_names "$build")"
    skipped="$(windows_rows 'windows|wine|script' | sed 's/ |.*//' | sort)"
    stale="$(comm -23 <(echo "$skipped") <(echo "$names"))"
    if [[ -n "$stale" ]]; then
        echo "$stale" >&2
        die "tests/windows-skips.txt names tests that don't exist"
    fi
    all="$(wc -l <<<"$names")"
    echo "windows: $(wc -l <<<"$skipped") of $all tests are skipped:"
    windows_rows 'windows|wine|script' | sed 's/^/  /'
    if ((20 * $(wc -l <<<"$skipped") > all)); then
        die "more than 5 % of the tests are skipped"
    fi
    if [[ -f "$ROOT/build/test/CTestTestfile.cmake" ]]; then
        absent="$(windows_rows absent | sed -E 's/ \|.*//; s/[.]/\\./g; s/[*]/.*/')"
        missing="$(comm -23 <(windows_test_names "$ROOT/build/test") <(echo "$names") | grep -vxf <(echo "$absent"))" || true
        if [[ -n "$missing" ]]; then
            echo "$missing" >&2
            die "these tests of build/test are not there for Windows, nor in tests/windows-skips.txt"
        fi
        echo "windows: every test of build/test is there"
    fi
}

# Exports what a build for Windows and its programs need. $1 is the build directory.
windows_environment() {
    VIREO_WINDOWS_ROOT="$("$ROOT/tools/windows-root.sh")"
    export VIREO_WINDOWS_ROOT
    export VIREO_WINE_PREFIX="$1/wine" VIREO_WINE_PATH="$VIREO_WINDOWS_ROOT/bin:$1/src"
}

command_windows() {
    local build="$ROOT/build/windows-x64" status=0
    need "${PACKAGES_WINDOWS[@]}"
    windows_environment "$build"
    build windows-x64
    windows_prepare_wine
    # One server for all tests, so that each of them doesn't start its own; and none that stays.
    windows_wine_server -k || true
    windows_wine_server -p
    trap 'windows_wine_server -k || true' EXIT
    # The first program starts Wine's services, which keep its output open for as long as they run.
    "$ROOT/tools/windows-run.sh" cmd /c exit >"$VIREO_WINE_PREFIX.log" 2>&1 </dev/null
    ctest --preset windows-x64 "$@" || status=$?
    if ((status == 0 && $# == 0)); then
        windows_check_skips "$build"
    fi
    return "$status"
}
