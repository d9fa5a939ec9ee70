#include "engine/UpgradeHandle.h"

#include "support/Event.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>

namespace {

using vireotest::Event;

Event* entered = nullptr;
Event* proceed = nullptr;
std::atomic<bool> isClosed{false};

void closeSlowly(void* /*handle*/) {
    entered->set();
    EXPECT_TRUE(proceed->wait());
    isClosed = true;
}

TEST(UpgradeHandle, ConnectionIsNotFreedWhileAnotherThreadClosesIt) {
    constexpr std::uint64_t Connection = 1000000;
    Event isInside;
    Event mayLeave;
    entered = &isInside;
    proceed = &mayLeave;
    const ql::impl::UpgradeCloser former = ql::impl::upgradeCloser.exchange(&closeSlowly);
    std::thread closer([] { ql::impl::closeUpgradedConnection(nullptr, Connection); });
    EXPECT_TRUE(isInside.wait());
    std::atomic<bool> wasClosed{false};
    Event isAsking;
    std::thread engine([&] {
        isAsking.set();
        ql::impl::awaitUpgradeClosers(Connection);
        wasClosed = isClosed.load();
    });
    EXPECT_TRUE(isAsking.wait());
    vireotest::letOthersRun();
    mayLeave.set();
    engine.join();
    closer.join();
    ql::impl::upgradeCloser = former;
    EXPECT_TRUE(wasClosed);
}

std::atomic<bool> isFlagged{false};

void closeByAFlag(void* /*handle*/) {
    // It orders nothing, as the engine's.
    isFlagged.store(true, std::memory_order_relaxed);
}

// ThreadSanitizer tells where it is not so.
TEST(UpgradeHandle, WhatTheCloserHasDoneComesBeforeWhatFollows) {
    constexpr std::uint64_t Connection = 1000000;
    const ql::impl::UpgradeCloser former = ql::impl::upgradeCloser.exchange(&closeByAFlag);
    int uses = 0;
    std::thread closer([&uses] {
        ++uses;
        ql::impl::closeUpgradedConnection(nullptr, Connection);
    });
    int seen = 0;
    std::thread engine([&uses, &seen] {
        EXPECT_TRUE(vireotest::waitUntil([] { return isFlagged.load(std::memory_order_relaxed); }));
        ql::impl::followUpgradeClosers();
        seen = uses;
    });
    engine.join();
    closer.join();
    ql::impl::upgradeCloser = former;
    EXPECT_EQ(seen, 1);
}

} // namespace
