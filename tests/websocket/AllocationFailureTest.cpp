#include "support/FailingAllocation.h"
#include "support/TestLog.h"
#include "websocket/BlockList.h"
#include "websocket/PoolFixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <new>

using namespace wstest;
using ql::http::WebSocket;
using vireotest::allocationFailures;
using vireotest::failAllocation;
using vireotest::TestLog;

namespace {

/// Far more than any scenario here allocates.
constexpr std::size_t MostAllocations = 1000;

/// Runs `scenario` with its first allocation failing, then its second, and so on until it needs no more.
template <typename Scenario>
void failEachAllocation(Scenario scenario) {
    for (std::size_t failing = 1; failing <= MostAllocations; ++failing) {
        const std::size_t before = allocationFailures;
        scenario(failing);
        failAllocation(0);
        if (testing::Test::HasFailure() || allocationFailures == before) {
            EXPECT_GT(failing, 1U) << "nothing was tested";
            return;
        }
    }
    FAIL() << "the scenario never gets by";
}

} // namespace

TEST(AllocationFailure, WriteMessageQueuesAllOrNothing) {
    const Bytes payload = pattern(140000);
    for (const std::string earlier : {"", "partly fills a block"}) {
        failEachAllocation([&](std::size_t failing) {
            RecordingSocket socket(SomeSocket, nullptr);
            if (!earlier.empty()) {
                socket.writeMessage(earlier.data(), earlier.size(), false);
            }
            const Bytes before = queued(socket);
            failAllocation(failing);
            try {
                socket.writeMessage(payload.data(), payload.size(), true);
                failAllocation(0);
            } catch (const std::bad_alloc&) {
                ASSERT_TRUE(queued(socket) == before);
                ASSERT_EQ(socket.hasWritePending(), !before.empty());
                socket.writeMessage(payload.data(), payload.size(), true);
            }
            ASSERT_EQ(parseServerFrames(queued(socket)).size(), before.empty() ? 2U : 3U);
        });
    }
}

TEST(AllocationFailure, ReadLetsTheExceptionOut) {
    failEachAllocation([](std::size_t failing) {
        RecordingSocket socket(SomeSocket, nullptr);
        ScriptedSocket script;
        script.willReceive(clientFrame(0x82, pattern(5000)));
        script.receiveSizes.reserve(100);
        socket.messages.reserve(1);
        socket.setReadEnabled(true);
        const std::size_t before = allocationFailures;
        failAllocation(failing);
        try {
            EXPECT_TRUE(socket.readDataIfAvailable());
            EXPECT_EQ(socket.messages.size(), 1U);
            EXPECT_EQ(allocationFailures, before);
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(allocationFailures, before + 1);
        }
    });
}

TEST(AllocationFailure, WorkersReuseTheBlocksOfEarlierMessages) {
    const ql::impl::SpareBlocks spareBlocks;
    RecordingSocket socket(SomeSocket, nullptr);
    ScriptedSocket script;
    const Bytes payload = pattern(100000);
    const Bytes frame = clientFrame(0x82, payload);
    socket.messages.reserve(2);
    for (const bool again : {false, true}) {
        script.willReceive(frame);
        socket.setReadEnabled(true);
        ASSERT_TRUE(socket.readDataIfAvailable());
        socket.messages.clear();
        failAllocation(again ? 1 : 0);
        EXPECT_NO_THROW(socket.writeMessage(payload.data(), payload.size(), true));
        failAllocation(0);
        ASSERT_TRUE(socket.sendDataIfAvailable());
    }
}

TEST(AllocationFailure, WorkersReuseTheBlocksThatAReceiveLeftEmpty) {
    const ql::impl::SpareBlocks spareBlocks;
    RecordingSocket socket(SomeSocket, nullptr);
    { const ql::impl::BlockQueue::Room room(incoming(socket), 3); }
    failAllocation(1);
    EXPECT_NO_THROW(const ql::impl::BlockQueue::Room room(incoming(socket), 3));
    failAllocation(0);
}

class AllocationFailureInPool : public PoolTest {};

TEST_F(AllocationFailureInPool, ConnectionThatCannotBeTakenStaysWithTheCallerAndOpen) {
    using Offer = void (ql::http::WebSocketThread::*)(std::unique_ptr<WebSocket>&);
    struct Row {
        Offer offer;
        bool readPending;
    };
    for (const Row& row : {Row{&ql::http::WebSocketThread::addWebSocket, false},
                           Row{&ql::http::WebSocketThread::giveBackWebSocket, false},
                           Row{&ql::http::WebSocketThread::giveBackWebSocket, true}}) {
        pool = std::make_unique<ql::http::WebSocketThread>();
        std::unique_ptr<WebSocket> socket = makeSocket();
        socket->setReadEnabled(row.readPending);
        failAllocation(1);
        EXPECT_THROW((pool.get()->*row.offer)(socket), std::bad_alloc);
        failAllocation(0);
        ASSERT_NE(socket, nullptr);
        EXPECT_EQ(handles.back()->closes.count(), 0U);
        EXPECT_EQ(PoolLook(*pool).idle + PoolLook(*pool).ready, 0U);

        (pool.get()->*row.offer)(socket);
        EXPECT_EQ(socket, nullptr);
        EXPECT_EQ(PoolLook(*pool).idle + PoolLook(*pool).ready, 1U);
    }
}

