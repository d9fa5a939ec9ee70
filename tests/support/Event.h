#pragma once

#include "support/RawSocket.h"

#include <condition_variable>
#include <mutex>

namespace vireotest {

/// Where threads of a test meet: set once, seen by every waiter.
class Event {
public:
    void set() {
        const std::lock_guard lock(mutex_);
        isSet_ = true;
        changed_.notify_all();
    }

    bool isSet() const {
        const std::lock_guard lock(mutex_);
        return isSet_;
    }

    /// @return false when it was not set in time.
    [[nodiscard]] bool wait() const {
        std::unique_lock lock(mutex_);
        return changed_.wait_until(lock, soon(), [this] { return isSet_; });
    }

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    bool isSet_ = false;
};

} // namespace vireotest
