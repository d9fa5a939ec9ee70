#include "app/run/Signals.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

namespace vireo::impl {
namespace {

/// "s" for a stop, "a" for one at once, "r" for a reload.
std::string wishesAfter(Signals& signals, int signal) {
    std::raise(signal);
    const Signals::Wishes wishes = signals.wait();
    return std::string(wishes.stop ? "s" : "") + (wishes.stopAtOnce ? "a" : "") + (wishes.reload ? "r" : "");
}

TEST(Signals, AskForTheEndThenForTheEndAtOnce) {
    for (const int first : {SIGINT, SIGTERM}) {
        for (const int second : {SIGINT, SIGTERM}) {
            Signals signals(true);
            EXPECT_EQ(wishesAfter(signals, first), "s");
            EXPECT_EQ(wishesAfter(signals, SIGHUP), "r");
            EXPECT_EQ(wishesAfter(signals, second), "a");
            EXPECT_EQ(wishesAfter(signals, SIGHUP), "r");
        }
    }
}

TEST(Signals, StartFromTheBeginEachTimeTheyAreTaken) {
    for (int i = 0; i < 3; ++i) {
        Signals signals(true);
        EXPECT_EQ(wishesAfter(signals, SIGINT), "s");
        EXPECT_EQ(wishesAfter(signals, SIGINT), "a");
        std::raise(SIGHUP);
    }
    Signals signals(true);
    EXPECT_EQ(wishesAfter(signals, SIGTERM), "s");
}

TEST(Signals, AskForReloadsAnyNumberOfTimes) {
    Signals signals(true);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(wishesAfter(signals, SIGHUP), "r");
    }
}

TEST(Signals, LoseNoneThatComeTogether) {
    Signals signals(true);
    std::raise(SIGHUP);
    std::raise(SIGINT);
    EXPECT_EQ(wishesAfter(signals, SIGTERM), "sar");
}

TEST(Signals, WakeWithoutAWishToo) {
    for (const bool areTaken : {false, true}) {
        Signals signals(areTaken);
        std::thread other([&] { signals.wake(); });
        const Signals::Wishes wishes = signals.wait();
        EXPECT_FALSE(wishes.stop || wishes.stopAtOnce || wishes.reload);
        other.join();
    }
}

TEST(Signals, AreTakenOnceAtATime) {
    {
        const Signals first(true);
        EXPECT_THROW(Signals(true), std::logic_error);
        const Signals beside(false);
    }
    const Signals again(true);
}

extern "C" void onFormerSignal(int /*signal*/) {}

TEST(Signals, LeaveBehindWhatWasThereBefore) {
    std::signal(SIGTERM, onFormerSignal);
    { const Signals signals(true); }
    EXPECT_EQ(std::signal(SIGTERM, SIG_DFL), onFormerSignal);
}

TEST(SignalsDeathTest, EndTheProcessWithTheThird) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const int last : {SIGINT, SIGTERM}) {
        EXPECT_EXIT(
            {
                const Signals signals(true);
                std::raise(SIGINT);
                std::raise(SIGTERM);
                std::raise(last);
                std::_Exit(0);
            },
            ::testing::KilledBySignal(last), "");
    }
}

} // namespace
} // namespace vireo::impl
