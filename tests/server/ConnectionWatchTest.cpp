#include "server/ConnectionWatch.h"

#include "server/ConnectionTable.h"
#include "support/Event.h"
#include "support/FakeRequest.h"
#include "support/TestLog.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using ql::impl::ConnectionTable;
using ql::impl::ConnectionWatch;
using vireotest::Event;
using vireotest::FakeServerImpl;
using vireotest::TestLog;

// What it does about clients is tested with those of a server.

TEST(ConnectionWatch, TellsOfEachSecondWhateverBecomesOfIt) {
    const TestLog log;
    FakeServerImpl application;
    ConnectionTable connections;
    Event second;
    int count = 0;
    ConnectionWatch watch(connections);
    watch.start(application, true, [&](std::int64_t /*nowMs*/) {
        if (++count == 2) {
            second.set();
        }
        throw std::runtime_error("no time");
    });
    EXPECT_TRUE(second.wait());
    watch.stop();
    EXPECT_EQ(log.texts(qlLogType::Failure, "no time").size(), static_cast<std::size_t>(count));
}

TEST(ConnectionWatch, StopsWithoutAStartAndMoreThanOnce) {
    ConnectionTable connections;
    ConnectionWatch watch(connections);
    watch.stop();
    watch.stop();
}

} // namespace
