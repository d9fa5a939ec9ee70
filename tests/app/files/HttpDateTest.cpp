#include "app/files/HttpDate.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace {

using vireo::impl::httpDate;
using vireo::impl::parseHttpDate;

/// 1994-11-06 08:49:37.
constexpr std::int64_t Example = 784111777;
/// 2026-11-22.
constexpr std::int64_t Now = 1795305600;

TEST(HttpDateTest, SentFormIsTheFixedOne) {
    EXPECT_EQ(httpDate(Example), "Sun, 06 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(httpDate(0), "Thu, 01 Jan 1970 00:00:00 GMT");
    EXPECT_EQ(httpDate(951782400), "Tue, 29 Feb 2000 00:00:00 GMT");
    EXPECT_EQ(httpDate(4102444799), "Thu, 31 Dec 2099 23:59:59 GMT");
}

TEST(HttpDateTest, ThreeFormsAreUnderstood) {
    EXPECT_EQ(parseHttpDate("Sun, 06 Nov 1994 08:49:37 GMT", Now), Example);
    EXPECT_EQ(parseHttpDate("Sunday, 06-Nov-94 08:49:37 GMT", Now), Example);
    EXPECT_EQ(parseHttpDate("Sun Nov  6 08:49:37 1994", Now), Example);
    EXPECT_EQ(parseHttpDate("Wed Nov 16 08:49:37 1994", Now), Example + 10 * 86400);
}

TEST(HttpDateTest, WhatIsSentIsUnderstood) {
    for (std::int64_t seconds = 0; seconds < 5000000000; seconds += 86400 * 13 + 3661) {
        ASSERT_EQ(parseHttpDate(httpDate(seconds), Now), seconds);
    }
}

TEST(HttpDateTest, YearOfTwoDigitsIsAtMostFiftyYearsAhead) {
    EXPECT_EQ(parseHttpDate("Sunday, 06-Nov-76 00:00:00 GMT", Now),
              parseHttpDate("Sun, 06 Nov 2076 00:00:00 GMT", Now));
    EXPECT_EQ(parseHttpDate("Sunday, 06-Nov-77 00:00:00 GMT", Now),
              parseHttpDate("Sun, 06 Nov 1977 00:00:00 GMT", Now));
}

TEST(HttpDateTest, LeapSecondIsTheNextMinute) {
    EXPECT_EQ(parseHttpDate("Sat, 31 Dec 2016 23:59:60 GMT", Now), 1483228800);
}

TEST(HttpDateTest, AnythingElseIsNone) {
    const std::vector<std::string> texts = {
        "",
        "0",
        "Sun, 06 Nov 1994 08:49:37",
        "Sun, 06 Nov 1994 08:49:37 GMT ",
        "Sun, 06 Nov 1994 08:49:37 CET",
        "Sun, 6 Nov 1994 08:49:37 GMT",
        "Sun 06 Nov 1994 08:49:37 GMT",
        "Son, 06 Nov 1994 08:49:37 GMT",
        "Sun, 06 nov 1994 08:49:37 GMT",
        "Sun, 31 Nov 1994 08:49:37 GMT",
        "Tue, 29 Feb 2001 00:00:00 GMT",
        "Sun, 00 Nov 1994 08:49:37 GMT",
        "Sun, 06 Nov 1994 24:00:00 GMT",
        "Sun, 06 Nov 1994 08:60:37 GMT",
        "Sun, 06 Nov 1994 08:49:61 GMT",
        "Sun, 06 Nov 94 08:49:37 GMT",
        "Sun, 06-Nov-94 08:49:37 GMT",
        "Sunday, 06-Nov-1994 08:49:37 GMT",
        "Sunday, 06-Nov-94 08:49:37",
        "Sunday, 06-Nov-94 08:49:37 GMT ",
        "Sun Nov 6 08:49:37 1994",
        "Sun Nov  6 08:49:37 1994 GMT",
        "Sun Nov  6 08:49:37 ",
        "Sun, 06 Nov 1994 -8:49:37 GMT",
    };
    for (const std::string& text : texts) {
        EXPECT_EQ(parseHttpDate(text, Now), std::nullopt) << text;
    }
}

} // namespace
