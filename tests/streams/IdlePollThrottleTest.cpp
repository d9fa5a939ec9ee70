#include "streams/IdlePollThrottle.h"

#include "support/FakeClock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <thread>

namespace {

using ql::IdlePollThrottle;
using vireotest::FakeClock;

class IdlePollThrottleTest : public testing::Test {
protected:
    /// Starts both timers.
    IdlePollThrottleTest() { throttle_.takeDueSleepMs(); }

    /// Polls once, so that the pacing timer starts now.
    void starve() {
        clock_.advanceMs(100);
        throttle_.takeDueSleepMs();
    }

    FakeClock clock_;
    IdlePollThrottle throttle_;
};

TEST_F(IdlePollThrottleTest, FirstRunOnlyStartsTheTimers) {
    IdlePollThrottle fresh;
    EXPECT_EQ(fresh.takeDueSleepMs(), 0);
    EXPECT_EQ(fresh.takeDueSleepMs(), 0);
}

TEST_F(IdlePollThrottleTest, PollingIsFreeFor100Ms) {
    clock_.advanceMs(99);
    EXPECT_EQ(throttle_.takeDueSleepMs(), 0);
    clock_.advanceMs(1);
    EXPECT_GT(throttle_.takeDueSleepMs(), 0);
}

TEST_F(IdlePollThrottleTest, FreeRunDoesNotBeginAPeriod) {
    clock_.advanceMs(90);
    ASSERT_EQ(throttle_.takeDueSleepMs(), 0);
    clock_.advanceMs(10);
    EXPECT_EQ(throttle_.takeDueSleepMs(), 10) << "100 ms on the pacing timer, not 10";
}

TEST_F(IdlePollThrottleTest, SleepIsTheRestOf45Ms) {
    starve();
    EXPECT_EQ(throttle_.takeDueSleepMs(), 45);
    clock_.advanceMs(1);
    EXPECT_EQ(throttle_.takeDueSleepMs(), 44);
    clock_.advanceMs(30);
    EXPECT_EQ(throttle_.takeDueSleepMs(), 15);
}

TEST_F(IdlePollThrottleTest, SleepIsAtLeast10Ms) {
    starve();
    clock_.advanceMs(34);
    EXPECT_EQ(throttle_.takeDueSleepMs(), 11);
    clock_.advanceMs(35);
    EXPECT_EQ(throttle_.takeDueSleepMs(), 10);
    clock_.advanceMs(36);
    EXPECT_EQ(throttle_.takeDueSleepMs(), 10);
    clock_.advanceMs(45);
    EXPECT_EQ(throttle_.takeDueSleepMs(), 10);
    clock_.advanceMs(1000000);
    EXPECT_EQ(throttle_.takeDueSleepMs(), 10);
}

TEST_F(IdlePollThrottleTest, ClearMakesPollingFreeAgain) {
    starve();
    throttle_.clear();
    EXPECT_EQ(throttle_.takeDueSleepMs(), 0);
    clock_.advanceMs(99);
    EXPECT_EQ(throttle_.takeDueSleepMs(), 0);
    clock_.advanceMs(1);
    EXPECT_EQ(throttle_.takeDueSleepMs(), 10);
}

TEST_F(IdlePollThrottleTest, ClearDoesNotReadTheClock) {
    const int before = clock_.readings();
    throttle_.clear();
    EXPECT_EQ(clock_.readings(), before);
}

TEST_F(IdlePollThrottleTest, RunSleepsWhatIsDue) {
    starve();
    const auto before = std::chrono::steady_clock::now();
    throttle_.run();
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(45));
}

TEST_F(IdlePollThrottleTest, RunBeginsThePeriodBeforeItSleeps) {
    starve();
    clock_.advanceMs(40);
    throttle_.run();
    EXPECT_EQ(throttle_.takeDueSleepMs(), 45);
}

TEST_F(IdlePollThrottleTest, ThreadHasOneOfItsOwn) {
    IdlePollThrottle& mine = IdlePollThrottle::ofThisThread();
    EXPECT_EQ(&mine, &IdlePollThrottle::ofThisThread());
    const IdlePollThrottle* theirs = nullptr;
    std::thread([&] { theirs = &IdlePollThrottle::ofThisThread(); }).join();
    EXPECT_NE(theirs, &mine);
}

TEST_F(IdlePollThrottleTest, StarvationOfOneThreadDoesNotSlowAnother) {
    IdlePollThrottle& mine = IdlePollThrottle::ofThisThread();
    mine.takeDueSleepMs();
    clock_.advanceMs(100);
    std::int64_t theirSleepMs = -1;
    std::thread([&] { theirSleepMs = IdlePollThrottle::ofThisThread().takeDueSleepMs(); }).join();
    EXPECT_EQ(theirSleepMs, 0);
    EXPECT_EQ(mine.takeDueSleepMs(), 10);
    mine.clear();
}

} // namespace
