#include "vireo/WebSocketThread.h"

#include "support/TestLog.h"
#include "vireo/WebSocketWorkerThread.h"
#include "websocket/PoolFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>

using namespace wstest;
using ql::http::WebSocket;
using ql::http::WebSocketThread;
using testing::IsEmpty;
using testing::SizeIs;
using vireotest::TestLog;

namespace {

using Handle = UpgradeHandle;

Bytes textFrame(const std::string& text) {
    return clientFrame(0x81, toBytes(text));
}

/// Looks at each poll call of the pool. `look` runs on the poll thread.
class PollSpy {
public:
    using Look = std::function<void(const std::vector<PollEntry>&, int timeoutMs)>;
    explicit PollSpy(Look look = {}) {
        system_.poll = [this, look = std::move(look)](void* entries, std::size_t count, int timeoutMs) {
            if (look) {
                look(readPollEntries(entries, count), timeoutMs);
            }
            // Not after the call, whose error code the lock of the counter may overwrite.
            cycles.add();
            return ql::impl::systemSocketFunctions.poll(entries, count, timeoutMs);
        };
    }
    Counter cycles;

private:
    FakeSystem system_;
};

} // namespace

class WebSocketPool : public PoolTest {};

TEST_F(WebSocketPool, MessageIsAnswered) {
    pool->startThreads(1);
    Handle& handle = addSocket();
    expectEcho(handle, "hello");
    expectEcho(handle, "again");
}

TEST_F(WebSocketPool, AddingWakesThePollThreadFromAnEmptySet) {
    pool->startThreads(1);
    while (!PoolLook(*pool).pollThreadWaits) {
        std::this_thread::yield();
    }
    expectEcho(addSocket(), "hello");
}

TEST_F(WebSocketPool, ConnectionsAddedBeforeTheStartAreServed) {
    Handle& handle = addSocket();
    pool->startThreads(1);
    expectEcho(handle, "hello");
}

TEST_F(WebSocketPool, SecondStartDoesNothing) {
    pool->startThreads(4);
    pool->startThreads(4);
    EXPECT_EQ(PoolLook(*pool).workers, 4U);
    expectEcho(addSocket(), "hello");
}

TEST_F(WebSocketPool, MessagesOfOneConnectionAreDeliveredInOrderAndOneAtATime) {
    constexpr int Count = 300;
    std::atomic<bool> inside{false};
    std::vector<std::string> received;
    pool->startThreads(4);
    Handle& handle = addSocket([&](PoolSocket&, auto& message, bool) {
        EXPECT_FALSE(inside.exchange(true));
        received.push_back(toText(message));
        inside = false;
    });
    Bytes stream;
    for (int i = 0; i < Count; ++i) {
        const Bytes frame = textFrame(std::to_string(i));
        stream.insert(stream.end(), frame.begin(), frame.end());
    }
    ASSERT_TRUE(sendAll(handle.sockets.client, stream));
    ASSERT_TRUE(watch.messages.waitFor(Count));
    pool->stopThreads(true);
    ASSERT_THAT(received, SizeIs(Count));
    for (int i = 0; i < Count; ++i) {
        EXPECT_EQ(received[static_cast<std::size_t>(i)], std::to_string(i));
    }
}

TEST_F(WebSocketPool, BusyHandlersOfDifferentConnectionsOverlap) {
    Counter arrived;
    pool->startThreads(3);
    const auto meet = [&](PoolSocket&, auto&, bool) {
        arrived.add();
        EXPECT_TRUE(arrived.waitFor(3));
    };
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(sendAll(addSocket(meet).sockets.client, textFrame("x")));
    }
    EXPECT_TRUE(watch.messages.waitFor(3));
}

TEST_F(WebSocketPool, WriteOfAnotherThreadIsSentWithoutAnythingToRead) {
    std::unique_ptr<WebSocket> socket = makeSocket();
    WebSocket& writer = *socket;
    pool->startThreads(1);
    pool->addWebSocket(socket);
    expectEcho(*handles[0], "settled");

    const std::string news = "news";
    writer.writeMessage(news.data(), news.size(), false);
    EXPECT_EQ(receiveFrame(handles[0]->sockets.client), concatenate({{0x81, 4}, toBytes(news)}));
}

TEST_F(WebSocketPool, ReplyFromTheHandlerGoesOutInTheSameTurn) {
    pool->startThreads(1);
    Handle& handle = addSocket([](PoolSocket& self, auto&, bool) {
        self.writeMessage("reply", 5, false);
        EXPECT_FALSE(self.hasWritePending());
    });
    ASSERT_TRUE(sendAll(handle.sockets.client, textFrame("x")));
    EXPECT_TRUE(watch.messages.waitFor(1));
}

