#include "vireo/support/SystemError.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace {

// Both kinds of systems have a text for the codes 1 and 2, and two different ones.

TEST(SystemError, KeepsTheCode) {
    EXPECT_EQ(ql::SystemError(2).getCode(), 2);
    EXPECT_EQ(ql::SystemError(-7).getCode(), -7);
}

TEST(SystemError, KnownCodesHaveTheirOwnTexts) {
    const std::string first = ql::SystemError(1).toString();
    const std::string second = ql::SystemError(2).toString();
    EXPECT_FALSE(first.empty());
    EXPECT_FALSE(second.empty());
    EXPECT_NE(first, second);
}

TEST(SystemError, EveryCodeHasATextOfOneLine) {
    std::vector<int> codes{-1, 0, 999999, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()};
    for (int code = 1; code < 200; ++code) {
        codes.push_back(code);
    }
    for (const int code : codes) {
        const std::string text = ql::SystemError(code).toString();
        EXPECT_FALSE(text.empty()) << code;
        EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos) << code;
    }
}

TEST(SystemError, UnknownCodeNamesTheCode) {
    EXPECT_NE(ql::SystemError(999999).toString().find("999999"), std::string::npos);
}

TEST(SystemError, ThreadsDoNotDisturbEachOther) {
    const std::string first = ql::SystemError(1).toString();
    const std::string unknown = ql::SystemError(999999).toString();
    std::thread other([&] {
        for (int i = 0; i < 1000; ++i) {
            EXPECT_EQ(ql::SystemError(999999).toString(), unknown);
        }
    });
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(ql::SystemError(1).toString(), first);
    }
    other.join();
}

} // namespace
