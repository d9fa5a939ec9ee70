#pragma once

#include "vireo/WebSocketThread.h"
#include "websocket/Fakes.h"
#include "websocket/Internals.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace wstest {

/// What a test watches of its connections; outlives them.
struct Watch {
    Counter messages;
    Counter destroyed;
};

/// A connection of the pool's tests: answers with the message itself unless the test says otherwise.
class PoolSocket : public ql::http::WebSocket {
public:
    using Handler = std::function<void(PoolSocket&, std::vector<unsigned char>&, bool)>;

    PoolSocket(UpgradeHandle& handle, Watch& watch, Handler handler = {})
        : WebSocket(handle.sockets.server, &handle), watch_(watch), handler_(std::move(handler)) {}

    ~PoolSocket() override {
        if (atDestruction) {
            atDestruction();
        }
        watch_.destroyed.add();
    }

    void onMessageReceived(std::vector<unsigned char>& message, bool isBinary) override {
        // Counted in any case, also when the handler throws; and last, so that who waits for it sees its effects.
        struct CountAtExit {
            Counter& counter;
            ~CountAtExit() { counter.add(); }
        } const countAtExit{watch_.messages};
        if (handler_) {
            handler_(*this, message, isBinary);
        } else {
            writeMessage(message.data(), message.size(), isBinary);
        }
    }

    std::function<void()> atDestruction;

private:
    Watch& watch_;
    Handler handler_;
};

/// Stops a pool when a test ends, also when it ends early: before a fake that was made earlier goes.
struct StopAtExit {
    ql::http::WebSocketThread& pool;
    ~StopAtExit() { pool.stopThreads(true); }
};

/// A pool with its surroundings, destroyed in the right order.
class PoolTest : public testing::Test {
protected:
    std::unique_ptr<ql::http::WebSocket> makeSocket(PoolSocket::Handler handler = {}) {
        return std::make_unique<PoolSocket>(newHandle(), watch, std::move(handler));
    }

    /// Adds a connection to the pool. @return its client and its record of being closed.
    UpgradeHandle& addSocket(PoolSocket::Handler handler = {}) {
        std::unique_ptr<ql::http::WebSocket> socket = makeSocket(std::move(handler));
        pool->addWebSocket(socket);
        EXPECT_EQ(socket, nullptr);
        return *handles.back();
    }

    UpgradeHandle& newHandle() {
        handles.push_back(std::make_unique<UpgradeHandle>());
        return *handles.back();
    }

    /// Sends a text and expects it back.
    static void expectEcho(UpgradeHandle& handle, const std::string& text) {
        ASSERT_TRUE(sendAll(handle.sockets.client, clientFrame(0x81, toBytes(text))));
        const std::vector<ServerFrame> frames = parseServerFrames(receiveFrame(handle.sockets.client));
        ASSERT_EQ(frames.size(), 1U);
        ASSERT_EQ(toText(frames[0].payload), text);
    }

    FakeEngine engine;
    std::vector<std::unique_ptr<UpgradeHandle>> handles;
    Watch watch;
    std::unique_ptr<ql::http::WebSocketThread> pool = std::make_unique<ql::http::WebSocketThread>();
};

} // namespace wstest
