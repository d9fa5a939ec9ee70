#include "vireo/support/qlTimer.h"

#include "support/FakeClock.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace {

class qlTimerTest : public testing::Test {
protected:
    vireotest::FakeClock clock_{1000};
};

TEST_F(qlTimerTest, FalseLeavesItNotStarted) {
    const qlTimer timer(false);
    clock_.advanceMs(5000);
    EXPECT_FALSE(timer.isTimeSnapped());
    EXPECT_EQ(timer.getElapsedMs(), 0);
}

TEST_F(qlTimerTest, NothingElapsesWhileNotStarted) {
    const qlTimer timer(false);
    EXPECT_FALSE(timer.isElapsedMs(0));
    EXPECT_FALSE(timer.isElapsedMs(-1));
    EXPECT_FALSE(timer.isElapsedSec(0));
}

TEST_F(qlTimerTest, TrueStartsAtConstruction) {
    const qlTimer timer(true);
    EXPECT_TRUE(timer.isTimeSnapped());
    clock_.advanceMs(42);
    EXPECT_EQ(timer.getElapsedMs(), 42);
}

TEST_F(qlTimerTest, MillisecondsElapseAtTheLimit) {
    const qlTimer timer(true);
    clock_.advanceMs(99);
    EXPECT_FALSE(timer.isElapsedMs(100));
    clock_.advanceMs(1);
    EXPECT_TRUE(timer.isElapsedMs(100));
    clock_.advanceMs(1);
    EXPECT_TRUE(timer.isElapsedMs(100));
}

TEST_F(qlTimerTest, SecondsElapseAtTheLimit) {
    const qlTimer timer(true);
    clock_.advanceMs(359999);
    EXPECT_FALSE(timer.isElapsedSec(360));
    clock_.advanceMs(1);
    EXPECT_TRUE(timer.isElapsedSec(360));
    clock_.advanceMs(1);
    EXPECT_TRUE(timer.isElapsedSec(360));
}

TEST_F(qlTimerTest, HugeTimesDoNotOverflow) {
    constexpr std::int64_t longest = std::numeric_limits<std::int64_t>::max();
    const qlTimer timer(true);
    clock_.advanceMs(500);
    // The second one is 2^64 milliseconds and 384: no more than that when cut to 64 bits.
    for (const std::int64_t seconds : {longest, std::int64_t{18446744073709552}, longest / 1000 + 1}) {
        EXPECT_FALSE(timer.isElapsedSec(seconds)) << seconds;
        EXPECT_TRUE(timer.isElapsedSec(-seconds)) << -seconds;
    }
    EXPECT_TRUE(timer.isElapsedSec(std::numeric_limits<std::int64_t>::min()));
}

TEST_F(qlTimerTest, NoTimeHasElapsedAtOnce) {
    const qlTimer timer(true);
    EXPECT_TRUE(timer.isElapsedMs(0));
    EXPECT_FALSE(timer.isElapsedMs(1));
}

TEST_F(qlTimerTest, RestartCountsFromNow) {
    qlTimer timer(true);
    clock_.advanceMs(500);
    timer.restart();
    EXPECT_EQ(timer.getElapsedMs(), 0);
    clock_.advanceMs(7);
    EXPECT_EQ(timer.getElapsedMs(), 7);
}

TEST_F(qlTimerTest, RestartStartsAStoppedOne) {
    qlTimer timer(false);
    timer.restart();
    EXPECT_TRUE(timer.isTimeSnapped());
}

TEST_F(qlTimerTest, ClearTimeGoesBackToNotStarted) {
    qlTimer timer(true);
    clock_.advanceMs(500);
    timer.clearTime();
    EXPECT_FALSE(timer.isTimeSnapped());
    EXPECT_EQ(timer.getElapsedMs(), 0);
    EXPECT_FALSE(timer.isElapsedMs(1));
}

TEST(qlTimerAtTheOrigin, TimeZeroIsAStartToo) {
    vireotest::FakeClock clock(0);
    const qlTimer timer(true);
    EXPECT_TRUE(timer.isTimeSnapped());
    clock.advanceMs(3);
    EXPECT_EQ(timer.getElapsedMs(), 3);
}

} // namespace
