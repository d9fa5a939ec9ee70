#include "vireo/WebSocket.h"
#include "vireo/WebSocketThread.h"
#include "websocket/Fakes.h"
#include "websocket/TestSockets.h"

#include <gtest/gtest.h>

#include <NativeSockets.h>
#include <microhttpd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace wstest;
using ql::http::WebSocket;

namespace {

class EchoSocket : public WebSocket {
public:
    explicit EchoSocket(WebSocket&& accepted) : WebSocket(std::move(accepted)) {}
    void onMessageReceived(std::vector<unsigned char>& message, bool isBinary) override {
        writeMessage(message.data(), message.size(), isBinary);
    }
};

/// The engine without the library's server: upgrades every request and hands the socket to a pool.
class EngineUpgrade : public testing::Test {
protected:
    EngineUpgrade() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        daemon_ =
            MHD_start_daemon(MHD_USE_AUTO | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_ERROR_LOG | MHD_ALLOW_UPGRADE, 0,
                             nullptr, nullptr, &EngineUpgrade::answer, this, MHD_OPTION_SOCK_ADDR, &address,
                             MHD_OPTION_THREAD_POOL_SIZE, 2U, MHD_OPTION_END);
        if (daemon_ == nullptr) {
            ADD_FAILURE() << "the engine does not start";
            return;
        }
        port_ = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT)->port;
    }

    ~EngineUpgrade() override {
        stopInTheRightOrder();
        for (const std::uint64_t client : clients_) {
            closeSocket(client);
        }
    }

    void stopInTheRightOrder() {
        pool.stopThreads(true);
        pool.closeAll();
        if (daemon_ != nullptr) {
            MHD_stop_daemon(std::exchange(daemon_, nullptr));
        }
    }

    /// Connects and completes the handshake.
    std::uint64_t connect() {
        const std::uint64_t client = connectTo(port_);
        clients_.push_back(client);
        EXPECT_TRUE(sendAll(client, toBytes("GET / HTTP/1.1\r\nHost: localhost\r\nUpgrade: WebSocket\r\n"
                                            "Connection: Upgrade\r\n\r\n")));
        std::string head;
        while (head.find("\r\n\r\n") == std::string::npos && head.size() < 4096) {
            const Bytes byte = receiveExactly(client, 1);
            if (byte.empty()) {
                break;
            }
            head.push_back(static_cast<char>(byte[0]));
        }
        EXPECT_EQ(head.substr(0, 12), "HTTP/1.1 101");
        return client;
    }

    ql::http::WebSocketThread pool;
    std::atomic<int> sendDelays{0};
    Counter accepted;

private:
    static MHD_Result answer(void* self, MHD_Connection* connection, const char*, const char*, const char*, const char*,
                             std::size_t*, void**) {
        MHD_Response* const response = MHD_create_response_for_upgrade(&EngineUpgrade::upgraded, self);
        MHD_add_response_header(response, "Upgrade", "websocket");
        const MHD_Result result = MHD_queue_response(connection, MHD_HTTP_SWITCHING_PROTOCOLS, response);
        MHD_destroy_response(response);
        return result;
    }

    static void upgraded(void* self, MHD_Connection*, void*, const char*, std::size_t, MHD_socket native,
                         MHD_UpgradeResponseHandle* handle) {
        EngineUpgrade& test = *static_cast<EngineUpgrade*>(self);
        WebSocket source(static_cast<std::uint64_t>(native), handle);
        test.sendDelays += hasSendDelay(source.getSocket()) ? 1 : 0;
        std::unique_ptr<WebSocket> socket = std::make_unique<EchoSocket>(std::move(source));
        test.pool.addWebSocket(socket);
        socket.reset();
        test.accepted.add();
    }

    MHD_Daemon* daemon_ = nullptr;
    std::uint16_t port_ = 0;
    std::vector<std::uint64_t> clients_;
};

const Bytes Ping = clientFrame(0x81, toBytes("ping"));
const Bytes Pong = {0x81, 4, 'p', 'i', 'n', 'g'};

} // namespace

TEST_F(EngineUpgrade, UpgradedSocketIsServedWithoutSendDelay) {
    pool.startThreads(2);
    const std::uint64_t client = connect();
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(sendAll(client, Ping));
        ASSERT_EQ(receiveFrame(client), Pong);
    }
    EXPECT_EQ(sendDelays, 0);
}

TEST_F(EngineUpgrade, ClosedConnectionIsEndedByTheEngine) {
    pool.startThreads(2);
    const std::uint64_t client = connect();
    ASSERT_TRUE(sendAll(client, clientFrame(0x88, {})));
    EXPECT_TRUE(atEnd(client));
}

TEST_F(EngineUpgrade, HandshakeAfterThePoolStoppedIsClosedAtOnce) {
    pool.startThreads(1);
    pool.stopThreads(true);
    EXPECT_TRUE(atEnd(connect()));
}

TEST_F(EngineUpgrade, StopInTheRightOrderEndsOpenAndBusyConnections) {
    constexpr std::size_t Busy = 16;
    pool.startThreads(4);
    std::vector<std::uint64_t> idle;
    for (int i = 0; i < 8; ++i) {
        idle.push_back(connect());
    }
    std::vector<std::thread> clients;
    Counter exchanges;
    for (std::size_t i = 0; i < Busy; ++i) {
        clients.emplace_back([&exchanges, client = connect()] {
            while (sendAll(client, Ping) && receiveFrame(client) == Pong) {
                exchanges.add();
            }
        });
    }
    EXPECT_TRUE(exchanges.waitFor(20 * Busy));
    ASSERT_TRUE(accepted.waitFor(Busy + idle.size()));

    const auto start = std::chrono::steady_clock::now();
    stopInTheRightOrder();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    for (std::thread& client : clients) {
        client.join();
    }
    for (const std::uint64_t client : idle) {
        EXPECT_TRUE(atEnd(client));
    }
}
