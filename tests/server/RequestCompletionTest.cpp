#include "server/RequestCompletion.h"

#include "support/Event.h"
#include "support/FakeClock.h"
#include "support/FakeRequest.h"
#include "support/TestFile.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"
#include "vireo/HttpServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using testing::ElementsAre;
using vireotest::Event;
using vireotest::FakeClock;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;
using vireotest::letOthersRun;
using vireotest::TestLog;
using vireotest::waitUntil;

class RequestCompletionTest : public testing::Test {
protected:
    /// @param lossReason null for none.
    void complete(const char* lossReason) { ql::impl::completeRequest(server_, *request_, lossReason); }

    FakeServerImpl& application_ = *new FakeServerImpl;
    ql::http::HttpServer server_{&application_};
    std::unique_ptr<FakeRequest> request_ = std::make_unique<FakeRequest>(application_);
    ql::HttpResponseDevice& device_ = request_->editInternalResponseDevice();
};

TEST_F(RequestCompletionTest, AbnormalEndIsADeviceErrorWithItsReason) {
    complete("TimeoutReached");
    EXPECT_TRUE(device_.hasDeviceError());
    EXPECT_EQ(device_.getDeviceErrorMsg(), "lost connection : TimeoutReached");
}

TEST_F(RequestCompletionTest, NormalEndLeavesNoError) {
    complete(nullptr);
    EXPECT_FALSE(device_.hasDeviceError());
    EXPECT_EQ(device_.getDeviceErrorMsg(), "");
}

TEST_F(RequestCompletionTest, WorkerThatWentWithoutAReleaseIsNamed) {
    const TestLog log;
    FakeClock clock;
    request_->handleOnThisThread();
    request_->workerThreadStopHandling({});
    clock.advanceMs(10000);
    complete("ClientAbort");
    EXPECT_EQ(log.texts(qlLogType::Failure, "workerThreadStopHandling").size(), 1U);
}

TEST_F(RequestCompletionTest, RequestIsDoneAndDetachedFromItsConnection) {
    int connection = 0;
    request_->setOpaquePtr(&connection);
    complete(nullptr);
    EXPECT_TRUE(request_->isSchedulerDone());
    EXPECT_EQ(request_->getOpaquePtr(), nullptr);
    EXPECT_EQ(application_.notified, 1);
}

TEST_F(RequestCompletionTest, FileThatWasNotSentIsClosedThoughTheRequestLivesOn) {
    const vireotest::TestDirectory directory;
    const auto path = directory.write("file", "content");
    device_.releaseFile(vireotest::openForReading(path), 0, 7);
    EXPECT_TRUE(vireotest::isOpen(path));
    complete("ClientAbort");
    EXPECT_FALSE(vireotest::isOpen(path));
}

TEST_F(RequestCompletionTest, FeedIsNotEnded) {
    complete("ClientAbort");
    EXPECT_FALSE(request_->editFeedDevice().atEnd());
}

TEST_F(RequestCompletionTest, RequestIsDoneThenNotifiedThenLost) {
    int connection = 0;
    request_->setOpaquePtr(&connection);
    bool wasDone = false;
    bool wasDetached = false;
    bool wasLost = true;
    application_.onNotify = [&] {
        wasDone = request_->isSchedulerDone();
        wasDetached = request_->getOpaquePtr() == nullptr;
        wasLost = device_.hasDeviceError();
    };
    complete("ClientAbort");
    EXPECT_TRUE(wasDone);
    EXPECT_TRUE(wasDetached);
    EXPECT_FALSE(wasLost);
    EXPECT_TRUE(device_.hasDeviceError());
}

TEST_F(RequestCompletionTest, NotificationIsUnderTheDevicesLock) {
    std::atomic<bool> gotLock{false};
    bool gotLockMeanwhile = true;
    std::thread other;
    application_.onNotify = [&] {
        other = std::thread([&] {
            const qlMutexLocker locker(device_.getLock());
            gotLock = true;
        });
        letOthersRun();
        gotLockMeanwhile = gotLock;
    };
    complete("ClientAbort");
    other.join();
    EXPECT_FALSE(gotLockMeanwhile);
    EXPECT_TRUE(gotLock);
}

TEST_F(RequestCompletionTest, ExceptionOfTheNotificationIsLoggedAndTheLossStillTold) {
    const TestLog log;
    application_.onNotify = [] { throw std::runtime_error("scheduler is out"); };
    complete("ClientAbort");
    EXPECT_EQ(device_.getDeviceErrorMsg(), "lost connection : ClientAbort");
    EXPECT_THAT(log.lines(), ElementsAre(TestLog::Line{static_cast<qlLogType>(5), "httpserver",
                                                       "notifyScheduler threw an exception : scheduler is out"}));
}

TEST_F(RequestCompletionTest, LossReleasesABlockedWriter) {
    const std::string bytes(262145, 'x');
    std::future<std::uint64_t> writing = std::async(std::launch::async, [&] {
        request_->handleOnThisThread();
        device_.writeBytes(bytes.data(), bytes.size());
        return device_.writeBytes(bytes.data(), bytes.size());
    });
    ASSERT_TRUE(waitUntil([&] { return device_.getSentBytes() == 2 * 262145; }));
    complete("WriteError");
    EXPECT_EQ(writing.get(), 262145U);
}

// What an application's scheduler does: it deletes the request as soon as it is done, which is while the daemon thread
// is still inside the completion.
TEST_F(RequestCompletionTest, RequestMayBeDeletedRightWhenItIsNotified) {
    Event isDeleting;
    std::atomic<bool> isDeleted{false};
    bool wasDeletedMeanwhile = true;
    std::thread scheduler;
    application_.onNotify = [&] {
        scheduler = std::thread([&] {
            isDeleting.set();
            request_.reset();
            isDeleted = true;
        });
        EXPECT_TRUE(isDeleting.wait());
        letOthersRun();
        wasDeletedMeanwhile = isDeleted;
    };
    complete("ClientAbort");
    scheduler.join();
    EXPECT_FALSE(wasDeletedMeanwhile) << "the destructor waits for the completion";
    EXPECT_TRUE(isDeleted);
}

TEST_F(RequestCompletionTest, RequestMayBeDeletedAsSoonAsItIsSeenDone) {
    for (int i = 0; i < 200; ++i) {
        auto request = std::make_unique<FakeRequest>(application_);
        FakeRequest& completing = *request;
        std::atomic<bool> isWatching{false};
        std::thread scheduler([&] {
            isWatching = true;
            while (!request->isSchedulerDone()) {
                std::this_thread::yield();
            }
            request.reset();
        });
        EXPECT_TRUE(waitUntil([&] { return isWatching.load(); }));
        ql::impl::completeRequest(server_, completing, i % 2 == 0 ? nullptr : "ClientAbort");
        scheduler.join();
    }
    EXPECT_EQ(application_.notified, 200);
}

} // namespace
