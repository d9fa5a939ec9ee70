#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "server/ClientConnection.h"
#include "server/EventServing.h"
#include "server/ExchangeCut.h"
#include "server/RequestCompletion.h"
#include "server/RequestContext.h"
#include "server/RequestDispatch.h"
#include "streams/BodyPiece.h"
#include "streams/FeedAccess.h"
#include "support/FakeRequest.h"
#include "support/FakeSuspension.h"
#include "support/FakeWait.h"
#include "support/TestLog.h"
#include "vireo/HttpServer.h"
#include "vireo/RequestOwner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using ql::impl::CutReason;
using ql::impl::EngineConnection;
using ql::impl::Exchange;
using ql::impl::FeedAccess;
using ql::impl::RequestAccess;
using ql::impl::RequestContext;
using ql::impl::Verdict;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;
using vireotest::FakeSuspension;
using vireotest::FakeWait;
using ResponseState = ql::HttpResponseDevice::ResponseState;

constexpr auto NoSocket = static_cast<std::uint64_t>(-1);
constexpr std::uint64_t WindowBytes = 100;

/// The calls for a request that has an exchange, after the first one and without a connection.
class ExchangeRequestTest : public testing::Test {
protected:
    explicit ExchangeRequestTest(const ql::http::ServerOptions& options = {})
        : serving_(server_, options, WindowBytes) {
        context_.serving = &serving_;
        context_.client = &client_;
        context_.request = &request_;
        context_.receiveTimer.restart();
        begin(Exchange::UnknownLength);
        request_.handleOnThisThread();
    }
    ~ExchangeRequestTest() override { context_.exchange->finish(); }

    /// At its head.
    void begin(std::uint64_t bodyBytes) {
        context_.exchange = std::make_shared<Exchange>(EngineConnection(nullptr), NoSocket, bodyBytes, client_.marks());
        RequestAccess::state(request_).wait = context_.exchange;
        FeedAccess::setWindow(feed_, WindowBytes);
        client_.beginExchange(request_, context_.exchange);
    }

    void cut(CutReason reason) {
        const qlMutexLocker locker(client_.gate());
        ql::impl::cutExchange(client_, reason);
    }

    void acceptBody() { context_.exchange->setPhase(Exchange::Phase::Body); }

    Verdict call(const std::string& body = {}) {
        left_ = body.size();
        return ql::impl::RequestDispatch(server_, EngineConnection(nullptr), "POST", "HTTP/1.1", wait_)
            .handleCall(body.data(), left_, slot_);
    }

    /// @return whether all of it was taken.
    bool offer(std::size_t size) {
        EXPECT_EQ(call(std::string(size, 'x')), Verdict::Continue);
        EXPECT_TRUE(left_ == 0 || left_ == size);
        EXPECT_EQ(left_ != 0, FakeSuspension::isSuspended());
        return left_ == 0;
    }

    std::size_t read(std::size_t size) {
        std::string bytes(size, '?');
        return static_cast<std::size_t>(feed_.readBytes(bytes.data(), size));
    }

    /// The engine has called for the answer until it was suspended.
    void waitForTheAnswer() {
        acceptBody();
        call();
        EXPECT_FALSE(FakeSuspension::isSuspended()) << "at the first call for the answer";
        call();
        EXPECT_TRUE(FakeSuspension::isSuspended());
    }

    void waitForMoreOfTheAnswer() {
        waitForTheAnswer();
        out_.releaseResponse();
        call();
        std::array<char, 10> buffer;
        EXPECT_EQ(ql::impl::takeBodyPiece(&request_, buffer.data(), buffer.size(), *context_.exchange).kind,
                  ql::impl::BodyPiece::Kind::Wait);
        EXPECT_TRUE(FakeSuspension::isSuspended());
    }

