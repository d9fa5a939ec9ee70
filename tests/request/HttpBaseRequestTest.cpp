#include "vireo/HttpBaseRequest.h"

#include "support/FakeRequest.h"

#include <NativeSockets.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace {

using ql::HttpBaseRequest;
using testing::IsEmpty;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;

void feed(FakeRequest& request, const std::string& bytes) {
    ql::HttpReceiveDevice& device = request.editFeedDevice();
    const qlMutexLocker locker(device.getLock());
    device.writeBytes(bytes.data(), bytes.size());
}

class HttpBaseRequestTest : public testing::Test {
protected:
    FakeServerImpl application_;
    FakeRequest request_{application_};
};

TEST_F(HttpBaseRequestTest, NewOneIsUnknownAndWithoutParseError) {
    EXPECT_EQ(request_.getRequestType(), HttpBaseRequest::RequestType::Unknown);
    EXPECT_FALSE(request_.hasParseError());
    EXPECT_EQ(request_.getParseError(), "");
}

TEST_F(HttpBaseRequestTest, NewOneHasNoUrl) {
    EXPECT_EQ(request_.getOriginalRequestUrl(), "");
    EXPECT_FALSE(request_.getParsedUrl().isValid());
}

TEST_F(HttpBaseRequestTest, NewOneHasNothingFiled) {
    EXPECT_THAT(request_.getHeaders().getAll(), IsEmpty());
    EXPECT_THAT(request_.getCookies(), IsEmpty());
    EXPECT_THAT(request_.getQueryParameters(), IsEmpty());
    EXPECT_EQ(request_.getHeader("host"), nullptr);
    EXPECT_EQ(request_.getCookie("id"), nullptr);
    EXPECT_TRUE(request_.getClientAddress().isEmpty());
}

TEST_F(HttpBaseRequestTest, NewOneHasCountedNothing) {
    EXPECT_EQ(request_.getHeaderReceivedByteCountEstimation(), 0U);
    EXPECT_EQ(request_.getHeaderSentByteCountEstimation(), 0U);
    EXPECT_EQ(request_.getBodyReceivedByteCount(), 0U);
    EXPECT_EQ(request_.getBodySentByteCount(), 0U);
    EXPECT_EQ(request_.getHeaderAndBodyReadDurationMs(), 0U);
    EXPECT_EQ(request_.getHeaderAndResponseWriteDurationMs(), 0U);
}

TEST_F(HttpBaseRequestTest, NewOneBelongsToNobody) {
    EXPECT_EQ(request_.getOpaquePtr(), nullptr);
    EXPECT_FALSE(request_.isSchedulerDone());
    EXPECT_EQ(request_.getCurrentWorkerThreadId(), "");
}

TEST_F(HttpBaseRequestTest, FieldsLeftToTheApplicationHaveTheirDefaults) {
    EXPECT_EQ(request_.applicationTag_, -1);
    EXPECT_FALSE(request_.applicationTimer_.isTimeSnapped());
}

TEST_F(HttpBaseRequestTest, DevicesAreTheRequestsOwn) {
    FakeRequest other(application_);
    EXPECT_NE(&request_.editFeedDevice(), &other.editFeedDevice());
    EXPECT_NE(&request_.editInternalResponseDevice(), &other.editInternalResponseDevice());
    EXPECT_EQ(&request_.editFeedDevice(), &request_.editFeedDevice());
}

TEST_F(HttpBaseRequestTest, OpaquePointerIsKept) {
    int connection = 0;
    request_.setOpaquePtr(&connection);
    EXPECT_EQ(request_.getOpaquePtr(), &connection);
}

TEST_F(HttpBaseRequestTest, SchedulerDoneDropsTheOpaquePointer) {
    int connection = 0;
    request_.setOpaquePtr(&connection);
    request_.setSchedulerDone();
    EXPECT_TRUE(request_.isSchedulerDone());
    EXPECT_EQ(request_.getOpaquePtr(), nullptr);
}

