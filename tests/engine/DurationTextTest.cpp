#include "engine/DurationText.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace {

using ql::impl::durationText;

constexpr std::uint64_t Second = 1000;
constexpr std::uint64_t Minute = 60 * Second;
constexpr std::uint64_t Hour = 60 * Minute;
constexpr std::uint64_t Day = 24 * Hour;

TEST(DurationText, NothingIsZeroMilliseconds) {
    EXPECT_EQ(durationText(0), "0ms");
}

TEST(DurationText, BelowASecondIsMilliseconds) {
    EXPECT_EQ(durationText(1), "1ms");
    EXPECT_EQ(durationText(100), "100ms");
    EXPECT_EQ(durationText(999), "999ms");
}

TEST(DurationText, BelowAMinuteIsSecondsAndMilliseconds) {
    EXPECT_EQ(durationText(Second), "1s");
    EXPECT_EQ(durationText(Second + 1), "1s 1ms");
    EXPECT_EQ(durationText(1500), "1s 500ms");
    EXPECT_EQ(durationText(Minute - 1), "59s 999ms");
}

TEST(DurationText, BelowAnHourIsMinutesAndSeconds) {
    EXPECT_EQ(durationText(Minute), "1m");
    EXPECT_EQ(durationText(Minute + 1), "1m");
    EXPECT_EQ(durationText(Minute + 999), "1m");
    EXPECT_EQ(durationText(61000), "1m 1s");
    EXPECT_EQ(durationText(61500), "1m 1s");
    EXPECT_EQ(durationText(Hour - 1), "59m 59s");
}

TEST(DurationText, BelowADayIsHoursAndMinutes) {
    EXPECT_EQ(durationText(Hour), "1h");
    EXPECT_EQ(durationText(Hour + Minute - 1), "1h");
    EXPECT_EQ(durationText(Hour + Minute), "1h 1m");
    EXPECT_EQ(durationText(Hour + Minute + 30 * Second), "1h 1m");
    EXPECT_EQ(durationText(Day - 1), "23h 59m");
}

TEST(DurationText, DayAndMoreIsDaysHoursAndMinutes) {
    EXPECT_EQ(durationText(Day), "1d");
    EXPECT_EQ(durationText(Day + 1), "1d");
    EXPECT_EQ(durationText(Day + Hour), "1d 1h");
    EXPECT_EQ(durationText(90061001), "1d 1h 1m");
    EXPECT_EQ(durationText(400 * Day + 23 * Hour + 59 * Minute), "400d 23h 59m");
}

TEST(DurationText, ZeroBetweenTwoPartsIsWritten) {
    EXPECT_EQ(durationText(Day + 5 * Minute), "1d 0h 5m");
}

TEST(DurationText, ZeroAtTheEndIsNotWritten) {
    EXPECT_EQ(durationText(2 * Second), "2s");
    EXPECT_EQ(durationText(3 * Minute), "3m");
    EXPECT_EQ(durationText(4 * Hour + 5 * Second), "4h");
    EXPECT_EQ(durationText(5 * Day + 59 * Second), "5d");
}

TEST(DurationText, LongestDurationIsDaysHoursAndMinutes) {
    EXPECT_EQ(durationText(std::numeric_limits<std::uint64_t>::max()), "213503982334d 14h 25m");
}

} // namespace
