#include "app/kernel/Courier.h"

#include "support/Event.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using vireo::impl::Courier;
using vireotest::Event;

namespace {

std::atomic<std::int64_t> testNowMs{0};

std::int64_t testClock() {
    return testNowMs;
}

} // namespace

TEST(Courier, CallsInTheOrderInWhichItIsDue) {
    testNowMs = 0;
    Courier courier(testClock);
    std::string calls;
    courier.at(30, [&] { calls += 'c'; });
    courier.at(10, [&] { calls += 'a'; });
    courier.at(20, [&] { calls += 'b'; });
    courier.at(10, [&] { calls += 'A'; });
    EXPECT_FALSE(courier.turn());
    testNowMs = 9;
    EXPECT_FALSE(courier.turn());
    testNowMs = 10;
    EXPECT_TRUE(courier.turn());
    EXPECT_EQ(calls, "a");
    testNowMs = 100;
    while (courier.turn()) {
    }
    EXPECT_EQ(calls, "aAbc");
}

TEST(Courier, DoesNotCallWhatWasCancelled) {
    testNowMs = 0;
    Courier courier(testClock);
    bool wasCalled = false;
    auto held = std::make_shared<int>();
    const Courier::TimerId timer = courier.at(10, [&wasCalled, held] { wasCalled = true; });
    EXPECT_TRUE(courier.cancel(timer));
    EXPECT_EQ(held.use_count(), 1) << "nothing of it is left";
    testNowMs = 10;
    EXPECT_FALSE(courier.turn());
    EXPECT_FALSE(wasCalled);
    EXPECT_FALSE(courier.cancel(timer));
}

TEST(Courier, SaysThatItIsTooLateToCancel) {
    testNowMs = 0;
    Courier courier(testClock);
    Courier::TimerId timer;
    bool wasCancelled = true;
    timer = courier.at(0, [&] { wasCancelled = courier.cancel(timer); });
    courier.turn();
    EXPECT_FALSE(wasCancelled);
}

TEST(Courier, OutlivesWhatThrows) {
    testNowMs = 0;
    Courier courier(testClock);
    bool wasCalled = false;
    courier.at(0, [] { throw std::runtime_error("expected by a test"); });
    courier.at(0, [&] { wasCalled = true; });
    while (courier.turn()) {
    }
    EXPECT_TRUE(wasCalled);
}

TEST(Courier, ThreadCallsWhatIsDueWhateverItWaitsFor) {
    Courier courier;
    courier.start();
    for (int i = 0; i < 3; ++i) {
        Event called;
        vireotest::letOthersRun(); // it waits: for nothing, then for what is due late
        courier.at(courier.nowMs() + 1, [&] { called.set(); });
        EXPECT_TRUE(called.wait());
        courier.at(courier.nowMs() + 3600000, [] {});
    }
}

TEST(Courier, StopDropsWhatIsNotDueAndTakesNothingMore) {
    auto held = std::make_shared<int>();
    Courier courier;
    courier.start();
    courier.at(courier.nowMs() + 3600000, [held] {});
    courier.stop();
    EXPECT_EQ(held.use_count(), 1);
    courier.at(0, [held] {});
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_FALSE(courier.deliver(nullptr));
    courier.stop();
}
