#include "websocket/SocketPort.h"

#include "vireo/support/SystemError.h"
#include "websocket/Fakes.h"

#include <gtest/gtest.h>

using namespace wstest;
using namespace ql::impl;

namespace {

constexpr int Soon = 10;
constexpr int Whenever = 60000;

struct Polled {
    int count;
    SocketEvents events;
};

Polled pollOne(std::uint64_t socket, bool forWriting, int timeoutMs) {
    PollSet set;
    set.reserve(1);
    set.add(socket, forWriting);
    const int count = set.wait(timeoutMs);
    return {count, set.getEvents(0)};
}

} // namespace

TEST(SocketPort, ReceivesWhatIsThere) {
    SocketPair pair;
    ASSERT_TRUE(sendAll(pair.client, toBytes("hello")));
    ASSERT_EQ(pollOne(pair.server, false, Whenever).count, 1);
    Bytes buffer(100);
    EXPECT_EQ(receiveFromSocket(pair.server, buffer.data(), 3), 3);
    EXPECT_EQ(receiveFromSocket(pair.server, buffer.data() + 3, 97), 2);
    EXPECT_EQ(toText(Bytes(buffer.begin(), buffer.begin() + 5)), "hello");
}

TEST(SocketPort, ReceivingFromABlockingSocketNeverBlocks) {
    SocketPair pair;
    prepareSocket(pair.server);
    unsigned char byte = 0;
    EXPECT_LT(receiveFromSocket(pair.server, &byte, 1), 0);
    EXPECT_TRUE(isWouldBlock(lastSocketError()));
}

TEST(SocketPort, ReceivingAtTheEndGivesZero) {
    SocketPair pair;
    pair.closeClient();
    ASSERT_EQ(pollOne(pair.server, false, Whenever).count, 1);
    unsigned char byte = 0;
    EXPECT_EQ(receiveFromSocket(pair.server, &byte, 1), 0);
}

TEST(SocketPort, SendingToABlockingSocketNeverBlocks) {
    SocketPair pair;
    shrinkBuffers(pair.server);
    shrinkBuffers(pair.client);
    prepareSocket(pair.server);
    const Bytes bytes(1 << 20);
    std::int64_t result = 0;
    for (int i = 0; i < 1000 && result >= 0; ++i) {
        result = sendToSocket(pair.server, bytes.data(), bytes.size());
    }
    EXPECT_LT(result, 0);
    EXPECT_TRUE(isWouldBlock(lastSocketError()));
}

TEST(SocketPort, SendingToAPeerThatIsGoneFailsWithoutASignal) {
    SocketPair pair;
    pair.resetClient();
    ASSERT_EQ(pollOne(pair.server, false, Whenever).count, 1);
    const Bytes bytes(10);
    std::int64_t result = 0;
    // The first failure takes the reset's error away; only then a socket call would raise the signal.
    for (int i = 0; i < 3; ++i) {
        result = sendToSocket(pair.server, bytes.data(), bytes.size());
        EXPECT_LT(result, 0);
    }
    EXPECT_FALSE(isWouldBlock(lastSocketError()));
}

TEST(SocketPort, InterruptedCallsAreRepeated) {
    ScriptedSocket script;
    script.willReceiveError(SocketError::Interrupted);
    script.willReceiveError(SocketError::Interrupted);
    script.willReceive({7});
    script.willRefuse(SocketError::Interrupted);
    script.willAccept(1);
    unsigned char byte = 0;
    EXPECT_EQ(receiveFromSocket(1, &byte, 1), 1);
    EXPECT_EQ(byte, 7);
    EXPECT_EQ(script.receiveSizes.size(), 3U);
    EXPECT_EQ(sendToSocket(1, &byte, 1), 1);
    EXPECT_EQ(script.sendOffers.size(), 2U);
}

TEST(SocketPort, OtherErrorsAreNotTakenForWouldBlock) {
    ScriptedSocket script;
    script.willReceiveError(SocketError::ConnectionReset);
    script.willReceiveError(SocketError::WouldBlock);
    unsigned char byte = 0;
    EXPECT_LT(receiveFromSocket(1, &byte, 1), 0);
    EXPECT_FALSE(isWouldBlock(lastSocketError()));
    EXPECT_LT(receiveFromSocket(1, &byte, 1), 0);
    EXPECT_TRUE(isWouldBlock(lastSocketError()));
}

TEST(SocketPort, PreparedSocketHasNoSendDelay) {
    SocketPair pair;
    ASSERT_TRUE(hasSendDelay(pair.server));
    prepareSocket(pair.server);
    EXPECT_FALSE(hasSendDelay(pair.server));
}

TEST(PollSet, QuietSocketHasNoEvents) {
    SocketPair pair;
    const Polled polled = pollOne(pair.server, false, Soon);
    EXPECT_EQ(polled.count, 0);
    EXPECT_FALSE(polled.events.readable || polled.events.writable || polled.events.broken);
}

