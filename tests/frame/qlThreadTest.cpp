#include "vireo/support/qlThread.h"

#include "support/RawSocket.h"
#include "support/TestLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::SizeIs;
using vireotest::soon;
using vireotest::TestLog;
using Clock = std::chrono::steady_clock;

/// A thread with the body of a test.
class BodyThread : public qlThread {
public:
    explicit BodyThread(std::function<void()> body) : body_(std::move(body)) {}
    ~BodyThread() override { waitThread(NoTimeLimit); }

    using qlThread::getRunNumber;
    using qlThread::waitRun;

protected:
    void run() override { body_(); }

private:
    std::function<void()> body_;
};

/// A gate that opens once.
class Gate {
public:
    void open() { promise_.set_value(); }
    void await() const { future_.wait(); }

private:
    std::promise<void> promise_;
    std::shared_future<void> future_ = promise_.get_future().share();
};

TEST(qlThread, RunsItsBodyOnAnotherThread) {
    std::string bodyId;
    BodyThread thread([&] { bodyId = qlThread::CurrentThreadId(); });
    thread.startThread(nullptr);
    EXPECT_TRUE(thread.waitThread(qlThread::NoTimeLimit));
    EXPECT_FALSE(bodyId.empty());
    EXPECT_NE(bodyId, qlThread::CurrentThreadId());
}

TEST(qlThread, IsNotStartedByItsConstruction) {
    bool ran = false;
    {
        BodyThread thread([&] { ran = true; });
    }
    EXPECT_FALSE(ran);
}

TEST(qlThread, NeverStartedOneNeedsNoWaiting) {
    BodyThread thread([] {});
    EXPECT_TRUE(thread.waitThread(0));
    EXPECT_TRUE(thread.waitThread(qlThread::NoTimeLimit));
}

TEST(qlThread, WaitingAgainAfterTheJoinIsTrueAtOnce) {
    BodyThread thread([] {});
    thread.startThread(nullptr);
    EXPECT_TRUE(thread.waitThread(qlThread::NoTimeLimit));
    EXPECT_TRUE(thread.waitThread(qlThread::NoTimeLimit));
    EXPECT_TRUE(thread.waitThread(0));
}

TEST(qlThread, WaitEndsWithFalseAfterItsTime) {
    Gate gate;
    BodyThread thread([&] { gate.await(); });
    thread.startThread(nullptr);
    const Clock::time_point start = Clock::now();
    EXPECT_FALSE(thread.waitThread(30));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(30));
    EXPECT_FALSE(thread.waitThread(0));
    EXPECT_FALSE(thread.waitThread(-1));
    gate.open();
    EXPECT_TRUE(thread.waitThread(qlThread::NoTimeLimit));
}

