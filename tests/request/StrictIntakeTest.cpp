#include "request/StrictIntake.h"

#include "request/LineIntake.h"
#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "support/FakeRequest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using ql::HttpBaseRequest;
using ql::impl::checkHead;
using ql::impl::fileLines;
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

/// When a head is parsed.
enum class When { AtOnce, OnDemand };

class StrictIntake : public testing::TestWithParam<When> {
protected:
    StrictIntake() { HttpBaseRequest::InitRequestTypes(); }
    ~StrictIntake() override { HttpBaseRequest::ClearRequestTypes(); }

    void file(std::string_view method, std::string_view target, std::vector<ql::HeaderLine> fields = {}) {
        fields.push_back({"Host", "h.test"});
        RequestHead head{method, target, "HTTP/1.1", std::move(fields)};
        auto verdict = checkHead(head, {"BREW"});
        ASSERT_EQ(verdict.status, 0U) << verdict.reason;
        if (GetParam() == When::AtOnce) {
            fileStrictHead(request_, {std::move(head), std::move(verdict)});
        } else {
            fileLines(request_, head.method, std::move(verdict.target), std::move(head.fields), verdict.authority);
            ql::impl::RequestAccess::state(request_).isHeadUnparsed = true;
        }
    }
    void fileTarget(std::string_view target) { file("GET", target); }
    void fileCookies(std::string_view cookies) { file("GET", "/", {{"Cookie", cookies}}); }

    FakeServerImpl application_;
    FakeRequest request_{application_};
};

TEST_P(StrictIntake, HeadersAreFiledAsEver) {
    file("GET", "/", {{"X-A", "1, 2"}, {"x-a", "\xC3\xA4"}, {"Accept", ""}});
    EXPECT_THAT(request_.getHeaders().getAll(),
                ElementsAre(Pair("accept", ElementsAre("")), Pair("host", ElementsAre("h.test")),
                            Pair("x-a", ElementsAre("1", "2", "\xC3\xA4"))));
    EXPECT_FALSE(request_.hasParseError());
    EXPECT_EQ(request_.getParseErrorKind(), Kind::None);
}

TEST_P(StrictIntake, MethodOfTheApplicationHasItsTokenAlone) {
    file("BREW", "/");
    EXPECT_EQ(request_.getRequestType(), RequestType::Unknown);
    EXPECT_EQ(request_.getMethodToken(), "BREW");
    EXPECT_FALSE(request_.hasParseError());
}

TEST_P(StrictIntake, KnownMethodHasItsType) {
    file("PUT", "/");
    EXPECT_EQ(request_.getRequestType(), RequestType::Put);
    EXPECT_EQ(request_.getMethodToken(), "PUT");
}

// ---- The target ----

TEST_P(StrictIntake, PathIsFiledAsItCame) {
    fileTarget("/a%20b?c=d");
    EXPECT_EQ(request_.getOriginalRequestUrl(), "/a%20b?c=d");
    EXPECT_EQ(request_.getParsedUrl().getPath(), "/a%20b");
    EXPECT_EQ(request_.getParsedUrl().getDecodedPath(), "/a b");
    EXPECT_EQ(request_.getParsedUrl().getQuery(), "c=d");
}

TEST_P(StrictIntake, AuthorityOfTheTargetReplacesHost) {
    file("GET", "http://x.test:81/a?b", {{"X", "y"}});
    EXPECT_EQ(request_.getOriginalRequestUrl(), "/a?b");
    EXPECT_EQ(request_.getParsedUrl().toString(), "http://127.0.0.1:80/a?b");
    EXPECT_THAT(request_.getHeaders().getAll(),
                ElementsAre(Pair("host", ElementsAre("x.test:81")), Pair("x", ElementsAre("y"))));
}

TEST_P(StrictIntake, AsteriskIsTheServerAndItsPathTheRoot) {
    file("OPTIONS", "*");
    EXPECT_EQ(request_.getOriginalRequestUrl(), "*");
    EXPECT_EQ(request_.getParsedUrl().getPath(), "/");
    EXPECT_FALSE(request_.hasParseError());
}

TEST_P(StrictIntake, TargetOfTheLongestLengthIsFiled) {
    const std::string target = "/?" + std::string(ql::impl::MaxStrictTargetBytes - 2, '|');
    fileTarget(target);
    EXPECT_EQ(request_.getOriginalRequestUrl(), target);
    EXPECT_FALSE(request_.hasParseError());
}