TEST(PollSet, DataMakesASocketReadable) {
    SocketPair pair;
    ASSERT_TRUE(sendAll(pair.client, {1}));
    const Polled polled = pollOne(pair.server, false, Whenever);
    EXPECT_EQ(polled.count, 1);
    EXPECT_TRUE(polled.events.readable);
    EXPECT_FALSE(polled.events.writable || polled.events.broken);
}

TEST(PollSet, RoomMakesASocketWritableWhereAskedFor) {
    SocketPair pair;
    EXPECT_FALSE(pollOne(pair.server, false, Soon).events.writable);
    const Polled polled = pollOne(pair.server, true, Whenever);
    EXPECT_EQ(polled.count, 1);
    EXPECT_TRUE(polled.events.writable);
    EXPECT_FALSE(polled.events.readable || polled.events.broken);
}

TEST(PollSet, PeerThatSendsNoMoreMakesASocketReadableOrBroken) {
    SocketPair pair;
    shutdownSending(pair.client);
    const Polled polled = pollOne(pair.server, false, Whenever);
    EXPECT_EQ(polled.events.readable, !isEndOfSendingAHangUp());
    EXPECT_EQ(polled.events.broken, isEndOfSendingAHangUp());
}

TEST(PollSet, ResetBreaksASocket) {
    SocketPair pair;
    pair.resetClient();
    EXPECT_TRUE(pollOne(pair.server, false, Whenever).events.broken);
}

TEST(PollSet, ErrorAndHangUpEachBreakASocket) {
    FakeSystem system;
    for (const PollEvent event : {PollEvent::Error, PollEvent::HangUp}) {
        system.poll = [event](void* entries, std::size_t, int) {
            setPollEvent(entries, 0, event);
            return 1;
        };
        EXPECT_TRUE(pollOne(1, false, Soon).events.broken);
    }
    system.poll = [](void* entries, std::size_t, int) {
        setPollEvent(entries, 0, PollEvent::NotASocket);
        return 1;
    };
    EXPECT_FALSE(pollOne(1, false, Soon).events.broken);
}

// poll() ignores the one and marks the other, WSAPoll() marks the first and fails when there is nothing else.
TEST(PollSet, WhatIsNoSocketHasNoEvents) {
    for (const std::uint64_t socket : {InvalidSocket, std::uint64_t{0x7FFFFFF0}}) {
        const Polled polled = pollOne(socket, true, Soon);
        EXPECT_GE(polled.count, 0);
        EXPECT_FALSE(polled.events.readable || polled.events.writable || polled.events.broken);
    }
}

TEST(PollSet, EventsBelongToTheirSocket) {
    SocketPair quiet;
    SocketPair loud;
    ASSERT_TRUE(sendAll(loud.client, {1}));
    PollSet set;
    set.reserve(3);
    set.add(quiet.server, false);
    set.add(loud.server, false);
    set.add(quiet.server, true);
    EXPECT_EQ(set.wait(Whenever), 2);
    EXPECT_FALSE(set.getEvents(0).readable || set.getEvents(0).writable);
    EXPECT_TRUE(set.getEvents(1).readable);
    EXPECT_FALSE(set.getEvents(2).readable);
    EXPECT_TRUE(set.getEvents(2).writable);
}

TEST(PollSet, ClearedSetIsFilledAgain) {
    SocketPair loud;
    SocketPair quiet;
    ASSERT_TRUE(sendAll(loud.client, {1}));
    PollSet set;
    set.clear();
    set.reserve(1);
    set.add(loud.server, false);
    EXPECT_EQ(set.wait(Whenever), 1);
    set.clear();
    set.add(quiet.server, false);
    EXPECT_EQ(set.wait(Soon), 0);
    EXPECT_FALSE(set.getEvents(0).readable);
}

TEST(PollSet, InterruptedWaitIsAWaitWithoutEvents) {
    FakeSystem system;
    int calls = 0;
    system.poll = [&](void* entries, std::size_t, int) {
        ++calls;
        setPollEvent(entries, 0, PollEvent::Error);
        setLastError(SocketError::Interrupted);
        return -1;
    };
    const Polled polled = pollOne(1, false, Soon);
    EXPECT_EQ(polled.count, 0);
    EXPECT_FALSE(polled.events.broken);
    EXPECT_EQ(calls, 1);
}

TEST(PollSet, FailureIsReported) {
    FakeSystem system;
    system.poll = [](void*, std::size_t, int) {
        setLastError(SocketError::InvalidArgument);
        return -1;
    };
    PollSet set;
    set.reserve(1);
    set.add(1, false);
    EXPECT_LT(set.wait(Soon), 0);
    EXPECT_EQ(ql::SystemError(lastSocketError()).toString(), errorText(SocketError::InvalidArgument));
}
