#include "vireo/support/qlStringUtils.h"

#include "frame/Utf8.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <string_view>
#include <type_traits>

namespace {

using std::string_view_literals::operator""sv;

std::string lower(std::string text) {
    qlStringUtils::toLower(text);
    return text;
}

static_assert(std::is_same_v<ql::qlStringUtils, qlStringUtils>);

TEST(ToLower, OnlyAsciiCapitalsChange) {
    for (int code = 0; code < 256; ++code) {
        const char c = static_cast<char>(code);
        const bool capital = code >= 'A' && code <= 'Z';
        EXPECT_EQ(lower(std::string(1, c)), std::string(1, capital ? static_cast<char>(code + 32) : c)) << code;
    }
}

TEST(ToLower, ChangesTheWholeText) {
    EXPECT_EQ(lower("Content-Type"), "content-type");
    EXPECT_EQ(lower(""), "");
    EXPECT_EQ(lower(std::string("A\0B", 3)), std::string("a\0b", 3));
}

TEST(ContainsAsciiNonPrintableChar, TrueForEachByteOutsidePrintableAscii) {
    for (int code = 0; code < 256; ++code) {
        const bool printable = code >= 0x20 && code <= 0x7E;
        EXPECT_EQ(qlStringUtils::ContainsAsciiNonPrintableChar(std::string(1, static_cast<char>(code))), !printable)
            << code;
    }
}

TEST(ContainsAsciiNonPrintableChar, LooksAtEveryPosition) {
    EXPECT_FALSE(qlStringUtils::ContainsAsciiNonPrintableChar(""));
    EXPECT_FALSE(qlStringUtils::ContainsAsciiNonPrintableChar("abc"));
    EXPECT_TRUE(qlStringUtils::ContainsAsciiNonPrintableChar("\nbc"));
    EXPECT_TRUE(qlStringUtils::ContainsAsciiNonPrintableChar("a\nc"));
    EXPECT_TRUE(qlStringUtils::ContainsAsciiNonPrintableChar("ab\n"));
}

TEST(FromUInt64, WithOneDigitIsPlainDecimal) {
    EXPECT_EQ(qlStringUtils::fromUInt64(0, 1), "0");
    EXPECT_EQ(qlStringUtils::fromUInt64(10, 1), "10");
    EXPECT_EQ(qlStringUtils::fromUInt64(std::numeric_limits<std::uint64_t>::max(), 1), "18446744073709551615");
}

TEST(FromUInt64, FillsUpWithZeros) {
    EXPECT_EQ(qlStringUtils::fromUInt64(42, 1), "42");
    EXPECT_EQ(qlStringUtils::fromUInt64(42, 2), "42");
    EXPECT_EQ(qlStringUtils::fromUInt64(42, 3), "042");
    EXPECT_EQ(qlStringUtils::fromUInt64(0, 4), "0000");
}

TEST(FromUInt64, NoOrFewerThanNoDigitsIsPlainDecimal) {
    EXPECT_EQ(qlStringUtils::fromUInt64(0, 0), "0");
    EXPECT_EQ(qlStringUtils::fromUInt64(7, -3), "7");
}

TEST(IsUtf8, EmptyTextPasses) {
    EXPECT_TRUE(qlStringUtils::IsUtf8(""));
}

TEST(IsUtf8, EveryAsciiBytePassesAlone) {
    for (int code = 0; code < 0x80; ++code) {
        EXPECT_TRUE(qlStringUtils::IsUtf8(std::string(1, static_cast<char>(code)))) << code;
    }
}

TEST(IsUtf8, NoByteAboveAsciiPassesAlone) {
    for (int code = 0x80; code < 0x100; ++code) {
        EXPECT_FALSE(qlStringUtils::IsUtf8(std::string(1, static_cast<char>(code)))) << code;
    }
}

TEST(IsUtf8, LeadByteBoundsOfTwoByteSequences) {
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xC0\x80"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xC1\xBF"));
    EXPECT_TRUE(qlStringUtils::IsUtf8("\xC2\x80"));
    EXPECT_TRUE(qlStringUtils::IsUtf8("\xDF\xBF"));
}

