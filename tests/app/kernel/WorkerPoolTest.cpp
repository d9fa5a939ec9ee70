#include "app/kernel/WorkerPool.h"
#include "support/Event.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <limits>
#include <list>
#include <memory>
#include <thread>

using vireo::impl::WaitForClient;
using vireo::impl::WorkerPool;
using vireotest::Event;
using vireotest::letOthersRun;
using vireotest::TestLog;
using vireotest::waitUntil;

namespace {

/// Tasks that are held until the test lets them go.
struct Gate {
    Event open;
    std::atomic<int> inside{0};
    std::atomic<int> through{0};

    WorkerPool::Task task() {
        return [this] {
            ++inside;
            EXPECT_TRUE(open.wait());
            ++through;
        };
    }

    WorkerPool::Task waitingTask(WorkerPool& pool) {
        return [this, &pool] {
            const WaitForClient wait(&pool);
            ++inside;
            EXPECT_TRUE(open.wait());
            ++through;
        };
    }
};

} // namespace

TEST(WorkerPoolTest, RunsSoManyTasksAtOnceAsThereAreWorkers) {
    Gate gate;
    WorkerPool pool({2, 10, 10});
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(pool.push(gate.task(), "gate"));
    }
    EXPECT_TRUE(waitUntil([&] { return gate.inside == 2; }));
    letOthersRun();
    EXPECT_EQ(gate.inside, 2);
    EXPECT_EQ(pool.counts().busy, 2U);
    EXPECT_EQ(pool.counts().queued, 3U);
    gate.open.set();
    EXPECT_TRUE(waitUntil([&] { return gate.through == 5; }));
}

TEST(WorkerPoolTest, AFullQueueRefusesAndTheRestIsServed) {
    Gate gate;
    WorkerPool pool({1, 2, 10});
    EXPECT_TRUE(pool.push(gate.task(), "gate"));
    EXPECT_TRUE(waitUntil([&] { return gate.inside == 1; }));
    EXPECT_TRUE(pool.push(gate.task(), "gate"));
    EXPECT_TRUE(pool.push(gate.task(), "gate"));
    WorkerPool::Task refused = gate.task();
    EXPECT_FALSE(pool.push(std::move(refused), "refused"));
    EXPECT_TRUE(static_cast<bool>(refused)) << "what is refused stays the caller's";
    EXPECT_EQ(pool.counts().refused, 1U);
    gate.open.set();
    EXPECT_TRUE(waitUntil([&] { return gate.through == 3; }));
}

TEST(WorkerPoolTest, AQueueMayBeWithoutABound) {
    Gate gate;
    WorkerPool pool({2, (std::numeric_limits<std::size_t>::max)(), 10});
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(pool.push(gate.task(), "gate")) << i;
    }
    gate.open.set();
    EXPECT_TRUE(waitUntil([&] { return gate.through == 100; }));
}

TEST(WorkerPoolTest, AThreadThatWaitsForItsClientHoldsNoWorker) {
    Gate waiting;
    Event ran;
    WorkerPool pool({2, 100, 100});
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(pool.push(waiting.waitingTask(pool), "gate"));
    }
    EXPECT_TRUE(waitUntil([&] { return waiting.inside == 20; }));
    EXPECT_TRUE(pool.push([&] { ran.set(); }, "ran"));
    EXPECT_TRUE(ran.wait());
    waiting.open.set();
    EXPECT_TRUE(waitUntil([&] { return waiting.through == 20; }));
}

TEST(WorkerPoolTest, ThreadsBeyondTheWorkersGoWhenTheyAreThrough) {
    Gate waiting;
    WorkerPool pool({2, 100, 100});
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(pool.push(waiting.waitingTask(pool), "gate"));
    }
    EXPECT_TRUE(waitUntil([&] { return waiting.inside == 20; }));
    EXPECT_GE(pool.counts().threads, 20U);
    waiting.open.set();
    EXPECT_TRUE(waitUntil([&] { return pool.counts().threads == 2; }));
}

TEST(WorkerPoolTest, NoMoreThreadsAreMadeThanAreAllowed) {
    Gate waiting;
    WorkerPool pool({2, 100, 3});
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(pool.push(waiting.waitingTask(pool), "gate"));
    }
    EXPECT_TRUE(waitUntil([&] { return waiting.inside == 5; }));
    letOthersRun();
    EXPECT_EQ(waiting.inside, 5);
    EXPECT_EQ(pool.counts().threads, 5U);
    waiting.open.set();
    EXPECT_TRUE(waitUntil([&] { return waiting.through == 20; }));
}

TEST(WorkerPoolTest, StopRunsWhatWaitsAndThenRefuses) {
    Gate gate;
    gate.open.set();
    WorkerPool pool({1, 100, 3});
    for (int i = 0; i < 50; ++i) {
        EXPECT_TRUE(pool.push(gate.task(), "gate"));
    }
    pool.stop();
    EXPECT_EQ(gate.through, 50);
    EXPECT_FALSE(pool.push(gate.task(), "gate"));
}

TEST(WorkerPoolTest, ATaskIsRunWhateverTheThreadsAreAboutToDo) {
    // Each comes when the one before has run: threads look for it, go to sleep or are woken.
    WorkerPool pool({3, 10, 0});
    std::atomic<int> ran{0};
    const auto bring = [&] {
        for (int i = 0; i < 5000; ++i) {
            std::atomic<bool> hasRun{false};
            EXPECT_TRUE(pool.push(
                [&] {
                    ++ran;
                    hasRun = true;
                },
                "ran"));
            while (!hasRun) {
                std::this_thread::yield();
            }
        }
    };
    std::thread other(bring);
    bring();
    other.join();
    EXPECT_EQ(ran, 10000);
}

TEST(WorkerPoolTest, WhatATaskThrowsEndsNoThread) {
    Event ran;
    WorkerPool pool({1, 10, 0});
    EXPECT_TRUE(pool.push([] { throw 1; }, "throws"));
    EXPECT_TRUE(pool.push([&] { ran.set(); }, "ran"));
    EXPECT_TRUE(ran.wait());
}

TEST(WorkerPoolTest, ATaskIsDestroyedBeforeItsThreadTakesTheNext) {
    Event next;
    WorkerPool pool({1, 10, 0});
    auto held = std::make_shared<int>(0);
    const std::weak_ptr<int> watched = held;
    EXPECT_TRUE(pool.push([held = std::move(held)] {}, "holds"));
    EXPECT_TRUE(pool.push(
        [&] {
            EXPECT_TRUE(watched.expired());
            next.set();
        },
        "next"));
    EXPECT_TRUE(next.wait());
}

TEST(WorkerPoolTest, AStopSaysWhatItWaitsFor) {
    const TestLog log;
    Gate gate;
    WorkerPool pool({2, 10, 0, 20});
    EXPECT_TRUE(pool.push(gate.task(), "/slow"));
    EXPECT_TRUE(waitUntil([&] { return gate.inside == 1; }));
    std::thread stopper([&] { pool.stop(); });
    EXPECT_TRUE(waitUntil([&] { return !log.texts(qlLogType::Failure, "waits for the handler of /slow").empty(); }));
    gate.open.set();
    stopper.join();
}
