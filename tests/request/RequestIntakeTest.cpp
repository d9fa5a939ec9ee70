#include "vireo/HttpBaseRequest.h"

#include "support/FakeRequest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

using ql::HttpBaseRequest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::Pointee;
using testing::StartsWith;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;

constexpr const char* NotUtf8 = "a\xC0\x80";
constexpr const char* BeyondAscii = "caf\xC3\xA9";

class RequestIntakeTest : public testing::Test {
protected:
    RequestIntakeTest() { HttpBaseRequest::InitRequestTypes(); }
    ~RequestIntakeTest() override { HttpBaseRequest::ClearRequestTypes(); }

    /// The operation before has been refused with this message, and has left nothing behind.
    void expectRefused(const std::string& message) const {
        EXPECT_TRUE(request_.hasParseError());
        EXPECT_EQ(request_.getParseError(), message);
        EXPECT_THAT(request_.getHeaders().getAll(), IsEmpty());
        EXPECT_THAT(request_.getCookies(), IsEmpty());
        EXPECT_THAT(request_.getQueryParameters(), IsEmpty());
        EXPECT_EQ(request_.getHeaderReceivedByteCountEstimation(), 0U);
    }

    FakeServerImpl application_;
    FakeRequest request_{application_};
};

class HeaderIntake : public RequestIntakeTest {};
class CookieIntake : public RequestIntakeTest {};
class QueryParameterIntake : public RequestIntakeTest {};
class MethodIntake : public RequestIntakeTest {};
class UrlIntake : public RequestIntakeTest {};

// ---- Headers ----

TEST_F(HeaderIntake, FilesUnderTheLowerCasedName) {
    request_.addHeader("Content-TYPE", "a");
    EXPECT_THAT(request_.getHeader("content-type"), Pointee(ElementsAre("a")));
    EXPECT_FALSE(request_.hasParseError());
}

TEST_F(HeaderIntake, IsAskedForInLowerCase) {
    request_.addHeader("Content-Type", "a");
    EXPECT_EQ(request_.getHeader("Content-Type"), nullptr);
}

TEST_F(HeaderIntake, ValueKeepsItsCase) {
    request_.addHeader("X-Case", "MixedCase");
    EXPECT_THAT(request_.getHeader("x-case"), Pointee(ElementsAre("MixedCase")));
}

TEST_F(HeaderIntake, ValueIsSplitAtCommas) {
    request_.addHeader("Accept", "text/html, text/plain");
    EXPECT_THAT(request_.getHeader("accept"), Pointee(ElementsAre("text/html", "text/plain")));
}

TEST_F(HeaderIntake, RepeatedNameAppendsInArrivalOrder) {
    request_.addHeader("X-Many", "b, a");
    request_.addHeader("x-many", "a");
    EXPECT_THAT(request_.getHeader("x-many"), Pointee(ElementsAre("b", "a", "a")));
}

TEST_F(HeaderIntake, CountsNameAndValueAndThree) {
    request_.addHeader("Host", "localhost");
    EXPECT_EQ(request_.getHeaderReceivedByteCountEstimation(), 4U + 3U + 9U);
    request_.addHeader("A", "");
    EXPECT_EQ(request_.getHeaderReceivedByteCountEstimation(), 16U + 1U + 3U);
}

TEST_F(HeaderIntake, CountsTheValueAsItCameBeforeItWasSplit) {
    request_.addHeader("A", " b ,  c ");
    EXPECT_EQ(request_.getHeaderReceivedByteCountEstimation(), 1U + 3U + 8U);
}

TEST_F(HeaderIntake, Takes8096BytesOfNameAndValue) {
    for (const std::size_t bytes : {8095U, 8096U}) {
        FakeRequest request(application_);
        request.addHeader("name", std::string(bytes - 4, 'v').c_str());
        EXPECT_FALSE(request.hasParseError()) << bytes;
        EXPECT_THAT(request.getHeader("name"), Pointee(ElementsAre(std::string(bytes - 4, 'v'))));
        EXPECT_EQ(request.getHeaderReceivedByteCountEstimation(), bytes + 3);
    }
}

TEST_F(HeaderIntake, Refuses8097BytesOfNameAndValue) {
    request_.addHeader("name", std::string(8093, 'v').c_str());
    expectRefused("header too long");
}