TEST(qlThread, TheLongestTimeIsNoLimit) {
    EXPECT_EQ(qlThread::NoTimeLimit, 2147483647);
    Gate gate;
    BodyThread thread([&] { gate.await(); });
    thread.startThread(nullptr);
    std::future<bool> waited =
        std::async(std::launch::async, [&thread] { return thread.waitThread(qlThread::NoTimeLimit); });
    // The wait cannot be over while the body is not; 30 ms give it the chance to be wrong.
    EXPECT_EQ(waited.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
    gate.open();
    EXPECT_TRUE(waited.get());
}

TEST(qlThread, SeveralThreadsMayWaitAtOnce) {
    for (int round = 0; round < 20; ++round) {
        Gate gate;
        BodyThread thread([&] { gate.await(); });
        thread.startThread(nullptr);
        std::vector<std::future<bool>> waits;
        for (int i = 0; i < 3; ++i) {
            waits.push_back(
                std::async(std::launch::async, [&thread] { return thread.waitThread(qlThread::NoTimeLimit); }));
        }
        gate.open();
        for (std::future<bool>& wait : waits) {
            EXPECT_TRUE(wait.get());
        }
    }
}

TEST(qlThread, WhatTheBodyWroteIsSeenAfterTheWait) {
    int value = 0;
    BodyThread thread([&] { value = 42; });
    thread.startThread(nullptr);
    ASSERT_TRUE(thread.waitThread(qlThread::NoTimeLimit));
    EXPECT_EQ(value, 42);
}

TEST(qlThread, CannotWaitForItself) {
    bool result = true;
    qlThread* self = nullptr;
    BodyThread thread([&] { result = self->waitThread(qlThread::NoTimeLimit); });
    self = &thread;
    thread.startThread(nullptr);
    EXPECT_TRUE(thread.waitThread(qlThread::NoTimeLimit));
    EXPECT_FALSE(result);
}

TEST(qlThread, SecondStartWhileRunningDoesNothing) {
    int runs = 0;
    Gate gate;
    BodyThread thread([&] {
        ++runs;
        gate.await();
    });
    thread.startThread(nullptr);
    thread.startThread(nullptr);
    gate.open();
    EXPECT_TRUE(thread.waitThread(qlThread::NoTimeLimit));
    EXPECT_EQ(runs, 1);
}

TEST(qlThread, CanStartAgainAfterItsEndWithOrWithoutAWait) {
    int runs = 0;
    std::vector<std::promise<void>> ended(3);
    BodyThread thread([&] {
        const auto run = static_cast<std::size_t>(runs++);
        ended.at(run).set_value();
    });
    thread.startThread(nullptr);
    EXPECT_TRUE(thread.waitThread(qlThread::NoTimeLimit));
    thread.startThread(nullptr);
    ended[1].get_future().wait();
    // The body has ended, its thread perhaps not yet: then this start does nothing, so it is repeated until it took.
    std::future<void> third = ended[2].get_future();
    for (int attempt = 0; attempt < 10000 && third.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
         ++attempt) {
        thread.startThread(nullptr);
        third.wait_for(std::chrono::milliseconds(1));
    }
    EXPECT_TRUE(thread.waitThread(qlThread::NoTimeLimit));
    EXPECT_EQ(runs, 3);
}

TEST(qlThread, RunsAreCounted) {
    BodyThread thread([] {});
    EXPECT_EQ(thread.getRunNumber(), 0U);
    for (const std::uint64_t number : {1U, 2U, 3U}) {
        thread.startThread(nullptr);
        EXPECT_EQ(thread.getRunNumber(), number);
        thread.waitThread(qlThread::NoTimeLimit);
        EXPECT_EQ(thread.getRunNumber(), number);
    }
}

TEST(qlThread, WaitForARunDoesNotWaitForTheNext) {
    for (int round = 0; round < 100; ++round) {
        Gate first;
        Gate second;
        std::atomic<int> runs{0};
        BodyThread thread([&] { (++runs == 1 ? first : second).await(); });
        thread.startThread(nullptr);
        std::future<bool> waited = std::async(std::launch::async, [&thread, number = thread.getRunNumber()] {
            return thread.waitRun(number, qlThread::NoTimeLimit);
        });
        first.open();
        while (runs < 2) {
            thread.startThread(nullptr);
        }
        const std::future_status status = waited.wait_until(soon());
        second.open();
        ASSERT_EQ(status, std::future_status::ready);
        EXPECT_TRUE(waited.get());
        EXPECT_TRUE(thread.waitThread(qlThread::NoTimeLimit));
    }
}

TEST(qlThread, RunsThatAreOverNeedNoWaiting) {
    Gate gate;
    bool isGated = false;
    BodyThread thread([&] {
        if (isGated) {
            gate.await();
        }
    });
    EXPECT_TRUE(thread.waitRun(thread.getRunNumber(), qlThread::NoTimeLimit));
    thread.startThread(nullptr);
    thread.waitThread(qlThread::NoTimeLimit);
    isGated = true;
    thread.startThread(nullptr);
    EXPECT_TRUE(thread.waitRun(1, qlThread::NoTimeLimit));
    EXPECT_FALSE(thread.waitRun(2, 0));
    gate.open();
    EXPECT_TRUE(thread.waitRun(2, qlThread::NoTimeLimit));
}

TEST(qlThread, DestructionWaitsForTheBody) {
    bool ended = false;
    {
        BodyThread thread([&] {
            qlThread::msleep(20);
            ended = true;
        });
        thread.startThread(nullptr);
    }
    EXPECT_TRUE(ended);
}

TEST(qlThread, ExceptionThatLeavesTheBodyIsLoggedAndEndsTheThread) {
    const TestLog log;
    BodyThread thread([] { throw std::runtime_error("the reason"); });
    thread.startThread(nullptr);
    EXPECT_TRUE(thread.waitThread(qlThread::NoTimeLimit));
    EXPECT_THAT(log.lines(), SizeIs(1));
    EXPECT_THAT(log.texts(qlLogType::Failure), ElementsAre("a thread threw an exception : the reason"));
}

TEST(qlThread, UnknownExceptionIsLoggedToo) {
    const TestLog log;
    BodyThread thread([] { throw 42; });
    thread.startThread(nullptr);
    EXPECT_TRUE(thread.waitThread(qlThread::NoTimeLimit));
    EXPECT_THAT(log.texts(qlLogType::Failure), ElementsAre("a thread threw an exception of an unknown type"));
}

TEST(qlThread, AnyNameIsAccepted) {
    for (const char* name : {"", "short", "fifteen letters", "longer than fifteen letters", "\xC3\xA9\xC3\xA9"}) {
        bool ran = false;
        BodyThread thread([&] { ran = true; });
        thread.startThread(name);
        EXPECT_TRUE(thread.waitThread(qlThread::NoTimeLimit));
        EXPECT_TRUE(ran) << name;
    }
}

TEST(qlThread, TheNameIsCopied) {
    Gate gate;
    BodyThread thread([&] { gate.await(); });
    {
        const std::string name = "short lived";
        thread.startThread(name.c_str());
    }
    gate.open();
    EXPECT_TRUE(thread.waitThread(qlThread::NoTimeLimit));
}

TEST(qlThread, SleepLastsAtLeastItsTime) {
    const Clock::time_point start = Clock::now();
    qlThread::msleep(20);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(20));
    qlThread::msleep(0);
}

