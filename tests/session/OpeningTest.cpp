#include "session/Opening.h"

#include "session/WebOrigin.h"
#include "support/FakeRequest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using ql::impl::checkOpening;
using ql::impl::isOpening;
using ql::impl::isOpeningKey;
using ql::impl::Opening;
using ql::impl::OpeningHead;
using ql::impl::RequestHead;
using ql::impl::WebOrigin;
using testing::ElementsAre;
using testing::IsEmpty;
using Verdict = OpeningHead::Verdict;

constexpr const char* Key = "dGhlIHNhbXBsZSBub25jZQ==";

/// That of a client that does all right.
RequestHead goodHead() {
    RequestHead head;
    head.method = "GET";
    head.target = "/chat";
    head.version = "HTTP/1.1";
    head.fields = {{"Host", "example.org"},
                   {"Upgrade", "websocket"},
                   {"Connection", "Upgrade"},
                   {"Sec-WebSocket-Key", Key},
                   {"Sec-WebSocket-Version", "13"}};
    return head;
}

void set(RequestHead& head, std::string_view name, std::string_view value) {
    for (auto& [fieldName, fieldValue] : head.fields) {
        if (fieldName == name) {
            fieldValue = value;
        }
    }
}

void remove(RequestHead& head, std::string_view name) {
    std::erase_if(head.fields, [name](const auto& field) { return field.name == name; });
}

RequestHead headWith(std::string_view name, std::string_view value) {
    RequestHead head = goodHead();
    set(head, name, value);
    return head;
}

RequestHead headWithout(std::string_view name) {
    RequestHead head = goodHead();
    remove(head, name);
    return head;
}

RequestHead headAndAlso(std::string_view name, std::string_view value) {
    RequestHead head = goodHead();
    head.fields.push_back({name, value});
    return head;
}

Verdict verdictOf(const RequestHead& head) {
    return checkOpening(head, false).verdict;
}

TEST(Opening, OfAGoodClientIsGood) {
    const OpeningHead opening = checkOpening(goodHead(), false);
    EXPECT_EQ(opening.verdict, Verdict::Good);
    EXPECT_EQ(opening.key, Key);
    EXPECT_THAT(opening.subprotocols, IsEmpty());
    EXPECT_THAT(opening.extensions, IsEmpty());
}

TEST(Opening, TokensStandInAnyCaseInListsAndInRepeatedHeaders) {
    EXPECT_TRUE(isOpening(headWith("Upgrade", "WebSocket")));
    EXPECT_TRUE(isOpening(headWith("Upgrade", "h2c, WEBSOCKET ")));
    EXPECT_TRUE(isOpening(headWith("Connection", "keep-alive, upgrade")));
    RequestHead repeated = headWith("Connection", "keep-alive");
    repeated.fields.push_back({"connection", "UPGRADE"});
    repeated.fields.push_back({"upgrade", "h2c"});
    EXPECT_TRUE(isOpening(repeated));
    EXPECT_EQ(verdictOf(repeated), Verdict::Good);
    EXPECT_FALSE(isOpening(headWith("Upgrade", "websocket2")));
    EXPECT_FALSE(isOpening(headWith("Connection", "upgraded")));
}

TEST(Opening, OfHttp10AsksForNothing) {
    RequestHead head = goodHead();
    EXPECT_TRUE(asksForUpgrade(head));
    head.version = "HTTP/1.0";
    EXPECT_FALSE(asksForUpgrade(head));
    EXPECT_FALSE(asksForUpgrade(headWith("Upgrade", "h2c")));
    EXPECT_FALSE(asksForUpgrade(headWithout("Upgrade")));
}

TEST(Opening, ByAnotherMethodOrWithoutConnectionIsBad) {
    RequestHead post = goodHead();
    post.method = "POST";
    EXPECT_EQ(verdictOf(post), Verdict::Bad);
    EXPECT_EQ(checkOpening(post, false).reason, "a WebSocket is opened by GET with Connection: Upgrade");
    EXPECT_EQ(verdictOf(headWithout("Connection")), Verdict::Bad);
    EXPECT_EQ(verdictOf(headWith("Connection", "keep-alive")), Verdict::Bad);
}

TEST(Opening, OfAnotherVersionIsTold) {
    for (const char* const version : {"8", "14", "013", "13.0", "", "x", "13, 8"}) {
        EXPECT_EQ(verdictOf(headWith("Sec-WebSocket-Version", version)), Verdict::OtherVersion) << version;
    }
    EXPECT_EQ(verdictOf(headWithout("Sec-WebSocket-Version")), Verdict::OtherVersion);
    EXPECT_EQ(verdictOf(headWith("Sec-WebSocket-Version", " 13 ")), Verdict::Good);
    // Before the rest is looked at, which may be another there.
    RequestHead head = headWith("Sec-WebSocket-Version", "8");
    remove(head, "Sec-WebSocket-Key");
    EXPECT_EQ(verdictOf(head), Verdict::OtherVersion);
}

