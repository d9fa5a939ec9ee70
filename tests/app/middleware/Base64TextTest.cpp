#include "app/middleware/Base64Text.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

namespace {

using vireo::impl::decodeBase64;
using vireo::impl::decodeBase64Url;
using vireo::impl::encodeBase64Url;

TEST(Base64Text, IsReadAsItWasWritten) {
    std::string bytes;
    for (int i = 0; i < 300; ++i) {
        const std::string text = encodeBase64Url(bytes);
        EXPECT_EQ(decodeBase64Url(text), bytes) << text;
        EXPECT_EQ(text.find_first_of("+/="), std::string::npos);
        bytes += static_cast<char>(i * 7);
    }
    EXPECT_EQ(encodeBase64Url("\xFB\xFF\xFE"), "-__-");
}

TEST(Base64Text, EachBytesHaveOneText) {
    EXPECT_EQ(decodeBase64Url("QQ"), "A");
    for (const std::string_view text : {"QR", "QQ==", "Q", "QQQQQ", "Q+", "Q/", "QQ=", "Q Q", "QQ\n", "QUJ=", "QUK"}) {
        EXPECT_EQ(decodeBase64Url(text), std::nullopt) << text;
    }
}

TEST(Base64Text, PaddingMayBeThere) {
    EXPECT_EQ(decodeBase64("QQ=="), "A");
    EXPECT_EQ(decodeBase64("QQ"), "A");
    EXPECT_EQ(decodeBase64("QUI="), "AB");
    EXPECT_EQ(decodeBase64("+/8="), "\xFB\xFF");
    EXPECT_EQ(decodeBase64(""), "");
    for (const std::string_view text : {"QQ=", "QQ===", "QQ=A", "=", "====", "QUJD=", "Q===", "-_8="}) {
        EXPECT_EQ(decodeBase64(text), std::nullopt) << text;
    }
}

} // namespace
