#include "server/RequestDispatch.h"

#include "engine/EngineCallbacks.h"
#include "server/RequestContext.h"
#include "streams/PollingWait.h"
#include "support/FakeClock.h"
#include "support/FakeRequest.h"
#include "support/FakeWait.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"
#include "vireo/HttpServer.h"
#include "vireo/support/qlSystemUtils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <future>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

using ql::impl::PollingWait;
using ql::impl::RequestContext;
using ql::impl::Verdict;
using testing::ElementsAre;
using testing::IsEmpty;
using vireotest::FakeClock;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;
using vireotest::FakeWait;
using vireotest::TestLog;
using vireotest::waitUntil;
using ResponseState = ql::HttpResponseDevice::ResponseState;

/// The calls after the first one of a request, as far as they go without a connection: the engine refuses to queue a
/// response on none.
class RequestDispatchTest : public testing::Test {
protected:
    RequestDispatchTest() {
        context_.request = &request_;
        context_.receiveTimer.restart();
        request_.handleOnThisThread();
    }

    Verdict call(const std::string& body = {}) {
        left_ = body.size();
        return ql::impl::RequestDispatch(server_, ql::impl::EngineConnection(nullptr), "POST", "HTTP/1.1", wait_)
            .handleCall(body.data(), left_, slot_);
    }

    /// Once a call has been made.
    void expectProgress() const {
        EXPECT_EQ(wait_.progressed, 1);
        EXPECT_THAT(wait_.waitedFor, IsEmpty());
    }

    std::string readBody(std::size_t size) {
        std::string bytes(size, '?');
        bytes.resize(feed_.readBytes(bytes.data(), size));
        return bytes;
    }

    FakeClock clock_;
    const TestLog log_;
    FakeWait wait_;
    FakeServerImpl& application_ = *new FakeServerImpl;
    ql::http::HttpServer server_{&application_};
    FakeRequest request_{application_};
    ql::HttpReceiveDevice& feed_ = request_.editFeedDevice();
    ql::HttpResponseDevice& out_ = request_.editInternalResponseDevice();
    RequestContext context_{"/"};
    void* slot_ = &context_;
    std::size_t left_ = 0;
};

TEST_F(RequestDispatchTest, RequestThatArrivesAfterTheStopIsDiscarded) {
    server_.stopServer(true);
    context_.request = nullptr;
    EXPECT_EQ(call(), Verdict::Close);
    EXPECT_EQ(application_.created, 0);
    EXPECT_THAT(log_.lines(), ElementsAre(TestLog::Line{static_cast<qlLogType>(4), std::nullopt,
                                                        "Discarding http request, server is shutting down"}));
    expectProgress();
}

