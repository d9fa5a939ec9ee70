#include "vireo/WebSocket.h"

#include "vireo/support/qlThread.h"
#include "websocket/Fakes.h"
#include "websocket/Internals.h"
#include "websocket/pool/PollSet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <thread>
#include <type_traits>

using namespace wstest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr std::uint64_t BlockSize = 1024;
/// Most blocks of one receiving or sending call.
constexpr std::uint64_t MostBlocks = ql::impl::MostSocketBuffers;
constexpr unsigned char TextFin = 0x81;
constexpr unsigned char BinaryFin = 0x82;
constexpr std::uint64_t NoSocket = ~std::uint64_t{0};

Bytes textFrame(const std::string& text) {
    return clientFrame(TextFin, toBytes(text));
}

Message text(const std::string& payload) {
    return {toBytes(payload), false};
}

/// Connection on a scripted socket.
class WebSocketScript : public testing::Test {
protected:
    ScriptedSocket script;
    RecordingSocket socket{SomeSocket, nullptr};
};

/// Does with each message what the test says.
class CallbackSocket : public ql::http::WebSocket {
public:
    using Callback = std::function<void(WebSocket&, std::vector<unsigned char>&, bool)>;
    CallbackSocket(std::uint64_t socket, void* handle, Callback callback)
        : WebSocket(socket, handle), callback_(std::move(callback)) {}
    void onMessageReceived(std::vector<unsigned char>& message, bool isBinary) override {
        callback_(*this, message, isBinary);
    }

private:
    Callback callback_;
};

/// Turns of a worker until there is nothing to do, without sending.
bool readUntilQuiet(ql::http::WebSocket& socket) {
    for (int turn = 0; turn < 1000; ++turn) {
        if (!socket.readDataIfAvailable()) {
            return false;
        }
        if (!socket.hasReadPending()) {
            return true;
        }
    }
    ADD_FAILURE() << "the connection never rests";
    return false;
}

} // namespace

static_assert(std::has_virtual_destructor_v<ql::http::WebSocket>);
static_assert(!std::is_copy_constructible_v<ql::http::WebSocket>);

TEST_F(WebSocketScript, NewConnectionIsIdleAndEmpty) {
    EXPECT_EQ(socket.getSocket(), SomeSocket);
    EXPECT_FALSE(socket.hasReadPending());
    EXPECT_FALSE(socket.hasWritePending());
    EXPECT_EQ(incoming(socket).blockCount(), 0U);
    EXPECT_EQ(outgoing(socket).blockCount(), 0U);
}

TEST_F(WebSocketScript, ReadFlagCanOnlyBeRaised) {
    socket.setReadEnabled(false);
    EXPECT_FALSE(socket.hasReadPending());
    socket.setReadEnabled(true);
    EXPECT_TRUE(socket.hasReadPending());
    socket.setReadEnabled(false);
    EXPECT_TRUE(socket.hasReadPending());
}

TEST_F(WebSocketScript, WithoutTheReadFlagNothingIsReceived) {
    script.willReceive(textFrame("hello"));
    EXPECT_TRUE(socket.readDataIfAvailable());
    EXPECT_THAT(script.receiveSizes, IsEmpty());
    EXPECT_THAT(socket.messages, IsEmpty());
}

TEST_F(WebSocketScript, CompleteFrameEndsTheTurnWithTheFlagRaised) {
    script.willReceive(textFrame("hello"));
    script.willReceive(textFrame("again"));
    socket.setReadEnabled(true);
    EXPECT_TRUE(socket.readDataIfAvailable());
    EXPECT_THAT(socket.messages, ElementsAre(text("hello")));
    EXPECT_THAT(script.receiveSizes, SizeIs(1));
    EXPECT_TRUE(socket.hasReadPending());
}

TEST_F(WebSocketScript, WouldBlockClearsTheFlag) {
    socket.setReadEnabled(true);
    EXPECT_TRUE(socket.readDataIfAvailable());
    EXPECT_FALSE(socket.hasReadPending());
}

TEST_F(WebSocketScript, WouldBlockParsesOneMoreFrame) {
    feed(socket, textFrame("buffered"));
    socket.setReadEnabled(true);
    EXPECT_TRUE(socket.readDataIfAvailable());
    EXPECT_THAT(socket.messages, ElementsAre(text("buffered")));
    EXPECT_FALSE(socket.hasReadPending());
}

TEST_F(WebSocketScript, WouldBlockWithABadFrameBufferedFails) {
    feed(socket, clientFrame(0x88, {}));
    socket.setReadEnabled(true);
    EXPECT_FALSE(socket.readDataIfAvailable());
}

