#include "vireo/WebSocketPool.h"

#include "websocket/PoolFixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace wstest;

namespace {

/// Connections of the defined protocol in a pool that sessions may share.
class SharedPoolTest : public testing::Test {
protected:
    std::unique_ptr<ql::http::WebSocket> makeSocket(PoolSocket::Handler handler = {}) {
        handles.push_back(std::make_unique<UpgradeHandle>());
        return std::make_unique<PoolSocket>(*handles.back(), watch, std::move(handler));
    }

    UpgradeHandle& add(PoolSocket::Handler handler = {}) {
        std::unique_ptr<ql::http::WebSocket> socket = makeSocket(std::move(handler));
        pool->add(socket);
        EXPECT_EQ(socket, nullptr);
        return *handles.back();
    }

    static void expectEcho(UpgradeHandle& handle, const std::string& text) {
        ASSERT_TRUE(sendAll(handle.sockets.client, clientFrame(0x81, toBytes(text))));
        expectText(handle, text);
    }
    static void expectText(UpgradeHandle& handle, const std::string& text) {
        const std::vector<ServerFrame> frames = parseServerFrames(receiveFrame(handle.sockets.client));
        ASSERT_EQ(frames.size(), 1U);
        ASSERT_EQ(toText(frames[0].payload), text);
    }

    FakeEngine engine;
    std::vector<std::unique_ptr<UpgradeHandle>> handles;
    Watch watch;
    std::unique_ptr<ql::http::WebSocketPool> pool = std::make_unique<ql::http::WebSocketPool>(2);
};

} // namespace

TEST(WebSocketPool, HasOneTo256Threads) {
    EXPECT_THROW(ql::http::WebSocketPool(0), std::invalid_argument);
    EXPECT_THROW(ql::http::WebSocketPool(257), std::invalid_argument);
    const ql::http::WebSocketPool most(256);
}

TEST_F(SharedPoolTest, MessagesAreHandled) {
    UpgradeHandle& one = add();
    UpgradeHandle& other = add();
    for (int i = 0; i < 20; ++i) {
        expectEcho(one, "one");
        expectEcho(other, "other");
    }
}

TEST_F(SharedPoolTest, ManyMessagesThatComeAtOnceAreHandledInTheirOrder) {
    UpgradeHandle& one = add();
    Bytes all;
    for (int i = 0; i < 500; ++i) {
        const Bytes frame = clientFrame(0x81, toBytes(std::to_string(i)));
        all.insert(all.end(), frame.begin(), frame.end());
    }
    ASSERT_TRUE(sendAll(one.sockets.client, all));
    for (int i = 0; i < 500; ++i) {
        expectText(one, std::to_string(i));
    }
}

TEST_F(SharedPoolTest, MessageThatTheSocketDoesNotTakeAtOnceArrivesWhole) {
    constexpr std::size_t Size = 8000000;
    UpgradeHandle& one = add([](PoolSocket& socket, std::vector<unsigned char>&, bool) {
        const std::vector<unsigned char> large(Size, 'x');
        socket.writeMessage(large.data(), large.size(), true);
    });
    ASSERT_TRUE(sendAll(one.sockets.client, clientFrame(0x81, toBytes("go"))));
    std::size_t received = 0;
    while (received < Size) {
        for (const ServerFrame& frame : parseServerFrames(receiveFrame(one.sockets.client))) {
            received += frame.payload.size();
        }
    }
    EXPECT_EQ(received, Size);
}

TEST_F(SharedPoolTest, WritesOfOtherThreadsAreSent) {
    std::unique_ptr<ql::http::WebSocket> socket = makeSocket();
    ql::http::WebSocket& written = *socket;
    UpgradeHandle& handle = *handles.back();
    // Before it is added, too.
    written.writeMessage("0", 1, false);
    pool->add(socket);
    expectText(handle, "0");
    for (int i = 1; i < 200; ++i) {
        const std::string text = std::to_string(i);
        written.writeMessage(text.data(), text.size(), false);
        expectText(handle, text);
    }
}