TEST_P(StrictIntake, PathThatIsNoTextIsAParseError) {
    fileTarget("/%FF");
    EXPECT_TRUE(request_.hasParseError());
    EXPECT_EQ(request_.getParseErrorKind(), Kind::Target);
    EXPECT_EQ(request_.getParseErrorField(), "");
    EXPECT_EQ(request_.getOriginalRequestUrl(), GetParam() == When::AtOnce ? "Invalid URI" : "/%FF");
}

// ---- The query ----

TEST_P(StrictIntake, ArgumentsAreDecodedAsAForm) {
    fileTarget("/?a=1+2&b=%2B&c&d=&=e&&f=g=h&a=3%26");
    EXPECT_THAT(request_.getQueryParameters(),
                ElementsAre(Pair("", ElementsAre("e")), Pair("a", ElementsAre("1 2", "3&")),
                            Pair("b", ElementsAre("+")), Pair("c", ElementsAre("")), Pair("d", ElementsAre("")),
                            Pair("f", ElementsAre("g=h"))));
}

TEST_P(StrictIntake, ArgumentsOfBrowsersAreFiled) {
    fileTarget("/?a[]=%C3%A4&\xC3\xB6={|}^&line=a%0D%0Ab&off=100%&bad=%zz");
    EXPECT_FALSE(request_.hasParseError()) << request_.getParseError();
    EXPECT_THAT(request_.getQueryParameters(),
                ElementsAre(Pair("a[]", ElementsAre("\xC3\xA4")), Pair("bad", ElementsAre("%zz")),
                            Pair("line", ElementsAre("a\r\nb")), Pair("off", ElementsAre("100%")),
                            Pair("\xC3\xB6", ElementsAre("{|}^"))));
    EXPECT_EQ(request_.getParsedUrl().getQuery(),
              "a%5B%5D=%C3%A4&%C3%B6=%7B%7C%7D%5E&line=a%0D%0Ab&off=100%25&bad=%25zz");
}

TEST_P(StrictIntake, ArgumentThatIsNoTextIsAParseErrorOfItsName) {
    fileTarget("/?a=b&n%C3%A4me=%C3&c=d");
    EXPECT_EQ(request_.getParseErrorKind(), Kind::Query);
    EXPECT_EQ(request_.getParseErrorField(), "n%C3%A4me");
    EXPECT_EQ(request_.getParseError(), "query parameter is no UTF-8 text");
    EXPECT_THAT(request_.getQueryParameters(), ElementsAre(Pair("a", ElementsAre("b")), Pair("c", ElementsAre("d"))));
}

TEST_P(StrictIntake, NulIsNoText) {
    fileTarget("/?a=%00");
    EXPECT_EQ(request_.getParseErrorKind(), Kind::Query);
    EXPECT_THAT(request_.getQueryParameters(), IsEmpty());
}

TEST_P(StrictIntake, ArgumentNameThatIsNoTextIsAParseError) {
    fileTarget("/?%FF=a");
    EXPECT_EQ(request_.getParseErrorKind(), Kind::Query);
}

// ---- Cookies ----

TEST_P(StrictIntake, CookiesAreFiledAsBrowsersSendThem) {
    fileCookies("a=1; b=\"2\";c=\xC3\xA4; d=e f,g\\h; i=; j==k;a=2");
    EXPECT_FALSE(request_.hasParseError());
    EXPECT_THAT(request_.getCookies(),
                ElementsAre(Pair("a", ElementsAre("1", "2")), Pair("b", ElementsAre("2")),
                            Pair("c", ElementsAre("\xC3\xA4")), Pair("d", ElementsAre("e f,g\\h")),
                            Pair("i", ElementsAre("")), Pair("j", ElementsAre("=k"))));
}

TEST_P(StrictIntake, CookieThatIsNoneIsLeftOutAlone) {
    fileCookies("a=1; alone; =nameless; bad=\xFF; \xFF=bad; ; b=2");
    EXPECT_FALSE(request_.hasParseError());
    EXPECT_THAT(request_.getCookies(), ElementsAre(Pair("a", ElementsAre("1")), Pair("b", ElementsAre("2"))));
}

TEST_P(StrictIntake, CookiesOfSeveralFieldsAreFiled) {
    file("GET", "/", {{"Cookie", "a=1"}, {"cookie", "b=2; a=3"}});
    EXPECT_THAT(request_.getCookies(), ElementsAre(Pair("a", ElementsAre("1", "3")), Pair("b", ElementsAre("2"))));
}

TEST_P(StrictIntake, QuoteAloneIsAValue) {
    fileCookies("a=\"");
    EXPECT_THAT(request_.getCookie("a"), Pointee(ElementsAre("\"")));
}