TEST_F(RequestDispatchTest, RequestAlreadyTakenGoesOnAfterTheStop) {
    server_.stopServer(true);
    EXPECT_EQ(call("body"), Verdict::Continue);
    EXPECT_EQ(readBody(4), "body");
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(RequestDispatchTest, BodyGoesToTheFeed) {
    EXPECT_EQ(call("some "), Verdict::Continue);
    EXPECT_EQ(left_, 0U);
    expectProgress();
    EXPECT_EQ(call("bytes"), Verdict::Continue);
    EXPECT_EQ(readBody(10), "some bytes");
    EXPECT_FALSE(feed_.atEnd());
}

TEST_F(RequestDispatchTest, BodyAfterTheAnswerIsDroppedButConsumed) {
    out_.endSending();
    EXPECT_EQ(call("late"), Verdict::Continue);
    EXPECT_EQ(left_, 0U);
    expectProgress();
    call();
    EXPECT_TRUE(feed_.atEnd()) << "nothing was fed";
}

TEST_F(RequestDispatchTest, BodyThatTheFeedRefusesIsConsumedToo) {
    call();
    EXPECT_EQ(call("late"), Verdict::Continue);
    EXPECT_EQ(left_, 0U);
    EXPECT_EQ(feed_.getDeviceErrorMsg(), "no more feed");
}

TEST_F(RequestDispatchTest, FirstCallWithoutBodyEndsTheFeed) {
    call("body");
    EXPECT_EQ(call(), Verdict::Continue);
    EXPECT_EQ(readBody(10), "body");
    EXPECT_TRUE(feed_.atEnd());
    EXPECT_EQ(call(), Verdict::Continue);
    EXPECT_FALSE(feed_.hasDeviceError()) << "told again, harmlessly";
}

TEST_F(RequestDispatchTest, EndOfTheFeedRecordsHowLongTheRequestTook) {
    clock_.advanceMs(1234);
    call("body");
    EXPECT_EQ(request_.getHeaderAndBodyReadDurationMs(), 0U);
    call();
    EXPECT_EQ(request_.getHeaderAndBodyReadDurationMs(), 1234U);
    clock_.advanceMs(100);
    call();
    EXPECT_EQ(request_.getHeaderAndBodyReadDurationMs(), 1334U);
}

TEST_F(RequestDispatchTest, TimerThatNeverRanCountsAsZero) {
    context_.receiveTimer.clearTime();
    clock_.advanceMs(1234);
    call();
    EXPECT_EQ(request_.getHeaderAndBodyReadDurationMs(), 0U);
}

TEST_F(RequestDispatchTest, LateResponseIsWaitedFor) {
    EXPECT_EQ(call(), Verdict::Continue);
    EXPECT_EQ(request_.responsesAsked, 1) << "asked at each poll";
    EXPECT_THAT(wait_.waitedFor, ElementsAre(&request_));
    EXPECT_EQ(wait_.progressed, 0);
    EXPECT_EQ(out_.getResponseState(), ResponseState::NotReady);
}

TEST_F(RequestDispatchTest, WorkerThatWentWithoutAReleaseIsNamed) {
    request_.workerThreadStopHandling({});
    clock_.advanceMs(9999);
    call();
    EXPECT_THAT(log_.lines(), IsEmpty());
    clock_.advanceMs(1);
    call();
    EXPECT_EQ(log_.texts(qlLogType::Failure, "workerThreadStopHandling").size(), 1U);
}

TEST_F(RequestDispatchTest, EngineIsLetPollForALateResponse) {
    PollingWait& polling = PollingWait::ofThisThread();
    polling.progress();
    std::size_t none = 0;
    EXPECT_EQ(ql::impl::onAccess(&server_, nullptr, "/", "POST", "HTTP/1.1", nullptr, &none, &slot_), MHD_YES);
    clock_.advanceMs(100);
    EXPECT_NE(polling.takeDueSleepMs(qlSystemUtils::GetTimeBaseMs()), 0) << "it has begun to count";
    polling.progress();
}

TEST_F(RequestDispatchTest, ResponseAlreadyQueuedIsNotQueuedAgain) {
    for (const ResponseState state : {ResponseState::Streaming, ResponseState::Buffered}) {
        {
            const qlMutexLocker locker(out_.getLock());
            out_.setResponseState(state);
        }
        wait_ = {};
        EXPECT_EQ(call(), Verdict::Continue);
        expectProgress();
        EXPECT_EQ(out_.getResponseState(), state);
    }
}

TEST_F(RequestDispatchTest, FinishedBodyIsTakenIntoOneBuffer) {
    out_.writeBytes("body", 4);
    out_.endSending();
    out_.releaseResponse();
    call();
    EXPECT_EQ(out_.getResponseState(), ResponseState::Buffered);
    EXPECT_TRUE(out_.atEnd()) << "its data was taken";
    expectProgress();
}

TEST_F(RequestDispatchTest, UnfinishedBodyIsStreamed) {
    out_.writeBytes("body", 4);
    out_.releaseResponse();
    call();
    EXPECT_EQ(out_.getResponseState(), ResponseState::Streaming);
    EXPECT_FALSE(out_.atEnd());
    expectProgress();
}

TEST_F(RequestDispatchTest, DeviceErrorIsAnsweredByTheLibraryAndLeavesTheStateAlone) {
    out_.endSending();
    out_.releaseResponse();
    {
        const qlMutexLocker locker(out_.getLock());
        out_.setConnectionLost("ClientAbort");
    }
    EXPECT_EQ(call(), Verdict::Close) << "there is no connection to queue it on";
    EXPECT_EQ(out_.getResponseState(), ResponseState::Ready);
    expectProgress();
    EXPECT_EQ(request_.getHeaderAndResponseWriteDurationMs(), 0U);
}

TEST_F(RequestDispatchTest, QueuedResponseCountsItsHeadersAndItsTime) {
    for (const bool finished : {true, false}) {
        FakeRequest request(application_);
        context_.request = &request;
        request.response.headers = {{"1", {"Name", "value"}}};
        request.response.cookies = {{"n", "v"}};
        if (finished) {
            request.editInternalResponseDevice().endSending();
        }
        request.editInternalResponseDevice().releaseResponse();
        call();
        EXPECT_EQ(request.getHeaderSentByteCountEstimation(), 12U + 17U) << finished;
        clock_.advanceMs(321);
        EXPECT_EQ(request.getHeaderAndResponseWriteDurationMs(), 321U) << finished;
    }
}

TEST_F(RequestDispatchTest, ReasonPhraseIsNeverAskedFor) {
    out_.endSending();
    out_.releaseResponse();
    call();
    EXPECT_EQ(request_.response.reasonPhrasesAsked, 0);
}

/// A description one of whose operations throws.
class FaultyResponse : public ql::HttpResponseInterface {
public:
    enum class Operation { GetResponse, GetCookies, GetHeaders, GetStatusCode, GetContentLength };

    explicit FaultyResponse(Operation faulty) : faulty_(faulty) {}

    void throwIf(Operation operation) const {
        if (operation == faulty_) {
            throw std::runtime_error("faulty");
        }
    }

    const Cookies& getCookies() const override {
        throwIf(Operation::GetCookies);
        return cookies_;
    }
    const Headers& getHeaders() const override {
        throwIf(Operation::GetHeaders);
        return headers_;
    }
    std::uint32_t getStatusCode() const override {
        throwIf(Operation::GetStatusCode);
        return 200;
    }
    std::int64_t getContentLength() const override {
        throwIf(Operation::GetContentLength);
        return -1;
    }
    std::string getReasonPhrase() const override { return {}; }

private:
    const Operation faulty_;
    Cookies cookies_;
    Headers headers_;
};

class FaultyRequest : public FakeRequest {
public:
    FaultyRequest(ql::http::HttpServerImpl& application, FaultyResponse& description)
        : FakeRequest(application), description_(description) {}

    ql::HttpResponseInterface& getResponse() override {
        description_.throwIf(FaultyResponse::Operation::GetResponse);
        return description_;
    }

private:
    FaultyResponse& description_;
};

class RequestDispatchFaultTest : public RequestDispatchTest,
                                 public testing::WithParamInterface<FaultyResponse::Operation> {};

TEST_P(RequestDispatchFaultTest, WriterIsLetGoWhenTheDescriptionThrows) {
    FaultyResponse response(GetParam());
    FaultyRequest request(application_, response);
    context_.request = &request;
    ql::HttpResponseDevice& out = request.editInternalResponseDevice();
    const std::string bytes(262145, 'x');
    std::future<std::uint64_t> writing = std::async(std::launch::async, [&] {
        request.handleOnThisThread();
        out.releaseResponse();
        out.writeBytes(bytes.data(), bytes.size());
        return out.writeBytes(bytes.data(), bytes.size());
    });
    ASSERT_TRUE(waitUntil([&] { return out.getSentBytes() == 2 * 262145; }));
    call();
    const auto hasReturned = [&] { return writing.wait_for(std::chrono::seconds(0)) == std::future_status::ready; };
    EXPECT_TRUE(waitUntil(hasReturned));
    EXPECT_EQ(out.getDeviceErrorMsg(), "lost connection : InternalError");
    const qlMutexLocker locker(out.getLock());
    out.setConnectionLost("end of the test");
}

INSTANTIATE_TEST_SUITE_P(Description, RequestDispatchFaultTest,
                         testing::Values(FaultyResponse::Operation::GetResponse, FaultyResponse::Operation::GetCookies,
                                         FaultyResponse::Operation::GetHeaders,
                                         FaultyResponse::Operation::GetStatusCode,
                                         FaultyResponse::Operation::GetContentLength));

TEST_F(RequestDispatchTest, DescriptionOfABufferThatThrowsIsToldToTheDevice) {
    FaultyResponse response(FaultyResponse::Operation::GetHeaders);
    FaultyRequest request(application_, response);
    context_.request = &request;
    request.editInternalResponseDevice().endSending();
    request.editInternalResponseDevice().releaseResponse();
    call();
    EXPECT_EQ(request.editInternalResponseDevice().getResponseState(), ResponseState::Buffered);
    EXPECT_EQ(request.editInternalResponseDevice().getDeviceErrorMsg(), "lost connection : InternalError");
}

} // namespace
