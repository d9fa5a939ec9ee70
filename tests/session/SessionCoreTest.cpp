#include "session/SessionBench.h"

#include "session/CloseCode.h"
#include "session/MessageEncoder.h"
#include "streams/DaemonCall.h"
#include "support/FakeClock.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace sessiontest;
using ql::http::WebSocketHandle;
using ql::http::WebSocketOptions;
using ql::http::WebSocketSend;
using ql::impl::SessionSettings;
using vireotest::TestLog;
using wstest::clientFrame;
using wstest::concatenate;
using wstest::toBytes;
using Events = std::vector<std::string>;

namespace {

/// Answers each message with itself.
void echo(Peer& peer) {
    peer.session().atText = [](RecordingSession& session, std::string_view text) {
        EXPECT_EQ(session.sendText(text), WebSocketSend::Queued);
    };
    peer.session().atBinary = [](RecordingSession& session, std::span<const unsigned char> bytes) {
        EXPECT_EQ(session.sendBinary(bytes), WebSocketSend::Queued);
    };
}

class SessionTest : public testing::Test {
protected:
    /// Waits until the connection is closed through the engine, once.
    void expectClosed() {
        ASSERT_TRUE(peer.upgrade.closes.waitFor(1));
        bench.end();
        EXPECT_EQ(peer.upgrade.closes.count(), 1U);
    }

    Peer peer;
    SessionSettings settings = patientSettings();
    SessionBench bench;
};

} // namespace

TEST_F(SessionTest, IsToldEverythingInOrder) {
    settings.inPieces = false;
    echo(peer);
    bench.start(peer, settings);
    peer.send(TextFrame, "hello");
    EXPECT_EQ(peer.receive(), (Frame{TextFrame, "hello"}));
    peer.send(PongFrame, "unasked");
    peer.send(BinaryFrame, std::string("\0\xFF", 2));
    EXPECT_EQ(peer.receive(), (Frame{BinaryFrame, std::string("\0\xFF", 2)}));
    peer.send(CloseFrame, closePayload(1000, "bye"));
    EXPECT_EQ(peer.receive(), (Frame{CloseFrame, closePayload(1000)}));
    EXPECT_TRUE(peer.isAtEnd());
    EXPECT_EQ(peer.record.waitForEnd(), (Events{"open", "text:hello", "pong:unasked",
                                                "binary:" + std::string("\0\xFF", 2), "close:1000:bye:clean", "gone"}));
    peer.upgrade.sockets.closeClient();
    expectClosed();
}

TEST_F(SessionTest, GetsWhatCameWithTheOpening) {
    bench.start(peer, settings, {}, concatenate({clientFrame(TextFrame, toBytes("early")), {TextFrame}}));
    peer.sendRaw([] {
        wstest::Bytes rest = clientFrame(TextFrame, toBytes("later"));
        rest.erase(rest.begin());
        return rest;
    }());
    EXPECT_EQ(peer.record.waitFor(3), (Events{"open", "text:early", "text:later"}));
}

TEST_F(SessionTest, MaySendFromItsOpeningOn) {
    peer.session().atOpen = [](RecordingSession& session) {
        EXPECT_TRUE(session.getHandle().isOpen());
        EXPECT_EQ(session.sendText("welcome"), WebSocketSend::Queued);
    };
    const WebSocketHandle early = peer.session().getHandle();
    EXPECT_FALSE(early.isOpen());
    EXPECT_EQ(early.sendText("too early"), WebSocketSend::Closed);
    bench.start(peer, settings);
    EXPECT_EQ(peer.receive(), (Frame{TextFrame, "welcome"}));
}

TEST_F(SessionTest, PiecesComeAsTheyCome) {
    settings.inPieces = true;
    bench.start(peer, settings);
    peer.send(0x01, "one");
    EXPECT_EQ(peer.record.waitFor(2).back(), "piece text:one");
    peer.send(PingFrame, "between");
    EXPECT_EQ(peer.receive(), (Frame{PongFrame, "between"}));
    peer.send(0x80, "two");
    EXPECT_EQ(peer.record.waitFor(3).back(), "last text:two");
}