TEST(Opening, OfTwoVersionsIsBad) {
    EXPECT_EQ(verdictOf(headAndAlso("Sec-WebSocket-Version", "8")), Verdict::Bad);
    EXPECT_EQ(verdictOf(headAndAlso("Sec-WebSocket-Version", "13")), Verdict::Good);
}

TEST(Opening, KeyIsSixteenBytesInCanonicalBase64) {
    EXPECT_TRUE(isOpeningKey(Key));
    EXPECT_TRUE(isOpeningKey("AAAAAAAAAAAAAAAAAAAAAA=="));
    EXPECT_TRUE(isOpeningKey("+////////////////////w=="));
    for (const char last : {'A', 'Q', 'g', 'w'}) {
        EXPECT_TRUE(isOpeningKey(std::string(21, 'z') + last + "==")) << last;
    }
    for (const char last : {'B', 'P', 'R', 'h', 'x', '/'}) {
        EXPECT_FALSE(isOpeningKey(std::string(21, 'z') + last + "==")) << last;
    }
    for (const char* const bad : {"", "==", "dGhlIHNhbXBsZSBub25jZQ=", "dGhlIHNhbXBsZSBub25jZQ",
                                  "dGhlIHNhbXBsZSBub25jZQ===", "dGhlIHNhbXBsZSBub25jZQAA", "dGhlIHNhbXBsZSBub25jZ===",
                                  "dGhlIHNhbXBsZSBub25j-Q==", "dGhlIHNhbXBsZSBub25j_Q==", "dGhlIHNhbXBsZSBub25j Q==",
                                  "dGhlIHNhbXBsZSBub25jZSE=", "dGhlIHNhbXBsZSBub25jZSEhIQ=="}) {
        EXPECT_FALSE(isOpeningKey(bad)) << bad;
    }
}

TEST(Opening, WithoutOneGoodKeyIsBad) {
    EXPECT_EQ(verdictOf(headWithout("Sec-WebSocket-Key")), Verdict::Bad);
    EXPECT_EQ(verdictOf(headWith("Sec-WebSocket-Key", "x")), Verdict::Bad);
    EXPECT_EQ(verdictOf(headAndAlso("Sec-WebSocket-Key", Key)), Verdict::Bad);
    EXPECT_EQ(verdictOf(headWith("Sec-WebSocket-Key", std::string(" ") + Key + "\t")), Verdict::Good);
}

TEST(Opening, WithABodyOrWithoutAGoodHostIsBad) {
    EXPECT_EQ(checkOpening(goodHead(), true).verdict, Verdict::Bad);
    EXPECT_EQ(verdictOf(headWithout("Host")), Verdict::Bad);
    EXPECT_EQ(verdictOf(headAndAlso("Host", "example.org")), Verdict::Bad);
    EXPECT_EQ(verdictOf(headWith("Host", "a@b")), Verdict::Bad);
}

TEST(Opening, OffersSubprotocolsInTheirOrder) {
    RequestHead head = headAndAlso("Sec-WebSocket-Protocol", "chat.v2, chat");
    head.fields.push_back({"sec-websocket-protocol", ",echo,"});
    EXPECT_THAT(checkOpening(head, false).subprotocols, ElementsAre("chat.v2", "chat", "echo"));
}

TEST(Opening, WithSubprotocolsThatAreNoNamesOrTwiceTheSameIsBad) {
    EXPECT_EQ(verdictOf(headAndAlso("Sec-WebSocket-Protocol", "chat room")), Verdict::Bad);
    EXPECT_EQ(verdictOf(headAndAlso("Sec-WebSocket-Protocol", "\"chat\"")), Verdict::Bad);
    EXPECT_EQ(verdictOf(headAndAlso("Sec-WebSocket-Protocol", "chat, chat")), Verdict::Bad);
    EXPECT_EQ(verdictOf(headAndAlso("Sec-WebSocket-Protocol", "chat, Chat")), Verdict::Good);
}