TEST_F(WebSocketScript, WouldBlockKeepsTheFlagWhileBytesRemainBehindAFrame) {
    feed(socket, concatenate({textFrame("one"), textFrame("two")}));
    socket.setReadEnabled(true);
    EXPECT_TRUE(socket.readDataIfAvailable());
    EXPECT_THAT(socket.messages, ElementsAre(text("one")));
    EXPECT_TRUE(socket.hasReadPending());
    EXPECT_TRUE(socket.readDataIfAvailable());
    EXPECT_THAT(socket.messages, ElementsAre(text("one"), text("two")));
    EXPECT_FALSE(socket.hasReadPending());
}

TEST_F(WebSocketScript, WouldBlockWithHalfAFrameWaitsForThePeer) {
    const Bytes frame = textFrame("hello");
    script.willReceive(Bytes(frame.begin(), frame.begin() + 8));
    socket.setReadEnabled(true);
    EXPECT_TRUE(socket.readDataIfAvailable());
    EXPECT_FALSE(socket.hasReadPending());
    EXPECT_THAT(socket.messages, IsEmpty());

    script.willReceive(Bytes(frame.begin() + 8, frame.end()));
    socket.setReadEnabled(true);
    EXPECT_TRUE(socket.readDataIfAvailable());
    EXPECT_THAT(socket.messages, ElementsAre(text("hello")));
}

TEST_F(WebSocketScript, WouldBlockAtEveryPointOfAStreamLosesNothing) {
    const Bytes stream =
        concatenate({textFrame("one"), clientFrame(BinaryFin, pattern(2000)), textFrame(""), textFrame("four")});
    for (std::size_t first = 0; first <= stream.size(); ++first) {
        RecordingSocket connection(SomeSocket, nullptr);
        const auto cut = stream.begin() + static_cast<std::ptrdiff_t>(first);
        for (const Bytes& part : {Bytes(stream.begin(), cut), Bytes(cut, stream.end())}) {
            if (!part.empty()) {
                script.willReceive(part);
            }
            connection.setReadEnabled(true);
            ASSERT_TRUE(readUntilQuiet(connection));
        }
        ASSERT_TRUE(connection.messages ==
                    (std::vector<Message>{text("one"), {pattern(2000), true}, text(""), text("four")}))
            << "cut at " << first;
    }
}

TEST_F(WebSocketScript, ReceiveErrorFails) {
    script.willReceiveError(SocketError::ConnectionReset);
    socket.setReadEnabled(true);
    EXPECT_FALSE(socket.readDataIfAvailable());
}

TEST_F(WebSocketScript, ReceiveErrorAtEveryPointFails) {
    const Bytes stream = clientFrame(TextFin, pattern(3000));
    for (std::size_t first = 1; first < stream.size(); first += 97) {
        RecordingSocket connection(SomeSocket, nullptr);
        script.willReceive(Bytes(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(first)));
        script.willReceiveError(SocketError::ConnectionReset);
        connection.setReadEnabled(true);
        ASSERT_FALSE(connection.readDataIfAvailable()) << first;
    }
}

TEST_F(WebSocketScript, BadFrameFails) {
    script.willReceive(clientFrame(0x8B, {}));
    socket.setReadEnabled(true);
    EXPECT_FALSE(socket.readDataIfAvailable());
}

TEST_F(WebSocketScript, FullBlockIsFollowedByAFreshOne) {
    script.willReceive(clientFrame(TextFin, pattern(3000)));
    socket.setReadEnabled(true);
    EXPECT_TRUE(socket.readDataIfAvailable());
    EXPECT_THAT(socket.messages, ElementsAre(Message{pattern(3000), false}));
    EXPECT_THAT(script.receiveSizes, ElementsAre(BlockSize, MostBlocks * BlockSize));
}

TEST_F(WebSocketScript, ReceiveIntoSeveralBlocksMayEndAnywhere) {
    const Bytes payload = pattern(5000);
    const Bytes frame = clientFrame(BinaryFin, payload);
    for (std::size_t count = BlockSize + 1; count < frame.size(); ++count) {
        RecordingSocket connection(SomeSocket, nullptr);
        const auto cut = frame.begin() + static_cast<std::ptrdiff_t>(count);
        script.willReceive(Bytes(frame.begin(), cut));
        connection.setReadEnabled(true);
        ASSERT_TRUE(connection.readDataIfAvailable());
        ASSERT_EQ(incoming(connection).size(), count);
        ASSERT_EQ(incoming(connection).blockCount(), (count + BlockSize - 1) / BlockSize) << "no empty block is kept";

        script.willReceive(Bytes(cut, frame.end()));
        connection.setReadEnabled(true);
        ASSERT_TRUE(connection.readDataIfAvailable());
        ASSERT_TRUE(connection.messages == std::vector<Message>({{payload, true}})) << "received " << count;
        ASSERT_EQ(incoming(connection).size(), 0U);
    }
}

