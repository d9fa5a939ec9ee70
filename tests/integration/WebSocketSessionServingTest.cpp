#include "integration/SessionServer.h"
#include "vireo/WebSocketPool.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// WebSockets by RFC 6455: who gets one, and what becomes of it when the server goes.

namespace vireotest {
namespace {

using ql::http::ServerOptions;
using ql::http::WebSocketAnswer;
using ql::http::WebSocketCompression;
using ql::http::WebSocketOpening;
using ql::http::WebSocketOptions;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

/// The parameter tells whether HTTP is strict.
class SessionServing : public ServerTest, public testing::WithParamInterface<bool> {
protected:
    using Decide = std::function<WebSocketAnswer(const WebSocketOpening&)>;
    using AllowOrigin = std::function<bool(const WebSocketOpening&)>;

    SessionServing() { sessions_.setCloseTimeoutMs(30000); }

    void start(Decide decide = {}, AllowOrigin allowOrigin = {}) {
        acceptor_ = std::make_shared<TestAcceptor>(sessionLog_, std::move(decide), std::move(allowOrigin));
        ServerOptions options = optionsOfTests();
        options.setStrictHttp(GetParam());
        options.setWebSockets(acceptor_, sessions_);
        server_ = std::make_unique<TestServer>(std::move(behaviour_), TestServer::parametersOfTests(), options);
    }

    RawClient connect() const { return server_->connect(); }

    RawResponse answerTo(const Handshake& handshake) const { return connect().exchange(handshake.text()); }

    /// Not even the acceptor is asked.
    void expectRefused(const Handshake& handshake, int status) {
        RawClient client = connect();
        const RawResponse response = client.exchange(handshake.text());
        EXPECT_EQ(response.status, status) << handshake.text();
        EXPECT_EQ(acceptor_->decisions, 0);
        EXPECT_EQ(server_->application().seenCount(), 0U);
    }

    void expectForApplication(const Handshake& handshake) {
        EXPECT_EQ(answerTo(handshake).status, 200) << handshake.text();
        EXPECT_EQ(acceptor_->decisions, 0);
        EXPECT_EQ(server_->application().seenCount(), 1U);
    }

    static std::string echoOf(RawClient& client, std::string_view text) {
        client.send(textFrame(text));
        return readFrame(client).second;
    }

