#include "integration/EchoSocket.h"
#include "integration/ServerTest.h"

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

// Upgraded connections in the application's pool, from the handshake to the server's stop.

namespace vireotest {
namespace {

/// A server whose pool echoes. The application owns the pool, so that it outlives the daemon.
class WebSocketServer : public ServerTest {
protected:
    WebSocketServer() { start(); }

    void start(const Parameters& parameters = TestServer::parametersWithWebSockets()) {
        Behaviour behaviour;
        echoWebSockets(behaviour, alive_);
        behaviour.onStopped = [this] {
            if (beforeClosing_) {
                beforeClosing_();
            }
        };
        server_ = std::make_unique<TestServer>(std::move(behaviour), parameters);
    }

    RawClient open() { return openWebSocket(server_->port()); }

    static void expectEcho(RawClient& client, std::string_view text) {
        client.send(textFrame(text));
        const auto [start, payload] = readFrame(client);
        EXPECT_EQ(start, 0x81);
        EXPECT_EQ(payload, text);
    }

    std::atomic<int> alive_{0};
    /// Runs on the server thread, before the pool is stopped.
    std::function<void()> beforeClosing_;
    std::unique_ptr<TestServer> server_;
};

TEST_F(WebSocketServer, EchoesTextAndBinaryMessages) {
    RawClient client = open();
    expectEcho(client, "hello");
    expectEcho(client, std::string(5000, 'x'));
    client.send(clientFrame("bytes", 2));
    EXPECT_EQ(readFrame(client), std::make_pair(static_cast<unsigned char>(0x82), std::string("bytes")));
}

TEST_F(WebSocketServer, ServesRequestsBesideOpenConnections) {
    RawClient socket = open();
    RawClient plain = server_->connect();
    for (int i = 0; i < 5; ++i) {
        expectEcho(socket, "socket");
        EXPECT_EQ(plain.exchange(post("/", "plain")).body, "plain");
    }
}

TEST_F(WebSocketServer, CloseFrameEndsTheConnection) {
    RawClient client = open();
    expectEcho(client, "still here");
    client.send(clientFrame("", 8));
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_TRUE(waitUntil([this] { return alive_ == 0; }));
}

TEST_F(WebSocketServer, TimeoutOfRequestsDoesNotEndAConnection) {
    Parameters parameters = TestServer::parametersWithWebSockets();
    // Long enough for a handshake on a busy machine.
    parameters.connectionTimeoutMs = 4000;
    start(parameters);
    RawClient socket = open();
    RawClient idle = server_->connect();
    EXPECT_EQ(idle.readToEnd(), "");
    expectEcho(socket, "not timed out");
}

TEST_F(WebSocketServer, ClientThatGoesAwayIsForgotten) {
    RawClient closes = open();
    RawClient resets = open();
    expectEcho(closes, "one");
    expectEcho(resets, "two");
    EXPECT_EQ(alive_, 2);
    closes.close();
    resets.reset();
    EXPECT_TRUE(waitUntil([this] { return alive_ == 0; }));
    RawClient next = open();
    expectEcho(next, "three");
}

TEST_F(WebSocketServer, StopClosesOpenConnections) {
    std::vector<RawClient> clients;
    for (int i = 0; i < 20; ++i) {
        clients.push_back(open());
        expectEcho(clients.back(), "open");
    }
    const auto start = std::chrono::steady_clock::now();
    server_->stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(alive_, 0);
    for (RawClient& client : clients) {
        EXPECT_EQ(client.readToEnd(), "");
    }
}

TEST_F(WebSocketServer, StopClosesBusyConnections) {
    std::vector<std::thread> clients;
    std::atomic<int> echoes{0};
    for (int i = 0; i < 4; ++i) {
        // Opened here: a thread that is late would meet the server stopping.
        clients.emplace_back([&echoes, client = open()]() mutable {
            const std::string burst = textFrame("a") + textFrame(std::string(3000, 'b')) + textFrame("c");
            while (client.trySend(burst)) {
                try {
                    for (int frame = 0; frame < 3; ++frame) {
                        readFrame(client);
                    }
                    ++echoes;
                } catch (const std::runtime_error&) {
                    return; // cut off in the middle, as is right
                }
            }
        });
    }
    EXPECT_TRUE(waitUntil([&] { return echoes > 20; }));
    server_->stop();
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_EQ(alive_, 0);
}

TEST_F(WebSocketServer, HandshakeThatCompletesDuringTheStopIsClosed) {
    // Handshakes go on while the server stops; those that come too late for the pool are closed by it.
    std::atomic<bool> isOver{false};
    std::atomic<int> opened{0};
    std::thread client([&] {
        while (!isOver) {
            try {
                open();
                ++opened;
            } catch (const std::runtime_error&) {
                // Refused or discarded: the stop is under way.
            }
        }
    });
    EXPECT_TRUE(waitUntil([&] { return opened > 5; }));
    server_->stop();
    isOver = true;
    client.join();
    EXPECT_EQ(alive_, 0);
}

TEST_F(WebSocketServer, MessageDuringTheStopIsNotLostOnTheWayToTheApplication) {
    RawClient client = open();
    expectEcho(client, "before");
    beforeClosing_ = [&] { expectEcho(client, "during"); };
    server_->stop();
    EXPECT_EQ(client.readToEnd(), "");
}

} // namespace
} // namespace vireotest