TEST_F(SessionTest, PingIsAnsweredWithItsPayload) {
    bench.start(peer, settings);
    peer.send(PingFrame, "");
    EXPECT_EQ(peer.receive(), (Frame{PongFrame, ""}));
    peer.send(PingFrame, std::string(125, 'p'));
    EXPECT_EQ(peer.receive(), (Frame{PongFrame, std::string(125, 'p')}));
}

TEST_F(SessionTest, PingsOfTheApplicationAreAnsweredToIt) {
    bench.open(peer, settings);
    EXPECT_EQ(peer.handle.ping("hello"), WebSocketSend::Queued);
    EXPECT_EQ(peer.receive(), (Frame{PingFrame, "hello"}));
    peer.send(PongFrame, "hello");
    EXPECT_EQ(peer.record.waitFor(2).back(), "pong:hello");
}

TEST_F(SessionTest, SendsSmallMessagesWithoutDelay) {
    ASSERT_TRUE(wstest::hasSendDelay(peer.upgrade.sockets.server));
    bench.start(peer, settings);
    EXPECT_FALSE(wstest::hasSendDelay(peer.upgrade.sockets.server));
}

TEST_F(SessionTest, AnswersOfOneTurnLeaveInOneCall) {
    wstest::FakeSystem system;
    std::atomic<int> sends{0};
    system.send = [&](std::uint64_t socket, ql::impl::SocketBuffers buffers) {
        ++sends;
        return ql::impl::systemSocketFunctions.send(socket, buffers);
    };
    echo(peer);
    wstest::Bytes input;
    std::string answers;
    for (int i = 0; i < 20; ++i) {
        input = concatenate({input, clientFrame(TextFrame, toBytes(std::to_string(i)))});
    }
    bench.start(peer, settings, {}, input);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(peer.receive(), (Frame{TextFrame, std::to_string(i)}));
    }
    EXPECT_EQ(sends, 1);
    bench.end();
}

TEST_F(SessionTest, MoreMessagesThanATurnTakesAreAllDelivered) {
    wstest::Bytes input;
    for (int i = 0; i < 1000; ++i) {
        input = concatenate({input, clientFrame(TextFrame, toBytes(std::to_string(i)))});
    }
    bench.start(peer, settings);
    peer.sendRaw(input);
    const Events events = peer.record.waitFor(1001);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(events[static_cast<std::size_t>(i) + 1], "text:" + std::to_string(i));
    }
}

TEST_F(SessionTest, EndOfAMessageIsDeliveredBehindATurnThatItsPieceFills) {
    settings.inPieces = true;
    settings.compression.emplace();
    const std::string text(100, 't');
    const auto compressed = ql::impl::compressShared(true, toBytes(text), ql::impl::DeflateSettings{}, 15);
    ASSERT_TRUE(compressed);
    const auto frame = compressed->bytes();
    // It is so short that its head has two bytes.
    wstest::Bytes input = clientFrame(frame[0], {frame.begin() + 2, frame.end()});
    for (unsigned i = 1; i < ql::impl::PoolTask::TurnMessages; ++i) {
        input = concatenate({clientFrame(PongFrame, {}), input});
    }
    bench.start(peer, settings, ql::impl::DeflateAgreement{}, input);
    const Events events = peer.record.waitFor(ql::impl::PoolTask::TurnMessages + 2);
    EXPECT_EQ(events.at(events.size() - 2), "piece text:" + text);
    EXPECT_EQ(events.back(), "last text:");
}

TEST_F(SessionTest, LongMessagesGoThereAndBack) {
    settings.maxMessageBytes = 20000000;
    settings.maxQueuedBytes = 40000000;
    echo(peer);
    bench.start(peer, settings);
    const std::string text = wstest::toText(wstest::pattern(10000000));
    std::thread sender([&] { peer.send(BinaryFrame, text); });
    EXPECT_TRUE(peer.receive() == (Frame{BinaryFrame, text}));
    sender.join();
}

TEST_F(SessionTest, ClosesAtTheApplicationsWish) {
    bench.open(peer, settings);
    peer.handle.close(3000, "enough");
    EXPECT_FALSE(peer.handle.isOpen());
    EXPECT_EQ(peer.handle.sendText("late"), WebSocketSend::Closed);
    EXPECT_EQ(peer.receive(), (Frame{CloseFrame, closePayload(3000, "enough")}));
    peer.send(TextFrame, "nobody wants this");
    peer.send(CloseFrame, closePayload(3000));
    EXPECT_TRUE(peer.isAtEnd());
    EXPECT_EQ(peer.record.waitForEnd(), (Events{"open", "close:3000::clean", "gone"}));
}

