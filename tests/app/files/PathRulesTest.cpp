#include "app/files/PathRules.h"

#include <gtest/gtest.h>

#include <string_view>

namespace {

using vireo::impl::isPathSegment;
using vireo::impl::PathPlatform;
using namespace std::string_view_literals;

TEST(PathRulesTest, OrdinaryNamesPass) {
    for (const auto name : {"a"sv, "index.html"sv, "a b"sv, "a..b"sv, "\xC3\xA4"sv, "a~b"sv, "console"sv, "COM"sv,
                            "COM10"sv, "nul_"sv, "-"sv}) {
        EXPECT_TRUE(isPathSegment(name, false, PathPlatform::Posix)) << name;
        EXPECT_TRUE(isPathSegment(name, false, PathPlatform::Windows)) << name;
    }
}

TEST(PathRulesTest, WhatLeadsElsewhereDoesNotPassAnywhere) {
    for (const auto name : {""sv, "."sv, ".."sv, "a/b"sv, "a\\b"sv, "..\\x"sv, "/"sv, "\\"sv, "a\0b"sv, "\0"sv}) {
        for (const auto platform : {PathPlatform::Posix, PathPlatform::Windows}) {
            EXPECT_FALSE(isPathSegment(name, false, platform)) << name;
            EXPECT_FALSE(isPathSegment(name, true, platform)) << name;
        }
    }
}

TEST(PathRulesTest, DotFilesPassWhereTheyMay) {
    for (const auto name : {".a"sv, "...a"sv, ".htaccess"sv}) {
        for (const auto platform : {PathPlatform::Posix, PathPlatform::Windows}) {
            EXPECT_FALSE(isPathSegment(name, false, platform)) << name;
            EXPECT_TRUE(isPathSegment(name, true, platform)) << name;
        }
    }
}

TEST(PathRulesTest, NamesThatWindowsTakesForOthersDoNotPassThere) {
    for (const auto name :
         {"a:b"sv,     "a::$DATA"sv, "C:"sv,      "a*"sv,       "a?"sv,       "a\""sv,    "<a"sv,
          "a>"sv,      "a|b"sv,      "a\x1F"sv,   "a\x7F"sv,    "a."sv,       "a "sv,     "nul"sv,
          "NUL.txt"sv, "con"sv,      "Aux.a.b"sv, "PRN"sv,      "com1"sv,     "LPT9.x"sv, "COM\xC2\xB9"sv,
          "conin$"sv,  "CONOUT$"sv,  "nul .x"sv,  "PROGRA~1"sv, "a~12.txt"sv, "COM0"sv}) {
        EXPECT_FALSE(isPathSegment(name, false, PathPlatform::Windows)) << name;
        EXPECT_TRUE(isPathSegment(name, false, PathPlatform::Posix)) << name;
    }
}

} // namespace
