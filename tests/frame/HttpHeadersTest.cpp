#include "vireo/support/HttpHeaders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <string>
#include <utility>

namespace {

using ql::http::HttpHeaders;
using testing::ElementsAre;
using testing::IsEmpty;

std::list<std::string> split(const char* value) {
    std::list<std::string> values;
    EXPECT_TRUE(HttpHeaders::ParseMultiValueHeader(value, values)) << value;
    return values;
}

/// Whether the value is refused, and then with nothing appended.
bool isRefused(const char* value) {
    std::list<std::string> values{"before"};
    const bool parsed = HttpHeaders::ParseMultiValueHeader(value, values);
    return !parsed && values == std::list<std::string>{"before"};
}

TEST(HttpHeaders, UnknownNameIsNotFound) {
    EXPECT_EQ(HttpHeaders().find("accept"), nullptr);
}

TEST(HttpHeaders, ValuesAreFoundUnderTheirName) {
    HttpHeaders headers;
    headers.addHeaderValues("accept", {"a", "b"});
    ASSERT_NE(headers.find("accept"), nullptr);
    EXPECT_THAT(*headers.find("accept"), ElementsAre("a", "b"));
}

TEST(HttpHeaders, RepeatedNameAppendsAndKeepsDuplicates) {
    HttpHeaders headers;
    headers.addHeaderValues("accept", {"b"});
    headers.addHeaderValues("accept", {"a", "b"});
    EXPECT_THAT(*headers.find("accept"), ElementsAre("b", "a", "b"));
}

TEST(HttpHeaders, ValuesCanBeMovedIn) {
    HttpHeaders headers;
    headers.addHeaderValues("accept", {"a"});
    std::string name = "accept";
    std::list<std::string> values{"b", "c"};
    headers.addHeaderValues(std::move(name), std::move(values));
    EXPECT_THAT(*headers.find("accept"), ElementsAre("a", "b", "c"));
}

TEST(HttpHeaders, ValuesGivenByReferenceStay) {
    HttpHeaders headers;
    const std::string name = "accept";
    const std::list<std::string> values{"a", "b"};
    headers.addHeaderValues(name, values);
    EXPECT_EQ(name, "accept");
    EXPECT_THAT(values, ElementsAre("a", "b"));
    EXPECT_THAT(*headers.find("accept"), ElementsAre("a", "b"));
}

TEST(HttpHeaders, NamesAreNotLowerCased) {
    HttpHeaders headers;
    headers.addHeaderValues("accept", {"a"});
    EXPECT_EQ(headers.find("Accept"), nullptr);
}

TEST(HttpHeaders, AllFieldsComeInByteOrder) {
    HttpHeaders headers;
    headers.addHeaderValues("host", {"h"});
    headers.addHeaderValues("accept", {"a"});
    headers.addHeaderValues("x-a", {"x"});
    EXPECT_THAT(headers.getAll(), ElementsAre(std::pair<const std::string, std::list<std::string>>("accept", {"a"}),
                                              std::pair<const std::string, std::list<std::string>>("host", {"h"}),
                                              std::pair<const std::string, std::list<std::string>>("x-a", {"x"})));
}

TEST(HttpHeaders, CopiesAreIndependent) {
    HttpHeaders headers;
    headers.addHeaderValues("a", {"1"});
    HttpHeaders copy(headers);
    copy.addHeaderValues("a", {"2"});
    EXPECT_THAT(*headers.find("a"), ElementsAre("1"));
    headers = copy;
    EXPECT_THAT(*headers.find("a"), ElementsAre("1", "2"));
}

TEST(HttpHeaders, MovesTakeTheFields) {
    HttpHeaders headers;
    headers.addHeaderValues("a", {"1"});
    HttpHeaders moved(std::move(headers));
    EXPECT_THAT(*moved.find("a"), ElementsAre("1"));
    HttpHeaders assigned;
    assigned = std::move(moved);
    EXPECT_THAT(*assigned.find("a"), ElementsAre("1"));
}

TEST(ParseMultiValueHeader, ValueWithoutCommaIsOneElement) {
    EXPECT_THAT(split("text/html"), ElementsAre("text/html"));
}

TEST(ParseMultiValueHeader, SplitsAtCommas) {
    EXPECT_THAT(split("a,b,c"), ElementsAre("a", "b", "c"));
}

TEST(ParseMultiValueHeader, WhiteSpaceAroundElementsIsDropped) {
    EXPECT_THAT(split(" \ta b\t , \t c\t d \t"), ElementsAre("a b", "c\t d"));
}

TEST(ParseMultiValueHeader, EmptyElementsAreDropped) {
    EXPECT_THAT(split(",a,, \t,b,"), ElementsAre("a", "b"));
}

TEST(ParseMultiValueHeader, ValueWithoutElementsGivesOneEmptyText) {
    EXPECT_THAT(split(""), ElementsAre(""));
    EXPECT_THAT(split(" \t"), ElementsAre(""));
    EXPECT_THAT(split(", ,"), ElementsAre(""));
    EXPECT_THAT(split(nullptr), ElementsAre(""));
}

TEST(ParseMultiValueHeader, CommaInsideQuotesDoesNotSplit) {
    EXPECT_THAT(split(R"(a="b,c",d)"), ElementsAre(R"(a="b,c")", "d"));
    EXPECT_THAT(split(R"("a,b","c")"), ElementsAre(R"("a,b")", R"("c")"));
}

TEST(ParseMultiValueHeader, EscapedQuoteDoesNotCloseTheQuotes) {
    EXPECT_THAT(split(R"("a\",b",c)"), ElementsAre(R"("a\",b")", "c"));
    EXPECT_THAT(split(R"("a\\",b)"), ElementsAre(R"("a\\")", "b"));
}

TEST(ParseMultiValueHeader, BackslashOutsideQuotesIsAnOrdinaryCharacter) {
    EXPECT_THAT(split(R"(a\,b)"), ElementsAre(R"(a\)", "b"));
    EXPECT_THAT(split(R"(\"a,b")"), ElementsAre(R"(\"a,b")"));
}

TEST(ParseMultiValueHeader, WhiteSpaceInsideQuotesStays) {
    EXPECT_THAT(split(R"(" a ")"), ElementsAre(R"(" a ")"));
}

TEST(ParseMultiValueHeader, EmptyQuotesAreAnElement) {
    EXPECT_THAT(split(R"("")"), ElementsAre(R"("")"));
}

TEST(ParseMultiValueHeader, AppendsToWhatIsThere) {
    std::list<std::string> values{"before"};
    ASSERT_TRUE(HttpHeaders::ParseMultiValueHeader("a,b", values));
    EXPECT_THAT(values, ElementsAre("before", "a", "b"));
}

TEST(ParseMultiValueHeader, BytesAboveAsciiAreKept) {
    EXPECT_THAT(split("\xC3\xA9,\xFF\x80"), ElementsAre("\xC3\xA9", "\xFF\x80"));
}

TEST(ParseMultiValueHeader, QuoteThatIsNotClosedIsAnOrdinaryCharacter) {
    EXPECT_THAT(split(R"(it's 5" wide)"), ElementsAre(R"(it's 5" wide)"));
    EXPECT_THAT(split(R"(5" wide,6 high, "x)"), ElementsAre(R"(5" wide,6 high, "x)"));
    EXPECT_THAT(split(R"(a,"b,c)"), ElementsAre("a", R"("b)", "c"));
    EXPECT_THAT(split(R"(")"), ElementsAre(R"(")"));
    EXPECT_THAT(split(R"("a\)"), ElementsAre(R"("a\)"));
    EXPECT_THAT(split(R"("a,b" 5",c)"), ElementsAre(R"("a,b" 5")", "c"));
}

TEST(ParseMultiValueHeader, QuotesBehindOneThatIsNotClosedAreOrdinaryAsWell) {
    EXPECT_THAT(split(R"("a\",b\",c)"), ElementsAre(R"("a\")", R"(b\")", "c"));
}

TEST(ParseMultiValueHeader, ManyQuotesThatAreNotClosedTakeNoLongerThanOne) {
    // With one look for its end for each quote, this takes minutes.
    std::string value = "\"";
    for (int i = 0; i < 1000000; ++i) {
        value += "\\\"";
    }
    EXPECT_THAT(split(value.c_str()), ElementsAre(value));
}

TEST(ParseMultiValueHeader, ControlCharactersBehindAQuoteThatIsNotClosedAreRefused) {
    EXPECT_TRUE(isRefused("\"a\nb"));
    EXPECT_TRUE(isRefused("\"a\\\nb"));
}

TEST(ParseMultiValueHeader, EveryControlCharacterButTheTabIsRefused) {
    for (int code = 1; code < 0x20; ++code) {
        const std::string value = std::string("a,") + static_cast<char>(code) + "b";
        EXPECT_EQ(isRefused(value.c_str()), code != '\t') << code;
    }
    EXPECT_TRUE(isRefused("a\x7F"));
    EXPECT_FALSE(isRefused("a~"));
}

TEST(ParseMultiValueHeader, ControlCharactersInQuotesAreRefusedEscapedOrNot) {
    EXPECT_TRUE(isRefused("\"a\nb\""));
    EXPECT_TRUE(isRefused("\"a\\\nb\""));
}

} // namespace
