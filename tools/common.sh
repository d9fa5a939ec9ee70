# shellcheck shell=bash
# What the developer commands share: the packages by purpose, their installation, and the configure-and-build step.

# Debian packages by purpose. Clang and its tools are those of the release, which is what their names without a version
# stand for: 14 in Debian 12.
# shellcheck disable=SC2034
{
    readonly PACKAGES_BUILD=(g++ cmake ninja-build pkg-config ccache libmicrohttpd-dev libssl-dev libgnutls28-dev
        zlib1g-dev libbrotli-dev libcli11-dev nlohmann-json3-dev libsqlite3-dev)
    readonly PACKAGES_TEST=(libgtest-dev libgmock-dev curl ca-certificates openssl python3 python3-h11 python3-prometheus-client
        python3-websockets python3-aiohttp nginx-light haproxy redis-server libhiredis-dev)
    readonly PACKAGES_CLANG=(clang)
    # llvm brings the symbolizer, without which reports and suppressions have no function names.
    readonly PACKAGES_SANITIZE=(clang libclang-rt-dev llvm)
    # What it takes to build an engine of another version.
    readonly PACKAGES_ENGINE=(dpkg-dev make xz-utils)
    readonly PACKAGES_LINT=(clang clang-format clang-tidy python3 shellcheck)
}

# The version of clang-format and clang-tidy that the sources follow: another one wants another layout, and has more checks.
readonly LINT_VERSION=14

# Whether clang-format, and with it clang-tidy, is of the version that the sources follow.
has_lint_version() {
    [[ "$(clang-format --version)" =~ version\ $LINT_VERSION\. ]]
}

# What configures a build against another engine than the installed one; choose_engine sets it.
ENGINE_OPTIONS=()

die() {
    echo "dev: $*" >&2
    exit 1
}

# Runs a command as root: directly, or through sudo.
as_root() {
    if [[ "$(id -u)" -eq 0 ]]; then
        "$@"
    else
        sudo "$@"
    fi
}

# Runs apt-get without questions, and with its talk only when it fails. It waits for other processes: apt-get has an
# option for dpkg's lock, but gives up at once on the one of the package lists.
quiet_apt_get() {
    local log status=0 deadline=$((SECONDS + 300))
    log="$(mktemp)"
    until as_root env DEBIAN_FRONTEND=noninteractive LC_ALL=C apt-get -o DPkg::Lock::Timeout=300 "$@" \
        </dev/null >"$log" 2>&1; do
        if ! grep -q 'Could not get lock' "$log" || ((SECONDS > deadline)); then
            cat "$log" >&2
            status=1
            break
        fi
        sleep 2
    done
    rm -f "$log"
    return "$status"
}

# Runs a command that installs packages, of which none starts a service: a proxy that serves on port 80 is not what
# somebody wants who runs tests.
without_services() {
    local policy=/usr/sbin/policy-rc.d status=0
    if [[ -e "$policy" ]]; then
        "$@"
        return
    fi
    printf '#!/bin/sh\nexit 101\n' | as_root tee "$policy" >/dev/null
    as_root chmod +x "$policy"
    "$@" || status=$?
    as_root rm -f "$policy"
    return "$status"
}

# Installs those of the given packages that are missing.
need() {
    local package status missing=()
    if ! command -v dpkg-query >/dev/null; then
        echo "dev: this is no Debian system, so nothing is installed; these are expected to be there: $*" >&2
        return
    fi
    for package in "$@"; do
        status="$(dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null || true)"
        if ! grep -qx installed <<<"$status"; then
            missing+=("$package")
        fi
    done
    if ((${#missing[@]} == 0)); then
        return
    fi
    if [[ "$(id -u)" -ne 0 ]] && ! command -v sudo >/dev/null; then
        die "these packages are missing, and installing them takes root or sudo: ${missing[*]}"
    fi
    echo "dev: installing ${missing[*]}"
    quiet_apt_get update ||
        echo "dev: the package lists could not be refreshed; going on with those at hand" >&2
    without_services quiet_apt_get install -y --no-install-recommends "${missing[@]}" ||
        die "the packages could not be installed: ${missing[*]}"
}

# choose_engine ARGUMENT...: takes `--engine VERSION` out of the arguments and leaves the others in ARGUMENTS. What is
# built then is built against that version of the engine, in build/PRESET-engine-VERSION, which the presets know.
choose_engine() {
    local engine
    ARGUMENTS=()
    while (($# > 0)); do
        if [[ "$1" != --engine ]]; then
            ARGUMENTS+=("$1")
            shift
            continue
        fi
        need "${PACKAGES_BUILD[@]}" "${PACKAGES_ENGINE[@]}"
        engine="$("$ROOT/tools/engine-root.sh" "${2:?--engine takes a version}")"
        ENGINE_OPTIONS=(-D "Microhttpd_INCLUDE_DIR=$engine/include" -D "Microhttpd_LIBRARY=$engine/lib/libmicrohttpd.so")
        export VIREO_BUILD_SUFFIX="-engine-$2"
        shift 2
    done
}

# build PRESET [TARGET...]: configures build/PRESET and builds the targets, or everything.
build() {
    local preset="$1" launcher
    shift
    launcher="$(command -v ccache || true)"
    # A clone in another directory finds what this one has compiled.
    export CCACHE_BASEDIR="$ROOT" CCACHE_NOHASHDIR=1
    cmake --preset "$preset" -DCMAKE_CXX_COMPILER_LAUNCHER="$launcher" "${ENGINE_OPTIONS[@]}"
    cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"}
}

# build_package [TARGET...]: builds what is installed and packaged, with the flags that Debian builds with, hardening
# among them. Debian leaves it to each package whether all symbols are bound at the start, so that nothing writes to
# where they are afterwards.
build_package() {
    local -x DEB_BUILD_MAINT_OPTIONS=hardening=+bindnow
    CXXFLAGS="$(dpkg-buildflags --get CXXFLAGS) $(dpkg-buildflags --get CPPFLAGS)" \
        LDFLAGS="$(dpkg-buildflags --get LDFLAGS)" build package "$@"
}

# Lists the project's own files that match the patterns (git's), new ones included, one on each line.
project_files() {
    # The owner of the work tree may be somebody else when this runs as root.
    git -c safe.directory="$ROOT" -c core.quotePath=off ls-files --cached --others --exclude-standard --deduplicate -- "$@" |
        while IFS= read -r file; do
            if [[ -f "$file" ]]; then
                printf '%s\n' "$file"
            fi
        done
}
