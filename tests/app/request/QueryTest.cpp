#include "app/request/Query.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using vireo::impl::parseQuery;
using vireo::impl::withReplacedUtf8;

using Pairs = std::vector<std::pair<std::string, std::string>>;

Pairs pairsOf(std::string_view query) {
    Pairs pairs;
    for (const vireo::QueryArgument& argument : parseQuery(query)) {
        pairs.emplace_back(argument.name, argument.value);
    }
    return pairs;
}

TEST(Query, ArgumentsAreSplitAsBrowsersWriteThem) {
    EXPECT_EQ(pairsOf(""), Pairs());
    EXPECT_EQ(pairsOf("a=1&b=2"), Pairs({{"a", "1"}, {"b", "2"}}));
    EXPECT_EQ(pairsOf("&&a&=&b=&=c&"), Pairs({{"a", ""}, {"", ""}, {"b", ""}, {"", "c"}}));
    EXPECT_EQ(pairsOf("a=b=c&a=d"), Pairs({{"a", "b=c"}, {"a", "d"}}));
    EXPECT_EQ(pairsOf("a;b=1"), Pairs({{"a;b", "1"}}));
}

TEST(Query, PlusIsABlankAndEscapesAreDecoded) {
    EXPECT_EQ(pairsOf("tea+time=%2B%26%3d+%c3%A9"), Pairs({{"tea time", "+&= \xC3\xA9"}}));
    EXPECT_EQ(pairsOf("a=%00"), Pairs({{"a", std::string(1, '\0')}}));
}

TEST(Query, WhatIsNoEscapeStays) {
    EXPECT_EQ(pairsOf("a=100%&b=%4&c=%g1&d=%%41"), Pairs({{"a", "100%"}, {"b", "%4"}, {"c", "%g1"}, {"d", "%A"}}));
}

TEST(Query, BadUtf8IsReplaced) {
    EXPECT_EQ(pairsOf("a=%FFb&%C3=x"), Pairs({{"a", "\xEF\xBF\xBD"
                                                    "b"},
                                              {"\xEF\xBF\xBD", "x"}}));
}

TEST(Query, EachBrokenPieceIsReplacedOnce) {
    const std::string mark = "\xEF\xBF\xBD";
    const std::pair<std::string_view, std::string> cases[] = {
        {"abc", "abc"},
        {"\xC3\xA9", "\xC3\xA9"},
        {"\xFF\xFE", mark + mark},
        {"\x80", mark},
        {"\xC3", mark},
        {"\xC3x", mark + "x"},
        {"\xE2\x82", mark}, // broken off: one
        {"\xE2\x82y", mark + "y"},
        {"\xF0\x9F\x98", mark},
        {"\xF0\x9F\x98\xF0\x9F\x98\x80", mark + "\xF0\x9F\x98\x80"},
        {"\xE0\x80\x80", mark + mark + mark}, // over-long: its second byte fits nothing
        {"\xED\xA0\x80", mark + mark + mark}, // a surrogate
        {"\xF4\x90\x80\x80", mark + mark + mark + mark},
        {"\xC0\xAF", mark + mark},
        {"a\xE2\x82\xACz\xE2", "a\xE2\x82\xACz" + mark},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(withReplacedUtf8(std::string(text)), expected) << text;
    }
}

} // namespace
