#include "frame/HttpSyntax.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

namespace {

TEST(HttpSyntax, TokenHasTheCharactersOfANameAndNoOthers) {
    constexpr std::string_view Allowed =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789!#$%&'*+-.^_`|~";
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        EXPECT_EQ(ql::impl::isToken(std::string(1, c)), Allowed.find(c) != std::string_view::npos) << byte;
    }
    EXPECT_TRUE(ql::impl::isToken(Allowed));
    EXPECT_FALSE(ql::impl::isToken(""));
    EXPECT_FALSE(ql::impl::isToken("a b"));
}

TEST(HttpSyntax, FieldValueHasNoControlCharactersButTabs) {
    for (int byte = 0; byte < 256; ++byte) {
        const bool isControl = byte < 0x20 || byte == 0x7F;
        EXPECT_EQ(ql::impl::isFieldValue("a" + std::string(1, static_cast<char>(byte))), !isControl || byte == '\t')
            << byte;
    }
    EXPECT_TRUE(ql::impl::isFieldValue(""));
}

TEST(HttpSyntax, BlanksGoFromBothEnds) {
    EXPECT_EQ(ql::impl::withoutBlanks(" \ta b\t "), "a b");
    EXPECT_EQ(ql::impl::withoutBlanks(" \t"), "");
    EXPECT_EQ(ql::impl::withoutBlanks("\ra"), "\ra");
}

TEST(HttpSyntax, WordsAreTheSameInAnyCase) {
    EXPECT_TRUE(ql::impl::isSameWord("Up-Grade", "uP-gRADE"));
    EXPECT_FALSE(ql::impl::isSameWord("upgrade", "upgrades"));
    EXPECT_FALSE(ql::impl::isSameWord("a[", "a{"));
}

TEST(HttpSyntax, CookieValueIsPrintableWithoutSeparators) {
    constexpr std::string_view Forbidden = "\",;\\";
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        const bool isAllowed = byte > 0x20 && byte < 0x7F && Forbidden.find(c) == std::string_view::npos;
        EXPECT_EQ(ql::impl::isCookieValue("a" + std::string(1, c)), isAllowed) << byte;
    }
    EXPECT_TRUE(ql::impl::isCookieValue(""));
    EXPECT_TRUE(ql::impl::isCookieValue("\"a\""));
    EXPECT_FALSE(ql::impl::isCookieValue("\""));
    EXPECT_FALSE(ql::impl::isCookieValue("\"a b\""));
}

TEST(HttpSyntax, CookieAttributeIsPrintableWithoutASemicolon) {
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        EXPECT_EQ(ql::impl::isCookieAttributeValue(std::string(1, c)), byte >= 0x20 && byte < 0x7F && c != ';') << byte;
    }
}

TEST(HttpSyntax, EscapeHasTwoHexadecimalDigits) {
    EXPECT_EQ(ql::impl::escapeAt("a%4A%c3", 1), 'J');
    EXPECT_EQ(ql::impl::escapeAt("a%4A%c3", 4), '\xC3');
    EXPECT_EQ(ql::impl::escapeAt("%00", 0), '\0');
    for (const char* const text : {"%", "%4", "%4g", "%g4", "%+4", "%-1", "% 4", "%0x"}) {
        EXPECT_EQ(ql::impl::escapeAt(text, 0), std::nullopt) << text;
    }
}

TEST(HttpSyntax, ListIsTakenElementByElement) {
    std::string_view list = "a , ,b";
    EXPECT_EQ(ql::impl::takeElement(list), "a");
    EXPECT_EQ(ql::impl::takeElement(list), "");
    EXPECT_EQ(ql::impl::takeElement(list), "b");
    EXPECT_EQ(list, "");
}

} // namespace
