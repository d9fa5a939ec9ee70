#include "integration/ServerTest.h"
#include "vireo/WebSocket.h"

#include <memory>
#include <stdexcept>
#include <string>

// The opening handshake, byte by byte.

namespace vireotest {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

constexpr const char* Key = "dGhlIHNhbXBsZSBub25jZQ==";

const std::string UpgradeRequiredPage = "<html>\n<head>\n<title>WebSocket</title>\n</head>\n<body>\nUpgrade required\n"
                                        "</body>\n</html>\n";

struct Handshake {
    std::string method = "GET";
    std::string protocol = "HTTP/1.1";
    std::string upgrade = "Upgrade: WebSocket\r\n";
    std::string connection = "Connection: Upgrade\r\n";
    std::string version = "Sec-WebSocket-Version: 13\r\n";
    std::string key = std::string("Sec-WebSocket-Key: ") + Key + "\r\n";

    std::string text() const {
        return method + " /socket " + protocol + "\r\nHost: localhost\r\n" + upgrade + connection + version + key +
               "\r\n";
    }
};

class WebSocketHandshake : public ServerTest {
protected:
    static Parameters parameters(bool enabled = true) {
        Parameters parameters = TestServer::parametersOfTests();
        parameters.webSocketEnabled = enabled;
        return parameters;
    }

    static void expectInternalError(const Handshake& handshake, bool enabled = true) {
        TestServer server(Behaviour{}, parameters(enabled));
        const RawResponse response = server.connect().exchange(handshake.text());
        EXPECT_EQ(response.status, 500);
        EXPECT_EQ(response.body, "internal error text");
        EXPECT_EQ(server.application().seenCount(), 0U);
    }

    static void expectUpgradeRequired(const Handshake& handshake) {
        TestServer server(Behaviour{}, parameters());
        const RawResponse response = server.connect().exchange(handshake.text());
        EXPECT_EQ(response.status, 426);
        EXPECT_EQ(response.body, UpgradeRequiredPage);
        EXPECT_EQ(response.body.size(), 87U);
        EXPECT_EQ(response.value("Sec-WebSocket-Version"), "13");
        EXPECT_EQ(server.application().seenCount(), 0U);
    }

