#include "session/SessionOutput.h"

#include "session/CloseCode.h"
#include "session/SharedMessage.h"
#include "support/FakeClock.h"
#include "websocket/Fakes.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

using namespace ql::impl;
using ql::http::WebSocketOptions;
using ql::http::WebSocketSend;
using wstest::Bytes;
using wstest::ScriptedSocket;
using wstest::SocketError;
using Policy = WebSocketOptions::QueuePolicy;
using Stage = SessionOutput::Stage;

namespace {

constexpr std::uint64_t SomeSocket = 77;
constexpr std::uint64_t Cost = OutgoingQueue::FrameCost;

std::span<const unsigned char> bytesOf(const std::string& text) {
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

/// An open session's output over a socket that follows a script.
class SessionOutputTest : public testing::Test {
protected:
    void open() {
        output.prepare(std::make_shared<SessionSettings>(settings), {});
        output.begin(SomeSocket);
        output.open();
    }

    SendOutcome send(const std::string& text, Sender sender = Sender::Outsider) {
        return output.sendMessage(true, bytesOf(text), sender);
    }

    /// The payloads of what was sent.
    std::vector<std::string> sent() const {
        std::vector<std::string> payloads;
        for (const wstest::ServerFrame& frame : wstest::parseServerFrames(socket.sent)) {
            payloads.push_back(wstest::toText(frame.payload));
        }
        return payloads;
    }

    std::vector<unsigned> opcodes() const {
        std::vector<unsigned> all;
        for (const wstest::ServerFrame& frame : wstest::parseServerFrames(socket.sent)) {
            all.push_back(frame.opcode);
        }
        return all;
    }

    /// The next message finds the socket full.
    void fill() {
        socket.willRefuse(SocketError::WouldBlock);
        EXPECT_EQ(send("w").result, WebSocketSend::Queued);
    }

    std::string closeText(std::uint16_t code) { return {static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)}; }

    SessionSettings settings;
    ScriptedSocket socket;
    SessionOutput output;
};

using Texts = std::vector<std::string>;

} // namespace

TEST_F(SessionOutputTest, NothingIsSentBeforeItIsOpen) {
    output.prepare(std::make_shared<SessionSettings>(settings), {});
    EXPECT_FALSE(output.isOpen());
    EXPECT_EQ(send("early").result, WebSocketSend::Closed);
    EXPECT_EQ(output.ping({}, Sender::Outsider).result, WebSocketSend::Closed);
    EXPECT_EQ(output.openMessage(), WebSocketSend::Closed);
    output.begin(SomeSocket);
    EXPECT_EQ(send("early").result, WebSocketSend::Closed);
    EXPECT_TRUE(socket.sendOffers.empty());
    output.open();
    EXPECT_TRUE(output.isOpen());
}

TEST_F(SessionOutputTest, MessageLeavesAtOnceInOneCall) {
    open();
    const SendOutcome outcome = send("hello");
    EXPECT_EQ(outcome.result, WebSocketSend::Queued);
    EXPECT_FALSE(outcome.needsTurn);
    EXPECT_EQ(socket.sendOffers.size(), 1U);
    EXPECT_EQ(sent(), Texts{"hello"});
    EXPECT_EQ(output.queuedBytes(), 0U);
}

TEST_F(SessionOutputTest, RestOfAMessageWaitsForATurn) {
    open();
    socket.willAccept(4);
    socket.willRefuse(SocketError::WouldBlock);
    EXPECT_TRUE(send("hello").needsTurn);
    EXPECT_EQ(output.queuedBytes(), 3U);
    EXPECT_FALSE(send("next").needsTurn) << "one turn serves both";
    EXPECT_EQ(output.queuedBytes(), 3U + 6U);
    EXPECT_EQ(socket.sendOffers.size(), 2U) << "a full socket is not tried again";
    const SessionOutput::Status status = output.flush();
    EXPECT_TRUE(status.isEmpty);
    EXPECT_TRUE(status.hasProgressed);
    EXPECT_EQ(sent(), (Texts{"hello", "next"}));
}

