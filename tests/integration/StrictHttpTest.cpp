#include "integration/ServerTest.h"
#include "support/Engine.h"
#include "vireo/ExchangeObserver.h"
#include "vireo/ExchangeRecord.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>

// What a server with strict HTTP makes of requests and answers, whichever way it waits. The rules of heads are those of
// StrictHead; here one of each kind goes over the wire.

namespace vireotest {
namespace {

using ql::http::ExchangeRecord;
using ql::http::ServerOptions;

class StrictHttp : public ServerTest {
protected:
    static std::unique_ptr<TestServer> serve(Behaviour behaviour = {},
                                             const std::function<void(ServerOptions&)>& change = {}) {
        ServerOptions options = optionsOfTests();
        options.setStrictHttp(true);
        if (change) {
            change(options);
        }
        return std::make_unique<TestServer>(std::move(behaviour), TestServer::parametersOfTests(), options);
    }

    /// It is answered so, and nothing behind it is served.
    static void expectRefused(const TestServer& server, const std::string& request, int status,
                              const std::string& reason) {
        RawClient client = server.connect();
        client.send(request + get("/next"));
        const RawResponse response = client.readResponse();
        EXPECT_EQ(response.status, status) << request;
        EXPECT_EQ(response.body, reason) << request;
        EXPECT_EQ(response.value("Connection"), "close");
        EXPECT_EQ(response.value("Content-Type"), "text/plain");
        EXPECT_EQ(client.readToEnd(), "");
    }
};

TEST_F(StrictHttp, RefusesBeforeTheApplicationIsAskedAndServesNothingBehindIt) {
    auto server = serve();
    expectRefused(*server, get("80/hello"), 400, "bad target");
    expectRefused(*server, get("/" + std::string(8192, 'a')), 414, "the target is too long");
    expectRefused(*server, head("BREW", "/"), 501, "the method is not implemented");
    expectRefused(*server, get("/", "X@: a\r\n"), 400, "bad header name");
    expectRefused(*server, get("/", "X: a\x01\r\n"), 400, "bad header value");
    expectRefused(*server, get("/", "X: " + std::string(8096, 'a') + "\r\n"), 431, "a header is too long");
    expectRefused(*server, get("/", "Host: localhost\r\n"), 400, "more than one Host");
    expectRefused(*server, "GET / HTTP/1.1\r\nHost: a b\r\n\r\n", 400, "bad Host");
    expectRefused(*server, head("POST", "/", "Content-Length: 5\r\nContent-Length: 5\r\n"), 400,
                  "more than one Content-Length");
    expectRefused(*server, get("/", "Expect: tea\r\n"), 417, "unknown expectation");
    EXPECT_EQ(server->application().seenCount(), 0U);
}

TEST_F(StrictHttp, RefusedBodyIsNeverTakenForARequest) {
    auto server = serve();
    RawClient client = server->connect();
    client.send(head("POST", "/", "Content-Length: 40\r\nContent-Length: 0\r\n") + get("/smuggled"));
    EXPECT_EQ(client.readResponse().status, 400);
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_EQ(server->application().seenCount(), 0U);
}

TEST_F(StrictHttp, ServesRequestsThatAreRight) {
    auto server = serve();
    RawClient client = server->connect();
    EXPECT_EQ(client.exchange(get("/a?b=c")).status, 200);
    EXPECT_EQ(client.exchange(post("/", "hello")).body, "hello");
    EXPECT_EQ(client.exchange(head("POST", "/", "Transfer-Encoding: chunked\r\n") + "5\r\nhello\r\n0\r\n\r\n").body,
              "hello");
    client.send(head("POST", "/", "Expect: 100-continue\r\nContent-Length: 5\r\n") + "hello");
    RawResponse response = client.readHead();
    if (response.status == 100) {
        response = client.readHead();
    }
    client.readBody(response);
    EXPECT_EQ(response.body, "hello");
}

TEST_F(StrictHttp, AbsoluteTargetIsServedByItsPathAndItsAuthority) {
    auto server = serve();
    RawClient client = server->connect();
    EXPECT_EQ(client.exchange(get("http://x.test:80/a?b=c")).status, 200);
    EXPECT_EQ(client.exchange(get("HTTPS://x.test")).status, 200);
    const auto seen = server->application().seen(2);
    EXPECT_EQ(seen[0].url, "/a?b=c");
    EXPECT_THAT(seen[0].headers.at("host"), testing::ElementsAre("x.test:80"));
    EXPECT_THAT(seen[0].query, testing::ElementsAre(testing::Pair("b", testing::ElementsAre("c"))));
    EXPECT_EQ(seen[1].url, "/");
    EXPECT_FALSE(seen[0].hasParseError || seen[1].hasParseError);
}

TEST_F(StrictHttp, OptionsOfTheServerAreServed) {
    auto server = serve();
    EXPECT_EQ(server->connect().exchange(head("OPTIONS", "*")).status, 200);
    const SeenRequest seen = server->application().seen()[0];
    EXPECT_EQ(seen.url, "*");
    EXPECT_TRUE(seen.isUrlValid);
    EXPECT_FALSE(seen.hasParseError);
}

TEST_F(StrictHttp, MethodOfTheApplicationIsServed) {
    Behaviour behaviour;
    behaviour.handler = [](TestRequest& request) {
        EXPECT_EQ(request.getRequestType(), RequestType::Unknown);
        request.reply(request.getMethodToken());
    };
    auto server = serve(std::move(behaviour), [](ServerOptions& options) { options.addMethod("BREW"); });
    EXPECT_EQ(server->connect().exchange(head("BREW", "/")).body, "BREW");
    EXPECT_FALSE(server->application().seen()[0].hasParseError);
    expectRefused(*server, head("MKCOL", "/"), 501, "the method is not implemented");
}

TEST_F(StrictHttp, TextIsTakenAsBrowsersSendIt) {
    auto server = serve();
    const std::string request = get("/?a[]=%C3%A4+b|{}&c=50%", "Cookie: good=1; bad=\xFF; name=\xC3\xA4\r\n");
    EXPECT_EQ(server->connect().exchange(request).status, 200);
    const SeenRequest seen = server->application().seen()[0];
    EXPECT_FALSE(seen.hasParseError) << seen.parseError;
    EXPECT_THAT(seen.query, testing::ElementsAre(testing::Pair("a[]", testing::ElementsAre("\xC3\xA4 b|{}")),
                                                 testing::Pair("c", testing::ElementsAre("50%"))));
    EXPECT_THAT(seen.cookies, testing::ElementsAre(testing::Pair("good", testing::ElementsAre("1")),
                                                   testing::Pair("name", testing::ElementsAre("\xC3\xA4"))));
}

// ---- Answers ----

TEST_F(StrictHttp, AnswerHasADateOnceAndNoSecondLength) {
    Behaviour behaviour;
    behaviour.handler = [](TestRequest& request) {
        request.response.headers = {{"1", {"Content-Length", "1"}}, {"2", {"Date", "Sun, 06 Nov 1994 08:49:37 GMT"}}};
        request.reply("hello");
    };
    auto server = serve(std::move(behaviour));
    RawClient client = server->connect();
    const RawResponse response = client.exchange(get("/"));
    EXPECT_THAT(response.values("Content-Length"), testing::ElementsAre("5"));
    EXPECT_THAT(response.values("Date"), testing::ElementsAre("Sun, 06 Nov 1994 08:49:37 GMT"));
    EXPECT_EQ(response.body, "hello");
    EXPECT_TRUE(serve()->connect().exchange(get("80/hello")).has("Date"));
}

TEST_F(StrictHttp, BadHeaderOfTheApplicationIsLeftOut) {
    Behaviour behaviour;
    behaviour.handler = [](TestRequest& request) {
        request.response.headers = {{"1", {"X-A", "a\x01"}}, {"2", {"X-B", "b"}}};
        request.response.cookies = {{"a", "b c"}, {"d", "e"}};
        request.reply("hello");
    };
    auto server = serve(std::move(behaviour));
    const RawResponse response = server->connect().exchange(get("/"));
    EXPECT_FALSE(response.has("X-A"));
    EXPECT_EQ(response.value("X-B"), "b");
    EXPECT_EQ(response.value("Set-Cookie"), "d=e");
}

/// What comes for a request, and whether the connection stays.
std::pair<RawResponse, bool> headOf(const TestServer& server, const std::string& method) {
    RawClient client = server.connect();
    client.send(head(method, "/"));
    RawResponse response = client.readHead();
    const bool stays = response.value("Connection") != "close";
    if (stays) {
        // The next answer begins where the head has ended.
        client.send(head(method, "/"));
        EXPECT_EQ(client.readHead().status, response.status);
    } else {
        EXPECT_EQ(client.readToEnd(), "");
    }
    return {response, stays};
}

TEST_F(StrictHttp, NotModifiedSaysNothingOfALength) {
    Behaviour behaviour;
    behaviour.handler = [](TestRequest& request) { request.reply("", 304); };
    auto server = serve(std::move(behaviour));
    const auto [response, stays] = headOf(*server, "GET");
    EXPECT_FALSE(response.has("Content-Length"));
    EXPECT_FALSE(response.has("Transfer-Encoding"));
    // In an older engine only what ends with the connection has no length.
    EXPECT_EQ(stays, MHD_VERSION >= 0x00097701);
}

TEST_F(StrictHttp, NotModifiedHasTheLengthThatTheApplicationGives) {
    Behaviour behaviour;
    behaviour.handler = [](TestRequest& request) {
        request.response.headers = {{"1", {"Content-Length", "1234"}}};
        request.reply("", 304);
    };
    auto server = serve(std::move(behaviour));
    const auto [response, stays] = headOf(*server, "GET");
    EXPECT_EQ(response.value("Content-Length"), "1234");
    EXPECT_TRUE(stays);
}

TEST_F(StrictHttp, NoContentSaysNothingOfALength) {
    Behaviour behaviour;
    behaviour.handler = [](TestRequest& request) {
        request.response.headers = {{"1", {"Content-Length", "0"}}};
        request.reply("", 204);
    };
    auto server = serve(std::move(behaviour));
    const auto [response, stays] = headOf(*server, "GET");
    EXPECT_FALSE(response.has("Content-Length"));
    EXPECT_FALSE(response.has("Transfer-Encoding"));
    EXPECT_TRUE(stays);
}

TEST_F(StrictHttp, HeadHasTheLengthThatTheApplicationGivesAndNoBody) {
    Behaviour behaviour;
    behaviour.handler = [](TestRequest& request) {
        request.response.headers = {{"1", {"content-length", "1234"}}};
        request.reply("");
    };
    auto server = serve(std::move(behaviour));
    const auto [response, stays] = headOf(*server, "HEAD");
    EXPECT_EQ(response.value("Content-Length"), "1234");
    EXPECT_TRUE(stays);
}

TEST_F(StrictHttp, LengthOfTheApplicationIsLeftOutByDefault) {
    for (const std::uint32_t status : {200U, 304U}) {
        TestServer server([status](TestRequest& request) {
            request.response.headers = {{"1", {"Content-Length", "1234"}}};
            request.reply("", status);
        });
        EXPECT_EQ(headOf(server, "HEAD").first.value("Content-Length"), "0");
    }
}

TEST_F(StrictHttp, HeadHasNoBody) {
    Behaviour behaviour;
    behaviour.handler = [](TestRequest& request) { request.reply("hello"); };
    auto server = serve(std::move(behaviour));
    const auto [response, stays] = headOf(*server, "HEAD");
    EXPECT_EQ(response.value("Content-Length"), "5");
    EXPECT_TRUE(stays);
}

// ---- WebSockets ----

constexpr const char* UpgradeOfBrowsers = "Upgrade: websocket\r\nConnection: keep-alive, upgrade\r\n";
constexpr const char* KeyAndVersion = "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n";

class StrictHandshake : public StrictHttp {
protected:
    static std::unique_ptr<TestServer> serve(bool enabled = true) {
        ServerOptions options = optionsOfTests();
        options.setStrictHttp(true);
        Parameters parameters = TestServer::parametersOfTests();
        parameters.webSocketEnabled = enabled;
        return std::make_unique<TestServer>(Behaviour{}, std::move(parameters), options);
    }
    static int statusOf(const std::string& request, bool enabled = true) {
        auto server = serve(enabled);
        RawClient client = server->connect();
        client.send(request);
        const int status = client.readHead().status;
        EXPECT_EQ(server->application().seenCount(), status == 200 ? 1U : 0U);
        return status;
    }
};

TEST_F(StrictHandshake, IsReadInAnyCaseAndFromLists) {
    for (const char* const upgrade : {UpgradeOfBrowsers, "Upgrade: WebSocket\r\nConnection: Upgrade\r\n",
                                      "Upgrade: h2c, WEBSOCKET\r\nConnection: close\r\nConnection: UPGRADE\r\n",
                                      "Upgrade: websocket \r\nConnection: upgrade \r\n"}) {
        auto server = serve();
        RawClient client = server->connect();
        client.send(get("/", std::string(upgrade) + KeyAndVersion));
        const RawResponse response = client.readHead();
        EXPECT_EQ(response.status, 101) << upgrade;
        EXPECT_EQ(response.value("Sec-WebSocket-Accept"), "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=");
        EXPECT_EQ(response.value("Upgrade"), "websocket");
    }
}

TEST_F(StrictHandshake, BlanksAroundValuesAreNoPartOfThem) {
    EXPECT_EQ(statusOf(get("/", std::string(UpgradeOfBrowsers) + "Sec-WebSocket-Version:\t13 \r\n" +
                                    "Sec-WebSocket-Key:  dGhlIHNhbXBsZSBub25jZQ== \t\r\n")),
              101);
}

TEST_F(StrictHandshake, RequestThatAsksForNoneIsLikeOthers) {
    for (const char* const upgrade :
         {"Upgrade: websocket\r\n", "Connection: upgrade\r\n", "Upgrade: websockets\r\nConnection: upgrade\r\n",
          "Upgrade: h2c\r\nConnection: upgrade\r\n", "Upgrade: websocket\r\nConnection: notupgrade\r\n"}) {
        EXPECT_EQ(statusOf(get("/", std::string(upgrade) + KeyAndVersion)), 200) << upgrade;
    }
    const std::string handshake = std::string(UpgradeOfBrowsers) + KeyAndVersion;
    EXPECT_EQ(statusOf(head("POST", "/", handshake)), 200);
    EXPECT_EQ(statusOf("GET / HTTP/1.0\r\n" + handshake + "\r\n"), 200);
    EXPECT_EQ(statusOf(get("/", handshake), false), 200);
}

TEST_F(StrictHandshake, OtherVersionIsToldTheRightOneAndTheProtocol) {
    for (const char* const version : {"", "Sec-WebSocket-Version: 8\r\n"}) {
        auto server = serve();
        RawClient client = server->connect();
        const RawResponse response = client.exchange(get("/", std::string(UpgradeOfBrowsers) + version));
        EXPECT_EQ(response.status, 426);
        EXPECT_EQ(response.value("Upgrade"), "websocket");
        EXPECT_THAT(response.value("Connection"), testing::HasSubstr("Upgrade"));
        EXPECT_EQ(response.value("Sec-WebSocket-Version"), "13");
    }
}

TEST_F(StrictHandshake, BadOneIsABadRequest) {
    for (const char* const key :
         {"", "Sec-WebSocket-Key:\r\n", "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ=\r\n",
          "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZ===\r\n", "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25j*Q==\r\n"}) {
        EXPECT_EQ(statusOf(get("/", std::string(UpgradeOfBrowsers) + "Sec-WebSocket-Version: 13\r\n" + key)), 400)
            << key;
    }
    const std::string handshake = std::string(UpgradeOfBrowsers) + KeyAndVersion;
    EXPECT_EQ(statusOf(get("/", handshake + "Content-Length: 1\r\n")), 400);
    EXPECT_EQ(statusOf(get("/", handshake + "Transfer-Encoding: chunked\r\n")), 400);
}

TEST_F(StrictHttp, IsNotTheDefault) {
    TestServer server(Behaviour{});
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(get("80/hello")).status, 200);
    EXPECT_EQ(client.exchange(head("BREW", "/")).status, 200);
}

TEST_F(StrictHttp, LimitsOfHeadAndBodyHoldWhicheverWayItWaits) {
    auto server = serve({}, [](ServerOptions& options) {
        options.setMaxHeadBytes(1000);
        options.setMaxBodyBytes(1000);
    });
    expectRefused(*server, get("/", "X: " + std::string(1000, 'a') + "\r\n"), 431, "the head is too large");
    expectRefused(*server, head("POST", "/", "Content-Length: 1001\r\n"), 413, "the body is too large");
    EXPECT_EQ(server->application().seenCount(), 0U);
}

} // namespace
} // namespace vireotest
