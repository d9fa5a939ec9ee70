#include "streams/PollingWait.h"

#include "support/FakeClock.h"
#include "support/FakeRequest.h"
#include "vireo/support/qlSystemUtils.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <thread>

namespace {

using ql::impl::PollingWait;
using vireotest::FakeClock;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;

class PollingWaitTest : public testing::Test {
protected:
    /// Starts both timers.
    PollingWaitTest() { takeDueSleepMs(); }

    /// Polls once, so that the pacing timer starts now.
    void starve() {
        clock_.advanceMs(100);
        takeDueSleepMs();
    }

    std::int64_t takeDueSleepMs() { return polling_.takeDueSleepMs(qlSystemUtils::GetTimeBaseMs()); }

    FakeClock clock_;
    PollingWait polling_;
    FakeServerImpl application_;
    FakeRequest request_{application_};
    FakeRequest other_{application_};
};

TEST_F(PollingWaitTest, FirstWaitOnlyStartsTheTimers) {
    PollingWait fresh;
    EXPECT_EQ(fresh.takeDueSleepMs(qlSystemUtils::GetTimeBaseMs()), 0);
    EXPECT_EQ(fresh.takeDueSleepMs(qlSystemUtils::GetTimeBaseMs()), 0);
}

TEST_F(PollingWaitTest, PollingIsFreeFor100Ms) {
    clock_.advanceMs(99);
    EXPECT_EQ(takeDueSleepMs(), 0);
    clock_.advanceMs(1);
    EXPECT_GT(takeDueSleepMs(), 0);
}

TEST_F(PollingWaitTest, FreeWaitDoesNotBeginAPeriod) {
    clock_.advanceMs(90);
    ASSERT_EQ(takeDueSleepMs(), 0);
    clock_.advanceMs(10);
    EXPECT_EQ(takeDueSleepMs(), 10) << "100 ms on the pacing timer, not 10";
}

TEST_F(PollingWaitTest, SleepIsTheRestOf45Ms) {
    starve();
    EXPECT_EQ(takeDueSleepMs(), 45);
    clock_.advanceMs(1);
    EXPECT_EQ(takeDueSleepMs(), 44);
    clock_.advanceMs(30);
    EXPECT_EQ(takeDueSleepMs(), 15);
}

TEST_F(PollingWaitTest, SleepIsAtLeast10Ms) {
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

TEST_F(PollingWaitTest, ProgressMakesPollingFreeAgain) {
    starve();
    polling_.progress();
    EXPECT_EQ(takeDueSleepMs(), 0);
    clock_.advanceMs(99);
    EXPECT_EQ(takeDueSleepMs(), 0);
    clock_.advanceMs(1);
    EXPECT_EQ(takeDueSleepMs(), 10);
}

TEST_F(PollingWaitTest, ProgressDoesNotReadTheClock) {
    const int before = clock_.readings();
    polling_.progress();
    EXPECT_EQ(clock_.readings(), before);
}

TEST_F(PollingWaitTest, WaitSleepsWhatIsDue) {
    starve();
    const auto before = std::chrono::steady_clock::now();
    polling_.wait(request_, qlSystemUtils::GetTimeBaseMs());
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(45));
}

TEST_F(PollingWaitTest, WaitBeginsThePeriodBeforeItSleeps) {
    starve();
    clock_.advanceMs(40);
    polling_.wait(request_, qlSystemUtils::GetTimeBaseMs());
    EXPECT_EQ(takeDueSleepMs(), 45);
}

TEST_F(PollingWaitTest, RoundEndsWhereItBegan) {
    EXPECT_FALSE(polling_.endsFruitlessRound(request_));
    EXPECT_FALSE(polling_.endsFruitlessRound(other_));
    EXPECT_TRUE(polling_.endsFruitlessRound(request_));
    EXPECT_FALSE(polling_.endsFruitlessRound(other_));
    EXPECT_TRUE(polling_.endsFruitlessRound(request_)) << "the next round";
}

TEST_F(PollingWaitTest, RoundInWhichSomethingGotOnBeginsAgain) {
    ASSERT_FALSE(polling_.endsFruitlessRound(request_));
    polling_.progress();
    EXPECT_FALSE(polling_.endsFruitlessRound(request_));
    EXPECT_TRUE(polling_.endsFruitlessRound(request_));
}

TEST_F(PollingWaitTest, ThreadHasOneOfItsOwn) {
    PollingWait& mine = PollingWait::ofThisThread();
    EXPECT_EQ(&mine, &PollingWait::ofThisThread());
    const PollingWait* theirs = nullptr;
    std::thread([&] { theirs = &PollingWait::ofThisThread(); }).join();
    EXPECT_NE(theirs, &mine);
}

TEST_F(PollingWaitTest, StarvationOfOneThreadDoesNotSlowAnother) {
    PollingWait& mine = PollingWait::ofThisThread();
    mine.takeDueSleepMs(qlSystemUtils::GetTimeBaseMs());
    clock_.advanceMs(100);
    std::int64_t theirSleepMs = -1;
    std::thread([&] {
        theirSleepMs = PollingWait::ofThisThread().takeDueSleepMs(qlSystemUtils::GetTimeBaseMs());
    }).join();
    EXPECT_EQ(theirSleepMs, 0);
    EXPECT_EQ(mine.takeDueSleepMs(qlSystemUtils::GetTimeBaseMs()), 10);
    mine.progress();
}

} // namespace