TEST(IsUtf8, ContinuationByteBoundsOfTwoByteSequences) {
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xC2\x7F"));
    EXPECT_TRUE(qlStringUtils::IsUtf8("\xC2\x80"));
    EXPECT_TRUE(qlStringUtils::IsUtf8("\xC2\xBF"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xC2\xC0"));
}

TEST(IsUtf8, OverlongThreeByteSequencesFail) {
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xE0\x9F\xBF"));
    EXPECT_TRUE(qlStringUtils::IsUtf8("\xE0\xA0\x80"));
    EXPECT_TRUE(qlStringUtils::IsUtf8("\xE0\xBF\xBF"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xE0\xC0\x80"));
}

TEST(IsUtf8, SurrogatesFail) {
    EXPECT_TRUE(qlStringUtils::IsUtf8("\xED\x9F\xBF"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xED\xA0\x80"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xED\xBF\xBF"));
    EXPECT_TRUE(qlStringUtils::IsUtf8("\xEE\x80\x80"));
}

TEST(IsUtf8, ContinuationByteBoundsOfThreeByteSequences) {
    EXPECT_TRUE(qlStringUtils::IsUtf8("\xE1\x80\x80"));
    EXPECT_TRUE(qlStringUtils::IsUtf8("\xEF\xBF\xBF"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xE1\x7F\x80"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xE1\xC0\x80"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xE1\x80\x7F"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xE1\x80\xC0"));
}

TEST(IsUtf8, OverlongFourByteSequencesFail) {
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xF0\x8F\xBF\xBF"));
    EXPECT_TRUE(qlStringUtils::IsUtf8("\xF0\x90\x80\x80"));
    EXPECT_TRUE(qlStringUtils::IsUtf8("\xF0\xBF\xBF\xBF"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xF0\xC0\x80\x80"));
}

TEST(IsUtf8, CodePointsAboveTheLastOneFail) {
    EXPECT_TRUE(qlStringUtils::IsUtf8("\xF4\x8F\xBF\xBF"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xF4\x90\x80\x80"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xF5\x80\x80\x80"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xFF\x80\x80\x80"));
}

TEST(IsUtf8, ContinuationByteBoundsOfFourByteSequences) {
    EXPECT_TRUE(qlStringUtils::IsUtf8("\xF1\x80\x80\x80"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xF1\x7F\x80\x80"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xF1\x80\xC0\x80"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xF1\x80\x80\x7F"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("\xF1\x80\x80\xC0"));
}

TEST(IsUtf8, SequencesCutOffByTheEndFail) {
    for (const std::string_view whole : {"\xC2\x80"sv, "\xE1\x80\x80"sv, "\xF1\x80\x80\x80"sv}) {
        ASSERT_TRUE(qlStringUtils::IsUtf8(whole));
        for (std::size_t length = 1; length < whole.size(); ++length) {
            EXPECT_FALSE(qlStringUtils::IsUtf8(whole.substr(0, length)));
            EXPECT_FALSE(qlStringUtils::IsUtf8(std::string(whole.substr(0, length)) + "abc"));
        }
    }
}

TEST(IsUtf8, NulBytesAreCharacters) {
    EXPECT_TRUE(qlStringUtils::IsUtf8("a\0b"sv));
    EXPECT_FALSE(qlStringUtils::IsUtf8("a\0\x80"sv));
}

TEST(IsUtf8, EveryCharacterOfAMixedTextCounts) {
    EXPECT_TRUE(qlStringUtils::IsUtf8("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z"));
    EXPECT_FALSE(qlStringUtils::IsUtf8("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\x80z"));
}

TEST(FindInvalidUtf8, NamesTheStartOfTheFirstBadSequence) {
    EXPECT_EQ(ql::impl::findInvalidUtf8("abc"), std::string_view::npos);
    EXPECT_EQ(ql::impl::findInvalidUtf8("\xFF"), 0U);
    EXPECT_EQ(ql::impl::findInvalidUtf8("a\xC3\xA9\xE1\x80z\xFF"), 3U);
}

} // namespace
