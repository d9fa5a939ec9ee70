#include "engine/Throttle.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace bench {

namespace {

constexpr long long FreeMs = 100;
constexpr long long PeriodMs = 45;
constexpr long long MinSleepMs = 10;

long long nowMs() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

} // namespace

Throttle& Throttle::ofThisThread() {
    thread_local Throttle throttle;
    return throttle;
}

void Throttle::run() {
    const long long now = nowMs();
    if (!starving_) {
        starving_ = true;
        starvationStartMs_ = now;
        paceStartMs_ = now;
        return;
    }
    if (now - starvationStartMs_ < FreeMs) {
        return;
    }
    const long long sleepMs = std::max(PeriodMs - (now - paceStartMs_), MinSleepMs);
    paceStartMs_ = now;
    std::this_thread::sleep_for(std::chrono::milliseconds(sleepMs));
}

} // namespace bench
