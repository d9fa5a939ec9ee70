#include "websocket/pool/PollSet.h"

#include "vireo/support/SystemError.h"
#include "websocket/Fakes.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <thread>

using namespace wstest;
using namespace ql::impl;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int Soon = 10;
constexpr int Whenever = 60000;

/// Never opened.
const WakeSignal noSignal;

struct Polled {
    int count;
    SocketEvents events;
};

Polled pollOne(std::uint64_t socket, bool forWriting, int timeoutMs) {
    PollSet set(noSignal);
    set.reserve(1);
    set.add(socket, forWriting);
    const int count = set.wait(timeoutMs);
    return {count, set.getEvents(0)};
}

} // namespace

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
    ASSERT_TRUE(pollOne(loud.server, false, Whenever).events.readable) << "it has arrived";
    PollSet set(noSignal);
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

TEST(PollSet, RenumberedSocketsKeepTheirEvents) {
    SocketPair quiet;
    SocketPair loud;
    ASSERT_TRUE(sendAll(loud.client, {1}));
    ASSERT_TRUE(pollOne(loud.server, false, Whenever).events.readable) << "it has arrived";
    PollSet set(noSignal);
    set.reserve(3);
    set.add(loud.server, false);
    set.add(quiet.server, false);
    set.add(loud.server, true);
    set.renumber(1, 0);
    set.renumber(2, 1);
    set.cutOff(2);
    EXPECT_EQ(set.wait(Whenever), 1);
    EXPECT_FALSE(set.getEvents(0).readable);
    EXPECT_TRUE(set.getEvents(1).readable);
    EXPECT_TRUE(set.getEvents(1).writable);
}

TEST(PollSet, WatchingForWritingIsSwitchedOnAndOff) {
    SocketPair pair;
    PollSet set(noSignal);
    set.reserve(1);
    set.add(pair.server, false);
    set.setForWriting(0, true);
    EXPECT_EQ(set.wait(Whenever), 1);
    EXPECT_TRUE(set.getEvents(0).writable);
    set.setForWriting(0, false);
    EXPECT_EQ(set.wait(Soon), 0);
}

TEST(PollSet, RaisedSignalEndsTheWaitOnceAndIsNoSocketWithNews) {
    SocketPair quiet;
    WakeSignal signal;
    signal.open();
    ASSERT_NE(signal.getSocket(), InvalidSocket);
    PollSet set(signal);
    set.reserve(1);
    set.add(quiet.server, false);
    const Clock::time_point start = Clock::now();
    signal.raise();
    signal.raise();
    EXPECT_EQ(set.wait(Whenever), 0);
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(Whenever));
    EXPECT_FALSE(set.getEvents(0).readable);

    std::size_t polled = 0;
    FakeSystem system;
    system.poll = [&](void* entries, std::size_t count, int timeoutMs) {
        polled = count;
        const int events = systemSocketFunctions.poll(entries, count, timeoutMs);
        EXPECT_EQ(events, 0) << "the signal is still raised";
        return events;
    };
    EXPECT_EQ(set.wait(Soon), 0);
    EXPECT_EQ(polled, 2U);
}

TEST(PollSet, SignalOfAnotherThreadEndsTheWait) {
    SocketPair quiet;
    WakeSignal signal;
    signal.open();
    PollSet set(signal);
    set.reserve(1);
    set.add(quiet.server, false);
    const Clock::time_point start = Clock::now();
    std::thread other([&] { signal.raise(); });
    EXPECT_EQ(set.wait(Whenever), 0);
    other.join();
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(Whenever));
}

// What a thread sends may have been received, and the next may raise the signal, before its call returns.
TEST(PollSet, SignalEndsTheWaitAlsoWhileAnotherThreadIsStillRaisingIt) {
    constexpr int Threads = 4;
    constexpr int Rounds = 500;
    WakeSignal signal;
    signal.open();
    PollSet set(signal);
    set.reserve(0);
    FakeSystem system;
    bool raised = true;
    system.poll = [&](void* entries, std::size_t count, int timeoutMs) {
        const int events = systemSocketFunctions.poll(entries, count, timeoutMs);
        raised = events > 0;
        return events;
    };
    std::atomic<int> round{0};
    std::array<std::jthread, Threads> others;
    for (int first = 0; first < Threads; ++first) {
        others[static_cast<std::size_t>(first)] = std::jthread([&signal, &round, first] {
            for (int own = first; own < Rounds; own += Threads) {
                while (round < own) {
                    std::this_thread::yield();
                }
                signal.raise();
            }
        });
    }
    while (raised && round < Rounds) {
        EXPECT_EQ(set.wait(Whenever), 0);
        ++round;
    }
    EXPECT_TRUE(raised) << "round " << round;
    round = Rounds;
}

TEST(PollSet, SocketsHaveTheirNewsBesideARaisedSignal) {
    SocketPair loud;
    ASSERT_TRUE(sendAll(loud.client, {1}));
    WakeSignal signal;
    signal.open();
    signal.raise();
    PollSet set(signal);
    set.reserve(1);
    set.add(loud.server, true);
    EXPECT_EQ(set.wait(Whenever), 1);
    EXPECT_TRUE(set.getEvents(0).writable);
    EXPECT_EQ(set.findNews(0), 0U);
    EXPECT_EQ(set.findNews(1), 1U);
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
    PollSet set(noSignal);
    set.reserve(1);
    set.add(1, false);
    EXPECT_LT(set.wait(Soon), 0);
    EXPECT_EQ(ql::SystemError(lastSocketError()).toString(), errorText(SocketError::InvalidArgument));
}
