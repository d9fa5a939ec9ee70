#include "server/ConnectionWatch.h"

#include "server/ClientConnection.h"
#include "server/ConnectionTable.h"
#include "server/Exchange.h"
#include "support/Event.h"
#include "support/FakeClock.h"
#include "support/FakeRequest.h"
#include "support/FakeSuspension.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"
#include "websocket/TestSockets.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <stdexcept>

namespace {

using ql::impl::ClientConnection;
using ql::impl::ConnectionTable;
using ql::impl::ConnectionWatch;
using ql::impl::CutReason;
using ql::impl::EngineConnection;
using ql::impl::Exchange;
using vireotest::Event;
using vireotest::FakeClock;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;
using vireotest::FakeSuspension;
using vireotest::letOthersRun;
using vireotest::TestLog;
using vireotest::waitUntil;

// Most of what it does about clients is tested with those of a server.

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

/// A client whose request is answered, and who ends its sending while the clock stands still.
class LeavingClientTest : public testing::Test {
protected:
    LeavingClientTest() { watch_.start(application_, true, 0, {}); }
    ~LeavingClientTest() override {
        watch_.stop();
        exchange_->finish();
    }

    void answer() {
        exchange_->setPhase(Exchange::Phase::Answered);
        client_->beginExchange(request_, exchange_);
    }
    void leave() {
        watch_.add(*client_);
        wstest::shutdownSending(sockets_.client);
        ASSERT_TRUE(waitUntil([this] { return client_->hasPeerEnded(); }));
        letOthersRun();
    }

    FakeClock clock_;
    const FakeSuspension engine_;
    FakeServerImpl application_;
    FakeRequest request_{application_};
    wstest::SocketPair sockets_;
    ConnectionTable connections_;
    const std::shared_ptr<ClientConnection> client_ = connections_.add(sockets_.server, ql::IpAddress());
    const std::shared_ptr<Exchange> exchange_ =
        std::make_shared<Exchange>(EngineConnection(nullptr), sockets_.server, 0, client_->marks());
    ConnectionWatch watch_{connections_};
};

TEST_F(LeavingClientTest, AnswerOnItsWayHasTimeToArriveBeforeAnyoneIsTold) {
    answer();
    leave();
    clock_.advanceMs(49);
    letOthersRun();
    EXPECT_EQ(application_.notified, 0);
    EXPECT_FALSE(request_.hasClientLeft());
    clock_.advanceMs(1);
    EXPECT_TRUE(waitUntil([this] { return application_.notified == 1; }));
    EXPECT_TRUE(request_.hasClientLeft());
    clock_.advanceMs(1000);
    letOthersRun();
    EXPECT_EQ(application_.notified, 1);
    EXPECT_FALSE(exchange_->isCut());
}

TEST_F(LeavingClientTest, AnswerThatIsAwaitedIsToldOfAtOnceAndThenEnded) {
    answer();
    (void)exchange_->suspend();
    ASSERT_TRUE(exchange_->isSuspended());
    leave();
    EXPECT_TRUE(waitUntil([this] { return application_.notified == 1; }));
    EXPECT_TRUE(request_.hasClientLeft());
    EXPECT_FALSE(exchange_->isCut());
    clock_.advanceMs(50);
    EXPECT_TRUE(waitUntil([this] { return exchange_->isCut(); }));
    EXPECT_EQ(exchange_->cutReason(), CutReason::ClientLeft);
}

} // namespace