TEST_F(SessionOutputTest, AnswersOfABusyTurnLeaveTogether) {
    open();
    EXPECT_FALSE(send("one", Sender::BusyTurn).needsTurn);
    EXPECT_FALSE(send("two", Sender::BusyTurn).needsTurn);
    EXPECT_TRUE(socket.sendOffers.empty());
    EXPECT_FALSE(send("three", Sender::OwnTurn).needsTurn);
    EXPECT_EQ(socket.sendOffers.size(), 1U);
    EXPECT_EQ(sent(), (Texts{"one", "two", "three"}));
}

TEST_F(SessionOutputTest, BusyTurnDoesNotCopyLongMessages) {
    open();
    send("one", Sender::BusyTurn);
    send(std::string(20000, 'x'), Sender::BusyTurn);
    EXPECT_EQ(socket.sendOffers.size(), 1U);
    EXPECT_EQ(sent().size(), 2U);
}

TEST_F(SessionOutputTest, ManyFramesThatWaitLeaveInOrder) {
    open();
    for (int i = 0; i < 200; ++i) {
        send(std::to_string(i), Sender::BusyTurn);
    }
    send("last", Sender::OwnTurn);
    EXPECT_EQ(socket.sendOffers.size(), 4U) << "62 frames a call, and the last one with the rest";
    EXPECT_EQ(sent().size(), 201U);
    EXPECT_EQ(sent().back(), "last");
}

TEST_F(SessionOutputTest, BrokenConnectionIsClosedAndWantsATurn) {
    open();
    socket.willRefuse(SocketError::ConnectionReset);
    const SendOutcome outcome = send("hello");
    EXPECT_EQ(outcome.result, WebSocketSend::Closed);
    EXPECT_TRUE(outcome.needsTurn);
    EXPECT_TRUE(output.flush().isBroken);
    EXPECT_EQ(send("hello").result, WebSocketSend::Closed);
    EXPECT_EQ(socket.sendOffers.size(), 1U);
}

TEST_F(SessionOutputTest, CloseComesBehindWhatWaitsAndNothingBehindIt) {
    open();
    fill();
    EXPECT_TRUE(output.close(1000, "bye", Sender::Outsider));
    EXPECT_FALSE(output.isOpen());
    EXPECT_FALSE(output.close(1001, "again", Sender::Outsider));
    EXPECT_EQ(send("late").result, WebSocketSend::Closed);
    EXPECT_EQ(output.ping({}, Sender::Outsider).result, WebSocketSend::Closed);
    output.pong(bytesOf("late"));
    const SessionOutput::Status status = output.flush();
    EXPECT_EQ(status.stage, Stage::Closing);
    EXPECT_EQ(sent(), (Texts{"w", closeText(1000) + "bye"}));
    EXPECT_EQ(output.closeCodeOr(1), 1000);
}

TEST_F(SessionOutputTest, CloseLeavesAtOnce) {
    open();
    EXPECT_FALSE(output.close(CloseCode::None, {}, Sender::OwnTurn));
    EXPECT_EQ(opcodes(), std::vector<unsigned>{8});
    EXPECT_EQ(sent(), Texts{""});
}

TEST_F(SessionOutputTest, CloseBeforeTheOpeningIsTheFirstFrame) {
    output.prepare(std::make_shared<SessionSettings>(settings), {});
    output.close(1001, {}, Sender::Outsider);
    output.begin(SomeSocket);
    output.open();
    EXPECT_EQ(send("late").result, WebSocketSend::Closed);
    output.flush();
    EXPECT_EQ(sent(), Texts{closeText(1001)});
}

TEST_F(SessionOutputTest, NothingIsSentAfterTheEnd) {
    open();
    fill();
    output.end();
    EXPECT_EQ(send("late").result, WebSocketSend::Closed);
    EXPECT_FALSE(output.close(1000, {}, Sender::Outsider));
    EXPECT_EQ(output.queuedBytes(), 0U);
    output.flush();
    EXPECT_EQ(socket.sendOffers.size(), 1U);
}

TEST_F(SessionOutputTest, PingsPassMessagesAndPongsReplaceEachOther) {
    open();
    fill();
    output.ping(bytesOf("are you there"), Sender::Outsider);
    output.pong(bytesOf("first"));
    output.pong(bytesOf("second"));
    output.flush();
    EXPECT_EQ(sent(), (Texts{"are you there", "second", "w"}));
    EXPECT_EQ(opcodes(), (std::vector<unsigned>{9, 10, 1}));
}