TEST_F(HeaderIntake, LongNameAloneCountsToo) {
    request_.addHeader(std::string(8096, 'n').c_str(), "");
    EXPECT_FALSE(request_.hasParseError());
    FakeRequest other(application_);
    other.addHeader(std::string(8097, 'n').c_str(), "");
    EXPECT_EQ(other.getParseError(), "header too long");
}

TEST_F(HeaderIntake, LengthIsJudgedBeforeTheName) {
    request_.addHeader((std::string(8097, 'n') + NotUtf8).c_str(), "");
    expectRefused("header too long");
}

TEST_F(HeaderIntake, RefusesANameThatIsNotUtf8) {
    request_.addHeader(NotUtf8, "v");
    expectRefused("header name is non utf8");
}

TEST_F(HeaderIntake, RefusesANameOutsidePrintableAscii) {
    for (const char* const name : {BeyondAscii, "tab\there", "del\x7F", "nul\x01"}) {
        FakeRequest request(application_);
        request.addHeader(name, "v");
        EXPECT_EQ(request.getParseError(), "header name contains ASCII forbidden characters") << name;
        EXPECT_THAT(request.getHeaders().getAll(), IsEmpty());
    }
}

TEST_F(HeaderIntake, NameIsJudgedBeforeTheValue) {
    request_.addHeader(NotUtf8, "\"open");
    expectRefused("header name is non utf8");
}

TEST_F(HeaderIntake, RefusesAValueThatCannotBeSplitNamingTheHeaderInLowerCase) {
    request_.addHeader("X-Control", "a\nb");
    expectRefused("fail to parse header 'x-control'");
}

TEST_F(HeaderIntake, ValueMayBeAnythingThatCanBeSplit) {
    request_.addHeader("X-Bytes", NotUtf8);
    EXPECT_THAT(request_.getHeader("x-bytes"), Pointee(ElementsAre(NotUtf8)));
    EXPECT_FALSE(request_.hasParseError());
}

TEST_F(HeaderIntake, QuoteThatIsNotClosedIsKept) {
    request_.addHeader("User-Agent", "it's 5\" wide");
    EXPECT_THAT(request_.getHeader("user-agent"), Pointee(ElementsAre("it's 5\" wide")));
    EXPECT_FALSE(request_.hasParseError());
}

TEST_F(HeaderIntake, LaterHeaderIsFiledAfterAFailure) {
    request_.addHeader(NotUtf8, "v");
    request_.addHeader("Host", "localhost");
    EXPECT_THAT(request_.getHeader("host"), Pointee(ElementsAre("localhost")));
    EXPECT_TRUE(request_.hasParseError());
}

TEST_F(HeaderIntake, FirstOfTwoFailuresIsReported) {
    request_.addHeader(NotUtf8, "v");
    request_.addHeader("X-Control", "a\nb");
    expectRefused("header name is non utf8");
}

// ---- Cookies ----

TEST_F(CookieIntake, FilesUnderTheExactName) {
    request_.addCookie("Id", "1");
    EXPECT_THAT(request_.getCookie("Id"), Pointee(ElementsAre("1")));
    EXPECT_EQ(request_.getCookie("ID"), nullptr);
    EXPECT_EQ(request_.getCookie("id"), nullptr);
}

TEST_F(CookieIntake, RepeatedNameAppendsInArrivalOrder) {
    request_.addCookie("id", "2");
    request_.addCookie("id", "1");
    request_.addCookie("id", "2");
    EXPECT_THAT(request_.getCookies(), ElementsAre(Pair("id", ElementsAre("2", "1", "2"))));
}

TEST_F(CookieIntake, NamesAreInByteOrder) {
    request_.addCookie("b", "1");
    request_.addCookie("a", "2");
    request_.addCookie("B", "3");
    EXPECT_THAT(request_.getCookies(),
                ElementsAre(Pair("B", ElementsAre("3")), Pair("a", ElementsAre("2")), Pair("b", ElementsAre("1"))));
}

TEST_F(CookieIntake, NullValueCountsAsEmpty) {
    request_.addCookie("a", nullptr);
    EXPECT_THAT(request_.getCookie("a"), Pointee(ElementsAre("")));
    EXPECT_EQ(request_.getHeaderReceivedByteCountEstimation(), 12U);
}

TEST_F(CookieIntake, CountsNameAndValueAndEleven) {
    request_.addCookie("session", "0123456789");
    EXPECT_EQ(request_.getHeaderReceivedByteCountEstimation(), 7U + 11U + 10U);
    request_.addCookie("b", "c");
    EXPECT_EQ(request_.getHeaderReceivedByteCountEstimation(), 28U + 13U);
}