    const FakeSuspension engine_;
    FakeWait wait_;
    FakeServerImpl& application_ = *new FakeServerImpl;
    ql::http::HttpServer server_{&application_};
    FakeRequest request_{application_};
    ql::HttpReceiveDevice& feed_ = request_.editFeedDevice();
    ql::HttpResponseDevice& out_ = request_.editInternalResponseDevice();
    ql::impl::EventServing serving_;
    ql::impl::ClientConnection client_{1, NoSocket, ql::IpAddress()};
    RequestContext context_{"/"};
    void* slot_ = &context_;
    std::size_t left_ = 0;
};

// ---- The head ----

TEST_F(ExchangeRequestTest, LongBodyIsHeldAtTheHeadUntilTheFirstRead) {
    begin(WindowBytes + 1);
    EXPECT_EQ(call(), Verdict::Continue);
    EXPECT_TRUE(FakeSuspension::isSuspended());
    ASSERT_FALSE(feed_.atEnd());
    {
        // What a reader does first.
        const qlMutexLocker locker(feed_.getLock());
        feed_.endFeed();
    }
    read(1);
    EXPECT_FALSE(FakeSuspension::isSuspended());
    EXPECT_EQ(call(), Verdict::Continue);
    EXPECT_FALSE(FakeSuspension::isSuspended());
    EXPECT_EQ(context_.exchange->phase(), Exchange::Phase::Body);
    EXPECT_EQ(request_.responsesAsked, 0);
}

TEST_F(ExchangeRequestTest, LongBodyIsHeldAtTheHeadUntilItIsAskedFor) {
    begin(WindowBytes + 1);
    call();
    EXPECT_TRUE(FakeSuspension::isSuspended());
    request_.acceptBody();
    EXPECT_FALSE(FakeSuspension::isSuspended());
    call();
    EXPECT_EQ(context_.exchange->phase(), Exchange::Phase::Body);
    request_.acceptBody();
    EXPECT_EQ(FakeSuspension::resumed, 1) << "asked for again";
}

TEST_F(ExchangeRequestTest, LongBodyIsHeldAtTheHeadUntilSomeOfItIsWanted) {
    begin(WindowBytes + 1);
    call();
    {
        const qlMutexLocker locker(feed_.getLock());
        feed_.endFeed();
    }
    std::array<char, 10> buffer;
    EXPECT_EQ(feed_.readSome(buffer.data(), buffer.size()), 0U);
    EXPECT_FALSE(FakeSuspension::isSuspended());
}

TEST_F(ExchangeRequestTest, ReleaseAtTheHeadAnswersAtOnce) {
    EXPECT_EQ(call(), Verdict::Continue);
    EXPECT_TRUE(FakeSuspension::isSuspended());
    out_.writeBytes("no", 2);
    out_.endSending();
    call();
    EXPECT_TRUE(FakeSuspension::isSuspended()) << "an end is no release";
    out_.releaseResponse();
    EXPECT_FALSE(FakeSuspension::isSuspended());
    call();
    EXPECT_EQ(out_.getResponseState(), ResponseState::Buffered);
    EXPECT_EQ(context_.exchange->phase(), Exchange::Phase::Answered);
    EXPECT_FALSE(context_.exchange->hasWholeBody());
}

TEST_F(ExchangeRequestTest, BodyThatFitsIntoTheWindowIsNotHeldAtTheHead) {
    for (const std::uint64_t size : {std::uint64_t{0}, WindowBytes}) {
        begin(size);
        call();
        EXPECT_EQ(FakeSuspension::suspended, 0);
        EXPECT_EQ(context_.exchange->phase(), Exchange::Phase::Body);
    }
}

TEST_F(ExchangeRequestTest, StopAcceptsTheBody) {
    call();
    context_.exchange->finish();
    EXPECT_EQ(call(), Verdict::Continue);
    EXPECT_EQ(context_.exchange->phase(), Exchange::Phase::Body);
}

// ---- The body ----

