#include "server/Deadlines.h"

#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "server/ClientConnection.h"
#include "server/ConnectionTable.h"
#include "server/Exchange.h"
#include "streams/FeedAccess.h"
#include "support/FakeRequest.h"
#include "support/FakeSuspension.h"
#include "support/TestLog.h"
#include "vireo/support/qlSystemUtils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>

namespace {

using ql::http::ServerOptions;
using ql::impl::CutReason;
using ql::impl::DeadlineMarks;
using ql::impl::Deadlines;
using ql::impl::EngineConnection;
using ql::impl::Exchange;
using ql::impl::FeedAccess;
using ql::impl::RequestAccess;
using ql::impl::Stage;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;
using vireotest::FakeSuspension;

constexpr auto NoSocket = static_cast<std::uint64_t>(-1);
constexpr std::uint32_t IdleMs = 1500; // which the engine takes for 2000
constexpr std::uint64_t WindowBytes = 65536;

ServerOptions optionsOfTests() {
    ServerOptions options;
    options.setHeadTimeoutMs(100);
    options.setBodyProgress(10, 200);
    options.setAnswerTimeoutMs(300);
    options.setWriteTimeoutMs(400);
    return options;
}

// ---- How often ----

std::int64_t periodOf(const ServerOptions& options) {
    ql::impl::ConnectionTable connections;
    return Deadlines(options, IdleMs, connections).periodMs();
}

TEST(DeadlinesPeriod, IsAQuarterOfTheShortestDeadlineAndAtMostASecond) {
    EXPECT_EQ(periodOf(optionsOfTests()), 25);
    ServerOptions options;
    EXPECT_EQ(periodOf(options), 1000);
    options.setBodyProgress(1, 400);
    EXPECT_EQ(periodOf(options), 100);
    options.setAnswerTimeoutMs(200);
    EXPECT_EQ(periodOf(options), 50);
    options.setWriteTimeoutMs(100);
    EXPECT_EQ(periodOf(options), 25);
}

TEST(DeadlinesPeriod, IsNoneWithoutDeadlines) {
    ServerOptions options;
    options.setHeadTimeoutMs(0);
    options.setBodyProgress(1, 0);
    options.setAnswerTimeoutMs(0);
    EXPECT_EQ(periodOf(options), 1000);
    options.setWriteTimeoutMs(0);
    EXPECT_EQ(periodOf(options), 0);
}

// ---- Who is cut ----

/// A connection with what a daemon thread does to it.
class DeadlinesTest : public testing::Test {
protected:
    DeadlinesTest() { nowMs_ = client_->startTime; }
    ~DeadlinesTest() override { endExchange(); }

    void beginExchange(std::uint64_t bodyBytes = 0) {
        exchange_ = std::make_shared<Exchange>(EngineConnection(nullptr), NoSocket, bodyBytes, client_->marks());
        RequestAccess::state(request_).wait = exchange_;
        FeedAccess::setWindow(request_.editFeedDevice(), WindowBytes);
        client_->beginExchange(request_, exchange_);
    }
    void endExchange() {
        if (exchange_) {
            client_->endExchange();
            exchange_->finish();
            exchange_.reset();
        }
    }

    void lookAfter(std::int64_t ms) {
        nowMs_ += ms;
        deadlines_.run(nowMs_);
    }
    CutReason reasonAfter(std::int64_t ms) {
        lookAfter(ms);
        return exchange_->cutReason();
    }
    /// It is cut when it stays as it is for so long, and not before.
    void expectCutAfter(std::int64_t ms, CutReason reason) {
        lookAfter(10);
        EXPECT_EQ(reasonAfter(ms - 1), CutReason::None);
        EXPECT_EQ(reasonAfter(1), reason);
    }
    void expectHeadLateAfter(std::int64_t ms) {
        lookAfter(ms - 1);
        EXPECT_FALSE(client_->takeHeadLate());
        lookAfter(1);
        EXPECT_TRUE(client_->takeHeadLate());
        lookAfter(1);
        EXPECT_FALSE(client_->takeHeadLate()) << "it is told once";
    }

    const FakeSuspension engine_;
    FakeServerImpl application_;
    FakeRequest request_{application_};
    ql::impl::ConnectionTable connections_;
    const std::shared_ptr<ql::impl::ClientConnection> client_ = connections_.add(NoSocket, ql::IpAddress());
    Deadlines deadlines_{optionsOfTests(), IdleMs, connections_};
    std::shared_ptr<Exchange> exchange_;
    std::int64_t nowMs_ = 0;
};

TEST_F(DeadlinesTest, FirstHeadCountsFromTheBeginOfTheConnection) {
    expectHeadLateAfter(100);
}

TEST_F(DeadlinesTest, NextHeadHasTheIdleTimeBeside) {
    beginExchange();
    endExchange();
    lookAfter(10);
    expectHeadLateAfter(2100);
}

TEST_F(DeadlinesTest, RequestThatBeginsAfterItsHeadWasLateIsCut) {
    lookAfter(100);
    beginExchange();
    EXPECT_EQ(exchange_->cutReason(), CutReason::HeadTimeout);
    EXPECT_FALSE(client_->takeHeadLate()) << "the exchange tells it";
}

TEST_F(DeadlinesTest, DecisionAtTheHeadHasTheTimeOfAnAnswer) {
    beginExchange(Exchange::UnknownLength);
    exchange_->suspend();
    EXPECT_TRUE(FakeSuspension::isSuspended());
    expectCutAfter(300, CutReason::AnswerTimeout);
    EXPECT_FALSE(FakeSuspension::isSuspended());
}

TEST_F(DeadlinesTest, BodyThatStopsIsCut) {
    beginExchange(1000);
    exchange_->setPhase(Exchange::Phase::Body);
    expectCutAfter(200, CutReason::BodyTimeout);
    EXPECT_EQ(request_.editInternalResponseDevice().getDeviceErrorMsg(), "lost connection : BodyTimeout");
    EXPECT_EQ(request_.editFeedDevice().getDeviceErrorMsg(), "lost connection : BodyTimeout");
}

TEST_F(DeadlinesTest, BodyGoesOnByEnoughBytesEachTime) {
    beginExchange(1000);
    exchange_->setPhase(Exchange::Phase::Body);
    lookAfter(10);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(reasonAfter(199), CutReason::None);
        exchange_->countBody(10);
        EXPECT_EQ(reasonAfter(0), CutReason::None);
    }
    exchange_->countBody(9);
    EXPECT_EQ(reasonAfter(200), CutReason::BodyTimeout);
}

