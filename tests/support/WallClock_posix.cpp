#include "support/WallClock.h"

#include <atomic>
#include <ctime>

#include <dlfcn.h>
#include <sys/time.h>

namespace vireotest {

namespace {

std::atomic<std::time_t> aheadSeconds{0};
std::atomic<std::time_t> coarseBehindSeconds{0};

/// The function that the program would call if this file did not stand in front of it.
template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

void WallClock::put(std::chrono::seconds ahead) {
    aheadSeconds = static_cast<std::time_t>(ahead.count());
}

void WallClock::delayCoarse(std::chrono::seconds behind) {
    coarseBehindSeconds = static_cast<std::time_t>(behind.count());
}

} // namespace vireotest

// The program's own functions go before those of shared libraries.

using vireotest::aheadSeconds;
using vireotest::coarseBehindSeconds;
using vireotest::real;

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    static auto* const next = real<decltype(clock_gettime)>("clock_gettime");
    const int result = next(clock, time);
    if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)) {
        time->tv_sec += aheadSeconds;
    }
    return result;
}

int gettimeofday(timeval* time, void* zone) noexcept {
    static auto* const next = real<decltype(gettimeofday)>("gettimeofday");
    const int result = next(time, zone);
    time->tv_sec += aheadSeconds;
    return result;
}

std::time_t time(std::time_t* time) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    now.tv_sec -= coarseBehindSeconds;
    if (time != nullptr) {
        *time = now.tv_sec;
    }
    return now.tv_sec;
}

} // extern "C"