TEST_F(ExchangeRequestTest, PieceBeyondTheWindowIsHeldUntilHalfOfItIsFree) {
    acceptBody();
    EXPECT_TRUE(offer(10));
    read(10);
    EXPECT_TRUE(offer(60));
    EXPECT_TRUE(offer(40));
    EXPECT_FALSE(offer(1));
    read(50);
    EXPECT_TRUE(FakeSuspension::isSuspended());
    read(1);
    EXPECT_FALSE(FakeSuspension::isSuspended());
    EXPECT_TRUE(offer(51));
    EXPECT_FALSE(offer(1));
    read(100);
    EXPECT_EQ(feed_.getReceivedBytes(), 161);
}

TEST_F(ExchangeRequestTest, PieceLargerThanTheWindowGoesIntoAnEmptyFeedOnly) {
    acceptBody();
    EXPECT_TRUE(offer(1));
    EXPECT_FALSE(offer(1000));
    read(1);
    EXPECT_TRUE(offer(1000));
    EXPECT_FALSE(offer(1));
    read(1000);
}

TEST_F(ExchangeRequestTest, LastPieceIsNeverHeld) {
    begin(150);
    acceptBody();
    EXPECT_TRUE(offer(100));
    EXPECT_TRUE(offer(50));
}

TEST_F(ExchangeRequestTest, EndOfTheAnswerDropsAHeldPieceAndFailsTheFeed) {
    acceptBody();
    offer(100);
    EXPECT_FALSE(offer(10));
    out_.endSending();
    EXPECT_FALSE(FakeSuspension::isSuspended());
    EXPECT_TRUE(offer(10));
    EXPECT_EQ(feed_.getDeviceErrorMsg(), "lost connection : AnsweredEarly");
    EXPECT_TRUE(offer(1000));
    call();
    EXPECT_EQ(feed_.getDeviceErrorMsg(), "lost connection : AnsweredEarly");
}

TEST_F(ExchangeRequestTest, LostAnswerDropsAHeldPiece) {
    acceptBody();
    offer(100);
    EXPECT_FALSE(offer(10));
    {
        const qlMutexLocker locker(out_.getLock());
        out_.setConnectionLost("ended by the application");
    }
    EXPECT_TRUE(offer(10));
}

TEST_F(ExchangeRequestTest, StopTakesAHeldPiece) {
    acceptBody();
    offer(100);
    EXPECT_FALSE(offer(10));
    context_.exchange->finish();
    EXPECT_TRUE(offer(10));
    EXPECT_FALSE(feed_.hasDeviceError());
}

// ---- The answer ----

TEST_F(ExchangeRequestTest, LateAnswerIsTakenWhenItIsReleased) {
    waitForTheAnswer();
    EXPECT_EQ(context_.exchange->phase(), Exchange::Phase::Ended);
    out_.writeBytes("late", 4);
    out_.flush();
    EXPECT_TRUE(FakeSuspension::isSuspended()) << "nothing is taken before the release";
    out_.endSending();
    call();
    EXPECT_TRUE(FakeSuspension::isSuspended());
    out_.releaseResponse();
    EXPECT_FALSE(FakeSuspension::isSuspended());
    call();
    EXPECT_EQ(out_.getResponseState(), ResponseState::Buffered);
    EXPECT_EQ(wait_.progressed, 0) << "polling is not told";
}

TEST_F(ExchangeRequestTest, ReleaseUnderTheLockIsNewsToo) {
    waitForTheAnswer();
    const qlMutexLocker locker(out_.getLock());
    out_.setResponseState(ResponseState::Ready);
    EXPECT_FALSE(FakeSuspension::isSuspended());
}

TEST_F(ExchangeRequestTest, HandOverGoesOnWithAStream) {
    waitForMoreOfTheAnswer();
    out_.writeBytes("more", 4);
    EXPECT_TRUE(FakeSuspension::isSuspended()) << "it is not handed over";
    out_.flush();
    EXPECT_FALSE(FakeSuspension::isSuspended());
}

