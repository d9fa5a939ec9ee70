#pragma once

#include "support/RawSocket.h"

#include <chrono>
#include <thread>

namespace vireotest {

/// Waits for what no event tells of. @return false when it did not come true in time.
template <typename Predicate>
[[nodiscard]] bool waitUntil(Predicate isTrue) {
    const Deadline deadline = soon();
    while (!isTrue()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// Gives other threads the time to do what they must not do, before a test looks that they have not. Where it is too
/// short a test passes that should fail, never the other way round.
inline void letOthersRun() {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
}

} // namespace vireotest