TEST_F(SessionOutputTest, PingWithoutRoomIsRefused) {
    settings.maxQueuedBytes = 3 + Cost + 9;
    settings.queuePolicy = Policy::Close;
    open();
    fill();
    EXPECT_EQ(output.ping(bytesOf("12345678"), Sender::Outsider).result, WebSocketSend::Full);
    EXPECT_TRUE(output.isOpen());
}

TEST_F(SessionOutputTest, SlowPeerIsClosedWith1013AndWhatWaitsIsNotSent) {
    settings.maxQueuedBytes = 100 + 2 * Cost;
    open();
    socket.willAccept(4);
    socket.willRefuse(SocketError::WouldBlock);
    send(std::string(50, 'a'));
    EXPECT_EQ(output.queuedBytes(), 48U);
    send(std::string(40, 'b'));
    socket.willRefuse(SocketError::WouldBlock);
    const SendOutcome outcome = send(std::string(11, 'c'));
    EXPECT_EQ(outcome.result, WebSocketSend::Closed);
    EXPECT_TRUE(outcome.needsTurn);
    EXPECT_EQ(output.queuedBytes(), 48U + 4U);
    output.flush();
    EXPECT_EQ(sent(), (Texts{std::string(50, 'a'), closeText(1013)}));
}

TEST_F(SessionOutputTest, RoomIsLookedForBeforeAPeerIsGivenUp) {
    settings.maxQueuedBytes = 100 + Cost;
    open();
    fill();
    send(std::string(90, 'a'));
    EXPECT_EQ(send(std::string(90, 'b')).result, WebSocketSend::Queued);
    EXPECT_TRUE(output.isOpen());
    EXPECT_EQ(sent().size(), 3U);
}

TEST_F(SessionOutputTest, LimitIsWhatMayWait) {
    settings.maxQueuedBytes = 103 + Cost;
    open();
    fill();
    socket.willRefuse(SocketError::WouldBlock);
    EXPECT_EQ(send(std::string(100, 'a')).result, WebSocketSend::Queued);
    EXPECT_TRUE(output.isOpen());
    SessionOutput other;
    other.prepare(std::make_shared<SessionSettings>(settings), {});
    other.begin(SomeSocket);
    other.open();
    EXPECT_EQ(other.sendMessage(true, bytesOf(std::string(104 + Cost, 'a')), Sender::Outsider).result,
              WebSocketSend::Closed)
        << "also where nothing waits";
}

TEST_F(SessionOutputTest, TinyMessagesCountWithWhatTheyTake) {
    settings.maxQueuedBytes = 100 * Cost;
    settings.queuePolicy = Policy::Wait;
    open();
    fill();
    socket.willRefuse(SocketError::WouldBlock);
    int count = 0;
    while (send("x", Sender::Unwaiting).result == WebSocketSend::Queued) {
        ++count;
    }
    EXPECT_GT(count, 90);
    EXPECT_LT(count, 100);
}

TEST_F(SessionOutputTest, OldestMessagesMakeRoom) {
    settings.maxQueuedBytes = 23 + 3 * Cost;
    settings.queuePolicy = Policy::DropOldest;
    open();
    socket.willAccept(4);
    for (int i = 0; i < 10; ++i) {
        socket.willRefuse(SocketError::WouldBlock);
    }
    send("begun");
    for (const char* const text : {"1-------", "2-------", "3-------"}) {
        EXPECT_EQ(send(text).result, WebSocketSend::Queued);
        EXPECT_LE(output.queuedBytes(), 30U);
    }
    EXPECT_EQ(send(std::string(21 + 2 * Cost, 'x')).result, WebSocketSend::Full) << "and nothing is dropped for it";
    while (!output.flush().isEmpty) {
    }
    EXPECT_EQ(sent(), (Texts{"begun", "2-------", "3-------"}));
}

TEST_F(SessionOutputTest, OldestOfThoseBehindAnOpenMessageMakeRoom) {
    settings.maxQueuedBytes = 23 + 2 * Cost;
    settings.queuePolicy = Policy::DropOldest;
    open();
    ASSERT_EQ(output.openMessage(), WebSocketSend::Queued);
    for (const char* const text : {"1-------", "2-------", "3-------"}) {
        EXPECT_EQ(send(text).result, WebSocketSend::Queued);
    }
    EXPECT_EQ(output.sendPiece(FrameType::Text, bytesOf("whole"), true, Sender::Outsider).result,
              WebSocketSend::Queued);
    EXPECT_EQ(sent(), (Texts{"whole", "2-------", "3-------"}));
}

