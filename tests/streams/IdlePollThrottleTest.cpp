#include "streams/IdlePollThrottle.h"

#include "support/FakeClock.h"
#include "support/FakeRequest.h"
#include "vireo/support/qlSystemUtils.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <thread>

namespace {

using ql::IdlePollThrottle;
using vireotest::FakeClock;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;

class IdlePollThrottleTest : public testing::Test {
protected:
    /// Starts both timers.
    IdlePollThrottleTest() { takeDueSleepMs(); }

    /// Polls once, so that the pacing timer starts now.
    void starve() {
        clock_.advanceMs(100);
        takeDueSleepMs();
    }

    std::int64_t takeDueSleepMs() { return throttle_.takeDueSleepMs(qlSystemUtils::GetTimeBaseMs()); }

    FakeClock clock_;
    IdlePollThrottle throttle_;
    FakeServerImpl application_;
    FakeRequest request_{application_};
    FakeRequest other_{application_};
};

TEST_F(IdlePollThrottleTest, FirstRunOnlyStartsTheTimers) {
    IdlePollThrottle fresh;
    EXPECT_EQ(fresh.takeDueSleepMs(qlSystemUtils::GetTimeBaseMs()), 0);
    EXPECT_EQ(fresh.takeDueSleepMs(qlSystemUtils::GetTimeBaseMs()), 0);
}

TEST_F(IdlePollThrottleTest, PollingIsFreeFor100Ms) {
    clock_.advanceMs(99);
    EXPECT_EQ(takeDueSleepMs(), 0);
    clock_.advanceMs(1);
    EXPECT_GT(takeDueSleepMs(), 0);
}

TEST_F(IdlePollThrottleTest, FreeRunDoesNotBeginAPeriod) {
    clock_.advanceMs(90);
    ASSERT_EQ(takeDueSleepMs(), 0);
    clock_.advanceMs(10);
    EXPECT_EQ(takeDueSleepMs(), 10) << "100 ms on the pacing timer, not 10";
}

TEST_F(IdlePollThrottleTest, SleepIsTheRestOf45Ms) {
    starve();
    EXPECT_EQ(takeDueSleepMs(), 45);
    clock_.advanceMs(1);
    EXPECT_EQ(takeDueSleepMs(), 44);
    clock_.advanceMs(30);
    EXPECT_EQ(takeDueSleepMs(), 15);
}

TEST_F(IdlePollThrottleTest, SleepIsAtLeast10Ms) {
    starve();
    clock_.advanceMs(34);
    EXPECT_EQ(takeDueSleepMs(), 11);
    clock_.advanceMs(35);
    EXPECT_EQ(takeDueSleepMs(), 10);
    clock_.advanceMs(36);
    EXPECT_EQ(takeDueSleepMs(), 10);
    clock_.advanceMs(45);
    EXPECT_EQ(takeDueSleepMs(), 10);
    clock_.advanceMs(1000000);
    EXPECT_EQ(takeDueSleepMs(), 10);
}

TEST_F(IdlePollThrottleTest, ClearMakesPollingFreeAgain) {
    starve();
    throttle_.clear();
    EXPECT_EQ(takeDueSleepMs(), 0);
    clock_.advanceMs(99);
    EXPECT_EQ(takeDueSleepMs(), 0);
    clock_.advanceMs(1);
    EXPECT_EQ(takeDueSleepMs(), 10);
}

TEST_F(IdlePollThrottleTest, ClearDoesNotReadTheClock) {
    const int before = clock_.readings();
    throttle_.clear();
    EXPECT_EQ(clock_.readings(), before);
}

TEST_F(IdlePollThrottleTest, RunSleepsWhatIsDue) {
    starve();
    const auto before = std::chrono::steady_clock::now();
    throttle_.run(request_, qlSystemUtils::GetTimeBaseMs());
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(45));
}

TEST_F(IdlePollThrottleTest, RunBeginsThePeriodBeforeItSleeps) {
    starve();
    clock_.advanceMs(40);
    throttle_.run(request_, qlSystemUtils::GetTimeBaseMs());
    EXPECT_EQ(takeDueSleepMs(), 45);
}

TEST_F(IdlePollThrottleTest, RoundEndsWhereItBegan) {
    EXPECT_FALSE(throttle_.endsFruitlessRound(request_));
    EXPECT_FALSE(throttle_.endsFruitlessRound(other_));
    EXPECT_TRUE(throttle_.endsFruitlessRound(request_));
    EXPECT_FALSE(throttle_.endsFruitlessRound(other_));
    EXPECT_TRUE(throttle_.endsFruitlessRound(request_)) << "the next round";
}

TEST_F(IdlePollThrottleTest, RoundInWhichSomethingGotOnBeginsAgain) {
    ASSERT_FALSE(throttle_.endsFruitlessRound(request_));
    throttle_.clear();
    EXPECT_FALSE(throttle_.endsFruitlessRound(request_));
    EXPECT_TRUE(throttle_.endsFruitlessRound(request_));
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
    mine.takeDueSleepMs(qlSystemUtils::GetTimeBaseMs());
    clock_.advanceMs(100);
    std::int64_t theirSleepMs = -1;
    std::thread([&] {
        theirSleepMs = IdlePollThrottle::ofThisThread().takeDueSleepMs(qlSystemUtils::GetTimeBaseMs());
    }).join();
    EXPECT_EQ(theirSleepMs, 0);
    EXPECT_EQ(mine.takeDueSleepMs(qlSystemUtils::GetTimeBaseMs()), 10);
    mine.clear();
}

} // namespace