TEST_F(WebSocketScript, FloodOfSmallFramesIsReceivedNoFasterThanItIsDelivered) {
    constexpr std::size_t Limit = (2 * MostBlocks + 1) * BlockSize;
    const std::size_t frames = 4 * Limit / textFrame("x").size();
    Bytes flood;
    for (std::size_t i = 0; i < frames; ++i) {
        const Bytes frame = textFrame("x");
        flood.insert(flood.end(), frame.begin(), frame.end());
    }
    script.willReceive(flood);
    socket.setReadEnabled(true);
    std::size_t most = 0;
    for (std::size_t turn = 1; turn <= frames; ++turn) {
        ASSERT_TRUE(socket.readDataIfAvailable());
        ASSERT_THAT(socket.messages, SizeIs(turn)) << "one frame a turn";
        ASSERT_TRUE(socket.hasReadPending() || turn == frames);
        most = std::max(most, static_cast<std::size_t>(incoming(socket).size()));
    }
    EXPECT_LE(most, Limit);
}

TEST_F(WebSocketScript, BadFrameInAFloodFails) {
    Bytes flood = textFrame("x");
    for (const Bytes& part : {clientFrame(0x8B, {}), pattern(3 * MostBlocks * BlockSize)}) {
        flood.insert(flood.end(), part.begin(), part.end());
    }
    feed(socket, flood);
    socket.setReadEnabled(true);
    EXPECT_TRUE(socket.readDataIfAvailable());
    EXPECT_FALSE(socket.readDataIfAvailable());
    EXPECT_THAT(script.receiveSizes, IsEmpty());
}

TEST_F(WebSocketScript, FrameLargerThanAnyReceiveIsReceivedWhole) {
    const Bytes payload = pattern(300 * BlockSize);
    script.willReceive(clientFrame(BinaryFin, payload));
    socket.setReadEnabled(true);
    EXPECT_TRUE(socket.readDataIfAvailable());
    EXPECT_TRUE(socket.messages == std::vector<Message>({{payload, true}}));
}

TEST_F(WebSocketScript, Exactly1024BytesAreReceivedWhole) {
    script.willReceive(clientFrame(TextFin, pattern(BlockSize - 8)));
    socket.setReadEnabled(true);
    EXPECT_TRUE(socket.readDataIfAvailable());
    EXPECT_THAT(socket.messages, ElementsAre(Message{pattern(BlockSize - 8), false}));
    EXPECT_EQ(incoming(socket).blockCount(), 0U);

    EXPECT_TRUE(socket.readDataIfAvailable());
    EXPECT_FALSE(socket.hasReadPending());
    EXPECT_THAT(script.receiveSizes, ElementsAre(BlockSize, BlockSize));
}

TEST_F(WebSocketScript, PartlyFilledBlockIsFilledUp) {
    script.willReceive(Bytes{TextFin});
    script.willReceive(Bytes{0x80});
    script.willReceive(Bytes{0, 0, 0, 0});
    socket.setReadEnabled(true);
    EXPECT_TRUE(socket.readDataIfAvailable());
    EXPECT_THAT(script.receiveSizes, ElementsAre(BlockSize, BlockSize - 1, BlockSize - 2));
    EXPECT_THAT(socket.messages, ElementsAre(text("")));
}

TEST_F(WebSocketScript, ClosedPeerWithNothingBufferedFails) {
    script.peerWillClose();
    socket.setReadEnabled(true);
    EXPECT_FALSE(socket.readDataIfAvailable());
}

TEST_F(WebSocketScript, ClosedPeerWithHalfAFrameFails) {
    const Bytes frame = textFrame("hello");
    script.willReceive(Bytes(frame.begin(), frame.end() - 1));
    script.peerWillClose();
    socket.setReadEnabled(true);
    EXPECT_FALSE(socket.readDataIfAvailable());
    EXPECT_THAT(socket.messages, IsEmpty());
}

TEST_F(WebSocketScript, WholeFramesOfAClosedPeerAreDeliveredOneByOne) {
    const Bytes half = textFrame("lost");
    script.willReceive(
        concatenate({textFrame("one"), textFrame("two"), textFrame("three"), Bytes(half.begin(), half.end() - 1)}));
    script.peerWillClose();
    socket.setReadEnabled(true);
    for (std::size_t turn = 1; turn <= 3; ++turn) {
        ASSERT_TRUE(socket.readDataIfAvailable());
        ASSERT_THAT(socket.messages, SizeIs(turn));
        ASSERT_TRUE(socket.hasReadPending());
    }
    EXPECT_FALSE(socket.readDataIfAvailable());
    EXPECT_THAT(socket.messages, ElementsAre(text("one"), text("two"), text("three")));
}

