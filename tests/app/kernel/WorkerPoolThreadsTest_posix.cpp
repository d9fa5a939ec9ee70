#include "app/kernel/WorkerPool.h"
#include "support/Event.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <string>

#include <dlfcn.h>
#include <pthread.h>

using vireo::impl::WaitForClient;
using vireo::impl::WorkerPool;
using vireotest::Event;
using vireotest::waitUntil;

namespace {

constexpr int Any = -1;
/// How many threads the system still has.
std::atomic<int> threadsLeft{Any};

/// As long as it lives the system has no more threads than that.
struct ThreadLimit {
    explicit ThreadLimit(int left) { threadsLeft = left; }
    ~ThreadLimit() { threadsLeft = Any; }
    ThreadLimit(const ThreadLimit&) = delete;
    ThreadLimit& operator=(const ThreadLimit&) = delete;
};

} // namespace

// The program's own function goes before that of a shared library.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                              void* argument) {
    static auto* const next = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    if (threadsLeft == 0) {
        return EAGAIN;
    }
    if (threadsLeft != Any) {
        --threadsLeft;
    }
    return next(thread, attributes, body, argument);
}

TEST(WorkerPoolTest, SaysThatThereAreNotEnoughThreadsAndEndsThoseThatItHas) {
    for (int left = 0; left < 3; ++left) {
        const ThreadLimit limit(left);
        try {
            const WorkerPool pool({3, 10, 10});
            ADD_FAILURE() << "there are " << left << " threads";
        } catch (const std::runtime_error& error) {
            const std::string begin = "of 3 workers only " + std::to_string(left) + " have found a thread : ";
            EXPECT_EQ(std::string(error.what()).substr(0, begin.size()), begin);
        }
    }
}

TEST(WorkerPoolTest, WaitsForAFreeThreadWhereTheSystemHasNoOther) {
    Event open;
    Event ran;
    std::atomic<bool> isWaiting{false};
    WorkerPool pool({1, 10, 10});
    const ThreadLimit limit(0);
    EXPECT_TRUE(pool.push(
        [&] {
            const WaitForClient wait(&pool);
            isWaiting = true;
            EXPECT_TRUE(open.wait());
        },
        "waits"));
    EXPECT_TRUE(waitUntil([&] { return isWaiting.load(); }));
    EXPECT_TRUE(pool.push([&] { ran.set(); }, "ran"));
    EXPECT_EQ(pool.counts().threads, 1U);
    open.set();
    EXPECT_TRUE(ran.wait());
}