TEST_F(SessionTest, CloseInACallbackIsTheLastItHears) {
    peer.session().atText = [](RecordingSession& session, std::string_view text) {
        session.sendText(text);
        session.close();
        EXPECT_EQ(session.sendText("late"), WebSocketSend::Closed);
    };
    bench.start(peer, settings, {},
                concatenate({clientFrame(TextFrame, toBytes("one")), clientFrame(TextFrame, toBytes("two"))}));
    EXPECT_EQ(peer.receive(), (Frame{TextFrame, "one"}));
    peer.finishClose(1000);
    EXPECT_EQ(peer.record.waitForEnd(), (Events{"open", "text:one", "close:1000::clean", "gone"}));
}

TEST_F(SessionTest, CloseWithoutACodeIsEchoedWithoutOne) {
    bench.start(peer, settings);
    peer.send(CloseFrame, "");
    EXPECT_EQ(peer.receive(), (Frame{CloseFrame, ""}));
    EXPECT_TRUE(peer.isAtEnd());
    EXPECT_EQ(peer.record.waitForEnd().at(1), "close:1005::clean");
}

TEST_F(SessionTest, WhatBreaksTheRulesIsClosedWithTheirCode) {
    struct Row {
        wstest::Bytes input;
        std::uint16_t code;
    };
    settings.maxMessageBytes = 1000;
    for (const Row& row : {Row{clientFrame(0x83, {}), 1002}, Row{clientFrame(TextFrame, {0xFF}), 1007},
                           Row{clientFrame(BinaryFrame, wstest::pattern(1001)), 1009}}) {
        Peer other;
        SessionBench its;
        its.start(other, settings);
        other.sendRaw(row.input);
        const Frame frame = other.receive();
        EXPECT_EQ(frame.firstByte, CloseFrame);
        EXPECT_EQ(frame.payload.substr(0, 2), closePayload(row.code));
        EXPECT_TRUE(other.isAtEnd());
        EXPECT_EQ(other.record.waitForEnd().at(1), "close:" + std::to_string(row.code) + "::lost");
        other.upgrade.sockets.closeClient();
        EXPECT_TRUE(other.upgrade.closes.waitFor(1));
    }
}

TEST_F(SessionTest, CloseFrameReachesAPeerThatStillSends) {
    bench.start(peer, settings);
    // More than any buffer holds, behind a frame that is refused.
    std::thread sender([&] {
        peer.send(0x83, "");
        for (int i = 0; i < 200 && peer.sendRaw(wstest::Bytes(100000)); ++i) {
        }
    });
    peer.record.waitForEnd();
    sender.join();
    EXPECT_EQ(peer.receive().payload.substr(0, 2), closePayload(1002));
    EXPECT_TRUE(peer.isAtEnd());
}

TEST_F(SessionTest, ConnectionStaysOpenUntilThePeerEndsIt) {
    Peer other;
    SessionBench one(1);
    one.start(peer, settings);
    one.start(other, settings);
    peer.send(0x83, "");
    EXPECT_EQ(peer.receive().payload.substr(0, 2), closePayload(1002));
    EXPECT_TRUE(peer.isAtEnd());
    EXPECT_TRUE(peer.send(TextFrame, "still sending"));
    // The only thread has come back from the turn that ended the sending.
    other.send(PingFrame, "");
    EXPECT_EQ(other.receive(), (Frame{PongFrame, ""}));
    EXPECT_EQ(peer.upgrade.closes.count(), 0U);
    peer.upgrade.sockets.closeClient();
    EXPECT_TRUE(peer.upgrade.closes.waitFor(1));
    one.end();
}

