#include "request/StrictIntake.h"

#include "support/FakeRequest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using ql::HttpBaseRequest;
using ql::impl::checkHead;
using ql::impl::fileStrictHead;
using ql::impl::RequestHead;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::Pointee;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;

using Kind = HttpBaseRequest::ParseErrorKind;
using RequestType = HttpBaseRequest::RequestType;

class StrictIntake : public testing::Test {
protected:
    StrictIntake() { HttpBaseRequest::InitRequestTypes(); }
    ~StrictIntake() override { HttpBaseRequest::ClearRequestTypes(); }

    void file(std::string_view method, std::string_view target,
              std::vector<std::pair<std::string_view, std::string_view>> fields = {}) {
        fields.emplace_back("Host", "h.test");
        RequestHead head{method, target, "HTTP/1.1", std::move(fields)};
        auto verdict = checkHead(head, {"BREW"});
        ASSERT_EQ(verdict.status, 0U) << verdict.reason;
        fileStrictHead(request_, {std::move(head), std::move(verdict)});
    }
    void fileTarget(std::string_view target) { file("GET", target); }
    void fileCookies(std::string_view cookies) { file("GET", "/", {{"Cookie", cookies}}); }

    FakeServerImpl application_;
    FakeRequest request_{application_};
};

TEST_F(StrictIntake, HeadersAreFiledAsEver) {
    file("GET", "/", {{"X-A", "1, 2"}, {"x-a", "\xC3\xA4"}, {"Accept", ""}});
    EXPECT_THAT(request_.getHeaders().getAll(),
                ElementsAre(Pair("accept", ElementsAre("")), Pair("host", ElementsAre("h.test")),
                            Pair("x-a", ElementsAre("1", "2", "\xC3\xA4"))));
    EXPECT_FALSE(request_.hasParseError());
    EXPECT_EQ(request_.getParseErrorKind(), Kind::None);
}

TEST_F(StrictIntake, MethodOfTheApplicationHasItsTokenAlone) {
    file("BREW", "/");
    EXPECT_EQ(request_.getRequestType(), RequestType::Unknown);
    EXPECT_EQ(request_.getMethodToken(), "BREW");
    EXPECT_FALSE(request_.hasParseError());
}

TEST_F(StrictIntake, KnownMethodHasItsType) {
    file("PUT", "/");
    EXPECT_EQ(request_.getRequestType(), RequestType::Put);
    EXPECT_EQ(request_.getMethodToken(), "PUT");
}

// ---- The target ----

TEST_F(StrictIntake, PathIsFiledAsItCame) {
    fileTarget("/a%20b?c=d");
    EXPECT_EQ(request_.getOriginalRequestUrl(), "/a%20b?c=d");
    EXPECT_EQ(request_.getParsedUrl().getPath(), "/a%20b");
    EXPECT_EQ(request_.getParsedUrl().getDecodedPath(), "/a b");
    EXPECT_EQ(request_.getParsedUrl().getQuery(), "c=d");
}

TEST_F(StrictIntake, AuthorityOfTheTargetReplacesHost) {
    file("GET", "http://x.test:81/a?b", {{"X", "y"}});
    EXPECT_EQ(request_.getOriginalRequestUrl(), "/a?b");
    EXPECT_EQ(request_.getParsedUrl().toString(), "http://127.0.0.1:80/a?b");
    EXPECT_THAT(request_.getHeaders().getAll(),
                ElementsAre(Pair("host", ElementsAre("x.test:81")), Pair("x", ElementsAre("y"))));
}

TEST_F(StrictIntake, AsteriskIsTheServerAndItsPathTheRoot) {
    file("OPTIONS", "*");
    EXPECT_EQ(request_.getOriginalRequestUrl(), "*");
    EXPECT_EQ(request_.getParsedUrl().getPath(), "/");
    EXPECT_FALSE(request_.hasParseError());
}

TEST_F(StrictIntake, TargetOfTheLongestLengthIsFiled) {
    const std::string target = "/?" + std::string(ql::impl::MaxStrictTargetBytes - 2, '|');
    fileTarget(target);
    EXPECT_EQ(request_.getOriginalRequestUrl(), target);
    EXPECT_FALSE(request_.hasParseError());
}

TEST_F(StrictIntake, PathThatIsNoTextIsAParseError) {
    fileTarget("/%FF");
    EXPECT_TRUE(request_.hasParseError());
    EXPECT_EQ(request_.getParseErrorKind(), Kind::Target);
    EXPECT_EQ(request_.getParseErrorField(), "");
    EXPECT_EQ(request_.getOriginalRequestUrl(), "Invalid URI");
}

// ---- The query ----

