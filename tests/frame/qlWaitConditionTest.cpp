#include "vireo/support/qlWaitCondition.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

/// Threads that wait until they may go. All state is guarded by the mutex, so that a waiter that is counted is inside
/// wait() by the time anybody else has the mutex.
class Waiters {
public:
    explicit Waiters(int count) {
        for (int i = 0; i < count; ++i) {
            threads_.emplace_back([this] {
                const qlMutexLocker locker(mutex_);
                ++waiting_;
                arrived_.wakeAll();
                while (permits_ == 0) {
                    condition_.wait(&mutex_, qlWaitCondition::NoTimeLimit);
                }
                --permits_;
                ++released_;
                arrived_.wakeAll();
            });
        }
        awaitCount(waiting_, count);
    }
    ~Waiters() {
        {
            const qlMutexLocker locker(mutex_);
            permits_ = static_cast<int>(threads_.size());
            condition_.wakeAll();
        }
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }
    Waiters(const Waiters&) = delete;
    Waiters& operator=(const Waiters&) = delete;

    void permit(int count) {
        const qlMutexLocker locker(mutex_);
        permits_ = count;
    }
    void wakeOne() { condition_.wakeOne(); }
    void wakeAll() { condition_.wakeAll(); }
    void awaitReleased(int count) { awaitCount(released_, count); }

private:
    void awaitCount(const int& value, int count) {
        const qlMutexLocker locker(mutex_);
        while (value < count) {
            arrived_.wait(&mutex_, qlWaitCondition::NoTimeLimit);
        }
    }

    qlMutex mutex_;
    qlWaitCondition condition_;
    qlWaitCondition arrived_;
    int waiting_ = 0;
    int permits_ = 0;
    int released_ = 0;
    std::vector<std::thread> threads_;
};

TEST(qlWaitCondition, WithoutWakeUpItReturnsFalseAfterTheTime) {
    qlMutex mutex;
    qlWaitCondition condition;
    const Clock::time_point start = Clock::now();
    const qlMutexLocker locker(mutex);
    bool woken = true;
    // A wait may end early for no reason, but not again and again.
    for (int i = 0; i < 100 && woken; ++i) {
        woken = condition.wait(&mutex, 50);
    }
    EXPECT_FALSE(woken);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(50));
}

TEST(qlWaitCondition, NoTimeAtAllReturnsAtOnce) {
    qlMutex mutex;
    qlWaitCondition condition;
    const qlMutexLocker locker(mutex);
    EXPECT_FALSE(condition.wait(&mutex, 0));
}

/// @return what a wait says that another thread ends.
bool waitUntilWoken(unsigned long limitMs) {
    qlMutex mutex;
    qlWaitCondition condition;
    bool ready = false;
    bool woken = false;
    qlMutexLocker locker(mutex);
    std::thread other([&] {
        const qlMutexLocker otherLocker(mutex);
        ready = true;
        condition.wakeAll();
    });
    while (!ready) {
        woken = condition.wait(&mutex, limitMs);
    }
    locker.unlock();
    other.join();
    return woken;
}

TEST(qlWaitCondition, TheLongestTimeHasNoLimitAndReturnsTrueWhenWoken) {
    EXPECT_EQ(qlWaitCondition::NoTimeLimit, 4294967295UL);
    EXPECT_TRUE(waitUntilWoken(4294967295UL));
}

TEST(qlWaitCondition, WakeUpEndsATimedWaitEarly) {
    EXPECT_TRUE(waitUntilWoken(600000));
}

TEST(qlWaitCondition, TheMutexIsFreeDuringTheWaitAndHeldAfterIt) {
    constexpr int rounds = 1000;
    qlMutex mutex;
    qlWaitCondition condition;
    int made = 0;
    int unprotected = 0;
    int waits = 0;
    qlMutexLocker locker(mutex);
    std::thread other([&] {
        for (int i = 0; i < rounds; ++i) {
            const qlMutexLocker otherLocker(mutex);
            ++made;
            ++unprotected;
            condition.wakeAll();
        }
    });
    // Were the mutex kept during the wait, the other thread could never finish; were it not taken again, the two
    // would lose increments.
    while (made < rounds) {
        condition.wait(&mutex, qlWaitCondition::NoTimeLimit);
        ++waits;
        ++unprotected;
    }
    locker.unlock();
    other.join();
    EXPECT_EQ(unprotected, rounds + waits);
}

TEST(qlWaitCondition, WakeAllReleasesEveryWaiter) {
    Waiters waiters(4);
    waiters.permit(4);
    waiters.wakeAll();
    waiters.awaitReleased(4);
}

TEST(qlWaitCondition, WakeOneReleasesAWaiterEachTime) {
    Waiters waiters(3);
    waiters.permit(1);
    waiters.wakeOne();
    waiters.awaitReleased(1);
    waiters.permit(1);
    waiters.wakeOne();
    waiters.awaitReleased(2);
}

TEST(qlWaitCondition, WakingNobodyIsAllowed) {
    qlMutex mutex;
    qlWaitCondition condition;
    condition.wakeOne();
    condition.wakeAll();
    const qlMutexLocker locker(mutex);
    // Wake-ups are not stored.
    EXPECT_FALSE(condition.wait(&mutex, 1));
}

} // namespace
