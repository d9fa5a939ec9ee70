#include "request/StrictHead.h"

#include "vireo/HttpBaseRequest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using ql::impl::checkHead;
using ql::impl::hasElement;
using ql::impl::HeadVerdict;
using ql::impl::MaxFieldBytes;
using ql::impl::MaxStrictTargetBytes;
using ql::impl::RequestHead;
using ql::impl::uriOfTarget;
using testing::Optional;

using Fields = std::vector<ql::HeaderLine>;

class StrictHeadTest : public testing::Test {
protected:
    StrictHeadTest() { ql::HttpBaseRequest::InitRequestTypes(); }
    ~StrictHeadTest() override { ql::HttpBaseRequest::ClearRequestTypes(); }

    static HeadVerdict ofTarget(std::string_view target, std::string_view method = "GET") {
        return checkHead({method, target, "HTTP/1.1", {{"Host", "h.test"}}}, {});
    }
    static std::uint32_t statusOf(std::string_view method, std::string_view version = "HTTP/1.1") {
        return checkHead({method, "/", version, {{"Host", "h.test"}}}, {"BREW"}).status;
    }
    /// Of a request with these fields beside a Host.
    static HeadVerdict ofFields(Fields fields, std::string_view version = "HTTP/1.1") {
        fields.push_back({"Host", "h.test"});
        return checkHead({"POST", "/", version, fields}, {});
    }
    static std::uint32_t ofHost(std::string_view host) {
        return checkHead({"GET", "/", "HTTP/1.1", {{"Host", host}}}, {}).status;
    }
};

// ---- The request line ----

TEST_F(StrictHeadTest, PathAndQueryAreServedAsTheyCame) {
    for (const char* const target :
         {"/", "/a", "//x/a", "/../a", "/a?q=1", "/a%20b;c=1,2/:@!$&'()*+-._~", "/?", "/a?b?c/d", "/%00", "/%FF"}) {
        const HeadVerdict verdict = ofTarget(target);
        EXPECT_EQ(verdict.status, 0U) << target;
        EXPECT_EQ(verdict.target, target);
        EXPECT_EQ(verdict.authority, std::nullopt);
    }
}

TEST_F(StrictHeadTest, QueryIsServedAsBrowsersSendIt) {
    for (const char* const target : {"/?a[]=1|2&b={c}^\"<d>`\\", "/?q=100%", "/?q=%zz%4", "/?q=\xC3\xA4", "/?q=a+b"}) {
        EXPECT_EQ(ofTarget(target).status, 0U) << target;
    }
}

TEST_F(StrictHeadTest, WhatIsNoTargetIsRefused) {
    for (const std::string_view target :
         {std::string_view(""),       std::string_view("80/hello"), std::string_view("a"),
          std::string_view("?q=1"),   std::string_view("*"),        std::string_view("h.test:80"),
          std::string_view("\\a"),    std::string_view("/a#f"),     std::string_view("/a?q#f"),
          std::string_view("/a%zz"),  std::string_view("/a%4"),     std::string_view("/%"),
          std::string_view("/a b"),   std::string_view("/a\tb"),    std::string_view("/a\rb"),
          std::string_view("/a\x01"), std::string_view("/a\x7F"),   std::string_view("/a?\x7F"),
          std::string_view("/a? b"),  std::string_view("/a\0b", 4), std::string_view("/\xC3\xA4"),
          std::string_view("/?\xFF"), std::string_view("/a[b]"),    std::string_view("/a|b"),
          std::string_view("/a\"b")}) {
        EXPECT_EQ(ofTarget(target).status, 400U) << target;
        EXPECT_EQ(ofTarget(target).reason, "bad target");
    }
}