TEST_F(WebSocketPool, WorkerOnlyQueuesForAConnectionItIsNoLongerServing) {
    std::unique_ptr<WebSocket> socket = makeSocket();
    WebSocket& other = *socket;
    pool->startThreads(1);
    pool->addWebSocket(socket);
    expectEcho(*handles[0], "served by the only worker");
    Handle& handle = addSocket([&](PoolSocket&, auto&, bool) {
        other.writeMessage("news", 4, false);
        EXPECT_TRUE(other.hasWritePending());
    });
    ASSERT_TRUE(sendAll(handle.sockets.client, textFrame("x")));
    EXPECT_EQ(receiveFrame(handles[0]->sockets.client), concatenate({{0x81, 4}, toBytes("news")}));
}

TEST_F(WebSocketPool, LargeMessageReachesASlowReader) {
    pool->startThreads(1);
    shrinkBuffers(newHandle().sockets.server);
    std::unique_ptr<WebSocket> socket = std::make_unique<PoolSocket>(*handles[0], watch);
    const Bytes payload = pattern(3 << 20);
    socket->writeMessage(payload.data(), payload.size(), true);
    const std::size_t total = queued(*socket).size();
    pool->addWebSocket(socket);

    Bytes message;
    for (const ServerFrame& frame : parseServerFrames(receiveExactly(handles[0]->sockets.client, total))) {
        message.insert(message.end(), frame.payload.begin(), frame.payload.end());
    }
    EXPECT_TRUE(message == payload);
}

TEST_F(WebSocketPool, PollsForReadingAndForWritingOnlyWithAWritePending) {
    std::mutex mutex;
    std::set<int> idleMasks;
    std::set<int> writingMasks;
    std::set<int> timeouts;
    std::unique_ptr<WebSocket> idle = makeSocket();
    std::unique_ptr<WebSocket> writing = makeSocket();
    const std::uint64_t idleId = idle->getSocket();
    const std::uint64_t writingId = writing->getSocket();
    PollSpy spy([&](const std::vector<PollEntry>& entries, int timeoutMs) {
        const std::lock_guard<std::mutex> lock(mutex);
        timeouts.insert(timeoutMs);
        for (const PollEntry& entry : entries) {
            // The wake-up signal is polled beside the connections.
            if (entry.socket == idleId) {
                idleMasks.insert(entry.events);
            } else if (entry.socket == writingId) {
                writingMasks.insert(entry.events);
            }
        }
    });
    const StopAtExit stop{*pool};
    writing->writeMessage("x", 1, true);
    pool->addWebSocket(idle);
    pool->addWebSocket(writing);
    // No worker: the connection with the write pending is polled once, then waits in the ready queue.
    pool->startThreads(0);
    ASSERT_TRUE(spy.cycles.waitFor(3));
    std::unique_ptr<WebSocket> first;
    pool->getFirstWebSocket(first);
    EXPECT_EQ(first->getSocket(), handles[1]->sockets.server);
    EXPECT_FALSE(first->hasReadPending()) << "being writable says nothing about reading";
    pool->stopThreads(true);

    EXPECT_EQ(idleMasks, std::set<int>{readMask()});
    EXPECT_EQ(writingMasks, std::set<int>{readAndWriteMask()});
    EXPECT_EQ(timeouts, std::set<int>{10});
}

TEST_F(WebSocketPool, ReadableConnectionsBecomeReadyInOrderWithTheirFlagRaised) {
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(sendAll(addSocket().sockets.client, textFrame("x")));
    }
    pool->startThreads(0);
    for (std::size_t i = 0; i < 3; ++i) {
        std::unique_ptr<WebSocket> socket;
        pool->getFirstWebSocket(socket);
        ASSERT_NE(socket, nullptr);
        EXPECT_EQ(socket->getSocket(), handles[i]->sockets.server);
        EXPECT_TRUE(socket->hasReadPending());
    }
}

TEST_F(WebSocketPool, TakingReplacesWhatThePointerHeld) {
    ASSERT_TRUE(sendAll(addSocket().sockets.client, textFrame("x")));
    pool->startThreads(0);
    std::unique_ptr<WebSocket> socket = makeSocket();
    pool->getFirstWebSocket(socket);
    EXPECT_EQ(watch.destroyed.count(), 1U);
    EXPECT_EQ(socket->getSocket(), handles[0]->sockets.server);
}

