#include "session/pool/PoolFakes.h"
#include "support/FailingCalls.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <system_error>
#include <thread>

using namespace pooltest;
using namespace ql::impl;
using vireotest::failCall;
using vireotest::FailingCall;

namespace {

/// Does it on a thread of its own, as calls of this one do not fail, with the nth call of the kind failing.
/// @return whether that was thrown.
bool throwsWith(FailingCall kind, std::size_t nth, const std::function<void()>& action) {
    bool isThrown = false;
    failCall(kind, nth);
    std::thread([&] {
        try {
            action();
        } catch (const std::system_error&) {
            isThrown = true;
        }
    }).join();
    failCall(kind, 0);
    return isThrown;
}

} // namespace

TEST(PoolFaults, PoolIsNotMadeWithoutItsDescriptors) {
    for (std::size_t nth = 1; nth <= 3; ++nth) {
        EXPECT_TRUE(throwsWith(FailingCall::Descriptor, nth, [] { makeReadiness(); })) << nth;
    }
    for (std::size_t nth = 1; nth <= 2; ++nth) {
        EXPECT_TRUE(throwsWith(FailingCall::Watch, nth, [] { makeReadiness(); })) << nth;
    }
}

TEST(PoolFaults, PoolIsNotMadeWithoutAllItsThreads) {
    // The first is that of the test.
    for (std::size_t nth = 2; nth <= 4; ++nth) {
        EXPECT_TRUE(throwsWith(FailingCall::ThreadStart, nth, [] { const TaskPool pool(3); })) << nth;
    }
}

TEST(PoolFaults, TaskWhoseSocketCannotBeWatchedIsNotAdded) {
    Watch watch;
    TaskPool pool(2);
    const auto task = std::make_shared<Task>(watch);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(throwsWith(FailingCall::Watch, 1, [&] { pool.add(task); }));
        EXPECT_EQ(task.use_count(), 1);
        EXPECT_FALSE(pool.remove(*task));
    }
    task->schedule();
    EXPECT_EQ(watch.turns.count(), 0U);
    ASSERT_TRUE(pool.add(task));
    EXPECT_TRUE(task->answers());
}
