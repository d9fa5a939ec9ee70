#include "app/request/Cookies.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace {

/// As "name=value" behind one another, each in brackets.
std::string read(std::string_view line) {
    std::vector<vireo::Cookie> cookies;
    vireo::impl::parseCookies(line, cookies);
    std::string text;
    for (const vireo::Cookie& cookie : cookies) {
        text += "[" + cookie.name + "=" + cookie.value + "]";
    }
    return text;
}

TEST(Cookies, AreSplitLeniently) {
    EXPECT_EQ(read("a=1; b=2"), "[a=1][b=2]");
    EXPECT_EQ(read("a=1;b=2;"), "[a=1][b=2]");
    EXPECT_EQ(read("  a =\t1 ;;  ; b= 2 "), "[a=1][b=2]");
    EXPECT_EQ(read("a=b=c==; a=again"), "[a=b=c==][a=again]");
    EXPECT_EQ(read("a="), "[a=]");
    EXPECT_EQ(read("a=1, b=2"), "[a=1, b=2]");
    EXPECT_EQ(read("\xC3\xA9=\xFF{}; A=1"), "[\xC3\xA9=\xFF{}][A=1]");
}

TEST(Cookies, QuotesAreTakenOffWhereThereAreTwo) {
    EXPECT_EQ(read("a=\"1 2\"; b=\"; c=\"x; d=\"\""), "[a=1 2][b=\"][c=\"x][d=]");
    EXPECT_EQ(read("a=\"\"x\"\""), "[a=\"x\"]");
    EXPECT_EQ(read("a=x\""), "[a=x\"]");
}

TEST(Cookies, WhatHasNoNameIsLeftOut) {
    EXPECT_EQ(read(""), "");
    EXPECT_EQ(read("=1; =; ;a; b=1; \"x\""), "[b=1]");
}

} // namespace