    SessionLog sessionLog_;
    WebSocketOptions sessions_;
    Behaviour behaviour_;
    std::shared_ptr<TestAcceptor> acceptor_;
    std::unique_ptr<TestServer> server_;
};

INSTANTIATE_TEST_SUITE_P(Http, SessionServing, testing::Bool(),
                         [](const auto& mode) { return mode.param ? "Strict" : "Usual"; });

// ---- The opening ----

TEST_P(SessionServing, BrowserGetsItsWebSocket) {
    start();
    RawClient client = connect();
    const RawResponse response = open(client);
    EXPECT_EQ(response.head.substr(0, response.head.find("\r\n")), "HTTP/1.1 101 Switching Protocols");
    EXPECT_EQ(response.value("Upgrade"), "websocket");
    EXPECT_EQ(response.value("Connection"), "Upgrade");
    EXPECT_EQ(response.value("Sec-WebSocket-Accept"), "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=");
    std::vector<std::string> names;
    for (const auto& [name, value] : response.headers) {
        names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    EXPECT_THAT(names, ElementsAre("Connection", "Date", "Sec-WebSocket-Accept", "Upgrade"));
    EXPECT_EQ(echoOf(client, "hello"), "hello");
    client.send(closeFrame(1000));
    EXPECT_EQ(readClose(client), 1000);
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_THAT(sessionLog_.wait(3), ElementsAre("open", "close 1000 ''", "gone"));
    EXPECT_EQ(server_->application().seenCount(), 0U);
}

TEST_P(SessionServing, TokensStandInAnyCaseInListsAndInRepeatedHeaders) {
    start();
    Handshake handshake;
    handshake.upgrade = "uPGRADE: h2c\r\nUpgrade: WEBSocket \r\n";
    handshake.connection = "connection: keep-alive\r\nConnection: x, uPgRaDe\r\n";
    RawClient client = connect();
    EXPECT_EQ(open(client, handshake).value("Connection"), "Upgrade");
    EXPECT_EQ(echoOf(client, "a"), "a");
}

TEST_P(SessionServing, WhatIsSentRightBehindTheHeadIsReceived) {
    start();
    RawClient client = connect();
    client.send(Handshake{}.text() + textFrame("first") + textFrame("second"));
    EXPECT_EQ(client.readHead().status, 101);
    EXPECT_EQ(readFrame(client).second, "first");
    EXPECT_EQ(readFrame(client).second, "second");
    EXPECT_EQ(echoOf(client, "third"), "third");
}

TEST_P(SessionServing, OtherVersionIsToldWhichOneThereIs) {
    start();
    Handshake handshake;
    for (const char* const version : {"Sec-WebSocket-Version: 8\r\n", "Sec-WebSocket-Version: 14\r\n", ""}) {
        handshake.protocolVersion = version;
        const RawResponse response = answerTo(handshake);
        EXPECT_EQ(response.status, 426);
        EXPECT_EQ(response.value("Sec-WebSocket-Version"), "13");
        EXPECT_EQ(response.value("Upgrade"), "websocket");
        EXPECT_THAT(response.value("Connection"), HasSubstr("Upgrade"));
    }
    EXPECT_EQ(acceptor_->decisions, 0);
    EXPECT_EQ(server_->application().seenCount(), 0U);
}

TEST_P(SessionServing, BadHandshakeIsABadRequest) {
    start();
    Handshake handshake;
    handshake.key = "";
    expectRefused(handshake, 400);
    handshake.key = "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZR==\r\n";
    expectRefused(handshake, 400);
    handshake = {};
    handshake.connection = "Connection: keep-alive\r\n";
    expectRefused(handshake, 400);
    handshake = {};
    handshake.method = "POST";
    handshake.others = "Content-Length: 0\r\n";
    expectRefused(handshake, 400);
    expectRefused(handshakeWith("Sec-WebSocket-Version: 8\r\n"), 400);
    expectRefused(handshakeWith("Content-Length: 1\r\n"), 400);
    expectRefused(handshakeWith("Transfer-Encoding: chunked\r\n"), 400);
    expectRefused(handshakeWith("Sec-WebSocket-Protocol: a b\r\n"), 400);
    expectRefused(handshakeWith("Sec-WebSocket-Extensions: a b\r\n"), 400);
}

TEST_P(SessionServing, BadHostIsABadRequest) {
    start();
    Handshake handshake;
    handshake.host = "";
    expectRefused(handshake, 400);
    handshake.host = "Host: a\r\nHost: b\r\n";
    expectRefused(handshake, 400);
    handshake.host = "Host: a@b\r\n";
    expectRefused(handshake, 400);
}

TEST_P(SessionServing, BadHandshakeEndsItsConnection) {
    start();
    RawClient client = connect();
    Handshake handshake;
    handshake.key = "";
    const RawResponse response = client.exchange(handshake.text());
    EXPECT_EQ(response.value("Connection"), "close");
    EXPECT_EQ(response.body, "bad Sec-WebSocket-Key");
    EXPECT_EQ(client.readToEnd(), "");
}

TEST_P(SessionServing, Http10AsksForNoUpgrade) {
    start();
    Handshake handshake;
    handshake.version = "HTTP/1.0";
    expectForApplication(handshake);
}

TEST_P(SessionServing, UpgradeToSomethingElseIsARequestLikeOthers) {
    start();
    Handshake handshake;
    handshake.upgrade = "Upgrade: h2c\r\n";
    expectForApplication(handshake);
}

TEST_P(SessionServing, RequestWithoutUpgradeIsTheApplications) {
    start();
    Handshake handshake;
    handshake.upgrade = "";
    handshake.connection = "";
    expectForApplication(handshake);
}

// ---- Pages ----

TEST_P(SessionServing, PageOfAnotherOriginIsForbidden) {
    start();
    expectRefused(handshakeWith("Origin: https://evil.example\r\n"), 403);
    expectRefused(handshakeWith("Origin: null\r\n"), 403);
    expectRefused(handshakeWith("Origin: http://example.org\r\nOrigin: http://example.org\r\n"), 403);
    EXPECT_THAT(log_.texts(qlLogType::Engine),
                Contains("Refusing a WebSocket of a page from 'https://evil.example' : the Host is 'example.org'"));
}

TEST_P(SessionServing, RefusedPageWritesNoControlCharactersIntoTheLog) {
    start();
    // Where HTTP is strict, the request is refused before.
    expectRefused(handshakeWith("Origin: https://evil\x1B[2J.example\r\n"), GetParam() ? 400 : 403);
    const std::string line =
        "Refusing a WebSocket of a page from 'https://evil [2J.example' : the Host is 'example.org'";
    EXPECT_EQ(log_.texts(qlLogType::Engine, line).size(), GetParam() ? 0U : 1U);
}

TEST_P(SessionServing, PageFromHereGetsItsWebSocket) {
    start();
    for (const char* const origin : {"", "Origin: http://example.org\r\n", "Origin: https://EXAMPLE.org\r\n"}) {
        RawClient client = connect();
        open(client, handshakeWith(origin));
    }
    EXPECT_EQ(acceptor_->decisions, 3);
}

TEST_P(SessionServing, HostOfTheTargetIsTheHostWhereHttpIsStrict) {
    start();
    Handshake handshake = handshakeWith("Origin: http://example.org\r\n");
    handshake.target = "http://example.org/chat";
    handshake.host = "Host: proxy.example\r\n";
    RawClient client = connect();
    client.send(handshake.text());
    EXPECT_EQ(client.readHead().status, GetParam() ? 101 : 403);
}

TEST_P(SessionServing, PageOfAnAllowedOriginGetsItsWebSocket) {
    sessions_.addAllowedOrigin("https://friend.example");
    start();
    RawClient client = connect();
    open(client, handshakeWith("Origin: https://Friend.example:443\r\n"));
    EXPECT_EQ(answerTo(handshakeWith("Origin: http://friend.example\r\n")).status, 403);
}

TEST_P(SessionServing, AcceptorSaysWhichOriginIsAllowed) {
    start({}, [](const WebSocketOpening& opening) { return opening.getOrigin() == "null"; });
    RawClient client = connect();
    open(client, handshakeWith("Origin: null\r\n"));
    EXPECT_EQ(answerTo(handshakeWith("Origin: http://example.org\r\n")).status, 403);
}

TEST_P(SessionServing, NobodyIsAskedAboutAnOriginThatThereIsNot) {
    start({}, [](const WebSocketOpening& /*opening*/) { return false; });
    RawClient client = connect();
    open(client);
}

// ---- The decision ----

TEST_P(SessionServing, AcceptorSeesTheRequest) {
    start([this](const WebSocketOpening& opening) {
        const ql::HttpBaseRequest& request = opening.getRequest();
        EXPECT_EQ(opening.getPath(), "/rooms/tea time");
        EXPECT_EQ(opening.getOrigin(), "http://example.org");
        EXPECT_TRUE(opening.isSameOrigin());
        EXPECT_THAT(opening.getSubprotocols(), ElementsAre("chat", "echo"));
        EXPECT_EQ(request.getRequestType(), RequestType::Get);
        EXPECT_EQ(request.getOriginalRequestUrl(), "/rooms/tea%20time?seat=4");
        EXPECT_THAT(request.getQueryParameters(), ElementsAre(Pair("seat", ElementsAre("4"))));
        EXPECT_THAT(request.getCookies(), ElementsAre(Pair("who", ElementsAre("ada"))));
        EXPECT_THAT(*request.getHeader("x-own"), ElementsAre("1"));
        EXPECT_EQ(request.getClientAddress().toString(), "127.0.0.1");
        EXPECT_EQ(request.getTlsPeer(), nullptr);
        EXPECT_FALSE(request.hasParseError());
        return WebSocketAnswer::Accept(std::make_unique<LoggingSession>(sessionLog_));
    });
    Handshake handshake = handshakeWith("Origin: http://example.org\r\nSec-WebSocket-Protocol: chat, echo\r\n"
                                        "Cookie: who=ada\r\nX-Own: 1\r\n");
    handshake.target = "/rooms/tea%20time?seat=4";
    RawClient client = connect();
    open(client, handshake);
    EXPECT_EQ(acceptor_->decisions, 1);
}

TEST_P(SessionServing, AcceptanceNamesSubprotocolAndOwnHeaders) {
    start([this](const WebSocketOpening& /*opening*/) {
        WebSocketAnswer answer = WebSocketAnswer::Accept(std::make_unique<LoggingSession>(sessionLog_));
        answer.setSubprotocol("echo");
        answer.addHeader("Set-Cookie", "a=b");
        answer.addHeader("Set-Cookie", "c=d");
        return answer;
    });
    RawClient client = connect();
    const RawResponse response = open(client, handshakeWith("Sec-WebSocket-Protocol: chat, echo\r\n"));
    EXPECT_EQ(response.value("Sec-WebSocket-Protocol"), "echo");
    EXPECT_THAT(response.values("Set-Cookie"), ElementsAre("a=b", "c=d"));
    EXPECT_EQ(echoOf(client, "a"), "a");
}

TEST_P(SessionServing, SubprotocolThatIsNotOfferedIsAnErrorOfTheApplication) {
    start([this](const WebSocketOpening& /*opening*/) {
        WebSocketAnswer answer = WebSocketAnswer::Accept(std::make_unique<LoggingSession>(sessionLog_));
        answer.setSubprotocol("echo");
        return answer;
    });
    EXPECT_EQ(answerTo(handshakeWith("Sec-WebSocket-Protocol: Echo\r\n")).status, 500);
    EXPECT_TRUE(log_.waitFor(qlLogType::Failure, "the client does not offer the subprotocol 'echo'"));
    EXPECT_THAT(sessionLog_.lines(), ElementsAre("gone"));
}

TEST_P(SessionServing, RefusalIsTheApplications) {
    start([](const WebSocketOpening& /*opening*/) {
        WebSocketAnswer answer = WebSocketAnswer::Refuse(401, "who are you?\n");
        answer.addHeader("WWW-Authenticate", "Basic");
        return answer;
    });
    const RawResponse response = answerTo({});
    EXPECT_EQ(response.status, 401);
    EXPECT_EQ(response.value("WWW-Authenticate"), "Basic");
    EXPECT_EQ(response.value("Content-Type"), "text/plain");
    EXPECT_EQ(response.body, "who are you?\n");
    EXPECT_FALSE(response.has("Upgrade"));
    EXPECT_EQ(server_->application().seenCount(), 0U);
}

TEST_P(SessionServing, RefusalMayHaveAnotherType) {
    start([](const WebSocketOpening& /*opening*/) {
        WebSocketAnswer answer = WebSocketAnswer::Refuse(403, "{}");
        answer.addHeader("content-type", "application/json");
        return answer;
    });
    const RawResponse response = answerTo({});
    EXPECT_EQ(response.value("content-type"), "application/json");
    EXPECT_FALSE(response.has("Content-Type"));
}

TEST_P(SessionServing, RefusalWithoutABodyHasNoType) {
    start([](const WebSocketOpening& /*opening*/) { return WebSocketAnswer::Refuse(404); });
    const RawResponse response = answerTo({});
    EXPECT_EQ(response.status, 404);
    EXPECT_EQ(response.value("Content-Length"), "0");
    EXPECT_FALSE(response.has("Content-Type"));
}

TEST_P(SessionServing, WhatIsPassedOnIsARequestLikeOthers) {
    start([](const WebSocketOpening& /*opening*/) { return WebSocketAnswer::Pass(); });
    Handshake handshake;
    handshake.target = "/passed?a=1";
    RawClient client = connect();
    EXPECT_EQ(client.exchange(handshake.text()).status, 200);
    EXPECT_EQ(server_->application().seen()[0].url, "/passed?a=1");
    EXPECT_EQ(client.exchange(get("/again")).status, 200);
}

TEST_P(SessionServing, AcceptorThatThrowsIsAnErrorOfTheApplication) {
    start([](const WebSocketOpening& /*opening*/) -> WebSocketAnswer { throw std::runtime_error("decide broke"); },
          [](const WebSocketOpening& /*opening*/) -> bool { throw std::runtime_error("origin broke"); });
    const RawResponse response = answerTo({});
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.body, "internal error text");
    EXPECT_TRUE(log_.waitFor(qlLogType::Failure, "decide broke"));
    EXPECT_EQ(answerTo(handshakeWith("Origin: http://example.org\r\n")).status, 500);
    EXPECT_TRUE(log_.waitFor(qlLogType::Failure, "origin broke"));
}

// ---- Options ----

TEST_P(SessionServing, CompressionIsAgreedUponWhereItIsOffered) {
    sessions_.setCompression(WebSocketCompression());
    start();
    RawClient client = connect();
    EXPECT_THAT(open(client, handshakeWith("Sec-WebSocket-Extensions: permessage-deflate\r\n"))
                    .value("Sec-WebSocket-Extensions"),
                HasSubstr("permessage-deflate"));
    RawClient without = connect();
    EXPECT_FALSE(open(without).has("Sec-WebSocket-Extensions"));
}

TEST_P(SessionServing, WithoutCompressionNoneIsAgreedUpon) {
    start();
    RawClient client = connect();
    EXPECT_FALSE(open(client, handshakeWith("Sec-WebSocket-Extensions: permessage-deflate\r\n"))
                     .has("Sec-WebSocket-Extensions"));
}

TEST_P(SessionServing, AnswerMayHaveOptionsOfItsOwn) {
    sessions_.setMaxMessageBytes(4);
    start([this](const WebSocketOpening& opening) {
        WebSocketAnswer answer = WebSocketAnswer::Accept(std::make_unique<LoggingSession>(sessionLog_));
        if (opening.getPath() == "/large") {
            WebSocketOptions options;
            options.setMaxMessageBytes(5);
            options.setCompression(WebSocketCompression());
            answer.setOptions(options);
        }
        return answer;
    });
    Handshake handshake = handshakeWith("Sec-WebSocket-Extensions: permessage-deflate\r\n");
    RawClient small = connect();
    EXPECT_FALSE(open(small, handshake).has("Sec-WebSocket-Extensions"));
    small.send(textFrame("12345"));
    EXPECT_EQ(readClose(small), 1009);
    handshake.target = "/large";
    RawClient large = connect();
    EXPECT_TRUE(open(large, handshake).has("Sec-WebSocket-Extensions"));
    EXPECT_EQ(echoOf(large, "12345"), "12345");
}

TEST_P(SessionServing, GivenPoolServesSessionsAndOutlivesTheServer) {
    const auto pool = std::make_shared<ql::http::WebSocketPool>(1);
    sessions_.setPool(pool);
    start();
    for (int run = 0; run < 2; ++run) {
        RawClient client = connect();
        open(client);
        EXPECT_EQ(echoOf(client, "a"), "a");
        client.close();
        server_->stop();
        server_->start();
    }
    EXPECT_EQ(sessionLog_.count("gone"), 2U);
}

// ---- Hand-over ----

TEST_P(SessionServing, SessionOfAClientThatHasLeftIsNeverOpened) {
    Event asked;
    Event left;
    start([&](const WebSocketOpening& /*opening*/) {
        asked.set();
        EXPECT_TRUE(left.wait());
        return WebSocketAnswer::Accept(std::make_unique<LoggingSession>(sessionLog_));
    });
    RawClient client = connect();
    client.send(Handshake{}.text());
    ASSERT_TRUE(asked.wait());
    client.reset();
    // Goes the same way as the reset, which has arrived by then.
    EXPECT_EQ(connect().exchange(get("/")).status, 200);
    left.set();
    EXPECT_THAT(sessionLog_.wait(1), ElementsAre("gone"));
    server_->stop();
    EXPECT_THAT(sessionLog_.lines(), ElementsAre("gone"));
}

// ---- The stop ----

TEST_P(SessionServing, StopTellsEachPeerAndWaitsForIt) {
    Event stopped;
    behaviour_.onStopped = [&] { stopped.set(); };
    start();
    RawClient client = connect();
    open(client);
    EXPECT_EQ(echoOf(client, "a"), "a");
    std::future<void> stop = std::async(std::launch::async, [this] { server_->stop(); });
    EXPECT_EQ(readClose(client), 1001);
    EXPECT_TRUE(stopped.isSet());
    letOthersRun();
    EXPECT_EQ(server_->server().getStatus(), Status::Running);
    client.send(closeFrame(1001));
    EXPECT_EQ(client.readToEnd(), "");
    client.close();
    stop.get();
    EXPECT_THAT(sessionLog_.lines(), ElementsAre("open", "close 1001 ''", "gone"));
}

TEST_P(SessionServing, StopCutsOffWhoDoesNotGo) {
    sessions_.setCloseTimeoutMs(WebSocketOptions::MinTimeMs);
    start();
    RawClient client = connect();
    open(client);
    EXPECT_EQ(echoOf(client, "a"), "a");
    server_->stop();
    EXPECT_THAT(sessionLog_.lines(), ElementsAre("open", "close 1001 '' unclean", "gone"));
    EXPECT_EQ(readClose(client), 1001);
    (void)client.readToEnd();
}

/// Asks for a stop, and once more when it is at its end.
class StoppingSession : public LoggingSession {
public:
    StoppingSession(SessionLog& log, ql::http::HttpServer& server) : LoggingSession(log), server_(server) {}

