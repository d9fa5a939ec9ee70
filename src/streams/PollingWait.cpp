#include "streams/PollingWait.h"

#include "frame/NeverDestroyed.h"
#include "vireo/support/qlThread.h"

#include <thread>

namespace ql::impl {

namespace {

constexpr std::int64_t FreePollingMs = 100;
constexpr std::int64_t PollPeriodMs = 45;
constexpr std::int64_t MinSleepMs = 10;

} // namespace

PollingWait& PollingWait::ofThisThread() {
    thread_local NeverDestroyed<PollingWait> polling;
    return *polling;
}

void PollingWait::progress() {
    starvation_.clearTime();
    pacing_.clearTime();
    roundStart_ = nullptr;
}

void PollingWait::wait(HttpBaseRequest& request, std::int64_t nowMs) {
    if (const std::int64_t sleepMs = takeDueSleepMs(nowMs); sleepMs > 0) {
        qlThread::msleep(static_cast<unsigned long>(sleepMs));
    } else if (endsFruitlessRound(request)) {
        std::this_thread::yield();
    }
}

std::int64_t PollingWait::takeDueSleepMs(std::int64_t nowMs) {
    if (!starvation_.isTimeSnapped()) {
        starvation_.restart(nowMs);
        pacing_.restart(nowMs);
        return 0;
    }
    if (starvation_.getElapsedMs(nowMs) < FreePollingMs) {
        return 0;
    }
    const std::int64_t restOfPeriodMs = PollPeriodMs - pacing_.getElapsedMs(nowMs);
    pacing_.restart(nowMs);
    return restOfPeriodMs > MinSleepMs ? restOfPeriodMs : MinSleepMs;
}

bool PollingWait::endsFruitlessRound(const HttpBaseRequest& request) {
    if (roundStart_ == &request) {
        return true;
    }
    if (roundStart_ == nullptr) {
        roundStart_ = &request;
    }
    return false;
}

} // namespace ql::impl