TEST_F(SessionOutputTest, PiecesAreNotDroppedForOthers) {
    settings.maxQueuedBytes = 41 + Cost;
    settings.queuePolicy = Policy::DropOldest;
    open();
    socket.willRefuse(SocketError::WouldBlock);
    ASSERT_EQ(output.openMessage(), WebSocketSend::Queued);
    const std::string piece(20, 'p');
    EXPECT_EQ(output.sendPiece(FrameType::Text, bytesOf(piece), false, Sender::Outsider).result, WebSocketSend::Queued);
    EXPECT_EQ(send("held").result, WebSocketSend::Queued);
    socket.willRefuse(SocketError::WouldBlock);
    EXPECT_EQ(output.sendPiece(FrameType::Continuation, bytesOf(piece), false, Sender::Outsider).result,
              WebSocketSend::Full);
    EXPECT_EQ(output.queuedBytes(), 22U + 6U) << "nor others for them in vain";
    EXPECT_TRUE(output.isOpen());
}

namespace {

/// The same over a socket that is full until the test says otherwise.
class WaitingSender : public testing::Test {
protected:
    WaitingSender() {
        system.send = [this](std::uint64_t, SocketBuffers buffers) -> std::int64_t {
            if (isFull) {
                refusals.add();
                wstest::setLastError(SocketError::WouldBlock);
                return -1;
            }
            std::int64_t size = 0;
            for (const SocketBuffer& buffer : buffers) {
                size += static_cast<std::int64_t>(buffer.size);
            }
            return size;
        };
        SessionSettings settings;
        settings.maxQueuedBytes = 20;
        settings.queuePolicy = Policy::Wait;
        output.prepare(std::make_shared<SessionSettings>(settings), {});
        output.begin(SomeSocket);
        output.open();
        EXPECT_EQ(send("w"), WebSocketSend::Queued);
    }

    WebSocketSend send(const std::string& text) {
        return output.sendMessage(true, bytesOf(text), Sender::Outsider).result;
    }

    std::atomic<bool> isFull{true};
    wstest::Counter refusals;
    wstest::FakeSystem system;
    SessionOutput output;
};

} // namespace

TEST_F(WaitingSender, GoesOnWhenThereIsRoom) {
    std::thread sender([&] { EXPECT_EQ(send(std::string(20, 'x')), WebSocketSend::Queued); });
    // It has looked for room, and holds the lock until it waits.
    ASSERT_TRUE(refusals.waitFor(2));
    isFull = false;
    output.flush();
    sender.join();
    EXPECT_EQ(output.queuedBytes(), 0U);
}

TEST_F(WaitingSender, IsReleasedByTheClose) {
    std::thread one([&] { EXPECT_EQ(send(std::string(20, 'x')), WebSocketSend::Closed); });
    std::thread two([&] { EXPECT_EQ(send(std::string(19, 'x')), WebSocketSend::Closed); });
    ASSERT_TRUE(refusals.waitFor(3));
    output.close(1000, {}, Sender::Outsider);
    one.join();
    two.join();
}

TEST_F(WaitingSender, IsReleasedByTheEnd) {
    std::thread sender([&] { EXPECT_EQ(send(std::string(20, 'x')), WebSocketSend::Closed); });
    ASSERT_TRUE(refusals.waitFor(2));
    output.end();
    sender.join();
}

TEST_F(WaitingSender, IsReleasedByABrokenConnection) {
    std::thread sender([&] { EXPECT_EQ(send(std::string(20, 'x')), WebSocketSend::Closed); });
    ASSERT_TRUE(refusals.waitFor(2));
    {
        // Under the lock of the output, which the sender needs to see it.
        wstest::FakeSystem broken;
        broken.send = [](std::uint64_t, SocketBuffers) -> std::int64_t {
            wstest::setLastError(SocketError::ConnectionReset);
            return -1;
        };
        EXPECT_TRUE(output.flush().isBroken);
    }
    sender.join();
}