TEST_F(CookieIntake, ValueIsNotSplit) {
    request_.addCookie("list", "a, b");
    EXPECT_THAT(request_.getCookie("list"), Pointee(ElementsAre("a, b")));
}

TEST_F(CookieIntake, Takes8096BytesOfNameAndValue) {
    for (const std::size_t bytes : {8095U, 8096U}) {
        FakeRequest request(application_);
        request.addCookie("name", std::string(bytes - 4, 'v').c_str());
        EXPECT_FALSE(request.hasParseError()) << bytes;
        EXPECT_THAT(request.getCookie("name"), Pointee(ElementsAre(std::string(bytes - 4, 'v'))));
    }
}

TEST_F(CookieIntake, Refuses8097BytesOfNameAndValue) {
    request_.addCookie("name", std::string(8093, 'v').c_str());
    expectRefused("cookie too long");
}

TEST_F(CookieIntake, LengthIsJudgedBeforeTheName) {
    request_.addCookie(NotUtf8, std::string(8096, 'v').c_str());
    expectRefused("cookie too long");
}

TEST_F(CookieIntake, RefusesANameThatIsNotUtf8) {
    request_.addCookie(NotUtf8, "v");
    expectRefused("cookie name is non utf8");
}

TEST_F(CookieIntake, RefusesANameOutsidePrintableAscii) {
    request_.addCookie(BeyondAscii, "v");
    expectRefused("cookie name contains ASCII forbidden characters");
}

TEST_F(CookieIntake, RefusesAValueThatIsNotUtf8) {
    request_.addCookie("id", NotUtf8);
    expectRefused("cookie data is non utf8");
}

TEST_F(CookieIntake, RefusesAValueOutsidePrintableAscii) {
    request_.addCookie("id", BeyondAscii);
    expectRefused("cookie data contains ASCII forbidden characters");
}

TEST_F(CookieIntake, NameIsJudgedBeforeTheValue) {
    request_.addCookie(BeyondAscii, NotUtf8);
    expectRefused("cookie name contains ASCII forbidden characters");
}

// ---- Query parameters ----

TEST_F(QueryParameterIntake, FilesUnderTheExactName) {
    request_.addQueryParameter("Q", "1");
    request_.addQueryParameter("q", "2");
    EXPECT_THAT(request_.getQueryParameters(), ElementsAre(Pair("Q", ElementsAre("1")), Pair("q", ElementsAre("2"))));
}

TEST_F(QueryParameterIntake, RepeatedNameAppendsInArrivalOrder) {
    request_.addQueryParameter("q", "2");
    request_.addQueryParameter("q", "1");
    request_.addQueryParameter("q", "2");
    EXPECT_THAT(request_.getQueryParameters(), ElementsAre(Pair("q", ElementsAre("2", "1", "2"))));
}

TEST_F(QueryParameterIntake, NullValueCountsAsEmpty) {
    request_.addQueryParameter("q", nullptr);
    EXPECT_THAT(request_.getQueryParameters(), ElementsAre(Pair("q", ElementsAre(""))));
}

TEST_F(QueryParameterIntake, IsNotCountedAndHasNoLimit) {
    const std::string value(100000, 'v');
    request_.addQueryParameter("q", value.c_str());
    EXPECT_THAT(request_.getQueryParameters(), ElementsAre(Pair("q", ElementsAre(value))));
    EXPECT_EQ(request_.getHeaderReceivedByteCountEstimation(), 0U);
    EXPECT_FALSE(request_.hasParseError());
}

TEST_F(QueryParameterIntake, RefusesANameThatIsNotUtf8) {
    request_.addQueryParameter(NotUtf8, "v");
    expectRefused("query parameter name is non utf8");
}

TEST_F(QueryParameterIntake, RefusesANameOutsidePrintableAscii) {
    request_.addQueryParameter(BeyondAscii, "v");
    expectRefused("query parameter name contains ASCII forbidden characters");
}

TEST_F(QueryParameterIntake, RefusesAValueThatIsNotUtf8) {
    request_.addQueryParameter("q", NotUtf8);
    expectRefused("query parameter value is non utf8");
}

TEST_F(QueryParameterIntake, RefusesAValueOutsidePrintableAscii) {
    request_.addQueryParameter("q", BeyondAscii);
    expectRefused("query parameter value contains ASCII forbidden characters");
}