TEST_F(WebSocketPool, GivenBackWithMoreToReadGoesToTheEndOfTheReadyQueue) {
    std::unique_ptr<WebSocket> one = makeSocket();
    std::unique_ptr<WebSocket> two = makeSocket();
    WebSocket* const first = one.get();
    WebSocket* const second = two.get();
    one->setReadEnabled(true);
    two->setReadEnabled(true);
    pool->giveBackWebSocket(one);
    pool->giveBackWebSocket(two);
    EXPECT_EQ(one, nullptr);
    EXPECT_EQ(PoolLook(*pool).ready, 2U);
    EXPECT_EQ(PoolLook(*pool).idle, 0U);

    std::unique_ptr<WebSocket> taken;
    pool->getFirstWebSocket(taken);
    EXPECT_EQ(taken.get(), first);
    pool->giveBackWebSocket(taken);
    pool->getFirstWebSocket(taken);
    EXPECT_EQ(taken.get(), second);
}

TEST_F(WebSocketPool, GivenBackWithNothingToReadIsPolledAgain) {
    pool->startThreads(0);
    while (!PoolLook(*pool).pollThreadWaits) {
        std::this_thread::yield();
    }
    std::unique_ptr<WebSocket> socket = makeSocket();
    pool->giveBackWebSocket(socket);
    EXPECT_EQ(socket, nullptr);
    EXPECT_EQ(PoolLook(*pool).ready, 0U);
    ASSERT_TRUE(sendAll(handles[0]->sockets.client, textFrame("x")));
    pool->getFirstWebSocket(socket);
    EXPECT_NE(socket, nullptr);
}

TEST_F(WebSocketPool, EmptyPointersAreIgnored) {
    std::unique_ptr<WebSocket> none;
    pool->addWebSocket(none);
    pool->giveBackWebSocket(none);
    EXPECT_EQ(PoolLook(*pool).idle + PoolLook(*pool).ready, 0U);
}

TEST_F(WebSocketPool, AddingEndsAPollThatIsUnderWay) {
    UnlimitedPolls polls;
    const StopAtExit stop{*pool};
    pool->startThreads(1);
    addSocket();
    ASSERT_TRUE(polls.begun.waitFor(1));
    expectEcho(addSocket(), "hello");
}

TEST_F(WebSocketPool, ServedConnectionEndsAPollThatIsUnderWay) {
    UnlimitedPolls polls;
    const StopAtExit stop{*pool};
    pool->startThreads(1);
    addSocket();
    Handle& busy = addSocket();
    for (int i = 0; i < 20; ++i) {
        ASSERT_NO_FATAL_FAILURE(expectEcho(busy, std::to_string(i)));
    }
}

TEST_F(WebSocketPool, GivingBackEndsAPollThatIsUnderWay) {
    UnlimitedPolls polls;
    const StopAtExit stop{*pool};
    pool->startThreads(0);
    addSocket();
    ASSERT_TRUE(polls.begun.waitFor(1));
    std::unique_ptr<WebSocket> socket = makeSocket();
    pool->giveBackWebSocket(socket);
    ASSERT_TRUE(sendAll(handles.back()->sockets.client, textFrame("x")));
    pool->getFirstWebSocket(socket);
    EXPECT_EQ(socket->getSocket(), handles.back()->sockets.server);
}

TEST_F(WebSocketPool, WriteOfAnotherThreadEndsAPollThatIsUnderWay) {
    UnlimitedPolls polls;
    const StopAtExit stop{*pool};
    std::vector<WebSocket*> writers;
    for (int i = 0; i < 3; ++i) {
        std::unique_ptr<WebSocket> socket = makeSocket();
        writers.push_back(socket.get());
        pool->addWebSocket(socket);
    }
    pool->startThreads(1);
    ASSERT_TRUE(polls.begun.waitFor(1));
    for (int round = 0; round < 20; ++round) {
        const std::string news = std::to_string(round);
        for (std::size_t i = 0; i < writers.size(); ++i) {
            writers[i]->writeMessage(news.data(), news.size(), false);
        }
        for (const auto& handle : handles) {
            const std::vector<ServerFrame> frames = parseServerFrames(receiveFrame(handle->sockets.client));
            ASSERT_EQ(frames.size(), 1U);
            ASSERT_EQ(toText(frames[0].payload), news);
        }
    }
}

TEST_F(WebSocketPool, RestOfAWriteByTheThreadThatServedBeforeIsSent) {
    UnlimitedPolls polls;
    const StopAtExit stop{*pool};
    shrinkBuffers(newHandle().sockets.server);
    std::unique_ptr<WebSocket> socket = std::make_unique<PoolSocket>(*handles[0], watch);
    WebSocket& writer = *socket;
    // It never takes the mark away, so what it writes is sent at once, as far as the socket takes it.
    socket->assignCurrentThread();
    pool->addWebSocket(socket);
    pool->startThreads(1);
    ASSERT_TRUE(polls.begun.waitFor(1));
    const Bytes payload = pattern(100000);
    for (int i = 0; i < 20; ++i) {
        writer.writeMessage(payload.data(), payload.size(), true);
    }
    for (int i = 0; i < 20; ++i) {
        const std::vector<ServerFrame> frames = parseServerFrames(receiveFrame(handles[0]->sockets.client));
        ASSERT_EQ(frames.size(), 1U);
        ASSERT_TRUE(frames[0].payload == payload) << "message " << i;
    }
}

