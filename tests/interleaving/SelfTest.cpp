// What the scheduler goes through, what it finds, and what it leaves alone.

#include "interleaving/Explore.h"
#include "support/Interleavings.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>

namespace {

using std::chrono::seconds;
using testing::ExitedWithCode;
using vireotest::exploreAll;
using vireotest::exploreRandomly;

TEST(InterleavingSelfTest, GoesThroughEachOrderOfTwoThreads) {
    std::set<std::string> orders;
    exploreAll(
        [&orders] {
            std::mutex mutex;
            std::string order;
            const auto append = [&](char name) {
                for (int i = 0; i < 2; ++i) {
                    const std::lock_guard lock(mutex);
                    order += name;
                }
            };
            std::thread a(append, 'a');
            std::thread b(append, 'b');
            a.join();
            b.join();
            orders.insert(order);
        },
        4);
    EXPECT_EQ(orders, (std::set<std::string>{"aabb", "abab", "abba", "baab", "baba", "bbaa"}));
}

TEST(InterleavingSelfTest, FindsTwoLocksTakenInTurns) {
    const auto crossed = [] {
        std::mutex first;
        std::mutex second;
        std::thread a([&] {
            const std::lock_guard outer(first);
            const std::lock_guard inner(second);
        });
        std::thread b([&] {
            const std::lock_guard outer(second);
            const std::lock_guard inner(first);
        });
        a.join();
        b.join();
    };
    EXPECT_EXIT(exploreAll(crossed, 1), ExitedWithCode(1), "no thread can go on \\(run");
    EXPECT_EXIT(exploreRandomly(crossed, 1000), ExitedWithCode(1), "no thread can go on \\(VIREO_SEED=");
}

/// One waits for what another brings.
void handOver(bool looksUnderTheLock) {
    std::mutex mutex;
    std::condition_variable came;
    bool isThere = false;
    std::thread giver([&] {
        {
            const std::lock_guard lock(mutex);
            isThere = true;
        }
        came.notify_one();
    });
    {
        std::unique_lock lock(mutex);
        if (!looksUnderTheLock) {
            const bool isThereAlready = isThere;
            lock.unlock();
            lock.lock();
            if (!isThereAlready) {
                came.wait(lock);
            }
        } else {
            came.wait(lock, [&] { return isThere; });
        }
    }
    giver.join();
}

TEST(InterleavingSelfTest, FindsALostWakeUp) {
    ASSERT_GT(exploreAll([] { handOver(true); }, 2), 5U);
    EXPECT_EXIT(exploreAll([] { handOver(false); }, 2), ExitedWithCode(1), "no thread can go on");
}

TEST(InterleavingSelfTest, TimePassesOnlyWhereNobodyElseCanGoOn) {
    exploreAll(
        [] {
            std::mutex mutex;
            std::condition_variable came;
            const auto begin = std::chrono::steady_clock::now();
            std::thread sleeper([] { std::this_thread::sleep_for(seconds(5)); });
            {
                std::unique_lock lock(mutex);
                vireotest::expectNoTimeHasPassed();
                EXPECT_EQ(came.wait_for(lock, seconds(3)), std::cv_status::timeout);
                EXPECT_EQ(std::chrono::steady_clock::now() - begin, seconds(3));
            }
            sleeper.join();
            EXPECT_EQ(std::chrono::steady_clock::now() - begin, seconds(5));
        },
        2);
    EXPECT_EXIT(exploreAll(
                    [] {
                        std::this_thread::sleep_for(seconds(1));
                        vireotest::expectNoTimeHasPassed();
                    },
                    0),
                ExitedWithCode(1), "somebody waited for the time");
}

TEST(InterleavingSelfTest, WhoLooksForAnotherLetsHimWork) {
    exploreAll(
        [] {
            std::mutex mutex;
            bool isDone = false;
            std::thread other([&] {
                const std::lock_guard lock(mutex);
                isDone = true;
            });
            while (true) {
                {
                    const std::lock_guard lock(mutex);
                    if (isDone) {
                        break;
                    }
                }
                std::this_thread::yield();
            }
            other.join();
        },
        3);
    EXPECT_EXIT(exploreAll(
                    [] {
                        std::mutex mutex;
                        while (true) {
                            const std::lock_guard lock(mutex);
                            std::this_thread::yield();
                        }
                    },
                    0),
                ExitedWithCode(1), "no thread can go on");
}

TEST(InterleavingSelfTest, ExpectationThatFailsEndsTheSearch) {
    EXPECT_EXIT(exploreAll([] { EXPECT_TRUE(false); }, 0), ExitedWithCode(1), "an expectation failed");
}

} // namespace