TEST_F(AllocationFailureInPool, WorkerLosesOnlyTheConnectionItServes) {
    const TestLog log;
    std::atomic<std::uint64_t> victim{0};
    std::atomic<std::size_t> failingOnWorker{0};
    FakeSystem system;
    const StopAtExit stop{*pool};
    system.receive = [&](std::uint64_t socket, ql::impl::SocketBuffers buffers) {
        const std::int64_t result = ql::impl::systemSocketFunctions.receive(socket, buffers);
        failAllocation(socket == victim ? failingOnWorker.exchange(0) : 0);
        return result;
    };
    system.send = [&](std::uint64_t socket, ql::impl::SocketBuffers buffers) {
        // What did not fail until the answer must not fail in the next connection's turn.
        failAllocation(0);
        return ql::impl::systemSocketFunctions.send(socket, buffers);
    };
    pool->startThreads(1);
    UpgradeHandle& healthy = addSocket();
    const Bytes message = clientFrame(0x82, pattern(500));
    failEachAllocation([&](std::size_t failing) {
        const std::size_t before = allocationFailures;
        const std::size_t destroyedBefore = watch.destroyed.count();
        UpgradeHandle& handle = newHandle();
        std::unique_ptr<WebSocket> socket = std::make_unique<PoolSocket>(handle, watch);
        victim = handle.sockets.server;
        failingOnWorker = failing;
        pool->addWebSocket(socket);
        ASSERT_TRUE(sendAll(handle.sockets.client, message));
        const Bytes answer = receiveFrame(handle.sockets.client);
        expectEcho(healthy, "still here");
        if (allocationFailures > before) {
            ASSERT_TRUE(watch.destroyed.waitFor(destroyedBefore + 1));
            ASSERT_EQ(handle.closes.count(), 1U);
        } else {
            ASSERT_EQ(answer.size(), 504U);
            ASSERT_EQ(handle.closes.count(), 0U);
        }
        victim = 0;
    });
    EXPECT_FALSE(log.lines().empty());
}

TEST_F(AllocationFailureInPool, PollThreadLosesNothing) {
    class StarvedPool : public ql::http::WebSocketThread {
    public:
        explicit StarvedPool(std::size_t failing) : failing_(failing) {}
        ~StarvedPool() override { stopThreads(true); }

    protected:
        void run() override {
            failAllocation(failing_);
            WebSocketThread::run();
        }

    private:
        const std::size_t failing_;
    };
    failEachAllocation([&](std::size_t failing) {
        pool = std::make_unique<StarvedPool>(failing);
        for (int i = 0; i < 6; ++i) {
            addSocket();
            ASSERT_TRUE(sendAll(handles.back()->sockets.client, clientFrame(0x81, toBytes("hello"))));
        }
        pool->startThreads(1);
        for (int i = 0; i < 6; ++i) {
            addSocket();
            ASSERT_TRUE(sendAll(handles.back()->sockets.client, clientFrame(0x81, toBytes("hello"))));
        }
        for (const auto& handle : handles) {
            ASSERT_EQ(receiveFrame(handle->sockets.client), concatenate({{0x81, 5}, toBytes("hello")}));
            ASSERT_EQ(handle->closes.count(), 0U);
        }
        pool.reset();
        handles.clear();
    });
}

TEST_F(AllocationFailureInPool, PollThreadPutsConnectionsBackWithoutAllocating) {
    constexpr std::size_t Polled = 10;
    // Connections that come in during the cycle take the room of those that are being polled, if they can.
    for (const std::size_t added : {std::size_t{0}, std::size_t{10}}) {
        handles.clear();
        pool = std::make_unique<ql::http::WebSocketThread>();
        FakeSystem system;
        const StopAtExit stop{*pool};
        Counter polls;
        system.poll = [&](void* entries, std::size_t count, int timeoutMs) {
            if (polls.count() > 0) {
                return ql::impl::systemSocketFunctions.poll(entries, count, timeoutMs);
            }
            for (std::size_t i = 0; i < added; ++i) {
                addSocket();
            }
            polls.add();
            failAllocation(1);
            return 0;
        };
        for (std::size_t i = 0; i < Polled; ++i) {
            addSocket();
        }
        pool->startThreads(1);
        ASSERT_TRUE(polls.waitFor(1));
        ASSERT_EQ(handles.size(), Polled + added);
        for (const auto& handle : handles) {
            ASSERT_NO_FATAL_FAILURE(expectEcho(*handle, "still here"));
        }
    }
}

TEST_F(AllocationFailureInPool, ReadyQueueReusesItsNodes) {
    std::unique_ptr<WebSocket> socket = makeSocket();
    socket->setReadEnabled(true);
    pool->giveBackWebSocket(socket);
    pool->getFirstWebSocket(socket);
    failAllocation(1);
    EXPECT_NO_THROW(pool->giveBackWebSocket(socket));
    failAllocation(0);
    pool->getFirstWebSocket(socket);
    EXPECT_NE(socket, nullptr);
}

TEST_F(AllocationFailureInPool, StartThatFailsLeavesAStoppedPool) {
    failEachAllocation([&](std::size_t failing) {
        pool = std::make_unique<ql::http::WebSocketThread>();
        std::unique_ptr<WebSocket> socket = makeSocket();
        bool threw = false;
        failAllocation(failing);
        try {
            pool->startThreads(3);
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        failAllocation(0);
        pool->addWebSocket(socket);
        EXPECT_EQ(socket != nullptr, threw);
        EXPECT_EQ(handles.back()->closes.count(), threw ? 1U : 0U);
    });
}
