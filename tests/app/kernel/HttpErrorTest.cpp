#include "vireo/app/HttpError.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>

using vireo::HttpError;

namespace {

std::string headersOf(const HttpError& error) {
    std::string text;
    error.forEachHeader(
        [&text](const std::string& name, const std::string& value) { text += name + ":" + value + ";"; });
    return text;
}

} // namespace

TEST(HttpErrorTest, TakesTheReasonPhraseForAText) {
    EXPECT_STREQ(HttpError(404).what(), "Not Found");
    EXPECT_STREQ(HttpError(404, "no such note").what(), "no such note");
    EXPECT_EQ(HttpError(599).status(), 599);
}

TEST(HttpErrorTest, HasAStatusFrom400To599) {
    EXPECT_THROW(HttpError(399), std::invalid_argument);
    EXPECT_THROW(HttpError(600), std::invalid_argument);
    EXPECT_NO_THROW(HttpError(400));
}

TEST(HttpErrorTest, AHeaderOnACopyLeavesTheOthersAlone) {
    HttpError error(503);
    error.header("Retry-After", "1");
    HttpError copy = error;
    copy.header("X-A", "b");
    EXPECT_EQ(headersOf(error), "Retry-After:1;");
    EXPECT_EQ(headersOf(copy), "Retry-After:1;X-A:b;");
}

TEST(HttpErrorTest, CopyingThrowsNothing) {
    EXPECT_TRUE(std::is_nothrow_copy_constructible_v<HttpError>);
    EXPECT_TRUE(std::is_nothrow_copy_assignable_v<HttpError>);
}

TEST(HttpErrorTest, RefusesWhatIsNoHeader) {
    HttpError error(400);
    EXPECT_THROW(error.header("a b", "c"), std::invalid_argument);
    EXPECT_THROW(error.header("A", "b\r\nC: d"), std::invalid_argument);
    EXPECT_THROW(error.header("content-length", "1"), std::invalid_argument);
    EXPECT_THROW(error.header("Transfer-Encoding", "chunked"), std::invalid_argument);
    EXPECT_EQ(headersOf(error), "");
}