TEST_F(ExchangeRequestTest, EndGoesOnWithAStream) {
    waitForMoreOfTheAnswer();
    out_.endSending();
    EXPECT_FALSE(FakeSuspension::isSuspended());
}

TEST_F(ExchangeRequestTest, LossGoesOnWithAStream) {
    waitForMoreOfTheAnswer();
    const qlMutexLocker locker(out_.getLock());
    out_.setConnectionLost("ended by the application");
    EXPECT_FALSE(FakeSuspension::isSuspended());
}

TEST_F(ExchangeRequestTest, DeviceErrorGoesOnWithAStream) {
    waitForMoreOfTheAnswer();
    char byte = 0;
    out_.readBytes(&byte, 1);
    EXPECT_FALSE(FakeSuspension::isSuspended());
}

// ---- Cut from outside ----

TEST_F(ExchangeRequestTest, CutAtTheHeadClosesAndFailsBothDevices) {
    call();
    EXPECT_TRUE(FakeSuspension::isSuspended());
    cut(CutReason::ClientLeft);
    EXPECT_FALSE(FakeSuspension::isSuspended());
    EXPECT_EQ(out_.getDeviceErrorMsg(), "lost connection : ClientAbort");
    EXPECT_EQ(feed_.getDeviceErrorMsg(), "lost connection : ClientAbort");
    EXPECT_EQ(call(), Verdict::Close);
    EXPECT_EQ(read(10), 0U);
    EXPECT_EQ(request_.responsesAsked, 0);
}

TEST_F(ExchangeRequestTest, CutOfAHeldUploadClosesAndLeavesItsTruncatedBody) {
    acceptBody();
    offer(100);
    EXPECT_FALSE(offer(10));
    cut(CutReason::BodyTimeout);
    EXPECT_EQ(call(std::string(10, 'x')), Verdict::Close);
    EXPECT_EQ(left_, 0U);
    EXPECT_EQ(feed_.getDeviceErrorMsg(), "lost connection : BodyTimeout");
    EXPECT_EQ(read(200), 0U);
}

TEST_F(ExchangeRequestTest, PieceUnderWayWhenItIsCutDoesNotHideTheReason) {
    acceptBody();
    cut(CutReason::BodyTimeout);
    feed_.feed("x", 1);
    EXPECT_EQ(feed_.getDeviceErrorMsg(), "lost connection : BodyTimeout");
}

TEST_F(ExchangeRequestTest, CutWhileTheAnswerIsAwaitedLeavesAWholeFeedAlone) {
    acceptBody();
    offer(10);
    waitForTheAnswer();
    cut(CutReason::AnswerTimeout);
    EXPECT_FALSE(FakeSuspension::isSuspended());
    EXPECT_FALSE(feed_.hasDeviceError());
    EXPECT_EQ(out_.getDeviceErrorMsg(), "lost connection : AnswerTimeout");
    out_.releaseResponse();
    EXPECT_EQ(call(), Verdict::Close);
    EXPECT_EQ(out_.getResponseState(), ResponseState::Ready);
    EXPECT_EQ(read(20), 10U);
}

TEST_F(ExchangeRequestTest, CutOfAStreamEndsItWithAnError) {
    waitForMoreOfTheAnswer();
    EXPECT_EQ(context_.exchange->phase(), Exchange::Phase::Answered);
    cut(CutReason::WriteTimeout);
    EXPECT_FALSE(FakeSuspension::isSuspended());
    std::array<char, 10> buffer;
    EXPECT_EQ(ql::impl::takeBodyPiece(&request_, buffer.data(), buffer.size(), *context_.exchange).kind,
              ql::impl::BodyPiece::Kind::Error);
}

TEST_F(ExchangeRequestTest, FirstReasonOfACutStays) {
    cut(CutReason::BodyTimeout);
    cut(CutReason::ClientLeft);
    EXPECT_EQ(context_.exchange->cutReason(), CutReason::BodyTimeout);
    EXPECT_EQ(out_.getDeviceErrorMsg(), "lost connection : BodyTimeout");
}