TEST_F(SessionTest, ExceptionClosesWith1011) {
    TestLog log;
    for (const bool atOpen : {true, false}) {
        Peer other;
        SessionBench its;
        if (atOpen) {
            other.session().atOpen = [](RecordingSession&) { throw std::runtime_error("no"); };
        } else {
            other.session().atText = [](RecordingSession&, std::string_view) { throw 7; };
        }
        its.start(other, settings, {}, clientFrame(TextFrame, toBytes("x")));
        EXPECT_EQ(other.receive(), (Frame{CloseFrame, closePayload(1011)}));
        EXPECT_TRUE(other.isAtEnd());
        const Events events = other.record.waitForEnd();
        EXPECT_EQ(events.at(events.size() - 2), "close:1011::lost");
        EXPECT_EQ(events.size(), atOpen ? 3U : 4U);
    }
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.lines()[0].text, "a session of a WebSocket threw an exception : no");
}

TEST_F(SessionTest, ExceptionOfTheLastCallIsLogged) {
    TestLog log;
    peer.session().atClose = [](RecordingSession&) { throw std::runtime_error("no"); };
    bench.start(peer, settings);
    peer.upgrade.sockets.closeClient();
    peer.record.waitForEnd();
    expectClosed();
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(SessionTest, PeerThatVanishesIsLost) {
    for (const bool reset : {false, true}) {
        OpenPeer other(settings);
        if (reset) {
            other.upgrade.sockets.resetClient();
        } else {
            other.upgrade.sockets.closeClient();
        }
        EXPECT_EQ(other.record.waitForEnd(), (Events{"open", "close:1006::lost", "gone"}));
        EXPECT_TRUE(other.upgrade.closes.waitFor(1));
        EXPECT_EQ(other.handle.sendText("late"), WebSocketSend::Closed);
    }
}

TEST_F(SessionTest, EndBehindBytesIsSeenWhereBothAreNewsAtOnce) {
    Peer busy;
    SessionBench one(1);
    wstest::Counter entered;
    wstest::Counter mayLeave;
    busy.session().atText = [&](RecordingSession&, std::string_view) {
        entered.add();
        mayLeave.waitFor(1);
    };
    one.open(peer, settings);
    one.start(busy, settings, {}, clientFrame(TextFrame, toBytes("x")));
    ASSERT_TRUE(entered.waitFor(1));
    peer.send(TextFrame, "last words");
    peer.upgrade.sockets.closeClient();
    mayLeave.add();
    EXPECT_EQ(peer.record.waitForEnd(), (Events{"open", "text:last words", "close:1006::lost", "gone"}));
    one.end();
}

TEST_F(SessionTest, NothingCanBeSentInTheLastCall) {
    peer.session().atClose = [](RecordingSession& session) {
        EXPECT_EQ(session.sendText("late"), WebSocketSend::Closed);
        session.close();
    };
    bench.start(peer, settings);
    peer.send(CloseFrame, closePayload(1000));
    peer.record.waitForEnd();
    EXPECT_EQ(peer.receive(), (Frame{CloseFrame, closePayload(1000)}));
    EXPECT_TRUE(peer.isAtEnd());
}

TEST_F(SessionTest, PeerThatDoesNotAnswerTheCloseIsCutOff) {
    settings.closeTimeoutMs = 50;
    bench.open(peer, settings);
    peer.handle.close(1000);
    EXPECT_EQ(peer.record.waitForEnd(), (Events{"open", "close:1000::lost", "gone"}));
    EXPECT_EQ(peer.receive(), (Frame{CloseFrame, closePayload(1000)}));
    EXPECT_TRUE(peer.isAtEnd());
    expectClosed();
}

TEST_F(SessionTest, PeerThatDoesNotCloseItsEndIsCutOff) {
    settings.closeTimeoutMs = 50;
    bench.start(peer, settings);
    peer.send(CloseFrame, closePayload(1000));
    expectClosed();
}

TEST_F(SessionTest, SilentPeerIsAskedAndThenLost) {
    // It stands still but where the test moves it: nobody is late on a busy machine.
    vireotest::FakeClock clock;
    settings.pingIntervalMs = 20;
    settings.pongTimeoutMs = 20;
    Peer other;
    SessionBench one(1);
    one.start(peer, settings);
    one.start(other);
    const auto letTurnEnd = [&] {
        // There is but one thread.
        other.send(PingFrame, "");
        EXPECT_EQ(other.receive(), (Frame{PongFrame, ""}));
    };
    letTurnEnd();
    clock.advanceMs(20);
    EXPECT_EQ(peer.receive(), (Frame{PingFrame, ""}));
    peer.send(PongFrame, "");
    peer.record.waitFor(2);
    letTurnEnd();
    clock.advanceMs(20);
    EXPECT_EQ(peer.receive(), (Frame{PingFrame, ""}));
    letTurnEnd();
    clock.advanceMs(20);
    EXPECT_TRUE(peer.isAtEnd());
    EXPECT_EQ(peer.record.waitForEnd(), (Events{"open", "pong:", "close:1006::lost", "gone"}));
}

TEST_F(SessionTest, IdleConnectionIsClosed) {
    settings.idleTimeoutMs = 20;
    bench.start(peer, settings);
    peer.finishClose(1000);
    EXPECT_EQ(peer.record.waitForEnd(), (Events{"open", "close:1000::clean", "gone"}));
}

TEST_F(SessionTest, HandleOutlivesTheConnection) {
    WebSocketHandle handle;
    {
        const OpenPeer other(settings);
        handle = other.handle;
        EXPECT_TRUE(handle.isOpen());
    }
    EXPECT_FALSE(handle.isOpen());
    EXPECT_EQ(handle.sendText("late"), WebSocketSend::Closed);
    EXPECT_EQ(handle.queuedBytes(), 0U);
    handle.close();
}

TEST_F(SessionTest, EngineInBetweenIsClosedAsSoonAsAllHasArrived) {
    settings.closeTimeoutMs = 100000;
    wstest::SocketPair connection;
    peer.between = connection.server;
    bench.start(peer, settings);
    peer.send(CloseFrame, closePayload(1000));
    expectClosed();
    EXPECT_TRUE(wstest::sendAll(connection.server, {'x'})) << "the engine may have something to hand on";
}

TEST_F(SessionTest, EngineInBetweenDoesNotWaitForAPeerThatTakesNothing) {
    settings.closeTimeoutMs = 50;
    settings.maxQueuedBytes = 100000000;
    for (const bool isAnswered : {true, false}) {
        Peer other;
        wstest::SocketPair connection;
        other.between = connection.server;
        SessionBench its(1);
        its.open(other, settings);
        other.handle.sendBinary(wstest::Bytes(20000000));
        if (isAnswered) {
            other.send(CloseFrame, closePayload(1000));
        } else {
            other.handle.close();
        }
        ASSERT_TRUE(other.upgrade.closes.waitFor(1));
        EXPECT_TRUE(wstest::atEnd(connection.client));
    }
}

TEST_F(SessionTest, EngineInBetweenIsClosedSoonAfterAFailure) {
    settings.closeTimeoutMs = 100000;
    wstest::SocketPair connection;
    peer.between = connection.server;
    bench.start(peer, settings);
    peer.send(0x83, "");
    EXPECT_EQ(peer.receive().payload.substr(0, 2), closePayload(1002));
    expectClosed();
}

TEST_F(SessionTest, DaemonThreadDoesNotWaitForRoom) {
    settings.queuePolicy = WebSocketOptions::QueuePolicy::Wait;
    settings.maxQueuedBytes = 20000000;
    bench.open(peer, settings);
    EXPECT_EQ(peer.handle.sendBinary(wstest::Bytes(19000000)), WebSocketSend::Queued);
    const ql::impl::DaemonCall call;
    EXPECT_EQ(peer.handle.sendBinary(wstest::Bytes(19000000)), WebSocketSend::Full);
}

TEST_F(SessionTest, GoodbyeIsSaidToThoseWhoAreThereAndWhoCome) {
    bench.open(peer, settings);
    bench.roster.goodbye();
    Peer late;
    bench.start(late, settings);
    peer.finishClose(1001);
    late.finishClose(1001);
    EXPECT_EQ(peer.record.waitForEnd(), (Events{"open", "close:1001::clean", "gone"}));
    EXPECT_EQ(late.record.waitForEnd(), (Events{"open", "close:1001::clean", "gone"}));
    bench.end();
}

TEST_F(SessionTest, CutEndsAllInTheCallingThread) {
    bench.open(peer, settings);
    // It may be in the turn of its opening still.
    bench.roster.cut(bench.pool);
    EXPECT_EQ(peer.record.waitForEnd(), (Events{"open", "close:1001::lost", "gone"}));
    expectClosed();
    EXPECT_TRUE(bench.roster.isEmpty());
    Peer late;
    const auto core = late.begin(settings);
    EXPECT_FALSE(bench.roster.add(core));
    core->abandon();
    EXPECT_EQ(late.upgrade.closes.count(), 1U);
    EXPECT_EQ(late.record.events(), Events{"gone"});
}

TEST_F(SessionTest, CutWaitsForNoOneButWhoIsInACallback) {
    wstest::Counter entered;
    wstest::Counter mayLeave;
    peer.session().atText = [&](RecordingSession&, std::string_view) {
        entered.add();
        mayLeave.waitFor(1);
    };
    Peer other;
    SessionBench one(1);
    one.open(other, settings);
    one.start(peer, settings, {}, clientFrame(TextFrame, toBytes("x")));
    ASSERT_TRUE(entered.waitFor(1));
    one.roster.cut(one.pool);
    EXPECT_EQ(other.upgrade.closes.count(), 1U) << "without the only thread of the pool";
    EXPECT_EQ(other.record.events().back(), "gone");
    EXPECT_FALSE(one.roster.isEmpty());
    mayLeave.add();
    EXPECT_EQ(peer.record.waitForEnd(), (Events{"open", "text:x", "close:1001::lost", "gone"}));
    one.end();
}

TEST_F(SessionTest, PoolThatEndsFirstEndsItsSessions) {
    bench.open(peer, settings);
    bench.pool.stop();
    EXPECT_EQ(peer.record.waitForEnd(), (Events{"open", "close:1001::lost", "gone"}));
    EXPECT_EQ(peer.upgrade.closes.count(), 1U);
    EXPECT_TRUE(bench.roster.isEmpty());
}

TEST_F(SessionTest, SessionThatNeverHadAConnectionIsClosed) {
    const WebSocketHandle handle = peer.session().getHandle();
    Peer* const gone = new Peer;
    const WebSocketHandle other = gone->session().getHandle();
    delete gone;
    EXPECT_FALSE(other.isOpen());
    EXPECT_EQ(other.sendText("x"), WebSocketSend::Closed);
    other.close();
}

TEST_F(SessionTest, PeerThatReadsNothingIsNotReadFromWhileItsSessionWaits) {
    settings.queuePolicy = WebSocketOptions::QueuePolicy::Wait;
    settings.maxQueuedBytes = 100000;
    const std::string answer(90000, 'a');
    std::atomic<int> refused{0};
    peer.session().atText = [&](RecordingSession& session, std::string_view) {
        refused += session.sendText(answer) != WebSocketSend::Queued;
        EXPECT_LE(session.queuedBytes(), 200100U);
    };
    wstest::shrinkBuffers(peer.upgrade.sockets.server);
    wstest::Bytes input;
    for (int i = 0; i < 30; ++i) {
        input = concatenate({input, clientFrame(TextFrame, toBytes("x"))});
    }
    bench.start(peer, settings, {}, input);
    for (int i = 0; i < 30; ++i) {
        const Frame frame = peer.receive();
        ASSERT_EQ(frame.payload.size(), answer.size()) << i;
    }
    EXPECT_EQ(refused, 0);
    bench.end();
}

TEST_F(SessionTest, IsToldThatItsQueueHasDrained) {
    settings.maxQueuedBytes = 900000;
    wstest::shrinkBuffers(peer.upgrade.sockets.server);
    const std::string text(400000, 'x');
    std::atomic<bool> isAnswered{false};
    peer.session().atDrained = [&](RecordingSession& session) {
        EXPECT_LE(session.queuedBytes(), 450000U);
        if (!isAnswered.exchange(true)) {
            EXPECT_EQ(session.sendText(text), WebSocketSend::Queued);
        }
    };
    bench.open(peer, settings);
    EXPECT_EQ(peer.handle.sendText(text), WebSocketSend::Queued);
    EXPECT_EQ(peer.handle.sendText(text), WebSocketSend::Queued);
    EXPECT_GT(peer.handle.queuedBytes(), 450000U);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(peer.receive() == (Frame{TextFrame, text}));
    }
    EXPECT_EQ(peer.record.waitFor(2).at(1), "drained");
    bench.end();
}
