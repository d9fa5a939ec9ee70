#include "app/routing/Pattern.h"

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

using vireo::impl::findParameter;
using vireo::impl::isInt;
using vireo::impl::isUuid;
using vireo::impl::Pattern;

/// Each segment as its kind's letter and its text.
std::string read(const Pattern& pattern) {
    std::string text;
    for (const auto& segment : pattern.segments) {
        text += std::string(1, "LIUTR"[static_cast<int>(segment.kind)]) + "(" + segment.text + ")";
    }
    return text;
}

std::string refusal(std::string_view text, Pattern (*parse)(std::string_view) = Pattern::parse) {
    try {
        return "none, but " + read(parse(text));
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
}

TEST(Pattern, SegmentsAreLiteralsOrParameters) {
    EXPECT_EQ(read(Pattern::parse("/")), "L()");
    EXPECT_EQ(read(Pattern::parse("/notes/{id:int}")), "L(notes)I(id)");
    EXPECT_EQ(read(Pattern::parse("/{a}/{b:uuid}/x/{the_rest-1:path}")), "T(a)U(b)L(x)R(the_rest-1)");
    EXPECT_EQ(read(Pattern::parse("/a/")), "L(a)L()");
}

TEST(Pattern, LiteralsAreDecoded) {
    EXPECT_EQ(read(Pattern::parse("/a%2Fb/caf\xC3\xA9/%7Bx%7D")), "L(a/b)L(caf\xC3\xA9)L({x})");
}

TEST(Pattern, WhatIsNoneIsRefusedWithItsPlace) {
    struct Case {
        std::string_view text;
        std::string_view place;
    };
    const Case cases[] = {
        {"", "at 0"},          {"notes", "at 0"},        {"{id}", "at 0"},        {"/a//b", "at 3"},
        {"//", "at 1"},        {"/a?b", "at 2"},         {"/a/b#", "at 4"},       {"/x{id}", "at 1"},
        {"/{id}x", "at 1"},    {"/{id", "at 1"},         {"/id}", "at 1"},        {"/{a}{b}", "at 1"},
        {"/{}", "at 2"},       {"/{:int}", "at 2"},      {"/{a b}", "at 2"},      {"/{a:}", "at 4"},
        {"/{a:long}", "at 4"}, {"/{a:int:int}", "at 4"}, {"/{a:path}/b", "at 1"}, {"/{a:path}/", "at 1"},
        {"/{a}/{a}", "at 5"},  {"/%4", "at 1"},          {"/a/%00", "at 3"},      {"/%FF", "at 1"},
        {"/a/..", "at 3"},     {"/%2e/a", "at 1"},       {"/{{a}}", "at 1"},      {"/a/b c", "at 4"},
        {"/ ", "at 1"},        {"/a\n", "at 2"},         {"/a\x7F", "at 2"},      {"/a/b%", "at 3"},
    };
    for (const Case& c : cases) {
        const std::string text = refusal(c.text);
        EXPECT_NE(text.find("\"" + std::string(c.text) + "\", " + std::string(c.place) + ":"), std::string::npos)
            << text;
    }
}

TEST(Pattern, WhatOthersWriteForParametersIsRefusedWithTheRightForm) {
    for (const char* const text : {"/notes/:id", "/notes/<id>", "/notes/<int:id>", "/notes/:id/text"}) {
        EXPECT_NE(refusal(text).find("at 7: a parameter is {name}, {name:int}"), std::string::npos) << refusal(text);
    }
    for (const char* const text : {"/static/*", "/static/**", "/static/*rest"}) {
        EXPECT_NE(refusal(text).find("at 8: the rest of a path is {name:path}"), std::string::npos) << refusal(text);
    }
    EXPECT_EQ(read(Pattern::parse("/%3Aid/%3Cid>/%2A/a:b<c*")), "L(:id)L(<id>)L(*)L(a:b<c*)");
}

TEST(Pattern, BlanksAreEscaped) {
    EXPECT_NE(refusal("/a b").find("a blank is \"%20\""), std::string::npos) << refusal("/a b");
    EXPECT_EQ(read(Pattern::parse("/a%20b/100%25")), "L(a b)L(100%)");
}

TEST(Pattern, SixteenParametersAreTheMost) {
    std::string text;
    for (int i = 0; i < 16; ++i) {
        text += "/{p" + std::to_string(i) + "}";
    }
    EXPECT_EQ(Pattern::parse(text).segments.size(), 16U);
    EXPECT_NE(refusal(text + "/{more}").find("more than 16"), std::string::npos);
}

TEST(Pattern, PrefixesEndBeforeASlash) {
    EXPECT_EQ(read(Pattern::parsePrefix("")), "");
    EXPECT_EQ(read(Pattern::parsePrefix("/users/{id}")), "L(users)T(id)");
    EXPECT_NE(refusal("/", Pattern::parsePrefix).find("at 0: "), std::string::npos);
    EXPECT_NE(refusal("/users/", Pattern::parsePrefix).find("at 6: "), std::string::npos);
    EXPECT_NE(refusal("/a/{all:path}", Pattern::parsePrefix).find("at 3: "), std::string::npos);
    EXPECT_THROW(Pattern::parsePrefix("users"), std::invalid_argument);
}

TEST(Pattern, IntegersHaveSixtyFourBits) {
    for (const std::string_view text : {"0", "-0", "007", "42", "-1", "9223372036854775807", "-9223372036854775808"}) {
        EXPECT_TRUE(isInt(text)) << text;
    }
    for (const std::string_view text :
         {"", "-", "+1", " 1", "1 ", "1a", "0x1", "1.0", "9223372036854775808", "-9223372036854775809", "--1"}) {
        EXPECT_FALSE(isInt(text)) << text;
    }
}

TEST(Pattern, UuidsHaveFiveGroups) {
    EXPECT_TRUE(isUuid("01234567-89ab-cdef-ABCD-EF0123456789"));
    for (const std::string_view text :
         {"", "0123456789abcdefABCDEF0123456789", "01234567-89ab-cdef-ABCD-EF012345678",
          "01234567-89ab-cdef-ABCD-EF01234567890", "01234567-89ab-cdef-ABCD-EF012345678g",
          "0123456-789ab-cdef-ABCD-EF0123456789", "{1234567-89ab-cdef-ABCD-EF0123456789"}) {
        EXPECT_FALSE(isUuid(text)) << text;
    }
}

TEST(Pattern, ParametersAreFoundByName) {
    constexpr std::string_view Text = "/{a}/x/{b:int}/{rest:path}";
    EXPECT_EQ(findParameter(Text, "a"), 0U);
    EXPECT_EQ(findParameter(Text, "b"), 1U);
    EXPECT_EQ(findParameter(Text, "rest"), 2U);
    EXPECT_EQ(findParameter(Text, "x"), std::nullopt);
    EXPECT_EQ(findParameter(Text, "b:int"), std::nullopt);
    EXPECT_EQ(findParameter(Text, ""), std::nullopt);
    EXPECT_EQ(findParameter("/a", "a"), std::nullopt);
}

} // namespace
