#include "streams/IdlePollThrottle.h"

#include "vireo/support/qlThread.h"

#include <thread>

namespace ql {

namespace {

constexpr std::int64_t FreePollingMs = 100;
constexpr std::int64_t PollPeriodMs = 45;
constexpr std::int64_t MinSleepMs = 10;

} // namespace

IdlePollThrottle& IdlePollThrottle::ofThisThread() {
    thread_local IdlePollThrottle throttle;
    return throttle;
}

void IdlePollThrottle::clear() {
    starvation_.clearTime();
    pacing_.clearTime();
}

void IdlePollThrottle::run() {
    if (const std::int64_t sleepMs = takeDueSleepMs(); sleepMs > 0) {
        qlThread::msleep(static_cast<unsigned long>(sleepMs));
    } else {
        std::this_thread::yield();
    }
}

std::int64_t IdlePollThrottle::takeDueSleepMs() {
    if (!starvation_.isTimeSnapped()) {
        starvation_.restart();
        pacing_.restart();
        return 0;
    }
    if (!starvation_.isElapsedMs(FreePollingMs)) {
        return 0;
    }
    const std::int64_t restOfPeriodMs = PollPeriodMs - pacing_.getElapsedMs();
    pacing_.restart();
    return restOfPeriodMs > MinSleepMs ? restOfPeriodMs : MinSleepMs;
}

} // namespace ql