TEST_F(WebSocketPool, WriterOfAConnectionThatJoinsHoldsUpNoOther) {
    std::unique_ptr<WebSocket> socket = makeSocket();
    WebSocket& joining = *socket;
    const std::uint64_t joiningId = joining.getSocket();
    FakeSystem system;
    Counter writing;
    Counter served;
    system.send = [&](std::uint64_t id, ql::impl::SocketBuffers buffers) {
        if (id == joiningId) {
            writing.add();
            EXPECT_TRUE(served.waitFor(1));
        }
        return ql::impl::systemSocketFunctions.send(id, buffers);
    };
    joining.writeMessage("news", 4, false);
    pool->addWebSocket(socket);
    Handle& other = addSocket();
    const StopAtExit stop{*pool};
    // It holds the connection's lock for as long as its call takes, as one that copies a large message would.
    const std::jthread writer([&] { joining.sendDataIfAvailable(); });
    ASSERT_TRUE(writing.waitFor(1));
    pool->startThreads(2);
    expectEcho(other, "hello");
    served.add();
}

TEST_F(WebSocketPool, WriteToAConnectionThatCameAsReadyEndsAPollThatIsUnderWay) {
    UnlimitedPolls polls;
    const StopAtExit stop{*pool};
    std::unique_ptr<WebSocket> socket = makeSocket();
    WebSocket& writer = *socket;
    socket->setReadEnabled(true);
    pool->giveBackWebSocket(socket);
    pool->startThreads(1);
    ASSERT_TRUE(polls.begun.waitFor(1));
    writer.writeMessage("news", 4, false);
    EXPECT_EQ(receiveFrame(handles[0]->sockets.client), concatenate({{0x81, 4}, toBytes("news")}));
}

TEST_F(WebSocketPool, WriteWhileOthersJoinThePollIsSent) {
    ASSERT_TRUE(allowSockets(1000)); // nor may poll() be given more
    UnlimitedPolls polls;
    for (int round = 0; round < 50; ++round) {
        handles.clear();
        pool = std::make_unique<WebSocketThread>();
        const StopAtExit stop{*pool};
        std::unique_ptr<WebSocket> socket = makeSocket();
        WebSocket& joining = *socket;
        pool->addWebSocket(socket);
        for (int i = 0; i < 900; ++i) {
            socket = std::make_unique<RecordingSocket>(ql::impl::InvalidSocket, nullptr);
            pool->addWebSocket(socket);
        }
        pool->startThreads(1);
        // Then it takes a while until the last has joined.
        while (PoolLook(*pool).polled == 0) {
            std::this_thread::yield();
        }
        joining.writeMessage("news", 4, false);
        ASSERT_EQ(receiveFrame(handles[0]->sockets.client), concatenate({{0x81, 4}, toBytes("news")}));
    }
}

TEST_F(WebSocketPool, StoppingEndsAPollThatIsUnderWay) {
    UnlimitedPolls polls;
    const StopAtExit stop{*pool};
    pool->startThreads(1);
    addSocket();
    ASSERT_TRUE(polls.begun.waitFor(1));
    const auto start = std::chrono::steady_clock::now();
    pool->stopThreads(true);
    EXPECT_LT(std::chrono::steady_clock::now() - start, Patience);
    EXPECT_EQ(PoolLook(*pool).idle, 1U) << "what was polled is still the pool's";
}

TEST_F(WebSocketPool, WritingToAConnectionThatLeftThePoolIsSafe) {
    std::unique_ptr<WebSocket> socket;
    ASSERT_TRUE(sendAll(addSocket().sockets.client, textFrame("x")));
    pool->startThreads(0);
    pool->getFirstWebSocket(socket);
    pool.reset();
    socket->writeMessage("x", 1, false);
    EXPECT_TRUE(socket->hasWritePending());
}

TEST_F(WebSocketPool, OfManyConnectionsThePollThreadWaitsForWorkersToTakeWhatIsReady) {
    using Clock = std::chrono::steady_clock;
    std::vector<Clock::time_point> begun;
    PollSpy spy([&](const std::vector<PollEntry>&, int) { begun.push_back(Clock::now()); });
    const StopAtExit stop{*pool};
    for (int i = 0; i < 200; ++i) {
        addSocket();
    }
    ASSERT_TRUE(sendAll(handles[100]->sockets.client, textFrame("x")));
    pool->startThreads(0);
    ASSERT_TRUE(spy.cycles.waitFor(2));
    pool->stopThreads(true);
    // Nobody takes it, so the pause has its full length.
    EXPECT_GE(begun[1] - begun[0], std::chrono::milliseconds(9));
    EXPECT_EQ(PoolLook(*pool).ready, 1U);
    EXPECT_EQ(PoolLook(*pool).idle, 199U);
}