TEST_F(StrictHeadTest, AbsoluteTargetIsServedByItsPathAndItsAuthority) {
    const std::pair<std::string_view, std::string_view> targets[] = {
        {"http://x.test", "/"},         {"http://x.test/", "/"},        {"HTTP://x.test/a?b", "/a?b"},
        {"https://x.test/a", "/a"},     {"http://x.test?q=1", "/?q=1"}, {"http://x.test?", "/?"},
        {"http://x.test/a//b", "/a//b"}};
    for (const auto& [target, path] : targets) {
        const HeadVerdict verdict = ofTarget(target);
        EXPECT_EQ(verdict.status, 0U) << target;
        EXPECT_EQ(verdict.target, path) << target;
        EXPECT_THAT(verdict.authority, Optional(std::string("x.test"))) << target;
    }
    EXPECT_THAT(ofTarget("http://[::1]:80/a").authority, Optional(std::string("[::1]:80")));
}

TEST_F(StrictHeadTest, AbsoluteTargetOfNoHttpResourceIsRefused) {
    for (const char* const target :
         {"http:///a", "http://", "http://:80/a", "http://u:p@x.test/a", "http://@x.test/", "ftp://x.test/a", "urn:a:b",
          "http:/a", "http:a", "http//x.test/", "http://x test/", "http://x.test:port/", "http://x.test:65536/",
          "http://x.test/a#f", "http://x.test#f", "http://[::1/", "http://x.test\\a", "http://a,b/"}) {
        EXPECT_EQ(ofTarget(target).status, 400U) << target;
    }
}

TEST_F(StrictHeadTest, AsteriskIsTheTargetOfOptionsAlone) {
    EXPECT_EQ(ofTarget("*", "OPTIONS").target, "*");
    EXPECT_EQ(ofTarget("http://x.test", "OPTIONS").target, "*");
    EXPECT_EQ(ofTarget("http://x.test/", "OPTIONS").target, "/");
    EXPECT_EQ(ofTarget("*", "GET").status, 400U);
    EXPECT_EQ(ofTarget("**", "OPTIONS").status, 400U);
}

TEST_F(StrictHeadTest, TargetBeyondTheLimitIsTooLong) {
    EXPECT_EQ(ofTarget("/" + std::string(MaxStrictTargetBytes - 1, 'a')).status, 0U);
    EXPECT_EQ(ofTarget("/" + std::string(MaxStrictTargetBytes, 'a')).status, 414U);
}

TEST_F(StrictHeadTest, MethodIsATokenThatSomebodyKnows) {
    for (const char* const method :
         {"GET", "HEAD", "POST", "PUT", "DELETE", "OPTIONS", "TRACE", "PATCH", "QUERY", "BREW"}) {
        EXPECT_EQ(statusOf(method), 0U) << method;
    }
    for (const char* const method : {"get", "CONNECT", "MKCOL", "BREWS", "G", "!#$%&'*+-.^_`|~1"}) {
        EXPECT_EQ(statusOf(method), 501U) << method;
    }
    for (const char* const method : {"", "G@T", "GET:", "G(", "G\x80", "G T"}) {
        EXPECT_EQ(statusOf(method), 400U) << method;
    }
}

TEST_F(StrictHeadTest, VersionIsOfTheFirstMajor) {
    for (const char* const version : {"HTTP/1.1", "HTTP/1.0", "HTTP/1.2", "HTTP/1.9"}) {
        EXPECT_EQ(statusOf("GET", version), 0U) << version;
    }
    for (const char* const version : {"HTTP/2.0", "HTTP/0.9", "HTTP/9.9"}) {
        EXPECT_EQ(statusOf("GET", version), 505U) << version;
    }
    for (const char* const version : {"", "HTTP/1", "HTTP/1.10", "HTTP/11", "http/1.1", "HTTP/1,1", "HTTP/x.1",
                                      "HTTP/1.x", "ICE/1.1", "HTTP/1.1 "}) {
        EXPECT_EQ(statusOf("GET", version), 400U) << version;
    }
}

// ---- Fields ----

TEST_F(StrictHeadTest, HeaderNameIsAToken) {
    EXPECT_EQ(ofFields({{"!#$%&'*+-.^_`|~aZ0", ""}}).status, 0U);
    for (const char* const name : {"",   "X A", "X ", " X",  "X\t", "X(", "X@", "X\"",   "X/",    "X[",   "X{",
                                   "X=", "X;",  "X,", "X\\", "X?",  "X<", "X:", "X\x01", "X\x7F", "X\xE4"}) {
        const HeadVerdict verdict = ofFields({{name, "v"}});
        EXPECT_EQ(verdict.status, 400U) << name;
        EXPECT_EQ(verdict.reason, "bad header name");
    }
}

