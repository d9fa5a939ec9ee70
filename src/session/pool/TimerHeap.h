// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ql::impl {

class PoolTask;

/// Timers by their time. Only reserve() allocates. For one thread, or under one lock.
class TimerHeap {
public:
    struct Timer {
        PoolTask* task = nullptr; ///< whose it is
        std::int64_t timeMs = 0;
        std::size_t index = NotSet;
    };

    /// Makes room for so many timers at once. @throws std::bad_alloc
    void reserve(std::size_t count);
    /// Sets a timer, or moves it to another time.
    void set(Timer& timer, std::int64_t timeMs) noexcept;
    /// Nothing happens to one that isn't set.
    void clear(Timer& timer) noexcept;
    /// The timer with the earliest time; null when none is set.
    Timer* first() const noexcept { return heap_.empty() ? nullptr : heap_.front(); }

private:
    static constexpr auto NotSet = ~std::size_t{0};

    /// Finds the place of a timer from a vacant one on, and puts it there.
    void settle(Timer& timer, std::size_t vacant) noexcept;
    void put(Timer& timer, std::size_t index) noexcept;

    std::vector<Timer*> heap_;
};

} // namespace ql::impl