TEST_F(WebSocketPool, OfManyConnectionsAPollAndItsPauseTakeNoLongerThanAPoll) {
    using Clock = std::chrono::steady_clock;
    constexpr std::size_t Rounds = 20;
    Clock::duration shortestPause = Patience;
    Clock::time_point ended;
    std::size_t round = 0;
    FakeSystem system;
    Counter cycles;
    system.poll = [&](void* entries, std::size_t count, int timeoutMs) {
        if (round > 0 && round <= Rounds) {
            shortestPause = std::min(shortestPause, Clock::now() - ended);
        }
        if (round < Rounds) {
            sendAll(handles[round]->sockets.client, textFrame("x"));
        }
        ++round;
        qlThread::msleep(static_cast<unsigned long>(timeoutMs));
        const int events = ql::impl::systemSocketFunctions.poll(entries, count, timeoutMs);
        ended = Clock::now();
        cycles.add();
        return events;
    };
    const StopAtExit stop{*pool};
    for (int i = 0; i < 230; ++i) {
        addSocket();
    }
    pool->startThreads(0);
    ASSERT_TRUE(cycles.waitFor(Rounds + 1));
    pool->stopThreads(true);
    // Nobody takes what is ready.
    EXPECT_EQ(PoolLook(*pool).ready, Rounds);
    EXPECT_LT(shortestPause, std::chrono::milliseconds(5));
}

TEST_F(WebSocketPool, ResetConnectionIsClosedAndDestroyed) {
    pool->startThreads(1);
    Handle& handle = addSocket();
    handle.sockets.resetClient();
    ASSERT_TRUE(watch.destroyed.waitFor(1));
    EXPECT_EQ(handle.closes.count(), 1U);
}

TEST_F(WebSocketPool, ResetConnectionNeedsNoWorkerToBeClosed) {
    pool->startThreads(0);
    Handle& handle = addSocket();
    handle.sockets.resetClient();
    ASSERT_TRUE(watch.destroyed.waitFor(1));
    EXPECT_EQ(handle.closes.count(), 1U);
    EXPECT_EQ(PoolLook(*pool).ready, 0U);
}

TEST_F(WebSocketPool, ConnectionOfAPeerThatClosedIsClosedAndDestroyed) {
    pool->startThreads(1);
    Handle& handle = addSocket();
    handle.sockets.closeClient();
    ASSERT_TRUE(watch.destroyed.waitFor(1));
    EXPECT_EQ(handle.closes.count(), 1U);
}

TEST_F(WebSocketPool, WholeFramesSentBeforeThePeerClosedAreAnswered) {
    pool->startThreads(2);
    Handle& handle = addSocket();
    const Bytes half = textFrame("never finished");
    ASSERT_TRUE(sendAll(handle.sockets.client, concatenate({textFrame("a"), textFrame("b"), textFrame("c"),
                                                            Bytes(half.begin(), half.end() - 1)})));
    shutdownSending(handle.sockets.client);
    for (const char* expected : {"a", "b", "c"}) {
        EXPECT_EQ(receiveFrame(handle.sockets.client), concatenate({{0x81, 1}, toBytes(expected)}));
    }
    EXPECT_TRUE(atEnd(handle.sockets.client));
    ASSERT_TRUE(watch.destroyed.waitFor(1));
    EXPECT_EQ(handle.closes.count(), 1U);
    EXPECT_EQ(watch.messages.count(), 3U);
}

