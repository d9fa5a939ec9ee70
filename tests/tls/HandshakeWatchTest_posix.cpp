#include "tls/HandshakeWatch.h"

#include "support/WaitUntil.h"
#include "tls/FakeSuspensions.h"
#include "vireo/support/qlSystemUtils.h"
#include "websocket/TestSockets.h"

#include <gtest/gtest.h>

// The test is the daemon thread, and the engine.

namespace {

using ql::impl::Handshake;
using ql::impl::HandshakeWatch;
using vireotest::FakeSuspensions;
using vireotest::waitUntil;

constexpr std::int64_t TimeoutMs = 3600000;

class HandshakeWatchTest : public testing::Test {
protected:
    struct Connection {
        wstest::SocketPair sockets;
        Handshake handshake{FakeSuspensions::connectionAt(this), sockets.server, qlSystemUtils::GetTimeBaseMs()};
    };

    static bool isAside(const Connection& connection) {
        return FakeSuspensions::isSuspended(connection.handshake.connection);
    }
    static bool isTakenUp(const Connection& connection) {
        return waitUntil([&] { return !isAside(connection); });
    }
    static void goOn(const Connection& connection) { EXPECT_TRUE(wstest::sendAll(connection.sockets.client, {1})); }

    const FakeSuspensions engine_;
    Connection first_;
    Connection second_;
    HandshakeWatch watch_;
};

TEST_F(HandshakeWatchTest, TakesUpWhoseClientGoesOnAndNobodyElse) {
    watch_.start(0);
    EXPECT_TRUE(watch_.putAside(first_.handshake));
    EXPECT_TRUE(watch_.putAside(second_.handshake));
    EXPECT_TRUE(isAside(first_));
    goOn(second_);
    EXPECT_TRUE(isTakenUp(second_));
    EXPECT_TRUE(isAside(first_));
}

TEST_F(HandshakeWatchTest, MissesNothingThatHasComeBefore) {
    watch_.start(0);
    goOn(first_);
    EXPECT_TRUE(watch_.putAside(first_.handshake));
    EXPECT_TRUE(isTakenUp(first_));
}

TEST_F(HandshakeWatchTest, TakesUpAgainWhoIsPutAsideAgain) {
    watch_.start(0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(watch_.putAside(first_.handshake));
        goOn(first_);
        EXPECT_TRUE(isTakenUp(first_));
        EXPECT_EQ(wstest::receiveExactly(first_.sockets.server, 1).size(), 1U);
    }
}

TEST_F(HandshakeWatchTest, TakesUpWhoseClientLeaves) {
    watch_.start(0);
    EXPECT_TRUE(watch_.putAside(first_.handshake));
    EXPECT_TRUE(watch_.putAside(second_.handshake));
    wstest::shutdownSending(first_.sockets.client);
    second_.sockets.resetClient();
    EXPECT_TRUE(isTakenUp(first_));
    EXPECT_TRUE(isTakenUp(second_));
}

TEST_F(HandshakeWatchTest, EndsWhoTakesTooLong) {
    watch_.start(TimeoutMs);
    first_.handshake.sinceMs -= TimeoutMs;
    EXPECT_TRUE(watch_.putAside(first_.handshake));
    EXPECT_TRUE(watch_.putAside(second_.handshake));
    ASSERT_TRUE(isTakenUp(first_));
    EXPECT_TRUE(wstest::atEnd(first_.sockets.server)) << "the engine learns nothing of it";
    EXPECT_TRUE(wstest::atEnd(first_.sockets.client));
    EXPECT_TRUE(isAside(second_));
}

TEST_F(HandshakeWatchTest, EndsNobodyWithoutATimeout) {
    watch_.start(0);
    first_.handshake.sinceMs -= TimeoutMs;
    EXPECT_TRUE(watch_.putAside(first_.handshake));
    EXPECT_TRUE(watch_.putAside(second_.handshake));
    // It has looked at all when it does nothing more.
    goOn(second_);
    EXPECT_TRUE(isTakenUp(second_));
    watch_.stop();
    EXPECT_TRUE(wstest::sendAll(first_.sockets.server, {1}));
}

TEST_F(HandshakeWatchTest, StopTakesUpAllAndLetsNobodyBePutAside) {
    watch_.start(0);
    EXPECT_TRUE(watch_.putAside(first_.handshake));
    EXPECT_TRUE(watch_.putAside(second_.handshake));
    watch_.stop();
    EXPECT_FALSE(isAside(first_));
    EXPECT_FALSE(isAside(second_));
    EXPECT_FALSE(watch_.putAside(first_.handshake));
    EXPECT_FALSE(isAside(first_));
}

TEST_F(HandshakeWatchTest, WhoCannotBeWatchedIsNotPutAside) {
    watch_.start(0);
    Handshake handshake = first_.handshake;
    handshake.socket = ~std::uint64_t{0};
    EXPECT_FALSE(watch_.putAside(handshake));
    EXPECT_FALSE(isAside(first_));
    EXPECT_TRUE(watch_.putAside(first_.handshake));
}

} // namespace