    static void expectPlainRequest(const Handshake& handshake) {
        TestServer server(Behaviour{}, parameters());
        EXPECT_EQ(server.connect().exchange(handshake.text()).status, 200);
        EXPECT_THAT(server.application().seen()[0].url, "/socket");
    }
};

TEST_F(WebSocketHandshake, IsAccepted) {
    Event accepted;
    Behaviour behaviour;
    behaviour.onWebSocket = [&](ql::http::WebSocketThread& /*pool*/, ql::http::WebSocket* socket) {
        const std::unique_ptr<ql::http::WebSocket> owned(socket);
        owned->markForDeletion();
        accepted.set();
    };
    TestServer server(std::move(behaviour), parameters());
    RawClient client = server.connect();
    client.send(Handshake{}.text());
    const RawResponse response = client.readHead();
    EXPECT_EQ(response.head.substr(0, response.head.find("\r\n")), "HTTP/1.1 101 Switching Protocols");
    EXPECT_EQ(response.value("Upgrade"), "websocket");
    // The engine has named the option already when the library does.
    EXPECT_EQ(response.value("Connection"), "Upgrade, Upgrade");
    EXPECT_EQ(response.value("Sec-WebSocket-Accept"), "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=");
    EXPECT_FALSE(response.has("Content-Length"));
    EXPECT_TRUE(accepted.wait());
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_EQ(server.application().seenCount(), 0U);
}

TEST_F(WebSocketHandshake, HeadersOfTheAnswerKeepTheirOrder) {
    TestServer server(Behaviour{}, parameters());
    RawClient client = server.connect();
    client.send(Handshake{}.text());
    std::vector<std::string> names;
    for (const auto& [name, value] : client.readHead().headers) {
        names.push_back(name);
    }
    // The engine puts its own in front, and Connection is one of them.
    EXPECT_THAT(names, ElementsAre("Date", "Connection", "Upgrade", "Sec-WebSocket-Accept"));
}

TEST_F(WebSocketHandshake, ConnectionMayNameOtherOptionsToo) {
    TestServer server(Behaviour{}, parameters());
    Handshake handshake;
    handshake.connection = "Connection: keep-alive, Upgrade\r\n";
    RawClient client = server.connect();
    client.send(handshake.text());
    EXPECT_EQ(client.readHead().status, 101);
}

TEST_F(WebSocketHandshake, KeyOfAnotherLengthGivesAnEmptyAcceptValue) {
    for (const char* const key : {"dGhlIHNhbXBsZSBub25jZQ=", "dGhlIHNhbXBsZSBub25jZQ===", ""}) {
        TestServer server(Behaviour{}, parameters());
        Handshake handshake;
        handshake.key = std::string("Sec-WebSocket-Key: ") + key + "\r\n";
        RawClient client = server.connect();
        client.send(handshake.text());
        const RawResponse response = client.readHead();
        EXPECT_EQ(response.status, 101);
        EXPECT_THAT(response.values("Sec-WebSocket-Accept"), ElementsAre("")) << key;
    }
}

TEST_F(WebSocketHandshake, LowerCaseUpgradeIsAPlainRequest) {
    Handshake handshake;
    handshake.upgrade = "Upgrade: websocket\r\n";
    expectPlainRequest(handshake);
}

TEST_F(WebSocketHandshake, LowerCaseConnectionIsAPlainRequest) {
    Handshake handshake;
    handshake.connection = "Connection: upgrade\r\n";
    expectPlainRequest(handshake);
}

TEST_F(WebSocketHandshake, MissingUpgradeIsAPlainRequest) {
    Handshake handshake;
    handshake.upgrade.clear();
    expectPlainRequest(handshake);
}

TEST_F(WebSocketHandshake, MissingConnectionIsAPlainRequest) {
    Handshake handshake;
    handshake.connection.clear();
    expectPlainRequest(handshake);
}

TEST_F(WebSocketHandshake, IsRefusedWhenSwitchedOff) {
    expectInternalError(Handshake{}, false);
}

TEST_F(WebSocketHandshake, IsForGetOnly) {
    for (const char* const method : {"POST", "PUT", "get", "BREW"}) {
        Handshake handshake;
        handshake.method = method;
        expectInternalError(handshake);
    }
}

TEST_F(WebSocketHandshake, HeadIsRefusedWithoutABody) {
    TestServer server(Behaviour{}, parameters());
    Handshake handshake;
    handshake.method = "HEAD";
    RawClient client = server.connect();
    client.send(handshake.text());
    EXPECT_EQ(client.readHead().status, 500);
    EXPECT_EQ(server.application().seenCount(), 0U);
}

TEST_F(WebSocketHandshake, IsForHttp11Only) {
    Handshake handshake;
    handshake.protocol = "HTTP/1.0";
    expectInternalError(handshake);
}

TEST_F(WebSocketHandshake, MethodIsLookedAtBeforeTheVersion) {
    Handshake handshake;
    handshake.method = "POST";
    handshake.version.clear();
    expectInternalError(handshake);
}

TEST_F(WebSocketHandshake, VersionIsLookedAtBeforeTheKey) {
    Handshake handshake;
    handshake.version.clear();
    handshake.key.clear();
    expectUpgradeRequired(handshake);
}

TEST_F(WebSocketHandshake, MissingVersionIsToldTheRightOne) {
    Handshake handshake;
    handshake.version.clear();
    expectUpgradeRequired(handshake);
}

TEST_F(WebSocketHandshake, OtherVersionIsToldTheRightOne) {
    for (const char* const version : {"8", "130", "1", "13, 8", "013"}) {
        Handshake handshake;
        handshake.version = std::string("Sec-WebSocket-Version: ") + version + "\r\n";
        expectUpgradeRequired(handshake);
    }
}

TEST_F(WebSocketHandshake, MissingKeyIsAnInternalError) {
    Handshake handshake;
    handshake.key.clear();
    expectInternalError(handshake);
}

TEST_F(WebSocketHandshake, RefusalEndsTheConnection) {
    TestServer server(Behaviour{}, parameters());
    Handshake handshake;
    handshake.version.clear();
    RawClient client = server.connect();
    const RawResponse response = client.exchange(handshake.text());
    EXPECT_EQ(response.status, 426);
    EXPECT_EQ(response.value("Connection"), "close");
    EXPECT_EQ(client.readToEnd(), "");
}

TEST_F(WebSocketHandshake, UpgradeOnAUsedConnectionIsAccepted) {
    TestServer server(Behaviour{}, parameters());
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(post("/", "first")).body, "first");
    client.send(Handshake{}.text());
    EXPECT_EQ(client.readHead().status, 101);
}

TEST_F(WebSocketHandshake, AfterTheCallToStopIsDiscarded) {
    Event stopping;
    Event proceed;
    Behaviour behaviour;
    behaviour.onStopped = [&] {
        stopping.set();
        EXPECT_TRUE(proceed.wait());
    };
    TestServer server(std::move(behaviour), parameters());
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(get("/")).status, 200);
    server.server().stopServer(false);
    ASSERT_TRUE(stopping.wait());
    client.send(Handshake{}.text());
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_THAT(log_.texts(qlLogType::Engine, "Discarding"), SizeIs(1));
    proceed.set();
}

TEST_F(WebSocketHandshake, ExceptionInAcceptWebSocketIsLogged) {
    Behaviour behaviour;
    behaviour.onWebSocket = [](ql::http::WebSocketThread& /*pool*/, ql::http::WebSocket* socket) {
        const std::unique_ptr<ql::http::WebSocket> owned(socket);
        owned->markForDeletion();
        throw std::runtime_error("thrown by acceptWebSocket");
    };
    TestServer server(std::move(behaviour), parameters());
    RawClient client = server.connect();
    client.send(Handshake{}.text());
    EXPECT_EQ(client.readHead().status, 101);
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_TRUE(log_.waitFor(qlLogType::Failure, "acceptWebSocket threw an exception : thrown by acceptWebSocket"));
    EXPECT_EQ(server.connect().exchange(get("/")).status, 200);
}

class VerboseWebSocketHandshake : public ServerTest {
protected:
    VerboseWebSocketHandshake() : ServerTest(true) {}
};

TEST_F(VerboseWebSocketHandshake, CountsAsAUseOfItsConnection) {
    TestServer server(Behaviour{}, TestServer::parametersWithWebSockets());
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(get("/")).status, 200);
    client.send(Handshake{}.text());
    EXPECT_EQ(client.readHead().status, 101);
    EXPECT_EQ(client.readToEnd(), "");
    client.close();
    EXPECT_TRUE(log_.waitFor(qlLogType::Connection, " after 2 uses in "));
}

} // namespace
} // namespace vireotest