TEST_F(WebSocketScript, BadFrameOfAClosedPeerFails) {
    script.willReceive(concatenate({textFrame("one"), clientFrame(0x88, {})}));
    script.peerWillClose();
    socket.setReadEnabled(true);
    EXPECT_TRUE(socket.readDataIfAvailable());
    EXPECT_FALSE(socket.readDataIfAvailable());
}

TEST_F(WebSocketScript, BurstsOfFramesInOneSegmentAreDeliveredWithoutAnotherReadiness) {
    for (int count = 1; count <= 100; ++count) {
        Bytes burst;
        std::vector<Message> expected;
        for (int i = 0; i < count; ++i) {
            const Bytes frame = textFrame(std::to_string(i));
            burst.insert(burst.end(), frame.begin(), frame.end());
            expected.push_back(text(std::to_string(i)));
        }
        for (const std::size_t tail : {std::size_t{0}, std::size_t{1}, std::size_t{8}}) {
            RecordingSocket connection(SomeSocket, nullptr);
            const Bytes next = textFrame("the next");
            const auto cut = next.begin() + static_cast<std::ptrdiff_t>(tail);
            script.willReceive(concatenate({burst, Bytes(next.begin(), cut)}));
            connection.setReadEnabled(true);
            ASSERT_TRUE(readUntilQuiet(connection));
            ASSERT_TRUE(connection.messages == expected) << count << " frames and " << tail << " bytes";

            script.willReceive(Bytes(cut, next.end()));
            connection.setReadEnabled(true);
            ASSERT_TRUE(readUntilQuiet(connection));
            ASSERT_EQ(connection.messages.size(), expected.size() + 1);
        }
    }
}

TEST_F(WebSocketScript, IdleConnectionHoldsNoBlocks) {
    script.willReceive(textFrame("hello"));
    socket.setReadEnabled(true);
    ASSERT_TRUE(readUntilQuiet(socket));
    EXPECT_EQ(incoming(socket).blockCount(), 0U);

    socket.writeMessage("hello", 5, false);
    EXPECT_TRUE(socket.sendDataIfAvailable());
    EXPECT_EQ(outgoing(socket).blockCount(), 0U);
}

TEST_F(WebSocketScript, ConnectionClosedByItsOwnHandlerIsReported) {
    for (const bool atWouldBlock : {false, true}) {
        CallbackSocket closing(SomeSocket, nullptr, [](auto& self, auto&, bool) { self.markForDeletion(); });
        if (atWouldBlock) {
            feed(closing, textFrame("bye"));
        } else {
            script.willReceive(textFrame("bye"));
        }
        closing.setReadEnabled(true);
        EXPECT_FALSE(closing.readDataIfAvailable());
    }
}

TEST_F(WebSocketScript, ExceptionOfTheHandlerLeavesTheRead) {
    CallbackSocket throwing(SomeSocket, nullptr, [](auto&, auto&, bool) { throw std::runtime_error("no"); });
    script.willReceive(textFrame("hello"));
    throwing.setReadEnabled(true);
    EXPECT_THROW(throwing.readDataIfAvailable(), std::runtime_error);
}

TEST_F(WebSocketScript, HandlerRunsWithoutTheLock) {
    CallbackSocket replying(SomeSocket, nullptr, [](auto& self, auto& message, bool isBinary) {
        self.writeMessage(message.data(), message.size(), isBinary);
        EXPECT_TRUE(self.hasWritePending());
        EXPECT_TRUE(self.sendDataIfAvailable());
        EXPECT_FALSE(self.hasWritePending());
    });
    script.willReceive(textFrame("hello"));
    replying.setReadEnabled(true);
    EXPECT_TRUE(replying.readDataIfAvailable());
    EXPECT_EQ(script.sent, concatenate({{TextFin, 5}, toBytes("hello")}));
}

TEST_F(WebSocketScript, SendingNothingSucceedsWithoutACall) {
    EXPECT_TRUE(socket.sendDataIfAvailable());
    EXPECT_THAT(script.sendOffers, IsEmpty());
}

TEST_F(WebSocketScript, WriteOfAnotherThreadOnlyQueues) {
    std::thread worker([&] { socket.assignCurrentThread(); });
    worker.join();
    socket.writeMessage("hello", 5, false);
    EXPECT_THAT(script.sendOffers, IsEmpty());
    EXPECT_TRUE(socket.hasWritePending());
}

TEST_F(WebSocketScript, WriteWithoutAServingThreadOnlyQueues) {
    socket.assignCurrentThread();
    socket.clearCurrentThread();
    socket.writeMessage("hello", 5, false);
    EXPECT_THAT(script.sendOffers, IsEmpty());
    EXPECT_TRUE(socket.hasWritePending());
}

TEST_F(WebSocketScript, WriteOfTheServingThreadGoesOutAtOnce) {
    socket.assignCurrentThread();
    socket.writeMessage("hello", 5, false);
    EXPECT_EQ(script.sent, concatenate({{TextFin, 5}, toBytes("hello")}));
    EXPECT_FALSE(socket.hasWritePending());
}