TEST_F(StrictHeadTest, HeaderValueHasNoControlCharactersButTabs) {
    for (const char* const value : {"", "a\tb", "\xE4", "\xC3\xA4", "a\"b,;=", " a "}) {
        EXPECT_EQ(ofFields({{"X", value}}).status, 0U) << value;
    }
    for (const std::string_view value :
         {std::string_view("a\0b", 3), std::string_view("a\x01"), std::string_view("a\rb"), std::string_view("a\n"),
          std::string_view("\x0B"), std::string_view("a\x7F")}) {
        const HeadVerdict verdict = ofFields({{"X", value}});
        EXPECT_EQ(verdict.status, 400U) << value;
        EXPECT_EQ(verdict.reason, "bad header value");
    }
}

TEST_F(StrictHeadTest, HeaderBeyondTheLimitIsTooLarge) {
    EXPECT_EQ(ofFields({{"X", std::string(MaxFieldBytes - 1, 'v')}}).status, 0U);
    EXPECT_EQ(ofFields({{"X", std::string(MaxFieldBytes, 'v')}}).status, 431U);
}

TEST_F(StrictHeadTest, HostIsThereOnce) {
    const auto status = [](std::string_view version, const Fields& fields) {
        return checkHead({"GET", "http://x.test/", version, fields}, {}).status;
    };
    EXPECT_EQ(status("HTTP/1.1", {}), 400U);
    EXPECT_EQ(status("HTTP/1.2", {}), 400U);
    EXPECT_EQ(status("HTTP/1.0", {}), 0U);
    EXPECT_EQ(status("HTTP/1.1", {{"hOST", "a"}}), 0U);
    EXPECT_EQ(status("HTTP/1.1", {{"Host", "a"}, {"host", "a"}}), 400U);
    EXPECT_EQ(status("HTTP/1.0", {{"Host", "a"}, {"Host", "b"}}), 400U);
    EXPECT_EQ(status("HTTP/1.0", {{"Host", "a b"}}), 400U);
}

TEST_F(StrictHeadTest, HostIsAHost) {
    for (const char* const host : {"", " ", "h.test", "h.test:80", "h.test:", "[::1]", "[::1]:80", "127.0.0.1:8080",
                                   "h_t-x", "h%2Etest", " h.test\t"}) {
        EXPECT_EQ(ofHost(host), 0U) << host;
    }
    for (const char* const host : {"u@h", "h/x", "h x", "h:8x", "h:65536", ":80", "[::1", "::1", "[::1]x", "h, x",
                                   "h,x", "h\xE4", "h\tx", "h?x", "h#x", "h\\x", "h%2", "[]", "http://h"}) {
        EXPECT_EQ(ofHost(host), 400U) << host;
    }
}

// ---- The body's end ----

TEST_F(StrictHeadTest, OneLengthOrOneChunkedTellsTheEnd) {
    for (const Fields& fields : {Fields{}, Fields{{"Content-Length", "0"}}, Fields{{"CONTENT-length", "0005"}},
                                 Fields{{"Content-Length", "9223372036854775807"}},
                                 Fields{{"Transfer-Encoding", "chunked"}}, Fields{{"transfer-ENCODING", "CHUNKED"}}}) {
        EXPECT_EQ(ofFields(fields).status, 0U);
    }
}

TEST_F(StrictHeadTest, TwoLengthsAreRefusedBeTheyTheSame) {
    EXPECT_EQ(ofFields({{"Content-Length", "5"}, {"Content-Length", "6"}}).status, 400U);
    EXPECT_EQ(ofFields({{"Content-Length", "5"}, {"content-length", "5"}}).status, 400U);
}

TEST_F(StrictHeadTest, LengthIsANumber) {
    for (const char* const length :
         {"", "5, 5", "5,6", "+5", "-5", "0x5", "5x", "5 5", "5.0", "\"5\"", "\xEF\xBC\x95", " "}) {
        EXPECT_EQ(ofFields({{"Content-Length", length}}).status, 400U) << length;
    }
}