TEST_F(ExchangeRequestTest, CompletedOneIsNotCut) {
    acceptBody();
    waitForTheAnswer();
    ql::impl::completeExchange(context_, nullptr);
    cut(CutReason::ClientLeft);
    EXPECT_FALSE(out_.hasDeviceError());
    EXPECT_FALSE(context_.exchange->isCut());
}

// ---- Completion ----

TEST_F(ExchangeRequestTest, CompletionFailsAFeedThatIsNotWhole) {
    acceptBody();
    offer(10);
    ql::impl::completeExchange(context_, "ClientAbort");
    EXPECT_EQ(feed_.getDeviceErrorMsg(), "lost connection : ClientAbort");
    EXPECT_EQ(out_.getDeviceErrorMsg(), "lost connection : ClientAbort");
    EXPECT_EQ(read(20), 0U);
    EXPECT_FALSE(request_.isSchedulerDone());
}

TEST_F(ExchangeRequestTest, CompletionAfterAnEarlyAnswerFailsTheFeedOnly) {
    ql::impl::completeExchange(context_, nullptr);
    EXPECT_EQ(feed_.getDeviceErrorMsg(), "lost connection : AnsweredEarly");
    EXPECT_FALSE(out_.hasDeviceError());
}

TEST_F(ExchangeRequestTest, CompletionLeavesAWholeFeedAlone) {
    acceptBody();
    offer(10);
    call();
    ql::impl::completeExchange(context_, "WriteError");
    EXPECT_FALSE(feed_.hasDeviceError());
    EXPECT_EQ(read(20), 10U);
}

TEST_F(ExchangeRequestTest, CompletionTakesTheReasonOfACutBeforeTheEngines) {
    EXPECT_STREQ(ql::impl::completeExchange(context_, "WriteError"), "WriteError");
    begin(0);
    cut(CutReason::AnswerTimeout);
    EXPECT_STREQ(ql::impl::completeExchange(context_, "WriteError"), "AnswerTimeout");
    EXPECT_STREQ(ql::impl::completeExchange(context_, nullptr), "AnswerTimeout");
}

TEST_F(ExchangeRequestTest, CompletionEndsTheSuspension) {
    waitForTheAnswer();
    ql::impl::completeExchange(context_, "DaemonShutdown");
    EXPECT_FALSE(FakeSuspension::isSuspended());
    out_.releaseResponse();
    EXPECT_EQ(FakeSuspension::resumed, 1);
}

// ---- The owner ----

/// Notes what it is told.
class NotingOwner : public ql::http::RequestOwner {
public:
    void onBodyReady(ql::HttpBaseRequest& request, bool isWhole) override {
        told.emplace_back(isWhole ? "whole" : "full");
        if (onBody) {
            onBody(request);
        }
    }
    void onRequestDone(ql::HttpBaseRequest& /*request*/, std::string_view lossReason) override {
        told.push_back("done " + std::string(lossReason));
        if (onDone) {
            onDone();
        }
    }

    std::vector<std::string> told;
    std::function<void(ql::HttpBaseRequest&)> onBody;
    std::function<void()> onDone;
};

ql::http::ServerOptions optionsOf(const std::shared_ptr<NotingOwner>& owner) {
    ql::http::ServerOptions options;
    options.setRequestOwner(owner);
    return options;
}

class OwnedExchangeTest : public ExchangeRequestTest {
protected:
    OwnedExchangeTest() : OwnedExchangeTest(std::make_shared<NotingOwner>()) {}

    void beginOwned(std::optional<std::uint64_t> bodyBytes) {
        begin(bodyBytes.value_or(Exchange::UnknownLength));
        RequestAccess::state(request_).announcedBodyBytes = bodyBytes;
        acceptBody();
    }