TEST_F(WebSocketScript, RestOfAWriteIsNotedExceptInAWorkersTurn) {
    const auto waker = std::make_shared<ql::impl::PollWaker>();
    for (const bool isWorker : {false, true}) {
        CallbackSocket replying(SomeSocket, nullptr, [&](auto& self, auto&, bool) {
            script.willAccept(3);
            script.willRefuse(SocketError::WouldBlock);
            self.writeMessage("hello", 5, false);
            EXPECT_TRUE(self.hasWritePending());
        });
        ql::impl::WebSocketState& state = ql::impl::WebSocketState::of(replying);
        state.setPollWaker(waker);
        script.willReceive(textFrame("x"));
        replying.setReadEnabled(true);
        if (isWorker) {
            EXPECT_TRUE(state.serve());
            EXPECT_FALSE(waker->takeNotedWrite()) << "the worker gives it back and looks";
        } else {
            replying.assignCurrentThread();
            EXPECT_TRUE(replying.readDataIfAvailable());
            EXPECT_TRUE(waker->takeNotedWrite());
        }
        // After the turn as well, although the thread still has its mark.
        EXPECT_TRUE(replying.sendDataIfAvailable());
        replying.assignCurrentThread();
        script.willAccept(3);
        script.willRefuse(SocketError::WouldBlock);
        replying.writeMessage("hello", 5, false);
        EXPECT_TRUE(waker->takeNotedWrite());
    }
}

TEST_F(WebSocketScript, FailureOfTheImmediateSendIsLeftToTheWorker) {
    socket.assignCurrentThread();
    script.willRefuse(SocketError::ConnectionReset);
    socket.writeMessage("hello", 5, false);
    EXPECT_TRUE(socket.hasWritePending());
    script.willRefuse(SocketError::ConnectionReset);
    EXPECT_FALSE(socket.sendDataIfAvailable());
}

TEST_F(WebSocketScript, WrittenDataIsCopied) {
    Bytes data = toBytes("hello");
    socket.writeMessage(data.data(), data.size(), true);
    std::fill(data.begin(), data.end(), 'x');
    EXPECT_TRUE(socket.sendDataIfAvailable());
    EXPECT_EQ(script.sent, concatenate({{BinaryFin, 5}, toBytes("hello")}));
}

TEST_F(WebSocketScript, WouldBlockOnSendingIsNoFailure) {
    socket.writeMessage("hello", 5, false);
    script.willRefuse(SocketError::WouldBlock);
    EXPECT_TRUE(socket.sendDataIfAvailable());
    EXPECT_TRUE(socket.hasWritePending());
    EXPECT_TRUE(socket.sendDataIfAvailable());
    EXPECT_FALSE(socket.hasWritePending());
    EXPECT_EQ(script.sent, concatenate({{TextFin, 5}, toBytes("hello")}));
}

TEST_F(WebSocketScript, SendErrorFailsAndKeepsTheQueue) {
    socket.writeMessage("hello", 5, false);
    script.willRefuse(SocketError::ConnectionReset);
    EXPECT_FALSE(socket.sendDataIfAvailable());
    EXPECT_EQ(queued(socket).size(), 7U);
}

TEST_F(WebSocketScript, PartialSendGoesOnWhereItStopped) {
    socket.writeMessage("hello", 5, false);
    script.willAccept(3);
    script.willRefuse(SocketError::WouldBlock);
    EXPECT_TRUE(socket.sendDataIfAvailable());
    EXPECT_EQ(queued(socket), toBytes("ello"));
    EXPECT_TRUE(socket.sendDataIfAvailable());
    EXPECT_EQ(script.sent, concatenate({{TextFin, 5}, toBytes("hello")}));
}

TEST_F(WebSocketScript, WouldBlockAtEveryPointOfSendingLosesNothing) {
    RecordingSocket reference(SomeSocket, nullptr);
    const Bytes payload = pattern(2500);
    reference.writeMessage(payload.data(), payload.size(), true);
    const Bytes expected = queued(reference);
    for (std::size_t accepted = 0; accepted < expected.size(); ++accepted) {
        RecordingSocket connection(SomeSocket, nullptr);
        connection.writeMessage(payload.data(), payload.size(), true);
        script.sent.clear();
        script.sendOffers.clear();
        std::uint64_t left = accepted;
        while (left > 0) {
            const std::uint64_t part = std::min(left, BlockSize);
            script.willAccept(part);
            left -= part;
        }
        script.willRefuse(SocketError::WouldBlock);
        ASSERT_TRUE(connection.sendDataIfAvailable());
        ASSERT_EQ(script.sent.size(), accepted);
        ASSERT_TRUE(connection.sendDataIfAvailable());
        ASSERT_TRUE(script.sent == expected) << "would block after " << accepted;
        ASSERT_FALSE(connection.hasWritePending());
    }
}

