#include "integration/ServerTest.h"
#include "vireo/WebSocket.h"

#include <memory>
#include <utility>
#include <vector>

// A server that waits by events lets in so many connections, and tells the others so.

namespace vireotest {
namespace {

using ql::http::ServerOptions;

class Limit : public ServerTest {
protected:
    static ServerOptions options() {
        ServerOptions options;
        options.setWaiting(ServerOptions::Waiting::Event);
        return options;
    }

    static void expectServed(RawClient& client) { EXPECT_EQ(client.exchange(get("/")).status, 200); }

    static void expectRefused(const TestServer& server) {
        RawClient client = server.connect();
        // Before it has sent anything.
        const RawResponse response = client.readResponse();
        EXPECT_EQ(response.status, 503);
        EXPECT_EQ(response.value("Connection"), "close");
        EXPECT_TRUE(response.has("Retry-After"));
        EXPECT_EQ(client.readToEnd(), "");
    }

    /// Who has just closed may still be counted.
    static bool isServed(const TestServer& server) {
        return waitUntil([&] {
            RawClient client = server.connect();
            return client.exchange(get("/")).status == 200;
        });
    }

    static void expectRoomForThree(const ServerOptions& options) {
        TestServer server(Behaviour{}, TestServer::parametersOfTests(), options);
        std::vector<RawClient> clients;
        for (int i = 0; i < 3; ++i) {
            clients.push_back(server.connect());
            expectServed(clients.back());
        }
        expectRefused(server);
        expectRefused(server);
        for (RawClient& client : clients) {
            expectServed(client);
        }
        clients.pop_back();
        EXPECT_TRUE(isServed(server));
    }
};

TEST_F(Limit, OfConnectionsRefusesThoseBeyondIt) {
    ServerOptions limited = options();
    limited.setMaxConnections(3);
    expectRoomForThree(limited);
}

TEST_F(Limit, OfAnAddressRefusesThoseBeyondIt) {
    ServerOptions limited = options();
    limited.setMaxConnectionsPerAddress(3);
    expectRoomForThree(limited);
}

TEST_F(Limit, CountsWebSockets) {
    ServerOptions limited = options();
    limited.setMaxConnections(1);
    std::unique_ptr<ql::http::WebSocket> accepted;
    Event isAccepted;
    Behaviour behaviour;
    behaviour.onWebSocket = [&](ql::http::WebSocketThread& /*pool*/, ql::http::WebSocket* socket) {
        accepted.reset(socket);
        isAccepted.set();
    };
    TestServer server(std::move(behaviour), TestServer::parametersWithWebSockets(), limited);
    RawClient client = server.connect();
    client.send(get("/", "Upgrade: WebSocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                         "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"));
    EXPECT_EQ(client.readHead().status, 101);
    ASSERT_TRUE(isAccepted.wait());
    expectRefused(server);
    accepted->markForDeletion();
    EXPECT_TRUE(isServed(server));
}

TEST_F(Limit, ByDefaultIsFarAway) {
    TestServer server(Behaviour{}, TestServer::parametersOfTests(), options());
    std::vector<RawClient> clients;
    for (int i = 0; i < 100; ++i) {
        clients.push_back(server.connect());
    }
    for (RawClient& client : clients) {
        expectServed(client);
    }
}

} // namespace
} // namespace vireotest
