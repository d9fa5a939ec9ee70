# shellcheck shell=bash
# sanitize [address|thread] [--engine VERSION] -- runs the test suite under ASan and UBSan, under TSan, or both

# Neither sanitizer needs a suppression. libmicrohttpd is not instrumented, but its locks, sockets and eventfds go through
# the interceptors of the runtimes, so that ThreadSanitizer knows what orders its callbacks. What it doesn't know with
# clang 14 is std::timed_mutex (pthread_mutex_clocklock): code that takes one with a time limit is reported.
# Tests with the CTest label "nosanitize" are left out; the label stands with its reason where the test is added.

readonly NO_ADDRESS_RANDOMIZATION=0x40000

# Clang 14's ThreadSanitizer can't map its shadow where the kernel spreads addresses over more than 28 bits. Restarts
# the command without the spreading, for the build too, which runs the test programs to list their tests.
restart_without_address_randomization() {
    if (((0x$(cat /proc/self/personality) & NO_ADDRESS_RANDOMIZATION) == 0)) && setarch -R true 2>/dev/null; then
        exec setarch -R "$ROOT/dev" "$@"
    fi
}

# Arguments after the kind go to ctest.
command_sanitize() {
    local kind
    choose_engine "$@"
    kind="${ARGUMENTS[0]:-}"
    case "$kind" in
    address)
        need "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}" "${PACKAGES_SANITIZE[@]}"
        build asan
        ctest --preset asan "${ARGUMENTS[@]:1}"
        ;;
    thread)
        restart_without_address_randomization sanitize "$@"
        need "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}" "${PACKAGES_SANITIZE[@]}"
        build tsan
        ctest --preset tsan "${ARGUMENTS[@]:1}"
        ;;
    "")
        "$ROOT/dev" sanitize address "$@"
        "$ROOT/dev" sanitize thread "$@"
        ;;
    *)
        die "sanitize takes 'address', 'thread' or nothing, not '$kind'"
        ;;
    esac
}