TEST_F(StrictHeadTest, LengthBeyondAllNumbersIsTooLarge) {
    for (const char* const length :
         {"9223372036854775808", "18446744073709551615", "18446744073709551621", "99999999999999999999999999"}) {
        EXPECT_EQ(ofFields({{"Content-Length", length}}).status, 413U) << length;
    }
}

TEST_F(StrictHeadTest, LengthAndCodingAreRefusedTogether) {
    EXPECT_EQ(ofFields({{"Content-Length", "5"}, {"Transfer-Encoding", "chunked"}}).status, 400U);
    EXPECT_EQ(ofFields({{"Transfer-Encoding", "chunked"}, {"Content-Length", "x"}}).status, 400U);
}

TEST_F(StrictHeadTest, CodingIsExactlyOneChunked) {
    for (const char* const coding :
         {"", "gzip", "identity", "chunked, chunked", "gzip, chunked", "chunked, identity", "xchunked", "chunkedx",
          "chunked;q=1", "chunked,", ",chunked", "\"chunked\"", "chunked ", "chunked gzip"}) {
        EXPECT_EQ(ofFields({{"Transfer-Encoding", coding}}).status, 400U) << coding;
    }
    EXPECT_EQ(ofFields({{"Transfer-Encoding", "chunked"}, {"Transfer-Encoding", "chunked"}}).status, 400U);
    EXPECT_EQ(ofFields({{"Transfer-Encoding", "chunked"}, {"Transfer-Encoding", "identity"}}).status, 400U);
}

TEST_F(StrictHeadTest, OldVersionHasNoCodings) {
    EXPECT_EQ(ofFields({{"Transfer-Encoding", "chunked"}}, "HTTP/1.0").status, 400U);
}

// ---- Expectations ----

TEST_F(StrictHeadTest, OnlyContinueIsExpected) {
    for (const char* const expectation :
         {"100-continue", "100-Continue", " 100-continue ", "100-continue,", ", 100-continue", ""}) {
        EXPECT_EQ(ofFields({{"Expect", expectation}}).status, 0U) << expectation;
    }
    for (const char* const expectation :
         {"tea", "100-continue, tea", "100-continue;q=1", "101-continue", "100 continue"}) {
        EXPECT_EQ(ofFields({{"Expect", expectation}}).status, 417U) << expectation;
    }
    EXPECT_EQ(ofFields({{"Expect", "100-continue"}, {"expect", "tea"}}).status, 417U);
}

// ---- Lists ----

TEST_F(StrictHeadTest, ElementIsFoundInAnyCaseAndLine) {
    const RequestHead head{
        "GET", "/", "HTTP/1.1", {{"Connection", "close , Keep-Alive"}, {"X", "other"}, {"connection", "\tUPGRADE,"}}};
    EXPECT_TRUE(hasElement(head, "Connection", "keep-alive"));
    EXPECT_TRUE(hasElement(head, "CONNECTION", "upgrade"));
    EXPECT_FALSE(hasElement(head, "Connection", "other"));
    EXPECT_FALSE(hasElement(head, "Connection", "keep"));
    EXPECT_FALSE(hasElement(head, "Upgrade", "websocket"));
}

// ---- The target as a URI ----

TEST_F(StrictHeadTest, UriHasWhatBrowsersLeaveOpenEncoded) {
    EXPECT_EQ(uriOfTarget("/a%20b;c?d=%C3%A4&e=f+g/?"), "/a%20b;c?d=%C3%A4&e=f+g/?");
    EXPECT_EQ(uriOfTarget("/?a[]=1|2^{}"), "/?a%5B%5D=1%7C2%5E%7B%7D");
    EXPECT_EQ(uriOfTarget("/?\"<>`\\"), "/?%22%3C%3E%60%5C");
    EXPECT_EQ(uriOfTarget("/?q=\xC3\xA4"), "/?q=%C3%A4");
    EXPECT_EQ(uriOfTarget("/?q=100%&r=%z0%4"), "/?q=100%25&r=%25z0%254");
    EXPECT_EQ(uriOfTarget("*"), "/");
}

} // namespace
