#include "session/pool/TimerHeap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <random>
#include <vector>

using namespace ql::impl;

TEST(TimerHeap, HasNoFirstWhileNoneIsSet) {
    TimerHeap heap;
    EXPECT_EQ(heap.first(), nullptr);
    TimerHeap::Timer timer;
    heap.clear(timer);
    EXPECT_EQ(heap.first(), nullptr);
}

TEST(TimerHeap, FirstIsTheEarliestHoweverTimersAreSetMovedAndCleared) {
    constexpr unsigned Seed = 14;
    constexpr std::int64_t NoTimer = 1000000;
    std::mt19937 random(Seed);
    std::array<TimerHeap::Timer, 40> timers;
    std::map<TimerHeap::Timer*, std::int64_t> expected;
    TimerHeap heap;
    heap.reserve(timers.size());
    for (int step = 0; step < 20000; ++step) {
        TimerHeap::Timer& timer = timers[random() % timers.size()];
        if (random() % 3 == 0) {
            heap.clear(timer);
            expected.erase(&timer);
        } else {
            const auto timeMs = static_cast<std::int64_t>(random() % 1000);
            heap.set(timer, timeMs);
            expected[&timer] = timeMs;
        }
        std::int64_t earliestMs = NoTimer;
        for (const auto& [unused, timeMs] : expected) {
            earliestMs = std::min(earliestMs, timeMs);
        }
        const TimerHeap::Timer* const first = heap.first();
        ASSERT_EQ(first == nullptr ? NoTimer : first->timeMs, earliestMs) << "step " << step;
    }
}
