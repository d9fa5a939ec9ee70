#include "streams/IdlePollThrottle.h"

#include "vireo/support/qlThread.h"

#include <cstdint>

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
    if (!starvation_.isTimeSnapped()) {
        starvation_.restart();
        pacing_.restart();
        return;
    }
    if (!starvation_.isElapsedMs(FreePollingMs)) {
        return;
    }
    const std::int64_t restOfPeriodMs = PollPeriodMs - pacing_.getElapsedMs();
    pacing_.restart();
    qlThread::msleep(static_cast<unsigned long>(restOfPeriodMs > MinSleepMs ? restOfPeriodMs : MinSleepMs));
}

} // namespace ql