TEST_F(WebSocketScript, QueuedBlocksAreOfferedTogether) {
    const Bytes payload = pattern(5000);
    socket.writeMessage(payload.data(), payload.size(), true);
    const Bytes expected = queued(socket);
    EXPECT_TRUE(socket.sendDataIfAvailable());
    ASSERT_THAT(script.sendOffers, SizeIs(1));
    EXPECT_TRUE(script.sendOffers[0] == expected);
}

TEST_F(WebSocketScript, OneSendOffersNoMoreBlocksThanACallTakes) {
    const Bytes payload = pattern(2 * MostBlocks * BlockSize);
    socket.writeMessage(payload.data(), payload.size(), true);
    EXPECT_TRUE(socket.sendDataIfAvailable());
    ASSERT_THAT(script.sendOffers, SizeIs(3));
    EXPECT_THAT(script.sendOffers[0], SizeIs(MostBlocks * BlockSize));
    EXPECT_THAT(script.sendOffers[1], SizeIs(MostBlocks * BlockSize));
}

TEST_F(WebSocketScript, SendOfSeveralBlocksMayEndAnywhere) {
    RecordingSocket reference(SomeSocket, nullptr);
    const Bytes payload = pattern(3000);
    reference.writeMessage(payload.data(), payload.size(), true);
    const Bytes expected = queued(reference);
    for (std::size_t accepted = 1; accepted < expected.size(); ++accepted) {
        RecordingSocket connection(SomeSocket, nullptr);
        connection.writeMessage(payload.data(), payload.size(), true);
        script.sent.clear();
        script.willAccept(accepted);
        script.willRefuse(SocketError::WouldBlock);
        ASSERT_TRUE(connection.sendDataIfAvailable());
        ASSERT_EQ(outgoing(connection).size(), expected.size() - accepted);
        ASSERT_EQ(outgoing(connection).blockCount(), 3 - accepted / BlockSize);
        ASSERT_TRUE(connection.sendDataIfAvailable());
        ASSERT_TRUE(script.sent == expected) << "accepted " << accepted;
    }
}

TEST_F(WebSocketScript, MessageWrittenBetweenPartialSendsFollows) {
    const Bytes one = pattern(1500);
    socket.writeMessage(one.data(), one.size(), true);
    script.willAccept(700);
    script.willRefuse(SocketError::WouldBlock);
    EXPECT_TRUE(socket.sendDataIfAvailable());
    socket.writeMessage("two", 3, false);
    EXPECT_TRUE(socket.sendDataIfAvailable());

    const std::vector<ServerFrame> frames = parseServerFrames(script.sent);
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_TRUE(frames[0].payload == one);
    EXPECT_EQ(toText(frames[1].payload), "two");
}

TEST_F(WebSocketScript, BlocksAreReleasedAsTheyAreSent) {
    const Bytes payload = pattern(5000);
    socket.writeMessage(payload.data(), payload.size(), true);
    EXPECT_EQ(outgoing(socket).blockCount(), 5U);
    script.willAccept(BlockSize);
    script.willAccept(BlockSize);
    script.willAccept(1);
    script.willRefuse(SocketError::WouldBlock);
    EXPECT_TRUE(socket.sendDataIfAvailable());
    EXPECT_EQ(outgoing(socket).blockCount(), 3U);
    EXPECT_EQ(outgoing(socket).size(), 5004 - 2 * BlockSize - 1);
}

TEST_F(WebSocketScript, FullBlockIsFollowedByAFreshOneWhenWriting) {
    const Bytes payload = pattern(BlockSize - 4);
    socket.writeMessage(payload.data(), payload.size(), true);
    EXPECT_EQ(outgoing(socket).blockCount(), 1U);
    EXPECT_TRUE(outgoing(socket).endsWithFullBlock());
    socket.writeMessage("x", 1, true);
    EXPECT_EQ(outgoing(socket).blockCount(), 2U);
    EXPECT_EQ(outgoing(socket).size(), BlockSize + 3);
    EXPECT_TRUE(socket.sendDataIfAvailable());
    EXPECT_EQ(parseServerFrames(script.sent).size(), 2U);
    EXPECT_EQ(outgoing(socket).blockCount(), 0U);
}

