#include "app/kernel/WorkerPool.h"

#include "interleaving/Explore.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>

namespace {

using vireo::impl::WorkerPool;
using vireotest::exploreAll;
using vireotest::exploreRandomly;

/// Counts what has run, and waits for it.
class Runs {
public:
    WorkerPool::Task task() {
        return [this] {
            const std::lock_guard lock(mutex_);
            ++count_;
        };
    }
    int count() const {
        const std::lock_guard lock(mutex_);
        return count_;
    }

private:
    mutable std::mutex mutex_;
    int count_ = 0;
};

/// Tasks from two threads, and a stop behind them.
void pushFromTwo(unsigned int workers, int tasksEach) {
    Runs runs;
    {
        WorkerPool pool({workers});
        const auto push = [&] {
            for (int i = 0; i < tasksEach; ++i) {
                EXPECT_TRUE(pool.push(runs.task(), "task"));
            }
        };
        std::thread other(push);
        push();
        other.join();
        pool.stop();
    }
    EXPECT_EQ(runs.count(), 2 * tasksEach);
    vireotest::expectNoTimeHasPassed();
}

TEST(WorkerPoolInterleavingTest, EachTaskRunsBeforeTheStop) {
    ASSERT_GT(exploreAll([] { pushFromTwo(1, 1); }, 4), 30U);
    exploreRandomly([] { pushFromTwo(2, 4); }, 2000);
}

/// A task runs without a stop that would wake its worker.
TEST(WorkerPoolInterleavingTest, WhoHasGoneToSleepIsWokenForATask) {
    const auto pushAndWait = [](unsigned int workers) {
        Runs runs;
        WorkerPool pool({workers});
        for (int i = 1; i <= 2; ++i) {
            EXPECT_TRUE(pool.push(runs.task(), "task"));
            while (runs.count() < i) {
                std::this_thread::yield();
            }
        }
        vireotest::expectNoTimeHasPassed();
    };
    ASSERT_GT(exploreAll([&] { pushAndWait(1); }, 4), 10U);
    exploreRandomly([&] { pushAndWait(1); }, 1000);
    exploreRandomly([&] { pushAndWait(2); }, 1000);
}

/// The task that waits for a client makes room for the one that ends its wait.
TEST(WorkerPoolInterleavingTest, TaskThatWaitsForAClientHoldsUpNoOther) {
    const auto waitForAnother = [] {
        Runs before;
        Runs after;
        WorkerPool pool({1});
        EXPECT_TRUE(pool.push(
            [&] {
                pool.begin();
                while (before.count() == 0) {
                    std::this_thread::yield();
                }
                pool.end();
                after.task()();
            },
            "waits"));
        EXPECT_TRUE(pool.push(before.task(), "is waited for"));
        while (after.count() == 0) {
            std::this_thread::yield();
        }
        pool.stop();
        EXPECT_EQ(after.count(), 1);
        vireotest::expectNoTimeHasPassed();
    };
    ASSERT_GT(exploreAll(waitForAnother, 2), 30U);
    exploreRandomly(waitForAnother, 2000);
}

} // namespace
