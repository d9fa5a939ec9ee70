#include "app/middleware/Credentials.h"

#include "vireo/app/Authentication.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

using vireo::impl::isSameSecret;
using vireo::impl::parseBasic;
using vireo::impl::parseBearer;

/// Counts how often it is looked at.
struct CountedByte {
    unsigned char value = 0;
    static int count;

    friend int operator^(const CountedByte& left, const CountedByte& right) {
        ++count;
        return left.value ^ right.value;
    }
};
int CountedByte::count = 0;

TEST(Credentials, SecretsAreComparedToTheirEnd) {
    const std::array<CountedByte, 8> secret{{{1}, {2}, {3}, {4}, {5}, {6}, {7}, {8}}};
    for (std::size_t different = 0; different <= secret.size(); ++different) {
        std::array<CountedByte, 8> guess = secret;
        if (different < guess.size()) {
            guess[different].value = 99;
        }
        CountedByte::count = 0;
        EXPECT_EQ(isSameSecret<CountedByte>(secret, guess), different == secret.size());
        EXPECT_EQ(CountedByte::count, 8) << different;
    }
}

TEST(Credentials, SameTextsAreTheSame) {
    EXPECT_TRUE(vireo::isSameText("", ""));
    EXPECT_TRUE(vireo::isSameText("secret", "secret"));
    EXPECT_FALSE(vireo::isSameText("secret", "secreT"));
    EXPECT_FALSE(vireo::isSameText("secret", "secre"));
    EXPECT_FALSE(vireo::isSameText("secre", "secret"));
    EXPECT_FALSE(vireo::isSameText(std::string(1, '\x80'), std::string(1, '\0')));
}

std::string basic(std::string_view header) {
    const auto credentials = parseBasic(header);
    return credentials ? credentials->user + "|" + credentials->password : "none";
}

TEST(Credentials, BasicOnesAreANameAndAPassword) {
    EXPECT_EQ(basic("Basic QWxhZGRpbjpvcGVuIHNlc2FtZQ=="), "Aladdin|open sesame");
    EXPECT_EQ(basic("bASIC   QWxhZGRpbjpvcGVuIHNlc2FtZQ"), "Aladdin|open sesame");
    EXPECT_EQ(basic("Basic YTpiOmM="), "a|b:c");
    EXPECT_EQ(basic("Basic Og=="), "|");
    for (const std::string_view header : {"", "Basic", "Basic ", "Basic YQ==", "Basic %%%%", "Bearer YTpi", "BasicYTpi",
                                          "Basic YTpi=", "Basic YTp i"}) {
        EXPECT_EQ(basic(header), "none") << header;
    }
}

TEST(Credentials, BasicOnesHaveNoControlCharacters) {
    EXPECT_EQ(basic("Basic YWRhCkVSUk9SOng="), "none") << "a line feed in the name";
    EXPECT_EQ(basic("Basic YWRhOngB"), "none") << "a control character in the password";
}

TEST(Credentials, BearersHaveOneToken) {
    EXPECT_EQ(parseBearer("Bearer abc.def-123"), "abc.def-123");
    EXPECT_EQ(parseBearer("bearer  abc"), "abc");
    for (const std::string_view header : {"", "Bearer", "Bearer ", "Basic abc", "Bearer a b", "Bearer a, Bearer b"}) {
        EXPECT_EQ(parseBearer(header), std::nullopt) << header;
    }
}

TEST(Credentials, RealmsAreQuoted) {
    EXPECT_EQ(vireo::impl::quoted("a \"b\" \\c"), "\"a \\\"b\\\" \\\\c\"");
    EXPECT_THROW(vireo::impl::quoted("a\r\nb"), std::invalid_argument);
}

TEST(Credentials, ACheckIsNeeded) {
    EXPECT_THROW(vireo::basicAuth("here", nullptr), std::invalid_argument);
    EXPECT_THROW(vireo::bearerAuth("here", nullptr), std::invalid_argument);
}

} // namespace
