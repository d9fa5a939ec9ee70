// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/support/qlSystemUtils.h"

#include <algorithm>
#include <cstdint>

/// A stopwatch on qlSystemUtils::GetTimeBaseMs(). Its whole state is one start time, or none. Not synchronized.
class qlTimer {
public:
    /// Starts now, or stays not started.
    explicit qlTimer(bool start) : startMs_(start ? qlSystemUtils::GetTimeBaseMs() : NotStarted) {}

    /// Starts, or starts again, from now.
    void restart() { restart(qlSystemUtils::GetTimeBaseMs()); }

    /// @param nowMs what GetTimeBaseMs() has just said, for a caller that needs it more than once.
    void restart(std::int64_t nowMs) { startMs_ = nowMs; }

    /// Back to not started.
    void clearTime() { startMs_ = NotStarted; }

    /// True when the timer has been started.
    bool isTimeSnapped() const { return startMs_ != NotStarted; }

    /// True when at least `ms` milliseconds have passed since the start; false when not started.
    bool isElapsedMs(std::int64_t ms) const { return isTimeSnapped() && getElapsedMs() >= ms; }

    /// True when at least `s` seconds have passed since the start; false when not started.
    bool isElapsedSec(std::int64_t s) const { return isElapsedMs(std::clamp(s, -MaxSec, MaxSec) * 1000); }

    /// Milliseconds since the start; 0 when not started.
    std::int64_t getElapsedMs() const { return isTimeSnapped() ? getElapsedMs(qlSystemUtils::GetTimeBaseMs()) : 0; }

    /// @param nowMs what GetTimeBaseMs() has just said.
    std::int64_t getElapsedMs(std::int64_t nowMs) const { return isTimeSnapped() ? nowMs - startMs_ : 0; }

private:
    static constexpr std::int64_t NotStarted = -1;
    static constexpr std::int64_t MaxSec = INT64_MAX / 1000;
    std::int64_t startMs_;
};
