#include "frame/SocketSystem.h"

#include <NativeSockets.h>

#include <gtest/gtest.h>

namespace {

/// Whether the process can make a socket. What it makes stays open until the process ends.
bool canMakeSocket() {
    auto made = ::socket(AF_INET, SOCK_STREAM, 0);
    return made != static_cast<decltype(made)>(-1);
}

TEST(SocketSystem, SocketsWorkBetweenStartAndStop) {
    ASSERT_TRUE(ql::impl::startSocketSystem());
    EXPECT_TRUE(canMakeSocket());
    ql::impl::stopSocketSystem();
}

TEST(SocketSystem, StopsBeyondTheStartsTakeNothingAway) {
    ASSERT_TRUE(ql::impl::startSocketSystem());
    ASSERT_TRUE(ql::impl::startSocketSystem());
    ql::impl::stopSocketSystem();
    EXPECT_TRUE(canMakeSocket());
    ql::impl::stopSocketSystem();
    ql::impl::stopSocketSystem();
    ASSERT_TRUE(ql::impl::startSocketSystem());
    EXPECT_TRUE(canMakeSocket());
    ql::impl::stopSocketSystem();
}

} // namespace
