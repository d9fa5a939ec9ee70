#include "vireo/support/Base64.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string encode(const std::string& data) {
    std::string out;
    EXPECT_TRUE(ql::base64Encode(data.data(), data.size(), out, ql::Base64CharSet::Standard));
    return out;
}

TEST(Base64, Rfc4648VectorsOfEachLength) {
    EXPECT_EQ(encode(""), "");
    EXPECT_EQ(encode("f"), "Zg==");
    EXPECT_EQ(encode("fo"), "Zm8=");
    EXPECT_EQ(encode("foo"), "Zm9v");
    EXPECT_EQ(encode("foob"), "Zm9vYg==");
    EXPECT_EQ(encode("fooba"), "Zm9vYmE=");
    EXPECT_EQ(encode("foobar"), "Zm9vYmFy");
}

TEST(Base64, EverySextetHasItsLetter) {
    std::string data;
    for (unsigned int group = 0; group < 64; group += 4) {
        const unsigned int bits = group << 18U | (group + 1) << 12U | (group + 2) << 6U | (group + 3);
        data.push_back(static_cast<char>(bits >> 16U & 0xFFU));
        data.push_back(static_cast<char>(bits >> 8U & 0xFFU));
        data.push_back(static_cast<char>(bits & 0xFFU));
    }
    EXPECT_EQ(encode(data), "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
}

TEST(Base64, BytesAbove127AndNulAreData) {
    EXPECT_EQ(encode(std::string("\xFF\xFF\xFF", 3)), "////");
    EXPECT_EQ(encode(std::string("\0\0\0", 3)), "AAAA");
    EXPECT_EQ(encode(std::string("\xFB\xF0", 2)), "+/A=");
}

TEST(Base64, OldContentOfOutIsReplaced) {
    std::string out = "old";
    ASSERT_TRUE(ql::base64Encode("f", 1, out, ql::Base64CharSet::Standard));
    EXPECT_EQ(out, "Zg==");
}

TEST(Base64, TheInputMayBeTheOutput) {
    std::string text = "foobar";
    ASSERT_TRUE(ql::base64Encode(text.data(), text.size(), text, ql::Base64CharSet::Standard));
    EXPECT_EQ(text, "Zm9vYmFy");
}

TEST(Base64, NoDataMayBeANullPointer) {
    std::string out = "old";
    EXPECT_TRUE(ql::base64Encode(nullptr, 0, out, ql::Base64CharSet::Standard));
    EXPECT_EQ(out, "");
}

TEST(Base64, UnknownAlphabetIsRefusedAndEmptiesOut) {
    std::string out = "old";
    EXPECT_FALSE(ql::base64Encode("f", 1, out, static_cast<ql::Base64CharSet>(1)));
    EXPECT_EQ(out, "");
}

} // namespace
