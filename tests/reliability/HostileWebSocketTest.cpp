// WebSocket clients that mean no good. docs/hostile-clients.md says what follows.

#include "integration/EchoSocket.h"
#include "integration/ServerTest.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace vireotest {
namespace {

using testing::IsEmpty;

constexpr std::string_view Mask("\0\0\0\0", 4);

class HostileWebSocket : public ServerTest {
protected:
    HostileWebSocket() : server_(behaviour(), TestServer::parametersWithWebSockets()) {}

    TestImpl::Behaviour behaviour() {
        TestImpl::Behaviour behaviour;
        echoWebSockets(behaviour, alive_);
        return behaviour;
    }

    /// A healthy client gets its echo.
    void expectService() {
        RawClient client = openWebSocket(server_.port());
        client.send(textFrame("still here"));
        EXPECT_EQ(readFrame(client).second, "still here");
    }

    void expectAllGone() {
        EXPECT_TRUE(waitUntil([this] { return alive_ == 0; }));
    }

    std::atomic<int> alive_{0};
    TestServer server_;
};

TEST_F(HostileWebSocket, HugeAnnouncedLengthTakesNoMemory) {
    const std::uint64_t before = residentMemoryBytes();
    for (const std::string& length :
         {std::string("\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"), std::string("\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"),
          std::string("\0\0\0\x40\0\0\0\0", 8)}) {
        RawClient client = openWebSocket(server_.port());
        client.send("\x82\xFF" + length + std::string(Mask) + "abc");
        expectService();
        client.close();
    }
    expectAllGone();
    EXPECT_LT(residentMemoryBytes(), before + (16U << 20U));
}

TEST_F(HostileWebSocket, FloodOfFragmentsIsOneMessage) {
    constexpr int Count = 20000;
    RawClient client = openWebSocket(server_.port());
    std::string flood = "\x01\x81" + std::string(Mask) + "a";
    for (int i = 0; i < Count; ++i) {
        flood += std::string("\x00\x81", 2) + std::string(Mask) + "b";
    }
    flood += "\x80\x81" + std::string(Mask) + "c";
    client.send(flood);
    const auto [first, payload] = readFrame(client);
    EXPECT_EQ(payload.size(), Count + 2U);
    expectService();
}

TEST_F(HostileWebSocket, FloodOfEmptyMessagesIsEchoed) {
    constexpr int Count = 20000;
    RawClient client = openWebSocket(server_.port());
    std::string flood;
    for (int i = 0; i < Count; ++i) {
        flood += textFrame("");
    }
    client.send(flood);
    for (int i = 0; i < Count; ++i) {
        ASSERT_THAT(readFrame(client).second, IsEmpty());
    }
}

TEST_F(HostileWebSocket, FloodOfPingsIsAFloodOfMessages) {
    RawClient client = openWebSocket(server_.port());
    std::string flood;
    for (int i = 0; i < 1000; ++i) {
        flood += clientFrame("p", 9);
    }
    client.send(flood);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(readFrame(client).second, "p");
    }
}

TEST_F(HostileWebSocket, MessageWithoutEndGrowsUntilItsClientLeaves) {
    // Nothing in the library bounds a message: what bounds it is how much the client can send.
    RawClient client = openWebSocket(server_.port());
    const std::string fragment =
        std::string("\x00\xFF\0\0\0\0\0\x10\0\0", 10) + std::string(Mask) + std::string(1U << 20U, 'a');
    client.send("\x02\x81" + std::string(Mask) + "a");
    for (int i = 0; i < 16; ++i) {
        client.send(fragment);
    }
    expectService();
    EXPECT_GE(alive_, 1);
    client.reset();
    expectAllGone();
}

TEST_F(HostileWebSocket, PeerThatClosesInsideAHeaderIsForgotten) {
    const std::string frame = "\x82\xFF" + std::string("\0\0\0\0\0\0\0\3", 8) + std::string(Mask) + "abc";
    for (std::size_t size = 1; size < frame.size(); ++size) {
        RawClient client = openWebSocket(server_.port());
        client.send(frame.substr(0, size));
        if (size % 2 == 0) {
            client.endSending();
            EXPECT_THAT(client.readToEnd(), IsEmpty());
        } else {
            client.reset();
        }
    }
    expectAllGone();
    expectService();
}

TEST_F(HostileWebSocket, RejectedFrameEndsTheConnectionWithoutAWord) {
    for (const int first : {0x83, 0x8B, 0x80, 0x88, 0x00}) {
        RawClient client = openWebSocket(server_.port());
        client.send(std::string(1, static_cast<char>(first)) + "\x80" + std::string(Mask));
        EXPECT_THAT(client.readToEnd(), IsEmpty());
    }
    expectAllGone();
}

TEST_F(HostileWebSocket, FramesBeforeTheHandshakesAnswerAreLostOrRead) {
    // What the engine has read beyond the handshake is not passed on; what it has not read is.
    RawClient client(server_.port());
    client.send(get("/socket", "Upgrade: WebSocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                               "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n") +
                textFrame("too early"));
    EXPECT_EQ(client.readHead().status, 101);
    client.send(textFrame("in time"));
    std::string echo = readFrame(client).second;
    if (echo == "too early") {
        echo = readFrame(client).second;
    }
    EXPECT_EQ(echo, "in time");
}

class Talker;

/// The one connection that the test writes to, while it lives. The lock keeps it alive, as an application's must.
struct TalkerSlot {
    std::mutex mutex;
    Talker* talker = nullptr;

    bool isTaken() {
        const std::lock_guard lock(mutex);
        return talker != nullptr;
    }
};

class Talker : public ql::http::WebSocket {
public:
    Talker(ql::http::WebSocket&& accepted, TalkerSlot& slot) : WebSocket(std::move(accepted)), slot_(slot) {
        const std::lock_guard lock(slot_.mutex);
        slot_.talker = this;
    }
    ~Talker() override {
        const std::lock_guard lock(slot_.mutex);
        slot_.talker = nullptr;
    }

    void onMessageReceived(std::vector<unsigned char>& /*message*/, bool /*isBinary*/) override {}

private:
    TalkerSlot& slot_;
};

class SlowWebSocketReader : public ServerTest {};

TEST_F(SlowWebSocketReader, GrowsTheQueueByWhatIsWrittenAndIsNeitherWaitedForNorCutOff) {
    TalkerSlot slot;
    TestImpl::Behaviour behaviour;
    behaviour.webSocketThreads = 1;
    behaviour.onWebSocket = [&](ql::http::WebSocketThread& pool, ql::http::WebSocket* accepted) {
        const std::unique_ptr<ql::http::WebSocket> source(accepted);
        std::unique_ptr<ql::http::WebSocket> socket = std::make_unique<Talker>(std::move(*source), slot);
        pool.addWebSocket(socket);
    };
    TestServer server(behaviour, TestServer::parametersWithWebSockets());

    RawClient client = openWebSocket(server.port());
    ASSERT_TRUE(waitUntil([&] { return slot.isTaken(); }));
    {
        const std::lock_guard lock(slot.mutex);
        const std::string message(100000, 'm');
        for (int i = 0; i < 100; ++i) {
            slot.talker->writeMessage(message.data(), message.size(), true);
        }
        EXPECT_TRUE(slot.talker->hasWritePending());
    }
    // Only the application can hold the writer up, or cut the peer off.
    client.reset();
    EXPECT_TRUE(waitUntil([&] { return !slot.isTaken(); }));
}

} // namespace
} // namespace vireotest