TEST(Opening, OffersExtensionsOfAllHeaders) {
    RequestHead head = headAndAlso("Sec-WebSocket-Extensions", "permessage-deflate; client_max_window_bits");
    head.fields.push_back({"Sec-WebSocket-Extensions", "x-other; a=1"});
    const OpeningHead opening = checkOpening(head, false);
    EXPECT_EQ(opening.verdict, Verdict::Good);
    ASSERT_EQ(opening.extensions.size(), 2U);
    EXPECT_EQ(opening.extensions[0].name, "permessage-deflate");
    EXPECT_EQ(opening.extensions[1].name, "x-other");
}

TEST(Opening, WithExtensionsThatAreNoneIsBad) {
    EXPECT_EQ(verdictOf(headAndAlso("Sec-WebSocket-Extensions", "permessage-deflate; =1")), Verdict::Bad);
    EXPECT_EQ(verdictOf(headAndAlso("Sec-WebSocket-Extensions", "a b")), Verdict::Bad);
}

TEST(WebOrigin, HasThePortOfItsScheme) {
    EXPECT_EQ(WebOrigin::parse("https://Example.ORG"), (WebOrigin{"https", "example.org", 443}));
    EXPECT_EQ(WebOrigin::parse("http://example.org"), (WebOrigin{"http", "example.org", 80}));
    EXPECT_EQ(WebOrigin::parse("http://[::1]:8181"), (WebOrigin{"http", "::1", 8181}));
    EXPECT_EQ(WebOrigin::ofHost("https", "example.org"), (WebOrigin{"https", "example.org", 443}));
    EXPECT_EQ(WebOrigin::ofHost("https", "example.org:80"), (WebOrigin{"https", "example.org", 80}));
}

TEST(WebOrigin, IsNothingElse) {
    for (const char* const text :
         {"", "null", "example.org", "ftp://example.org", "file://", "https://", "https://example.org/",
          "https://example.org/path", "https://example.org?q", "https://example.org?", "https://example.org#f",
          "https://me@example.org", "https://example.org:99999", "https://example.org, https://example.org",
          "https://exa mple.org"}) {
        EXPECT_EQ(WebOrigin::parse(text), std::nullopt) << text;
    }
    EXPECT_EQ(WebOrigin::ofHost("https", "example.org/"), std::nullopt);
    EXPECT_EQ(WebOrigin::ofHost("https", ""), std::nullopt);
}

bool isSame(const RequestHead& head, std::string_view host, bool isTls) {
    vireotest::FakeServerImpl server;
    const vireotest::FakeRequest request(server);
    const OpeningHead opening;
    return Opening(request, head, opening, host, isTls).isSameOrigin();
}

/// Whether a page of this origin is from here.
bool isSame(std::string_view origin, std::string_view host, bool isTls = false) {
    return isSame(headAndAlso("Origin", origin), host, isTls);
}

TEST(Opening, IsOfTheSameOriginWithTheHostAndPortOfTheRequest) {
    EXPECT_TRUE(isSame("http://example.org", "example.org"));
    EXPECT_TRUE(isSame("http://EXAMPLE.org", "Example.Org"));
    EXPECT_TRUE(isSame("http://example.org", "example.org:80"));
    EXPECT_TRUE(isSame("http://example.org:8181", "example.org:8181"));
    EXPECT_TRUE(isSame("http://[::1]:8181", "[::1]:8181"));
    EXPECT_TRUE(isSame("http://127.0.0.1:8181", "127.0.0.1:8181"));
}

TEST(Opening, IsOfTheSameOriginBehindAProxyThatSpeaksTls) {
    EXPECT_TRUE(isSame("https://example.org", "example.org"));
    EXPECT_TRUE(isSame("https://example.org", "example.org:443"));
    EXPECT_FALSE(isSame("https://example.org", "example.org:80"));
}

TEST(Opening, OverTlsIsOfTheSameOriginWithHttpsAlone) {
    EXPECT_TRUE(isSame("https://example.org", "example.org", true));
    EXPECT_FALSE(isSame("http://example.org", "example.org", true));
    EXPECT_FALSE(isSame("http://example.org:443", "example.org:443", true));
}

TEST(Opening, OfAnotherPageIsForeign) {
    for (const char* const origin :
         {"http://evil.example", "http://example.org.evil.example", "http://example.org:81", "http://sub.example.org",
          "null", "", "http://example.org/", "http://example.org@evil.example", "example.org", "file://",
          "http://example.org, http://example.org"}) {
        EXPECT_FALSE(isSame(origin, "example.org")) << origin;
    }
    EXPECT_FALSE(isSame("http://example.org", ""));
}

TEST(Opening, WithTwoOriginsIsForeign) {
    RequestHead head = headAndAlso("Origin", "http://example.org");
    head.fields.push_back({"Origin", "http://example.org"});
    EXPECT_FALSE(isSame(head, "example.org", false));
}

} // namespace