TEST_F(HttpBaseRequestTest, WorkerIsRegisteredUnderTheGivenId) {
    request_.workerThreadStartHandling("worker 7");
    EXPECT_EQ(request_.getCurrentWorkerThreadId(), "worker 7");
}

TEST_F(HttpBaseRequestTest, LaterWorkerReplacesTheFormer) {
    request_.workerThreadStartHandling("worker 7");
    request_.workerThreadStartHandling("worker 8");
    EXPECT_EQ(request_.getCurrentWorkerThreadId(), "worker 8");
}

TEST_F(HttpBaseRequestTest, StoppingWithAnyIdUnregistersTheWorker) {
    request_.workerThreadStartHandling("worker 7");
    request_.workerThreadStopHandling("somebody else");
    EXPECT_EQ(request_.getCurrentWorkerThreadId(), "");
}

TEST_F(HttpBaseRequestTest, BodyReceivedIsWhatTheReaderTook) {
    feed(request_, "12345");
    EXPECT_EQ(request_.getBodyReceivedByteCount(), 0U);
    char taken[3];
    request_.editFeedDevice().readBytes(taken, sizeof taken);
    EXPECT_EQ(request_.getBodyReceivedByteCount(), 3U);
}

TEST_F(HttpBaseRequestTest, BodySentIsWhatTheWriterGave) {
    request_.handleOnThisThread();
    request_.editInternalResponseDevice().writeBytes("12345", 5);
    EXPECT_EQ(request_.getBodySentByteCount(), 5U);
}

TEST_F(HttpBaseRequestTest, FirstParseErrorMessageIsKept) {
    request_.setParseError("first");
    request_.setParseError("second");
    EXPECT_TRUE(request_.hasParseError());
    EXPECT_EQ(request_.getParseError(), "first");
}

TEST_F(HttpBaseRequestTest, ParseErrorWithoutMessageStillRaisesTheFlag) {
    request_.setParseError("");
    EXPECT_TRUE(request_.hasParseError());
    EXPECT_EQ(request_.getParseError(), "");
}

TEST_F(HttpBaseRequestTest, FirstMessageThatSaysSomethingIsKept) {
    request_.setParseError("");
    request_.setParseError("second");
    EXPECT_EQ(request_.getParseError(), "second");
}

TEST_F(HttpBaseRequestTest, ClientAddressIsKept) {
    sockaddr_in socketAddress{};
    socketAddress.sin_family = AF_INET;
    socketAddress.sin_addr.s_addr = htonl(0xC0000201);
    ql::IpAddress address;
    ASSERT_TRUE(address.fromIP(reinterpret_cast<const sockaddr*>(&socketAddress)));
    request_.setClientAddress(address);
    EXPECT_EQ(request_.getClientAddress().toString(), "192.0.2.1");
}

TEST_F(HttpBaseRequestTest, DevicesGoBeforeTheRestOfTheRecord) {
    auto request = std::make_unique<FakeRequest>(application_);
    request->handleOnThisThread();
    feed(*request, "123");
    char taken[3];
    ASSERT_EQ(request->editFeedDevice().readBytes(taken, 3), 3U);
    ASSERT_EQ(request->editInternalResponseDevice().writeBytes("12345", 5), 5U);
    // What the idle callback holds is destroyed with it: a look into the record half way through its destruction.
    std::optional<std::pair<std::uint64_t, std::uint64_t>> countsAtTheEnd;
    std::shared_ptr<void> atTheEnd(nullptr, [&countsAtTheEnd, record = request.get()](void*) {
        countsAtTheEnd.emplace(record->getBodyReceivedByteCount(), record->getBodySentByteCount());
    });
    request->setIdleCallback([held = std::move(atTheEnd)] {}, 0, nullptr, false);

    request.reset();

    EXPECT_EQ(countsAtTheEnd, std::make_pair(std::uint64_t{0}, std::uint64_t{0}));
}

} // namespace