TEST_F(SessionOutputTest, MessageThatNeverFitsIsRefusedWithoutWaiting) {
    settings.maxQueuedBytes = 20;
    settings.queuePolicy = Policy::Wait;
    open();
    EXPECT_EQ(send(std::string(21, 'x')).result, WebSocketSend::Full);
    EXPECT_TRUE(output.isOpen());
}

TEST_F(SessionOutputTest, ThreadsOfThePoolDoNotWait) {
    settings.maxQueuedBytes = 22 + Cost;
    settings.queuePolicy = Policy::Wait;
    open();
    fill();
    for (int i = 0; i < 10; ++i) {
        socket.willRefuse(SocketError::WouldBlock);
    }
    EXPECT_EQ(send(std::string(20, 'x'), Sender::Unwaiting).result, WebSocketSend::Full);
    EXPECT_FALSE(output.isPaused());
    EXPECT_EQ(send(std::string(20, 'x'), Sender::OwnTurn).result, WebSocketSend::Queued) << "one message beyond";
    EXPECT_TRUE(output.isPaused());
    EXPECT_EQ(send("y", Sender::OwnTurn).result, WebSocketSend::Full) << "and no more";
}

TEST_F(SessionOutputTest, PauseEndsWhenHalfHasLeft) {
    settings.maxQueuedBytes = 200;
    settings.queuePolicy = Policy::Wait;
    open();
    fill();
    for (int i = 0; i < 2; ++i) {
        socket.willRefuse(SocketError::WouldBlock);
    }
    send(std::string(140, 'x'), Sender::OwnTurn);
    EXPECT_FALSE(output.flush().isDrained);
    EXPECT_TRUE(output.isPaused());
    socket.willAccept(3 + 144 - (100 - Cost) - 1);
    socket.willRefuse(SocketError::WouldBlock);
    output.flush();
    EXPECT_TRUE(output.isPaused());
    socket.willAccept(1);
    socket.willRefuse(SocketError::WouldBlock);
    EXPECT_TRUE(output.flush().isDrained);
    EXPECT_FALSE(output.isPaused());
    EXPECT_FALSE(output.flush().isDrained) << "told once";
}

TEST_F(SessionOutputTest, DrainIsToldAfterMoreThanHalfHasWaited) {
    settings.maxQueuedBytes = 400;
    open();
    fill();
    EXPECT_FALSE(output.flush().isDrained);
    socket.willRefuse(SocketError::WouldBlock);
    send(std::string(196 - Cost, 'x'));
    EXPECT_FALSE(output.flush().isDrained) << "no more than half";
    socket.willRefuse(SocketError::WouldBlock);
    send(std::string(197 - Cost, 'x'));
    EXPECT_TRUE(output.flush().isDrained);
}

TEST_F(SessionOutputTest, PiecesAreOneMessageAndOthersComeBehindIt) {
    open();
    ASSERT_EQ(output.openMessage(), WebSocketSend::Queued);
    EXPECT_EQ(output.openMessage(), WebSocketSend::Full);
    EXPECT_EQ(output.sendPiece(FrameType::Text, bytesOf("one"), false, Sender::Outsider).result, WebSocketSend::Queued);
    EXPECT_FALSE(send("other").needsTurn);
    output.ping(bytesOf("ping"), Sender::Outsider);
    output.sendPiece(FrameType::Continuation, bytesOf("two"), false, Sender::Outsider);
    output.sendPiece(FrameType::Continuation, {}, true, Sender::Outsider);
    EXPECT_EQ(sent(), (Texts{"one", "ping", "two", "", "other"}));
    EXPECT_EQ(opcodes(), (std::vector<unsigned>{1, 9, 0, 0, 1}));
    const auto frames = wstest::parseServerFrames(socket.sent);
    EXPECT_FALSE(frames[0].fin);
    EXPECT_FALSE(frames[2].fin);
    EXPECT_TRUE(frames[3].fin);
    EXPECT_EQ(output.openMessage(), WebSocketSend::Queued) << "the next one may begin";
}