TEST_F(DeadlinesTest, BodyHeldBackForItsReaderHasTheTimeOfAnAnswer) {
    beginExchange(1000);
    exchange_->setPhase(Exchange::Phase::Body);
    exchange_->countBody(1);
    exchange_->suspend();
    lookAfter(10);
    EXPECT_EQ(reasonAfter(299), CutReason::None);
    exchange_->news();
    exchange_->countBody(1);
    expectCutAfter(200, CutReason::BodyTimeout);
}

TEST_F(DeadlinesTest, BodyOfWhichItsReaderTakesNoMoreIsCut) {
    beginExchange(1000);
    exchange_->setPhase(Exchange::Phase::Body);
    exchange_->suspend();
    expectCutAfter(300, CutReason::AnswerTimeout);
}

TEST_F(DeadlinesTest, AnswerThatDoesNotBeginIsCutThoughItsConnectionIsSuspended) {
    beginExchange();
    exchange_->setPhase(Exchange::Phase::Ended);
    exchange_->wait(request_, nowMs_);
    exchange_->wait(request_, nowMs_);
    EXPECT_TRUE(FakeSuspension::isSuspended());
    expectCutAfter(300, CutReason::AnswerTimeout);
    EXPECT_FALSE(FakeSuspension::isSuspended());
    EXPECT_EQ(request_.editInternalResponseDevice().getDeviceErrorMsg(), "lost connection : AnswerTimeout");
}

TEST_F(DeadlinesTest, StreamThatTheClientDoesNotTakeIsCut) {
    beginExchange();
    exchange_->setPhase(Exchange::Phase::Answered);
    for (int i = 0; i < 3; ++i) {
        exchange_->progress();
        lookAfter(10);
        EXPECT_EQ(reasonAfter(390), CutReason::None);
    }
    EXPECT_EQ(reasonAfter(10), CutReason::WriteTimeout);
}

TEST_F(DeadlinesTest, StreamThatWaitsForTheApplicationHasNoDeadline) {
    beginExchange();
    exchange_->setPhase(Exchange::Phase::Answered);
    exchange_->progress();
    exchange_->wait(request_, nowMs_);
    exchange_->wait(request_, nowMs_);
    EXPECT_TRUE(FakeSuspension::isSuspended());
    lookAfter(10);
    EXPECT_EQ(reasonAfter(1000000), CutReason::None);
    exchange_->progress();
    expectCutAfter(400, CutReason::WriteTimeout);
}

TEST_F(DeadlinesTest, CutIsLoggedOnceWhereConnectionsAreLogged) {
    const vireotest::TestLog log(true);
    const vireotest::TestLog::Line line{qlLogType::Connection, "tcp",
                                        "TCP connection cut " + client_->connectionId + " : HeadTimeout"};
    lookAfter(100);
    lookAfter(100);
    EXPECT_THAT(log.lines(), testing::ElementsAre(line));
}

TEST_F(DeadlinesTest, CutIsNotLoggedOtherwise) {
    const vireotest::TestLog log;
    lookAfter(100);
    EXPECT_TRUE(client_->takeHeadLate());
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TEST_F(DeadlinesTest, FirstReasonStays) {
    beginExchange();
    exchange_->setPhase(Exchange::Phase::Ended);
    exchange_->cut(CutReason::ClientLeft);
    lookAfter(10);
    EXPECT_EQ(reasonAfter(1000), CutReason::ClientLeft);
}

TEST_F(DeadlinesTest, ClosedConnectionIsLeftAlone) {
    client_->close();
    lookAfter(1000);
    EXPECT_FALSE(client_->takeHeadLate());
}

TEST_F(DeadlinesTest, WithoutDeadlinesNobodyIsCut) {
    ServerOptions none;
    none.setHeadTimeoutMs(0);
    none.setBodyProgress(1, 0);
    none.setAnswerTimeoutMs(0);
    none.setWriteTimeoutMs(0);
    Deadlines deadlines(none, IdleMs, connections_);
    deadlines.run(nowMs_ + 1000000000);
    EXPECT_FALSE(client_->takeHeadLate());
    beginExchange();
    for (const auto phase : {Exchange::Phase::Body, Exchange::Phase::Ended, Exchange::Phase::Answered}) {
        exchange_->setPhase(phase);
        deadlines.run(nowMs_);
        deadlines.run(nowMs_ + 1000000000);
        EXPECT_FALSE(exchange_->isCut());
    }
}

} // namespace
