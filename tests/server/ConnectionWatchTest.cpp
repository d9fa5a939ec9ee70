#include "server/ConnectionWatch.h"

#include "server/ConnectionTable.h"
#include "support/Event.h"
#include "support/FakeClock.h"
#include "support/FakeRequest.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <stdexcept>

namespace {

using ql::impl::ConnectionTable;
using ql::impl::ConnectionWatch;
using vireotest::Event;
using vireotest::FakeClock;
using vireotest::FakeServerImpl;
using vireotest::letOthersRun;
using vireotest::TestLog;

// What it does about clients is tested with those of a server.

TEST(ConnectionWatch, TellsOfEachPeriodWhateverBecomesOfIt) {
    const TestLog log;
    FakeClock clock;
    FakeServerImpl application;
    ConnectionTable connections;
    Event first;
    Event second;
    std::atomic<int> count{0};
    ConnectionWatch watch(connections);
    watch.start(application, true, 20, [&](std::int64_t /*nowMs*/) {
        (++count == 1 ? first : second).set();
        throw std::runtime_error("no time");
    });
    clock.advanceMs(20);
    EXPECT_TRUE(first.wait());
    clock.advanceMs(19);
    letOthersRun();
    EXPECT_EQ(count, 1);
    clock.advanceMs(1);
    EXPECT_TRUE(second.wait());
    watch.stop();
    EXPECT_EQ(log.texts(qlLogType::Failure, "no time").size(), 2U);
}

TEST(ConnectionWatch, WithoutAPeriodTellsOfNone) {
    const TestLog log;
    FakeServerImpl application;
    ConnectionTable connections;
    ConnectionWatch watch(connections);
    watch.start(application, true, 0, {});
    letOthersRun();
    watch.stop();
    EXPECT_TRUE(log.lines().empty());
}

TEST(ConnectionWatch, StopsWithoutAStartAndMoreThanOnce) {
    ConnectionTable connections;
    ConnectionWatch watch(connections);
    watch.stop();
    watch.stop();
}

} // namespace