TEST_F(WebSocketScript, DefaultHandlerAnswersWithTheFixedReply) {
    ql::http::WebSocket plain(SomeSocket, nullptr);
    script.willReceive(textFrame("whatever"));
    plain.assignCurrentThread();
    plain.setReadEnabled(true);
    EXPECT_TRUE(plain.readDataIfAvailable());

    std::string reply;
    for (int i = 0; i < 32751; ++i) {
        reply += "response";
    }
    ASSERT_EQ(reply.size(), 262008U);
    const Bytes payload = toBytes(reply);
    const auto part = [&](std::size_t begin, std::size_t end) {
        return Bytes(payload.begin() + static_cast<std::ptrdiff_t>(begin),
                     payload.begin() + static_cast<std::ptrdiff_t>(end));
    };
    const Bytes expected = concatenate({{0x02, 0x7F, 0, 0, 0, 0, 0, 0x01, 0xFF, 0xB8},
                                        part(0, 131000),
                                        {0x00, 0x7F, 0, 0, 0, 0, 0, 0x01, 0xFF, 0xB8},
                                        part(131000, 262000),
                                        {0x80, 0x08},
                                        part(262000, 262008)});
    EXPECT_TRUE(script.sent == expected);
}

TEST(WebSocketClosing, ClosingTwiceClosesOnce) {
    FakeEngine engine;
    UpgradeHandle handle;
    RecordingSocket socket(handle.sockets.server, &handle);
    socket.markForDeletion();
    EXPECT_EQ(handle.closes.count(), 1U);
    EXPECT_EQ(socket.getSocket(), NoSocket);
    socket.markForDeletion();
    EXPECT_EQ(handle.closes.count(), 1U);
    EXPECT_EQ(socket.getSocket(), NoSocket);
}

TEST(WebSocketClosing, WithoutAHandleOnlyTheSocketIsForgotten) {
    RecordingSocket socket(SomeSocket, nullptr);
    socket.markForDeletion();
    EXPECT_EQ(socket.getSocket(), NoSocket);
}

TEST(WebSocketClosing, DestructorDoesNotClose) {
    FakeEngine engine;
    UpgradeHandle handle;
    { RecordingSocket socket(handle.sockets.server, &handle); }
    EXPECT_EQ(handle.closes.count(), 0U);
    EXPECT_TRUE(sendAll(handle.sockets.server, {1}));
    EXPECT_EQ(receiveExactly(handle.sockets.client, 1), Bytes{1});
}

TEST(WebSocketClosing, ClosedConnectionFailsToReadAndSend) {
    FakeEngine engine;
    UpgradeHandle handle;
    RecordingSocket socket(handle.sockets.server, &handle);
    socket.writeMessage("x", 1, false);
    socket.setReadEnabled(true);
    socket.markForDeletion();
    EXPECT_FALSE(socket.sendDataIfAvailable());
    EXPECT_FALSE(socket.readDataIfAvailable());
}

TEST(WebSocketTakeOver, TakesSocketHandleAndQueuesAndLeavesTheOtherClosed) {
    FakeEngine engine;
    UpgradeHandle handle;
    ql::http::WebSocket accepted(handle.sockets.server, &handle);
    const Bytes first = clientFrame(0x01, toBytes("first, "));
    const Bytes second = clientFrame(0x80, toBytes("second"));
    feed(accepted, concatenate({first, second}));
    EXPECT_EQ(tryToReadFrame(accepted), Status::FrameComplete);
    accepted.setReadEnabled(true);
    accepted.writeMessage("queued", 6, false);

    RecordingSocket socket(std::move(accepted));
    EXPECT_EQ(socket.getSocket(), handle.sockets.server);
    EXPECT_TRUE(socket.hasReadPending());
    EXPECT_TRUE(socket.hasWritePending());
    EXPECT_EQ(queued(socket), concatenate({{TextFin, 6}, toBytes("queued")}));
    EXPECT_EQ(tryToReadFrame(socket), Status::FrameComplete);
    EXPECT_THAT(socket.messages, ElementsAre(text("first, second")));

    EXPECT_EQ(accepted.getSocket(), NoSocket);
    EXPECT_FALSE(accepted.hasReadPending());
    EXPECT_FALSE(accepted.hasWritePending());
    EXPECT_EQ(incoming(accepted).size(), 0U);
    EXPECT_EQ(incoming(accepted).blockCount(), 0U);
    EXPECT_EQ(outgoing(accepted).blockCount(), 0U);
    EXPECT_FALSE(isMessageOpen(accepted));
    accepted.markForDeletion();
    EXPECT_EQ(handle.closes.count(), 0U);
    socket.markForDeletion();
    EXPECT_EQ(handle.closes.count(), 1U);
}

TEST(WebSocketTakeOver, TypeOfTheMessageInProgressGoesAlong) {
    ql::http::WebSocket accepted(SomeSocket, nullptr);
    feed(accepted, clientFrame(0x02, toBytes("binary")));
    EXPECT_EQ(tryToReadFrame(accepted), Status::FrameComplete);

    RecordingSocket socket(std::move(accepted));
    feed(socket, clientFrame(0x81, toBytes(" to the end")));
    EXPECT_EQ(tryToReadFrame(socket), Status::FrameComplete);
    EXPECT_THAT(socket.messages, ElementsAre(Message{toBytes("binary to the end"), true}));
}