TEST_F(QueryParameterIntake, NameIsJudgedBeforeTheValue) {
    request_.addQueryParameter(BeyondAscii, NotUtf8);
    expectRefused("query parameter name contains ASCII forbidden characters");
}

// ---- Method ----

TEST_F(MethodIntake, KnownTokenSetsTheType) {
    for (const auto& [token, type] : HttpBaseRequest::sRequestTypes) {
        FakeRequest request(application_);
        request.setHttpMethod(token);
        EXPECT_EQ(request.getRequestType(), type) << token;
        EXPECT_FALSE(request.hasParseError()) << token;
    }
}

TEST_F(MethodIntake, UnknownTokenIsAParseError) {
    for (const char* const token : {"get", "BREW", "", "GET ", "UNKNOWN_HTTP_METHOD"}) {
        FakeRequest request(application_);
        request.setHttpMethod(token);
        EXPECT_EQ(request.getRequestType(), HttpBaseRequest::RequestType::Unknown) << token;
        EXPECT_TRUE(request.hasParseError()) << token;
        EXPECT_EQ(request.getParseError(), "Unexpected HTTP method") << token;
    }
}

TEST_F(MethodIntake, UnknownTokenLeavesTheTypeAsItWas) {
    request_.setHttpMethod("PUT");
    request_.setHttpMethod("BREW");
    EXPECT_EQ(request_.getRequestType(), HttpBaseRequest::RequestType::Put);
}

TEST_F(MethodIntake, EveryTokenIsUnknownWhileTheRegistryIsEmpty) {
    HttpBaseRequest::ClearRequestTypes();
    request_.setHttpMethod("GET");
    EXPECT_EQ(request_.getParseError(), "Unexpected HTTP method");
}

// ---- URL ----

TEST_F(UrlIntake, ValidTargetIsMovedIn) {
    std::string target = "/a?b=c";
    request_.setOriginalFullUrl(std::move(target));
    EXPECT_EQ(request_.getOriginalRequestUrl(), "/a?b=c");
    EXPECT_EQ(target, ""); // NOLINT(bugprone-use-after-move): left empty by contract
    EXPECT_FALSE(request_.hasParseError());
}

TEST_F(UrlIntake, TargetIsParsedBehindThePlaceholderOrigin) {
    request_.setOriginalFullUrl("/a%20b?b=c");
    EXPECT_TRUE(request_.getParsedUrl().isValid());
    EXPECT_EQ(request_.getParsedUrl().toString(), "http://127.0.0.1:80/a%20b?b=c");
    EXPECT_EQ(request_.getParsedUrl().getDecodedPath(), "/a b");
    EXPECT_EQ(request_.getParsedUrl().getQuery(), "b=c");
    EXPECT_EQ(request_.getOriginalRequestUrl(), "/a%20b?b=c");
}

TEST_F(UrlIntake, Takes4096Bytes) {
    for (const std::size_t bytes : {4095U, 4096U}) {
        FakeRequest request(application_);
        const std::string target = "/" + std::string(bytes - 1, 'p');
        request.setOriginalFullUrl(std::string(target));
        EXPECT_FALSE(request.hasParseError()) << bytes << request.getParseError();
        EXPECT_EQ(request.getOriginalRequestUrl(), target);
    }
}

TEST_F(UrlIntake, Refuses4097Bytes) {
    request_.setOriginalFullUrl("/" + std::string(4096, 'p'));
    EXPECT_TRUE(request_.hasParseError());
    EXPECT_EQ(request_.getParseError(), "URI is too long");
    EXPECT_EQ(request_.getOriginalRequestUrl(), "Invalid URI");
    EXPECT_FALSE(request_.getParsedUrl().isValid());
}

TEST_F(UrlIntake, LengthIsJudgedBeforeTheText) {
    request_.setOriginalFullUrl("/" + std::string(4096, '%'));
    EXPECT_EQ(request_.getParseError(), "URI is too long");
}

TEST_F(UrlIntake, InvalidTargetIsAParseErrorWithTheReason) {
    for (const char* const target : {"/%zz", "/%C0%80", "*", "http://example.org/", "/a b"}) {
        FakeRequest request(application_);
        request.setOriginalFullUrl(target);
        EXPECT_TRUE(request.hasParseError()) << target;
        EXPECT_THAT(request.getParseError(), StartsWith("fail to parse request URI, "));
        EXPECT_GT(request.getParseError().size(), std::string("fail to parse request URI, ").size()) << target;
        EXPECT_EQ(request.getOriginalRequestUrl(), "Invalid URI") << target;
    }
}