TEST_F(StrictIntake, ArgumentsAreDecodedAsAForm) {
    fileTarget("/?a=1+2&b=%2B&c&d=&=e&&f=g=h&a=3%26");
    EXPECT_THAT(request_.getQueryParameters(),
                ElementsAre(Pair("", ElementsAre("e")), Pair("a", ElementsAre("1 2", "3&")),
                            Pair("b", ElementsAre("+")), Pair("c", ElementsAre("")), Pair("d", ElementsAre("")),
                            Pair("f", ElementsAre("g=h"))));
}

TEST_F(StrictIntake, ArgumentsOfBrowsersAreFiled) {
    fileTarget("/?a[]=%C3%A4&\xC3\xB6={|}^&line=a%0D%0Ab&off=100%&bad=%zz");
    EXPECT_FALSE(request_.hasParseError()) << request_.getParseError();
    EXPECT_THAT(request_.getQueryParameters(),
                ElementsAre(Pair("a[]", ElementsAre("\xC3\xA4")), Pair("bad", ElementsAre("%zz")),
                            Pair("line", ElementsAre("a\r\nb")), Pair("off", ElementsAre("100%")),
                            Pair("\xC3\xB6", ElementsAre("{|}^"))));
    EXPECT_EQ(request_.getParsedUrl().getQuery(),
              "a%5B%5D=%C3%A4&%C3%B6=%7B%7C%7D%5E&line=a%0D%0Ab&off=100%25&bad=%25zz");
}

TEST_F(StrictIntake, ArgumentThatIsNoTextIsAParseErrorOfItsName) {
    fileTarget("/?a=b&n%C3%A4me=%C3&c=d");
    EXPECT_EQ(request_.getParseErrorKind(), Kind::Query);
    EXPECT_EQ(request_.getParseErrorField(), "n%C3%A4me");
    EXPECT_EQ(request_.getParseError(), "query parameter is no UTF-8 text");
    EXPECT_THAT(request_.getQueryParameters(), ElementsAre(Pair("a", ElementsAre("b")), Pair("c", ElementsAre("d"))));
}

TEST_F(StrictIntake, NulIsNoText) {
    fileTarget("/?a=%00");
    EXPECT_EQ(request_.getParseErrorKind(), Kind::Query);
    EXPECT_THAT(request_.getQueryParameters(), IsEmpty());
}

TEST_F(StrictIntake, ArgumentNameThatIsNoTextIsAParseError) {
    fileTarget("/?%FF=a");
    EXPECT_EQ(request_.getParseErrorKind(), Kind::Query);
}

// ---- Cookies ----

TEST_F(StrictIntake, CookiesAreFiledAsBrowsersSendThem) {
    fileCookies("a=1; b=\"2\";c=\xC3\xA4; d=e f,g\\h; i=; j==k;a=2");
    EXPECT_FALSE(request_.hasParseError());
    EXPECT_THAT(request_.getCookies(),
                ElementsAre(Pair("a", ElementsAre("1", "2")), Pair("b", ElementsAre("2")),
                            Pair("c", ElementsAre("\xC3\xA4")), Pair("d", ElementsAre("e f,g\\h")),
                            Pair("i", ElementsAre("")), Pair("j", ElementsAre("=k"))));
}

TEST_F(StrictIntake, CookieThatIsNoneIsLeftOutAlone) {
    fileCookies("a=1; alone; =nameless; bad=\xFF; \xFF=bad; ; b=2");
    EXPECT_FALSE(request_.hasParseError());
    EXPECT_THAT(request_.getCookies(), ElementsAre(Pair("a", ElementsAre("1")), Pair("b", ElementsAre("2"))));
}

TEST_F(StrictIntake, CookiesOfSeveralFieldsAreFiled) {
    file("GET", "/", {{"Cookie", "a=1"}, {"cookie", "b=2; a=3"}});
    EXPECT_THAT(request_.getCookies(), ElementsAre(Pair("a", ElementsAre("1", "3")), Pair("b", ElementsAre("2"))));
}

TEST_F(StrictIntake, QuoteAloneIsAValue) {
    fileCookies("a=\"");
    EXPECT_THAT(request_.getCookie("a"), Pointee(ElementsAre("\"")));
}

TEST_F(StrictIntake, CookiesCountAsTheyDoElsewhere) {
    FakeRequest other(application_);
    other.addHeader("Cookie", "a=1; b=2");
    other.addHeader("Host", "h.test");
    other.addCookie("a", "1");
    other.addCookie("b", "2");
    fileCookies("a=1; b=2");
    EXPECT_EQ(request_.getHeaderReceivedByteCountEstimation(), other.getHeaderReceivedByteCountEstimation());
}

} // namespace
