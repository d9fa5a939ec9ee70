#include "app/kernel/WorkerPool.h"
#include "support/FailingAllocation.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>

using vireo::impl::WorkerPool;
using vireotest::waitUntil;

TEST(WorkerPoolMemoryTest, TaskWhoseLabelCannotBeKeptIsRunAllTheSame) {
    const std::string label(100, 'l');
    std::atomic<int> runs{0};
    WorkerPool pool({1, 10, 10});
    vireotest::failAllocationOfOthers(1);
    EXPECT_TRUE(pool.push([&] { ++runs; }, label));
    EXPECT_TRUE(waitUntil([&] { return runs == 1; }));
    EXPECT_EQ(vireotest::allocationFailures, 1U);
    EXPECT_TRUE(pool.push([&] { ++runs; }, label));
    EXPECT_TRUE(waitUntil([&] { return runs == 2; })) << "the worker is lost";
}
