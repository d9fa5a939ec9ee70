#pragma once

#include "frame/TimeSource.h"

#include <atomic>
#include <cstdint>

namespace vireo_test {

/// Stands in for the monotonic clock while it lives. One at a time.
class ManualClock {
public:
    explicit ManualClock(std::int64_t startMs) {
        nowMs().store(startMs);
        ql::impl::setTimeSource([] { return nowMs().load(); });
    }
    ~ManualClock() { ql::impl::setTimeSource(nullptr); }
    ManualClock(const ManualClock&) = delete;
    ManualClock& operator=(const ManualClock&) = delete;

    void advanceMs(std::int64_t ms) { nowMs() += ms; }

private:
    static std::atomic<std::int64_t>& nowMs() {
        static std::atomic<std::int64_t> now{0};
        return now;
    }
};

} // namespace vireo_test