TEST_F(UrlIntake, EmptyTargetIsTheOriginItself) {
    request_.setOriginalFullUrl("");
    EXPECT_FALSE(request_.hasParseError());
    EXPECT_EQ(request_.getOriginalRequestUrl(), "");
    EXPECT_EQ(request_.getParsedUrl().toString(), "http://127.0.0.1:80");
}

TEST_F(UrlIntake, EarlierParseErrorStays) {
    request_.setHttpMethod("get");
    request_.setOriginalFullUrl("/%zz");
    EXPECT_TRUE(request_.hasParseError());
    EXPECT_EQ(request_.getParseError(), "Unexpected HTTP method");
    EXPECT_EQ(request_.getOriginalRequestUrl(), "Invalid URI");
}

// ---- What a parse error is about ----

class ParseErrorIntake : public RequestIntakeTest {
protected:
    void expectAbout(HttpBaseRequest::ParseErrorKind kind, const std::string& field) const {
        EXPECT_TRUE(request_.hasParseError());
        EXPECT_EQ(request_.getParseErrorKind(), kind);
        EXPECT_EQ(request_.getParseErrorField(), field);
    }
    using Kind = HttpBaseRequest::ParseErrorKind;
};

TEST_F(ParseErrorIntake, IsAboutNothingAtFirst) {
    EXPECT_EQ(request_.getParseErrorKind(), Kind::None);
    EXPECT_EQ(request_.getParseErrorField(), "");
}

TEST_F(ParseErrorIntake, TellsTheHeaderWhoseNameIsBad) {
    request_.addHeader("X-\xC3\xA4\x01", "a");
    expectAbout(Kind::HeaderName, "X-???");
}

TEST_F(ParseErrorIntake, TellsTheHeaderWhoseValueIsBad) {
    request_.addHeader("X-A", "\x01");
    expectAbout(Kind::HeaderValue, "X-A");
}

TEST_F(ParseErrorIntake, TellsTheHeaderThatIsTooLong) {
    request_.addHeader("X-A", std::string(9000, 'a').c_str());
    expectAbout(Kind::HeaderValue, "X-A");
}

TEST_F(ParseErrorIntake, TellsTheCookieThatIsBad) {
    request_.addCookie("a", BeyondAscii);
    expectAbout(Kind::Cookie, "a");
}

TEST_F(ParseErrorIntake, TellsTheCookieWhoseNameIsBad) {
    request_.addCookie(BeyondAscii, "a");
    expectAbout(Kind::Cookie, "caf??");
}

TEST_F(ParseErrorIntake, TellsTheCookieThatIsTooLong) {
    request_.addCookie("a", std::string(9000, 'a').c_str());
    expectAbout(Kind::Cookie, "a");
}

TEST_F(ParseErrorIntake, TellsTheArgumentThatIsBad) {
    request_.addQueryParameter("a", BeyondAscii);
    expectAbout(Kind::Query, "a");
}

TEST_F(ParseErrorIntake, TellsTheArgumentWhoseNameIsBad) {
    request_.addQueryParameter(NotUtf8, "a");
    expectAbout(Kind::Query, "a??");
}

TEST_F(ParseErrorIntake, TellsOfTheMethod) {
    request_.setHttpMethod("BREW");
    expectAbout(Kind::Method, "");
    EXPECT_EQ(request_.getMethodToken(), "BREW");
}

TEST_F(ParseErrorIntake, TellsOfTheTarget) {
    request_.setOriginalFullUrl("/%");
    expectAbout(Kind::Target, "");
}

TEST_F(ParseErrorIntake, TellsOfTheTargetThatIsTooLong) {
    request_.setOriginalFullUrl("/" + std::string(5000, 'a'));
    expectAbout(Kind::Target, "");
}

TEST_F(ParseErrorIntake, TellsWhatWasFirst) {
    request_.addHeader("X-A", "\x01");
    request_.addCookie("b", BeyondAscii);
    request_.setParseError("of the application");
    expectAbout(Kind::HeaderValue, "X-A");
}

TEST_F(ParseErrorIntake, OfTheApplicationIsAnother) {
    request_.setParseError("");
    request_.addHeader("X-A", "\x01");
    expectAbout(Kind::Other, "");
}

TEST_F(MethodIntake, TokenIsKept) {
    EXPECT_EQ(request_.getMethodToken(), "");
    request_.setHttpMethod("PUT");
    EXPECT_EQ(request_.getMethodToken(), "PUT");
}

} // namespace