TEST(WebSocketTakeOver, QueuesStayUsable) {
    ScriptedSocket script;
    ql::http::WebSocket accepted(SomeSocket, nullptr);
    feed(accepted, {TextFin});
    accepted.setReadEnabled(true);
    const Bytes payload = pattern(1500);
    accepted.writeMessage(payload.data(), payload.size(), true);
    script.willAccept(600);
    script.willRefuse(SocketError::WouldBlock);
    EXPECT_TRUE(accepted.sendDataIfAvailable());

    RecordingSocket socket(std::move(accepted));
    socket.writeMessage("x", 1, true);
    EXPECT_TRUE(socket.sendDataIfAvailable());
    EXPECT_EQ(parseServerFrames(script.sent).size(), 2U);
    script.willReceive({0x80, 0, 0, 0, 0});
    EXPECT_TRUE(socket.readDataIfAvailable());
    EXPECT_THAT(socket.messages, ElementsAre(text("")));
}

TEST(WebSocketOnSockets, TakenSocketHasNoSendDelay) {
    SocketPair pair;
    RecordingSocket socket(pair.server, nullptr);
    EXPECT_FALSE(hasSendDelay(pair.server));
}

TEST(WebSocketOnSockets, LargeMessageArrivesWholeThroughSmallBuffers) {
    SocketPair pair;
    shrinkBuffers(pair.server);
    RecordingSocket socket(pair.server, nullptr);
    const Bytes payload = pattern(1 << 20);
    socket.writeMessage(payload.data(), payload.size(), true);

    const std::size_t total = queued(socket).size();
    ASSERT_TRUE(socket.sendDataIfAvailable());
    ASSERT_TRUE(socket.hasWritePending()) << "the peer doesn't read yet, and the buffers are small";
    Bytes received;
    std::thread client([&] { received = receiveExactly(pair.client, total); });
    const ql::impl::WakeSignal none;
    ql::impl::PollSet writable(none);
    writable.reserve(1);
    while (socket.hasWritePending()) {
        ASSERT_TRUE(socket.sendDataIfAvailable());
        writable.cutOff(0);
        writable.add(pair.server, true);
        ASSERT_EQ(writable.wait(60000), 1);
    }
    client.join();

    Bytes message;
    for (const ServerFrame& frame : parseServerFrames(received)) {
        message.insert(message.end(), frame.payload.begin(), frame.payload.end());
    }
    EXPECT_TRUE(message == payload);
}

TEST(WebSocketOnSockets, MessagesOfSeveralThreadsNeverMix) {
    constexpr std::size_t ThreadCount = 4;
    constexpr std::size_t PerThread = 20;
    SocketPair pair;
    RecordingSocket socket(pair.server, nullptr);

    // Two fragments each, so that mixing would show in the opcodes as well.
    constexpr std::size_t Size = 131010;
    std::vector<std::thread> writers;
    Counter done;
    for (std::size_t id = 0; id < ThreadCount; ++id) {
        writers.emplace_back([&, id] {
            for (std::size_t i = 0; i < PerThread; ++i) {
                const Bytes payload(Size, static_cast<unsigned char>(id * PerThread + i));
                socket.writeMessage(payload.data(), payload.size(), true);
            }
            done.add();
        });
    }
    Bytes received;
    std::thread client([&] { received = receiveExactly(pair.client, ThreadCount * PerThread * (Size + 12)); });
    const ql::impl::WakeSignal none;
    ql::impl::PollSet writable(none);
    writable.reserve(1);
    while (done.count() < ThreadCount || socket.hasWritePending()) {
        writable.cutOff(0);
        writable.add(pair.server, true);
        ASSERT_EQ(writable.wait(60000), 1);
        ASSERT_TRUE(socket.sendDataIfAvailable());
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    client.join();

    const std::vector<ServerFrame> frames = parseServerFrames(received);
    ASSERT_EQ(frames.size(), 2 * ThreadCount * PerThread);
    std::vector<int> last(ThreadCount, -1);
    for (std::size_t i = 0; i < frames.size(); i += 2) {
        ASSERT_EQ(frames[i].opcode, 2U);
        ASSERT_EQ(frames[i + 1].opcode, 0U);
        ASSERT_TRUE(frames[i + 1].fin);
        const unsigned char mark = frames[i].payload.front();
        ASSERT_TRUE(frames[i].payload == Bytes(131000, mark));
        ASSERT_TRUE(frames[i + 1].payload == Bytes(10, mark));
        const std::size_t id = mark / PerThread;
        const int index = static_cast<int>(mark % PerThread);
        ASSERT_EQ(index, last[id] + 1) << "messages of one thread keep their order";
        last[id] = index;
    }
}
