#include "server/ConnectionWatch.h"

#include "engine/OwnSocket.h"
#include "server/ClientConnection.h"
#include "server/ConnectionTable.h"
#include "session/pool/Readiness.h"
#include "support/FakeRequest.h"
#include "websocket/Fakes.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <memory>

// What the watch does for a WebSocket over TLS whose peer leaves. Only where the engine learns of bytes by edges has it
// to be told of them again.

namespace {

using ql::impl::ClientConnection;
using ql::impl::ConnectionTable;
using ql::impl::ConnectionWatch;
using ql::impl::makeReadiness;
using ql::impl::OwnSocket;
using ql::impl::Readiness;
using ql::impl::WatchedSocket;

/// The test is the engine: it has one end of the connection to the peer, and one of the WebSocket's.
class LeavingWebSocketTest : public testing::Test {
protected:
    LeavingWebSocketTest() {
        client_->handOver(OwnSocket::DuplicateOf(webSocket_.server));
        watch_.start(application_, true, 0, {});
        watch_.add(*client_);
    }
    ~LeavingWebSocketTest() override { watch_.stop(); }

    void peerSendsAndLeaves() {
        EXPECT_TRUE(wstest::sendAll(connection_.client, {1, 2, 3}));
        wstest::shutdownSending(connection_.client);
    }

    vireotest::FakeServerImpl application_;
    wstest::SocketPair connection_;
    wstest::SocketPair webSocket_;
    ConnectionTable connections_;
    const std::shared_ptr<ClientConnection> client_ = connections_.add(connection_.server, ql::IpAddress());
    ConnectionWatch watch_{connections_};
};

TEST_F(LeavingWebSocketTest, EngineIsToldAgainAndAgainOfBytesBeforeTheEnd) {
    // The bytes and the end are two; each look is one more.
    constexpr int Edges = 5;
    const auto readiness = makeReadiness();
    WatchedSocket watched{connection_.server, 1};
    readiness->watch(watched);
    readiness->setAlarm(std::chrono::milliseconds(wstest::Patience).count());
    peerSendsAndLeaves();
    std::array<Readiness::News, 1> news;
    int edges = 0;
    while (edges < Edges) {
        const Readiness::WaitResult result = readiness->wait(news, true);
        ASSERT_FALSE(result.alarm) << "told " << edges << " times alone";
        edges += static_cast<int>(result.count);
    }
    EXPECT_TRUE(wstest::sendAll(webSocket_.client, {4}));
    EXPECT_EQ(wstest::receiveExactly(webSocket_.server, 1), wstest::Bytes{4}) << "it was shown its end too soon";
    EXPECT_EQ(wstest::receiveExactly(connection_.server, 3).size(), 3U);
    EXPECT_TRUE(wstest::atEnd(webSocket_.server));
}

TEST_F(LeavingWebSocketTest, BytesThatItHasNotReadComeBeforeItsEnd) {
    EXPECT_TRUE(wstest::sendAll(webSocket_.client, {4}));
    wstest::shutdownSending(connection_.client);
    EXPECT_EQ(wstest::receiveExactly(webSocket_.server, 1), wstest::Bytes{4});
    EXPECT_TRUE(wstest::atEnd(webSocket_.server));
    EXPECT_TRUE(wstest::atEnd(webSocket_.client)) << "it is ended in both directions";
}

TEST_F(LeavingWebSocketTest, ResetIsItsEndWhateverIsUnread) {
    EXPECT_TRUE(wstest::sendAll(connection_.client, {1, 2, 3}));
    connection_.resetClient();
    EXPECT_TRUE(wstest::atEnd(webSocket_.server));
}

} // namespace