    std::shared_ptr<NotingOwner> owner_;

private:
    explicit OwnedExchangeTest(const std::shared_ptr<NotingOwner>& owner)
        : ExchangeRequestTest(optionsOf(owner)), owner_(owner) {}
};

TEST_F(OwnedExchangeTest, IsToldOnceOfAWholeBody) {
    beginOwned(10);
    offer(10);
    EXPECT_THAT(owner_->told, IsEmpty());
    call();
    call();
    EXPECT_THAT(owner_->told, ElementsAre("whole"));
}

TEST_F(OwnedExchangeTest, IsToldOfAWholeBodyOfUnknownLength) {
    beginOwned({});
    call();
    EXPECT_THAT(owner_->told, ElementsAre("whole")) << "though it is empty";
}

TEST_F(OwnedExchangeTest, AnswersInTheCallThatEndsTheBody) {
    beginOwned(10);
    offer(10);
    owner_->onBody = [this](ql::HttpBaseRequest& request) {
        EXPECT_EQ(&request, &request_);
        EXPECT_EQ(read(100), 10U);
        out_.writeBytes("yes", 3);
        out_.endSending();
        out_.releaseResponse();
    };
    call();
    EXPECT_EQ(out_.getResponseState(), ResponseState::Buffered);
}

TEST_F(OwnedExchangeTest, IsToldOfAFullWindowAndThenNotOfTheEnd) {
    beginOwned({});
    offer(100);
    EXPECT_FALSE(offer(1));
    EXPECT_THAT(owner_->told, ElementsAre("full"));
    read(100);
    offer(100);
    EXPECT_FALSE(offer(1));
    read(100);
    call();
    EXPECT_THAT(owner_->told, ElementsAre("full"));
}

TEST_F(OwnedExchangeTest, RoomThatItMakesAtOnceIsUsed) {
    beginOwned({});
    offer(100);
    owner_->onBody = [this](ql::HttpBaseRequest& /*request*/) { read(100); };
    EXPECT_TRUE(offer(1));
    EXPECT_EQ(FakeSuspension::suspended, 0);
}

TEST_F(OwnedExchangeTest, IsNotToldOfNoBody) {
    beginOwned(0);
    call();
    EXPECT_THAT(owner_->told, IsEmpty());
}

TEST_F(OwnedExchangeTest, IsNotToldOfABodyThatWasAnswered) {
    beginOwned(10);
    out_.endSending();
    offer(10);
    call();
    EXPECT_THAT(owner_->told, IsEmpty());
}

TEST_F(OwnedExchangeTest, IsNotToldOfABodyThatFailed) {
    beginOwned(10);
    FeedAccess::fail(feed_, "some reason");
    call();
    EXPECT_THAT(owner_->told, IsEmpty());
}

TEST_F(OwnedExchangeTest, ExceptionAtTheBodyGivesTheAnswerUp) {
    const vireotest::TestLog log;
    beginOwned(10);
    offer(10);
    owner_->onBody = [](ql::HttpBaseRequest& /*request*/) { throw std::runtime_error("no body"); };
    call();
    EXPECT_EQ(out_.getDeviceErrorMsg(), "lost connection : InternalError");
    EXPECT_EQ(context_.exchange->phase(), Exchange::Phase::Answered);
    EXPECT_THAT(log.texts(qlLogType::Failure, "no body"), SizeIs(1));
}

TEST_F(OwnedExchangeTest, IsToldOfTheEndWithItsReason) {
    tellOwner(context_, "ClientAbort");
    tellOwner(context_, nullptr);
    EXPECT_THAT(owner_->told, ElementsAre("done ClientAbort", "done "));
}

TEST_F(OwnedExchangeTest, ExceptionAtTheEndIsLogged) {
    const vireotest::TestLog log;
    owner_->onDone = [] { throw std::runtime_error("no end"); };
    tellOwner(context_, nullptr);
    EXPECT_THAT(log.texts(qlLogType::Failure, "onRequestDone"), SizeIs(1));
}

} // namespace