TEST_P(StrictIntake, CookiesCountAsTheyDoElsewhere) {
    FakeRequest other(application_);
    other.addHeader("Cookie", "a=1; b=2");
    other.addHeader("Host", "h.test");
    other.addCookie("a", "1");
    other.addCookie("b", "2");
    fileCookies("a=1; b=2");
    if (GetParam() == When::OnDemand) {
        // What counts is known when it comes, and stays.
        const std::uint64_t lines = request_.getHeaderReceivedByteCountEstimation();
        EXPECT_EQ(request_.getCookies().size(), 2U);
        EXPECT_EQ(request_.getHeaderReceivedByteCountEstimation(), lines);
        EXPECT_EQ(lines, std::string("Cookie: a=1; b=2\rHost: h.test\r").size());
        return;
    }
    EXPECT_EQ(request_.getHeaderReceivedByteCountEstimation(), other.getHeaderReceivedByteCountEstimation());
}

INSTANTIATE_TEST_SUITE_P(Parsed, StrictIntake, testing::Values(When::AtOnce, When::OnDemand), [](const auto& when) {
    return when.param == When::AtOnce ? std::string("AtOnce") : std::string("OnDemand");
});

class HeadOnDemand : public testing::Test {
protected:
    /// @return a request whose head nobody has asked for.
    void keep(std::string_view target, std::vector<ql::HeaderLine> fields) {
        fileLines(request_, "GET", std::string(target), std::move(fields), std::nullopt);
        ql::impl::RequestAccess::state(request_).isHeadUnparsed = true;
    }
    bool isParsed() { return !ql::impl::RequestAccess::state(request_).isHeadUnparsed; }

    FakeServerImpl application_;
    FakeRequest request_{application_};
};

TEST_F(HeadOnDemand, IsNotParsedForWhatIsThere) {
    keep("/a?b=c", {{"Host", "h.test"}});
    EXPECT_EQ(request_.getMethodToken(), "GET");
    EXPECT_EQ(request_.getOriginalRequestUrl(), "/a?b=c");
    EXPECT_EQ(request_.getHeaderLines().size(), 1U);
    EXPECT_NE(request_.getHeaderReceivedByteCountEstimation(), 0U);
    EXPECT_FALSE(isParsed());
}

TEST_F(HeadOnDemand, AnyFirstQuestionHasAllOfItParsed) {
    const std::vector<std::function<void(FakeRequest&)>> questions = {
        [](FakeRequest& request) { EXPECT_FALSE(request.getParsedUrl().isValid()); },
        [](FakeRequest& request) { EXPECT_NE(request.getHeader("host"), nullptr); },
        [](FakeRequest& request) { EXPECT_EQ(request.getHeaders().getAll().size(), 2U); },
        [](FakeRequest& request) { EXPECT_NE(request.getCookie("k"), nullptr); },
        [](FakeRequest& request) { EXPECT_EQ(request.getCookies().size(), 1U); },
        [](FakeRequest& request) { EXPECT_EQ(request.getQueryParameters().size(), 1U); },
        [](FakeRequest& request) { EXPECT_TRUE(request.hasParseError()); },
        [](FakeRequest& request) { EXPECT_EQ(request.getParseError(), "query parameter is no UTF-8 text"); },
        [](FakeRequest& request) { EXPECT_EQ(request.getParseErrorKind(), Kind::Query); },
        [](FakeRequest& request) { EXPECT_EQ(request.getParseErrorField(), "x"); },
        [](FakeRequest& request) { request.setParseError("the application's"); },
    };
    for (const auto& question : questions) {
        FakeRequest request(application_);
        fileLines(request, "GET", "/a?b=c&x=%FF", {{"Host", "h.test"}, {"Cookie", "k=v"}}, std::nullopt);
        ql::impl::RequestAccess::state(request).isHeadUnparsed = true;
        question(request);
        EXPECT_FALSE(ql::impl::RequestAccess::state(request).isHeadUnparsed);
        // What the head has comes before what the application says.
        EXPECT_EQ(request.getParseError(), "query parameter is no UTF-8 text");
        EXPECT_THAT(request.getQueryParameters(), ElementsAre(Pair("b", ElementsAre("c"))));
    }
}

TEST_F(HeadOnDemand, IsParsedOnceForAllThreads) {
    keep("/?a=1&a=2", {{"Host", "h.test"}, {"X", "1, 2"}});
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([this] {
            EXPECT_THAT(request_.getHeader("x"), Pointee(ElementsAre("1", "2")));
            EXPECT_THAT(request_.getQueryParameters(), ElementsAre(Pair("a", ElementsAre("1", "2"))));
        });
    }
    std::ranges::for_each(threads, &std::thread::join);
}

} // namespace