    void onText(std::string_view /*text*/) override { server_.stopServer(false); }
    void onClose(std::uint16_t code, std::string_view reason, bool isClean) override {
        server_.stopServer(false);
        LoggingSession::onClose(code, reason, isClean);
    }

private:
    ql::http::HttpServer& server_;
};

TEST_P(SessionServing, StopMayBeAskedForByASessionAgainAndAgain) {
    start([this](const WebSocketOpening& /*opening*/) {
        return WebSocketAnswer::Accept(std::make_unique<StoppingSession>(sessionLog_, server_->server()));
    });
    RawClient client = connect();
    open(client);
    client.send(textFrame("stop"));
    EXPECT_EQ(readClose(client), 1001);
    client.send(closeFrame(1001));
    EXPECT_EQ(client.readToEnd(), "");
    client.close();
    server_->stop();
    EXPECT_THAT(sessionLog_.lines(), ElementsAre("open", "close 1001 ''", "gone"));
}

TEST_P(SessionServing, StopMayBeAskedForByASessionThatIsCutOff) {
    sessions_.setCloseTimeoutMs(WebSocketOptions::MinTimeMs);
    start([this](const WebSocketOpening& /*opening*/) {
        return WebSocketAnswer::Accept(std::make_unique<StoppingSession>(sessionLog_, server_->server()));
    });
    RawClient client = connect();
    open(client);
    sessionLog_.wait(1);
    server_->stop();
    EXPECT_THAT(sessionLog_.lines(), ElementsAre("open", "close 1001 '' unclean", "gone"));
}

TEST_P(SessionServing, ServerThatStartsAgainHasNewSessions) {
    start();
    for (int run = 0; run < 2; ++run) {
        RawClient client = connect();
        open(client);
        EXPECT_EQ(echoOf(client, "a"), "a");
        std::future<void> stop = std::async(std::launch::async, [this] { server_->stop(); });
        EXPECT_EQ(readClose(client), 1001);
        client.send(closeFrame(1001));
        client.close();
        stop.get();
        server_->start();
    }
    EXPECT_EQ(sessionLog_.count("gone"), 2U);
}

} // namespace
} // namespace vireotest