TEST_F(WebSocketPool, BadFrameClosesTheConnectionSilently) {
    const TestLog log;
    const StopAtExit stop{*pool};
    pool->startThreads(1);
    Handle& bad = addSocket();
    Handle& good = addSocket();
    ASSERT_TRUE(sendAll(bad.sockets.client, clientFrame(0x88, {})));
    EXPECT_TRUE(atEnd(bad.sockets.client));
    ASSERT_TRUE(watch.destroyed.waitFor(1));
    EXPECT_EQ(bad.closes.count(), 1U);
    expectEcho(good, "still here");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(WebSocketPool, ClosedConnectionIsDestroyedRightAfterItsTurn) {
    pool->startThreads(1);
    Handle& handle = addSocket();
    ASSERT_TRUE(sendAll(handle.sockets.client, clientFrame(0x88, {})));
    // The only worker has nothing else to take, and the pool runs on.
    EXPECT_TRUE(watch.destroyed.waitFor(1));
}

TEST_F(WebSocketPool, ConnectionClosedByItsHandlerIsDestroyed) {
    pool->startThreads(1);
    Handle& handle = addSocket([](PoolSocket& self, auto&, bool) { self.markForDeletion(); });
    ASSERT_TRUE(sendAll(handle.sockets.client, textFrame("bye")));
    ASSERT_TRUE(watch.destroyed.waitFor(1));
    EXPECT_EQ(handle.closes.count(), 1U);
}

TEST_F(WebSocketPool, ExceptionsOfAHandlerEndItsConnectionOnly) {
    const TestLog log;
    const StopAtExit stop{*pool};
    pool->startThreads(1);
    Handle& standard = addSocket([](PoolSocket&, auto&, bool) { throw std::runtime_error("broken handler"); });
    Handle& odd = addSocket([](PoolSocket&, auto&, bool) { throw 42; });
    Handle& good = addSocket();
    ASSERT_TRUE(sendAll(standard.sockets.client, textFrame("x")));
    ASSERT_TRUE(sendAll(odd.sockets.client, textFrame("x")));
    ASSERT_TRUE(watch.destroyed.waitFor(2));
    EXPECT_EQ(standard.closes.count(), 1U);
    EXPECT_EQ(odd.closes.count(), 1U);
    expectEcho(good, "still here");

    std::set<std::string> texts;
    for (const TestLog::Line& line : log.lines()) {
        EXPECT_EQ(line.type, qlLogType::Failure);
        texts.insert(line.text);
    }
    EXPECT_EQ(texts, (std::set<std::string>{"a WebSocket threw an exception : broken handler",
                                            "a WebSocket threw an exception of an unknown type"}));
}

TEST_F(WebSocketPool, ThrowingLogDoesNotEndTheWorker) {
    class ThrowingLog : public qlLog {
    public:
        ThrowingLog() { msInstance = this; }
        ~ThrowingLog() override { msInstance = nullptr; }
        bool isLogTypeEnabled(qlLogType) const override { throw std::runtime_error("no log"); }
        bool isVerbose() const override { return false; }
        void writeLine(qlLogType, const char*, const std::string&) override {}
    };
    ThrowingLog log;
    const StopAtExit stop{*pool};
    pool->startThreads(1);
    Handle& bad = addSocket([](PoolSocket&, auto&, bool) { throw std::runtime_error("broken handler"); });
    ASSERT_TRUE(sendAll(bad.sockets.client, textFrame("x")));
    ASSERT_TRUE(watch.destroyed.waitFor(1));
    expectEcho(addSocket(), "still here");
}

TEST_F(WebSocketPool, DestructorOfAConnectionMayUseThePool) {
    pool->startThreads(1);
    const auto addWhenDestroyed = [&]() -> Handle& {
        auto socket = std::make_unique<PoolSocket>(newHandle(), watch);
        Handle& handle = *handles.back();
        std::unique_ptr<WebSocket> successor = makeSocket();
        // Reaching for the pool would block forever if its lock were held here.
        socket->atDestruction = [this, held = std::make_shared<std::unique_ptr<WebSocket>>(std::move(successor))] {
            pool->addWebSocket(*held);
        };
        std::unique_ptr<WebSocket> owned = std::move(socket);
        pool->addWebSocket(owned);
        return handle;
    };
    Handle& forPollThread = addWhenDestroyed();
    Handle& forWorker = addWhenDestroyed();
    forPollThread.sockets.resetClient();
    ASSERT_TRUE(sendAll(forWorker.sockets.client, clientFrame(0x88, {})));
    ASSERT_TRUE(watch.destroyed.waitFor(2));
    expectEcho(*handles[1], "first successor");
    expectEcho(*handles[3], "second successor");
}

TEST_F(WebSocketPool, WhatIsNoSocketStaysInThePollSetWithoutSpinning) {
    using Clock = std::chrono::steady_clock;
    std::atomic<std::size_t> polledBad{0};
    constexpr std::uint64_t Bad = 0x7FFFFFF0;
    PollSpy spy([&](const std::vector<PollEntry>& entries, int) {
        for (const PollEntry& entry : entries) {
            if (entry.socket == Bad) {
                ++polledBad;
            }
        }
    });
    const StopAtExit stop{*pool};
    std::unique_ptr<WebSocket> bad = std::make_unique<RecordingSocket>(Bad, nullptr);
    const Clock::time_point start = Clock::now();
    pool->addWebSocket(bad);
    pool->startThreads(1);
    ASSERT_TRUE(spy.cycles.waitFor(20));
    // Each cycle but the last has been followed by a wait of 10 ms.
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(19 * 9));
    EXPECT_GE(polledBad, 20U);
    EXPECT_EQ(PoolLook(*pool).idle, 1U);
    EXPECT_EQ(PoolLook(*pool).ready, 0U);
    expectEcho(addSocket(), "others are served");
}

