#include "vireo/support/qlSystemUtils.h"

#include "support/FakeClock.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

TEST(qlSystemUtils, TimeBaseIsNotNegativeAndNeverGoesBack) {
    std::int64_t last = qlSystemUtils::GetTimeBaseMs();
    EXPECT_GE(last, 0);
    for (int i = 0; i < 1000; ++i) {
        const std::int64_t now = qlSystemUtils::GetTimeBaseMs();
        EXPECT_GE(now, last);
        last = now;
    }
}

TEST(qlSystemUtils, TimeBaseRunsWithTheSteadyClock) {
    const auto steadyMs = [] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
            .count();
    };
    const std::int64_t before = steadyMs();
    const std::int64_t now = qlSystemUtils::GetTimeBaseMs();
    EXPECT_GE(now, before);
    EXPECT_LE(now, steadyMs());
}

TEST(qlSystemUtils, InjectedTimeSourceIsAskedUntilItIsTakenBack) {
    {
        vireotest::FakeClock clock(1234);
        EXPECT_EQ(qlSystemUtils::GetTimeBaseMs(), 1234);
        clock.advanceMs(360000);
        EXPECT_EQ(qlSystemUtils::GetTimeBaseMs(), 361234);
    }
    EXPECT_NE(qlSystemUtils::GetTimeBaseMs(), 361234);
}

TEST(qlSystemUtils, EpochTimeIsTheWallClock) {
    const auto wallMs = [] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::system_clock::now().time_since_epoch())
            .count();
    };
    const std::int64_t before = wallMs();
    const std::int64_t now = qlSystemUtils::GetMSecElapsedSinceEpoch();
    EXPECT_GE(now, before);
    EXPECT_LE(now, wallMs());
    // 2020-01-01, so the unit and the epoch are right.
    EXPECT_GT(now, 1577836800000);
}

TEST(qlSystemUtils, EpochTimeDoesNotFollowTheInjectedSource) {
    const vireotest::FakeClock clock(5);
    EXPECT_GT(qlSystemUtils::GetMSecElapsedSinceEpoch(), 1577836800000);
}

TEST(qlSystemUtils, IdealThreadCountIsAtLeastOne) {
    EXPECT_GE(qlSystemUtils::GetIdealThreadCount(), 1);
}

} // namespace