TEST_F(SessionOutputTest, MessagesBehindPiecesDoNotWaitForRoom) {
    settings.maxQueuedBytes = 20;
    settings.queuePolicy = Policy::Wait;
    open();
    ASSERT_EQ(output.openMessage(), WebSocketSend::Queued);
    EXPECT_EQ(send(std::string(15, 'x')).result, WebSocketSend::Queued);
    EXPECT_EQ(send(std::string(15, 'x')).result, WebSocketSend::Full);
    EXPECT_EQ(send(std::string(15, 'x'), Sender::OwnTurn).result, WebSocketSend::Full);
    EXPECT_EQ(output.sendPiece(FrameType::Text, bytesOf(std::string(20, 'p')), false, Sender::Outsider).result,
              WebSocketSend::Queued)
        << "what waits behind takes nothing from it";
}

TEST_F(SessionOutputTest, RoomBehindAMessageInPiecesIsToldAtItsEnd) {
    settings.maxQueuedBytes = 200;
    settings.queuePolicy = Policy::Wait;
    open();
    ASSERT_EQ(output.openMessage(), WebSocketSend::Queued);
    output.sendPiece(FrameType::Text, bytesOf("one"), false, Sender::Outsider);
    EXPECT_EQ(send(std::string(100, 'x'), Sender::OwnTurn).result, WebSocketSend::Queued);
    EXPECT_EQ(send(std::string(100, 'x'), Sender::OwnTurn).result, WebSocketSend::Full);
    EXPECT_FALSE(output.flush().isDrained) << "it would be refused again";
    EXPECT_TRUE(output.sendPiece(FrameType::Continuation, bytesOf("two"), true, Sender::Outsider).needsTurn);
    EXPECT_TRUE(output.flush().isDrained);
    EXPECT_FALSE(output.flush().isDrained) << "told once";
}

TEST_F(SessionOutputTest, RoomIsNotToldForWhatNeverHasAny) {
    settings.maxQueuedBytes = 200;
    settings.queuePolicy = Policy::DropOldest;
    open();
    EXPECT_EQ(send(std::string(300, 'x')).result, WebSocketSend::Full);
    EXPECT_FALSE(output.flush().isDrained);
}

TEST_F(SessionOutputTest, CloseEndsAMessageInPieces) {
    open();
    ASSERT_EQ(output.openMessage(), WebSocketSend::Queued);
    output.sendPiece(FrameType::Text, bytesOf("one"), false, Sender::Outsider);
    send("held");
    output.close(1011, {}, Sender::Outsider);
    EXPECT_EQ(output.sendPiece(FrameType::Continuation, bytesOf("two"), true, Sender::Outsider).result,
              WebSocketSend::Closed);
    EXPECT_EQ(sent(), (Texts{"one", closeText(1011)}));
}

TEST_F(SessionOutputTest, SharedMessageWaitsByReference) {
    open();
    const Bytes payload = wstest::pattern(1000);
    SharedMessage message(false, payload);
    fill();
    EXPECT_EQ(output.sendShared(message, Sender::Unwaiting).result, WebSocketSend::Queued);
    output.flush();
    EXPECT_EQ(wstest::parseServerFrames(socket.sent).back().payload, payload);
    EXPECT_EQ(opcodes().back(), 2U);
}

TEST_F(SessionOutputTest, TellsSinceWhenTheSocketIsFull) {
    vireotest::FakeClock clock;
    open();
    EXPECT_FALSE(output.flush().fullSinceMs);
    const std::int64_t since = clock.nowMs();
    fill();
    clock.advanceMs(10);
    socket.willRefuse(SocketError::WouldBlock);
    EXPECT_EQ(output.flush().fullSinceMs, since);
    socket.willAccept(1);
    socket.willRefuse(SocketError::WouldBlock);
    const SessionOutput::Status status = output.flush();
    EXPECT_EQ(status.fullSinceMs, since + 10) << "it takes something";
    EXPECT_TRUE(status.hasProgressed);
    EXPECT_FALSE(output.flush().fullSinceMs);
}

TEST_F(SessionOutputTest, NotesTheLastMessageForTheLimitOfIdleness) {
    vireotest::FakeClock clock;
    settings.idleTimeoutMs = 1000;
    open();
    clock.advanceMs(5);
    send("x");
    EXPECT_EQ(output.flush().messageMs, clock.nowMs());
    clock.advanceMs(5);
    output.ping({}, Sender::Outsider);
    EXPECT_EQ(output.flush().messageMs, clock.nowMs() - 5);
}