TEST_F(WebSocketPool, PollErrorIsLoggedAndEndsOnlyThePollThread) {
    const TestLog log;
    FakeSystem system;
    std::atomic<bool> fails{false};
    const StopAtExit stop{*pool};
    system.poll = [&](void* entries, std::size_t count, int timeoutMs) {
        if (fails) {
            setLastError(SocketError::InvalidArgument);
            return -1;
        }
        return ql::impl::systemSocketFunctions.poll(entries, count, timeoutMs);
    };
    pool->startThreads(2);
    Handle& polled = addSocket();
    expectEcho(polled, "before");
    fails = true;
    ASSERT_TRUE(log.waitFor(qlLogType::Failure, "WSAPoll"));
    ASSERT_THAT(log.lines(), SizeIs(1));
    EXPECT_EQ(log.lines()[0].type, qlLogType::Failure);
    EXPECT_EQ(log.lines()[0].text, "Got an error during call to WSAPoll " + errorText(SocketError::InvalidArgument));
    ASSERT_TRUE(watch.destroyed.waitFor(1));
    EXPECT_EQ(polled.closes.count(), 0U) << "destroyed without being closed";

    // The pool still runs: it takes connections, and workers serve what is put into the ready queue.
    Handle& late = addSocket();
    EXPECT_EQ(late.closes.count(), 0U);
    std::unique_ptr<WebSocket> direct = makeSocket();
    direct->setReadEnabled(true);
    ASSERT_TRUE(sendAll(handles.back()->sockets.client, textFrame("direct")));
    pool->giveBackWebSocket(direct);
    EXPECT_EQ(receiveFrame(handles.back()->sockets.client), concatenate({{0x81, 6}, toBytes("direct")}));
}

TEST_F(WebSocketPool, InterruptedPollDoesNotEndThePollThread) {
    FakeSystem system;
    std::atomic<int> interruptions{3};
    const StopAtExit stop{*pool};
    system.poll = [&](void* entries, std::size_t count, int timeoutMs) {
        if (interruptions.fetch_sub(1) > 0) {
            setLastError(SocketError::Interrupted);
            return -1;
        }
        return ql::impl::systemSocketFunctions.poll(entries, count, timeoutMs);
    };
    pool->startThreads(1);
    expectEcho(addSocket(), "hello");
    EXPECT_LE(interruptions, 0);
}

TEST_F(WebSocketPool, AddingToAStoppedPoolClosesAndLeavesTheConnection) {
    pool->startThreads(2);
    pool->stopThreads(false);
    std::unique_ptr<WebSocket> socket = makeSocket();
    pool->addWebSocket(socket);
    ASSERT_NE(socket, nullptr);
    EXPECT_EQ(handles[0]->closes.count(), 1U);
    EXPECT_EQ(socket->getSocket(), ql::impl::InvalidSocket);
}

TEST_F(WebSocketPool, GivingBackToAStoppedPoolClosesAndLeavesTheConnection) {
    pool->stopThreads(true);
    for (const bool readPending : {false, true}) {
        std::unique_ptr<WebSocket> socket = makeSocket();
        socket->setReadEnabled(readPending);
        pool->giveBackWebSocket(socket);
        ASSERT_NE(socket, nullptr);
        EXPECT_EQ(handles.back()->closes.count(), 1U);
    }
    EXPECT_EQ(PoolLook(*pool).idle + PoolLook(*pool).ready, 0U);
}

TEST_F(WebSocketPool, TakingFromAStoppedPoolLeavesThePointerAlone) {
    std::unique_ptr<WebSocket> waiting = makeSocket();
    waiting->setReadEnabled(true);
    pool->giveBackWebSocket(waiting);
    pool->stopThreads(true);
    std::unique_ptr<WebSocket> socket = makeSocket();
    WebSocket* const before = socket.get();
    pool->getFirstWebSocket(socket);
    EXPECT_EQ(socket.get(), before);
    EXPECT_EQ(PoolLook(*pool).ready, 1U);
}

TEST_F(WebSocketPool, StoppingEndsAWaitForTheReadyQueue) {
    std::unique_ptr<WebSocket> socket = makeSocket();
    WebSocket* const before = socket.get();
    Counter waiting;
    std::thread taker([&] {
        waiting.add();
        pool->getFirstWebSocket(socket);
    });
    ASSERT_TRUE(waiting.waitFor(1));
    pool->stopThreads(false);
    taker.join();
    EXPECT_EQ(socket.get(), before);
}