TEST(CurrentThreadId, IsTheSameObjectForTheLifeOfTheThread) {
    EXPECT_FALSE(qlThread::CurrentThreadId().empty());
    EXPECT_EQ(&qlThread::CurrentThreadId(), &qlThread::CurrentThreadId());
}

TEST(CurrentThreadId, LiveThreadsHaveDistinctIds) {
    constexpr std::size_t threadCount = 8;
    Gate gate;
    std::vector<std::string> ids(threadCount);
    std::vector<std::thread> threads;
    for (std::string& id : ids) {
        threads.emplace_back([&] {
            gate.await();
            id = qlThread::CurrentThreadId();
        });
    }
    gate.open();
    for (std::thread& thread : threads) {
        thread.join();
    }
    ids.push_back(qlThread::CurrentThreadId());
    EXPECT_EQ(std::set<std::string>(ids.begin(), ids.end()).size(), threadCount + 1);
}

TEST(CurrentThreadId, IdsOfEndedThreadsAreNotGivenAgain) {
    // One after the other, so that the system reuses its own ids.
    constexpr std::size_t threadCount = 100;
    std::set<std::string> ids{qlThread::CurrentThreadId()};
    for (std::size_t i = 0; i < threadCount; ++i) {
        std::string id;
        std::thread([&id] { id = qlThread::CurrentThreadId(); }).join();
        ids.insert(id);
    }
    EXPECT_EQ(ids.size(), threadCount + 1);
}

} // namespace
