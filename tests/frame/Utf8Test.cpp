#include "frame/Utf8.h"

#include "session/NaiveDecoder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using ql::impl::Utf8Validator;
using ql::impl::withoutControls;
using sessiontest::judgeUtf8;
using sessiontest::Utf8;

namespace {

std::span<const unsigned char> bytesOf(std::string_view text) {
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

/// Feeds byte for byte; each has to be judged as the bytes so far are.
void expectJudgedAtEachByte(const std::string& text) {
    Utf8Validator validator;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const Utf8 expected = judgeUtf8(std::string_view(text).substr(0, i + 1));
        ASSERT_EQ(validator.feed(bytesOf(text).subspan(i, 1)), expected != Utf8::Invalid)
            << testing::PrintToString(text) << " at byte " << i;
        if (expected == Utf8::Invalid) {
            return;
        }
        ASSERT_EQ(validator.isComplete(), expected == Utf8::Complete)
            << testing::PrintToString(text) << " at byte " << i;
    }
}

/// Bytes on both sides of every border there is.
std::vector<char> borderBytes() {
    std::vector<char> bytes;
    for (const int border :
         {0x00, 0x80, 0x90, 0xA0, 0xC0, 0xC2, 0xE0, 0xE1, 0xED, 0xEE, 0xF0, 0xF1, 0xF4, 0xF5, 0xF8}) {
        bytes.push_back(static_cast<char>(border - 1));
        bytes.push_back(static_cast<char>(border));
    }
    return bytes;
}

} // namespace

TEST(WithoutControls, OfEveryPairOfBytesTheControlsAloneAreBlanks) {
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            const std::string text{static_cast<char>(first), static_cast<char>(second)};
            std::string expected;
            if (first == 0xC2 && second >= 0x80 && second <= 0x9F) {
                expected = " ";
            } else {
                for (const char c : text) {
                    const bool isControl = (c >= 0 && c < 0x20) || c == 0x7F;
                    expected += isControl ? ' ' : c;
                }
            }
            ASSERT_EQ(withoutControls(text), expected) << first << " " << second;
        }
    }
    EXPECT_EQ(withoutControls(""), "");
    EXPECT_EQ(withoutControls("a\xC2"), "a\xC2");
    EXPECT_EQ(withoutControls("\xC2\x85\xC2\xA0\xE2\x80\x9C\x1B"), " \xC2\xA0\xE2\x80\x9C ");
}

TEST(Utf8Validator, JudgesEveryPairOfBytesAtItsFirstWrongByte) {
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            ASSERT_NO_FATAL_FAILURE(expectJudgedAtEachByte({static_cast<char>(first), static_cast<char>(second)}));
        }
    }
}

TEST(Utf8Validator, JudgesSequencesOfBorderBytesAtTheirFirstWrongByte) {
    const std::vector<char> bytes = borderBytes();
    for (const char first : bytes) {
        for (const char second : bytes) {
            for (const char third : bytes) {
                for (const char fourth : bytes) {
                    ASSERT_NO_FATAL_FAILURE(expectJudgedAtEachByte({first, second, third, fourth}));
                }
            }
        }
    }
}

TEST(Utf8Validator, TakesEveryCharacter) {
    std::string all;
    for (unsigned long c = 0; c <= 0x10FFFF; ++c) {
        if (c < 0x80) {
            all += static_cast<char>(c);
        } else if (c < 0x800) {
            all += {static_cast<char>(0xC0 | c >> 6), static_cast<char>(0x80 | (c & 0x3F))};
        } else if (c < 0x10000 && (c < 0xD800 || c > 0xDFFF)) {
            all += {static_cast<char>(0xE0 | c >> 12), static_cast<char>(0x80 | (c >> 6 & 0x3F)),
                    static_cast<char>(0x80 | (c & 0x3F))};
        } else if (c >= 0x10000) {
            all += {static_cast<char>(0xF0 | c >> 18), static_cast<char>(0x80 | (c >> 12 & 0x3F)),
                    static_cast<char>(0x80 | (c >> 6 & 0x3F)), static_cast<char>(0x80 | (c & 0x3F))};
        }
    }
    for (const std::size_t step : {all.size(), std::size_t{1}, std::size_t{7}, std::size_t{4096}}) {
        Utf8Validator validator;
        for (std::size_t at = 0; at < all.size(); at += step) {
            ASSERT_TRUE(validator.feed(bytesOf(std::string_view(all).substr(at, step)))) << "at " << at;
        }
        EXPECT_TRUE(validator.isComplete());
    }
}

/// ASCII is taken eight bytes at a time: a wrong byte has to be seen at each place among them, however the text is
/// split.
TEST(Utf8Validator, SeesAWrongByteAtEveryPlaceAndSplit) {
    for (const std::string sequence :
         {"\x80", "\xC3", "\xC3\xA9", "\xE2\x82\xAC", "\xED\xA0\x80", "\xF0\x9F\x98\x80", "\xF4\x90\x80\x80", "\xFF"}) {
        for (std::size_t place = 0; place <= 24; ++place) {
            const std::string text = std::string(place, 'a') + sequence + std::string(20, 'z');
            const bool isValid = judgeUtf8(text) == Utf8::Complete;
            for (std::size_t split = 0; split <= text.size(); ++split) {
                Utf8Validator validator;
                const bool isTaken =
                    validator.feed(bytesOf(text).first(split)) && validator.feed(bytesOf(text).subspan(split));
                ASSERT_EQ(isTaken, isValid) << testing::PrintToString(text) << " split at " << split;
            }
            ASSERT_EQ(ql::impl::findInvalidUtf8(text), isValid ? std::string_view::npos : place);
        }
    }
}

TEST(FindInvalidUtf8, NamesTheStartOfASequenceThatTheTextCutsOff) {
    for (const std::string_view whole : {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
        for (std::size_t length = 1; length < whole.size(); ++length) {
            EXPECT_EQ(ql::impl::findInvalidUtf8("abc" + std::string(whole.substr(0, length))), 3U);
        }
    }
}