TEST_F(WebSocketPool, StoppedPoolCannotBeStartedAgain) {
    pool->stopThreads(true);
    pool->startThreads(2);
    pool->stopThreads(true);
    std::unique_ptr<WebSocket> socket = makeSocket();
    pool->addWebSocket(socket);
    EXPECT_NE(socket, nullptr);
    EXPECT_EQ(handles[0]->closes.count(), 1U);
}

TEST_F(WebSocketPool, StoppingMayRepeatAndOverlap) {
    pool->startThreads(3);
    addSocket();
    std::thread other([&] { pool->stopThreads(true); });
    pool->stopThreads(true);
    other.join();
    pool->stopThreads(true);
    EXPECT_EQ(watch.destroyed.count(), 0U);
    EXPECT_EQ(PoolLook(*pool).idle, 1U);
}

TEST_F(WebSocketPool, ConnectionServedWhileThePoolStopsIsClosed) {
    Counter inside;
    Counter stopped;
    pool->startThreads(1);
    Handle& handle = addSocket([&](PoolSocket&, auto&, bool) {
        inside.add();
        EXPECT_TRUE(stopped.waitFor(1));
    });
    ASSERT_TRUE(sendAll(handle.sockets.client, textFrame("x")));
    ASSERT_TRUE(inside.waitFor(1));
    pool->stopThreads(false);
    stopped.add();
    pool->stopThreads(true);
    EXPECT_EQ(handle.closes.count(), 1U);
    EXPECT_EQ(watch.destroyed.count(), 1U);
}

TEST_F(WebSocketPool, StoppingFromAHandlerDoesNotLockUp) {
    pool->startThreads(2);
    Handle& handle = addSocket([&](PoolSocket&, auto&, bool) { pool->stopThreads(false); });
    ASSERT_TRUE(sendAll(handle.sockets.client, textFrame("x")));
    ASSERT_TRUE(watch.destroyed.waitFor(1));
    pool->stopThreads(true);
    EXPECT_EQ(handle.closes.count(), 1U);
}

TEST_F(WebSocketPool, DestructorDestroysWhatIsLeftWithoutClosing) {
    addSocket();
    std::unique_ptr<WebSocket> ready = makeSocket();
    ready->setReadEnabled(true);
    pool->giveBackWebSocket(ready);
    pool->stopThreads(true);
    EXPECT_EQ(watch.destroyed.count(), 0U);
    pool.reset();
    EXPECT_EQ(watch.destroyed.count(), 2U);
    EXPECT_EQ(handles[0]->closes.count() + handles[1]->closes.count(), 0U);
}

TEST_F(WebSocketPool, DestructorStopsARunningPool) {
    pool->startThreads(3);
    addSocket();
    addSocket();
    pool.reset();
    EXPECT_EQ(watch.destroyed.count(), 2U);
    EXPECT_EQ(handles[0]->closes.count() + handles[1]->closes.count(), 0U);
}

TEST_F(WebSocketPool, CloseAllClosesAndDestroysPolledAndReadyConnections) {
    addSocket();
    std::unique_ptr<WebSocket> ready = makeSocket();
    ready->setReadEnabled(true);
    pool->giveBackWebSocket(ready);
    pool->stopThreads(true);
    pool->closeAll();
    EXPECT_EQ(watch.destroyed.count(), 2U);
    EXPECT_EQ(handles[0]->closes.count(), 1U);
    EXPECT_EQ(handles[1]->closes.count(), 1U);
    EXPECT_EQ(PoolLook(*pool).idle + PoolLook(*pool).ready, 0U);
    pool->closeAll();
    pool.reset();
    EXPECT_EQ(handles[0]->closes.count(), 1U);
}

TEST_F(WebSocketPool, WithoutWorkersTheApplicationServes) {
    pool->startThreads(0);
    EXPECT_EQ(PoolLook(*pool).workers, 0U);
    Handle& handle = addSocket();
    ASSERT_TRUE(sendAll(handle.sockets.client, textFrame("hello")));
    std::unique_ptr<WebSocket> socket;
    pool->getFirstWebSocket(socket);
    socket->assignCurrentThread();
    EXPECT_TRUE(socket->sendDataIfAvailable());
    EXPECT_TRUE(socket->readDataIfAvailable());
    socket->clearCurrentThread();
    pool->giveBackWebSocket(socket);
    EXPECT_EQ(receiveFrame(handle.sockets.client), concatenate({{0x81, 5}, toBytes("hello")}));
}

TEST_F(WebSocketPool, WorkerOfTheApplicationServesThePool) {
    {
        ql::http::WebSocketWorkerThread worker(pool.get());
        pool->startThreads(0);
        expectEcho(addSocket(), "hello");
        pool->stopThreads(true);
    }
    EXPECT_EQ(PoolLook(*pool).workers, 0U);
}
