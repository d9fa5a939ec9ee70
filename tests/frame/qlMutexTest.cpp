#include "vireo/support/qlMutex.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <optional>
#include <thread>
#include <vector>

namespace {

/// Long enough for a thread to get through a free mutex, were it free.
constexpr std::chrono::milliseconds Patience{50};

/// A thread that goes once through the mutex.
class Contender {
public:
    explicit Contender(qlMutex& mutex)
        : thread_([this, &mutex] {
              const qlMutexLocker locker(mutex);
              entered_.set_value();
          }) {}
    ~Contender() { thread_.join(); }
    Contender(const Contender&) = delete;
    Contender& operator=(const Contender&) = delete;

    /// Whether it gets in while the mutex is said to be held.
    bool entersWithinPatience() { return future_.wait_for(Patience) == std::future_status::ready; }
    void awaitEntry() { future_.wait(); }

private:
    std::promise<void> entered_;
    std::future<void> future_ = entered_.get_future();
    std::thread thread_;
};

/// The compiler's analysis cannot follow a locker that is made without locking.
void lockUnanalysed(qlMutexLocker& locker) QL_NO_THREAD_SAFETY_ANALYSIS {
    locker.lock();
}

void unlockUnanalysed(qlMutex& mutex) QL_NO_THREAD_SAFETY_ANALYSIS {
    mutex.unlock();
}

/// Leaves the mutex locked, by this thread and after a locker without it has gone.
void lockAroundIdleLocker(qlMutex& mutex) QL_NO_THREAD_SAFETY_ANALYSIS {
    mutex.lock();
    const qlMutexLocker locker(mutex, false);
}

/// Leaves the mutex locked, by this thread and after a locker that had let go of it has gone.
void lockAroundUnlockedLocker(qlMutex& mutex) QL_NO_THREAD_SAFETY_ANALYSIS {
    qlMutexLocker locker(mutex);
    locker.unlock();
    mutex.lock();
}

TEST(qlMutex, ExcludesOtherThreads) {
    constexpr int threadCount = 4;
    constexpr int rounds = 2000;
    qlMutex mutex;
    int unprotected = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                mutex.lock();
                ++unprotected;
                mutex.unlock();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(unprotected, threadCount * rounds);
}

TEST(qlMutexLocker, HoldsTheMutexUntilItGoes) {
    qlMutex mutex;
    std::optional<Contender> contender;
    {
        const qlMutexLocker locker(mutex);
        contender.emplace(mutex);
        EXPECT_FALSE(contender->entersWithinPatience());
    }
    contender->awaitEntry();
}

TEST(qlMutexLocker, TrueLocksAtConstruction) {
    qlMutex mutex;
    std::optional<Contender> contender;
    {
        const qlMutexLocker locker(mutex, true);
        contender.emplace(mutex);
        EXPECT_FALSE(contender->entersWithinPatience());
    }
    contender->awaitEntry();
}

TEST(qlMutexLocker, FalseLeavesTheMutexFree) {
    qlMutex mutex;
    const qlMutexLocker locker(mutex, false);
    Contender contender(mutex);
    contender.awaitEntry();
}

TEST(qlMutexLocker, WithoutTheMutexItsEndUnlocksNothing) {
    qlMutex mutex;
    lockAroundIdleLocker(mutex);
    Contender contender(mutex);
    EXPECT_FALSE(contender.entersWithinPatience());
    unlockUnanalysed(mutex);
    contender.awaitEntry();
}

TEST(qlMutexLocker, AfterUnlockItsEndUnlocksNothing) {
    qlMutex mutex;
    lockAroundUnlockedLocker(mutex);
    Contender contender(mutex);
    EXPECT_FALSE(contender.entersWithinPatience());
    unlockUnanalysed(mutex);
    contender.awaitEntry();
}

TEST(qlMutexLocker, FalseLocksLater) {
    qlMutex mutex;
    std::optional<Contender> contender;
    {
        qlMutexLocker locker(mutex, false);
        lockUnanalysed(locker);
        contender.emplace(mutex);
        EXPECT_FALSE(contender->entersWithinPatience());
    }
    contender->awaitEntry();
}

TEST(qlMutexLocker, UnlockLetsGoBeforeTheScopeEnds) {
    qlMutex mutex;
    qlMutexLocker locker(mutex);
    locker.unlock();
    Contender contender(mutex);
    contender.awaitEntry();
}

TEST(qlMutexLocker, LockAfterUnlockHoldsAgain) {
    qlMutex mutex;
    std::optional<Contender> contender;
    {
        qlMutexLocker locker(mutex);
        locker.unlock();
        locker.lock();
        contender.emplace(mutex);
        EXPECT_FALSE(contender->entersWithinPatience());
    }
    contender->awaitEntry();
}

} // namespace