TEST_F(SharedPoolTest, ConnectionThatEndsIsClosedAndDestroyed) {
    UpgradeHandle& one = add();
    expectEcho(one, "x");
    one.sockets.closeClient();
    EXPECT_TRUE(watch.destroyed.waitFor(1));
    EXPECT_EQ(one.closes.count(), 1U);
}

TEST_F(SharedPoolTest, ConnectionWhoseHandlerThrowsIsClosedAndOthersAreNot) {
    UpgradeHandle& other = add();
    UpgradeHandle& one =
        add([](PoolSocket&, std::vector<unsigned char>&, bool) { throw std::runtime_error("of the application"); });
    ASSERT_TRUE(sendAll(one.sockets.client, clientFrame(0x81, toBytes("x"))));
    EXPECT_TRUE(watch.destroyed.waitFor(1));
    EXPECT_EQ(one.closes.count(), 1U);
    expectEcho(other, "still there");
}

TEST_F(SharedPoolTest, WhoHasTheDescriptorOfAConnectionThatItsHandlerClosedIsServed) {
    UpgradeHandle* next = nullptr;
    UpgradeHandle& one = add([&](PoolSocket& closing, std::vector<unsigned char>&, bool) {
        const std::uint64_t descriptor = closing.getSocket();
        closing.markForDeletion();
        handles.push_back(std::make_unique<UpgradeHandle>());
        next = handles.back().get();
        if (next->sockets.client == descriptor) {
            std::swap(next->sockets.client, next->sockets.server);
        }
        std::unique_ptr<ql::http::WebSocket> socket = std::make_unique<PoolSocket>(*next, watch);
        pool->add(socket);
    });
    ASSERT_TRUE(sendAll(one.sockets.client, clientFrame(0x81, toBytes("x"))));
    ASSERT_TRUE(watch.destroyed.waitFor(1));
    EXPECT_EQ(one.closes.count(), 1U);
    for (int i = 0; i < 10; ++i) {
        expectEcho(*next, "x");
    }
}

TEST_F(SharedPoolTest, StopClosesAndDestroysWhatIsThere) {
    for (int i = 0; i < 5; ++i) {
        expectEcho(add(), "x");
    }
    pool->stop();
    EXPECT_EQ(watch.destroyed.count(), 5U);
    for (const auto& handle : handles) {
        EXPECT_EQ(handle->closes.count(), 1U);
    }
    pool->stop();
}

TEST_F(SharedPoolTest, StoppedPoolClosesWhatItIsGivenAndLeavesItWithTheCaller) {
    pool->stop();
    std::unique_ptr<ql::http::WebSocket> socket = makeSocket();
    pool->add(socket);
    ASSERT_NE(socket, nullptr);
    EXPECT_EQ(handles.back()->closes.count(), 1U);
    socket->writeMessage("x", 1, false);
    pool.reset();
    socket->writeMessage("x", 1, false);
    std::unique_ptr<ql::http::WebSocket> none;
    ql::http::WebSocketPool(1).add(none);
}

TEST_F(SharedPoolTest, PoolMayBeDestroyedByAHandler) {
    add();
    UpgradeHandle& one = add([&](PoolSocket&, std::vector<unsigned char>&, bool) { pool.reset(); });
    ASSERT_TRUE(sendAll(one.sockets.client, clientFrame(0x81, toBytes("x"))));
    EXPECT_TRUE(watch.destroyed.waitFor(2));
    EXPECT_EQ(one.closes.count(), 1U);
}

TEST_F(SharedPoolTest, ServesUnderLoadFromManyThreads) {
    constexpr int Connections = 8;
    constexpr int Messages = 500;
    std::vector<UpgradeHandle*> clients;
    for (int i = 0; i < Connections; ++i) {
        clients.push_back(&add());
    }
    std::vector<std::thread> threads;
    for (UpgradeHandle* client : clients) {
        threads.emplace_back([client] {
            for (int i = 0; i < Messages; ++i) {
                expectEcho(*client, std::to_string(i));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    pool.reset(); // a message is counted after its answer has been sent
    EXPECT_EQ(watch.messages.count(), static_cast<std::size_t>(Connections * Messages));
}
