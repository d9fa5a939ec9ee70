#pragma once

#include <chrono>

namespace vireotest {

/// Puts the clock that tells the time of day forward or back while it lives, for this process alone: for the program,
/// its libraries and the engine. The steady clock goes on as it does. One at a time.
class WallClock {
public:
    WallClock() = default;
    ~WallClock() {
        put(std::chrono::seconds(0));
        delayCoarse(std::chrono::seconds(0));
    }
    WallClock(const WallClock&) = delete;
    WallClock& operator=(const WallClock&) = delete;

    /// @param ahead of the true time; behind it when negative.
    void put(std::chrono::seconds ahead);
    /// Has time(), which goes by the system's last tick, say a second late what the other clocks say: for a moment at
    /// the begin of each second it does.
    void delayCoarse(std::chrono::seconds behind);
};

} // namespace vireotest
