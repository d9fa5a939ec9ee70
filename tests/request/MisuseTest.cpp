#include "request/Misuse.h"

#include "request/RequestAccess.h"
#include "streams/DaemonCall.h"
#include "support/FakeClock.h"
#include "support/FakeRequest.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <future>
#include <string>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using vireotest::FakeClock;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;
using vireotest::TestLog;
using vireotest::waitUntil;

class MisuseTest : public testing::Test {
protected:
    MisuseTest() { request_.setOriginalFullUrl("/place?key=secret"); }

    std::uint64_t write(FakeRequest& request, std::size_t size) {
        const std::string bytes(size, 'x');
        return request.editInternalResponseDevice().writeBytes(bytes.data(), size);
    }

    void loseConnection() {
        const qlMutexLocker locker(out_.getLock());
        out_.setConnectionLost("ClientAbort");
    }

    const TestLog log_;
    FakeServerImpl application_;
    FakeRequest request_{application_};
    ql::HttpResponseDevice& out_ = request_.editInternalResponseDevice();
    ql::HttpReceiveDevice& in_ = request_.editFeedDevice();
};

TEST_F(MisuseTest, IsALineThatNamesTheTargetWithoutItsQuery) {
    write(request_, 1);
    EXPECT_THAT(log_.lines(),
                ElementsAre(TestLog::Line{static_cast<qlLogType>(5), "httpserver",
                                          "writeBytes() is refused: no thread has called workerThreadStartHandling()"
                                          " : /place"}));
}

TEST_F(MisuseTest, TargetIsNamedWithoutItsControlCharacters) {
    ql::impl::RequestAccess::setTargetAsItCame(request_, "/a\x1B[2J\nb");
    write(request_, 1);
    ASSERT_EQ(log_.lines().size(), 1U);
    EXPECT_THAT(log_.texts(static_cast<qlLogType>(5)), ElementsAre(testing::EndsWith(" : /a [2J b")));
}

TEST_F(MisuseTest, IsNamedOnceForEachRequestAndKind) {
    write(request_, 1);
    write(request_, 1);
    EXPECT_EQ(log_.lines().size(), 1U);
    request_.workerThreadStartHandling("somebody else");
    write(request_, 1);
    write(request_, 1);
    EXPECT_EQ(log_.lines().size(), 2U);
    FakeRequest other(application_);
    write(other, 1);
    EXPECT_EQ(log_.lines().size(), 3U);
}

TEST_F(MisuseTest, WriteOfAnotherThreadThanTheWorkersIsNamed) {
    request_.handleOnThisThread();
    std::thread([this] { EXPECT_EQ(write(request_, 1), 0U); }).join();
    EXPECT_THAT(log_.texts(qlLogType::Failure),
                ElementsAre(StartsWith("writeBytes() is refused: another thread has called")));
}

TEST_F(MisuseTest, RefusalForAnyOtherReasonIsNone) {
    request_.handleOnThisThread();
    out_.endSending();
    EXPECT_EQ(write(request_, 1), 0U);
    loseConnection();
    EXPECT_EQ(write(request_, 1), 0U);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MisuseTest, WriterThatWaitsBeforeTheReleaseIsNamed) {
    std::future<void> writing = std::async(std::launch::async, [this] {
        request_.handleOnThisThread();
        write(request_, 262145);
        EXPECT_THAT(log_.lines(), IsEmpty()) << "it did not wait";
        write(request_, 65536);
    });
    EXPECT_TRUE(log_.waitFor(qlLogType::Failure, "releaseResponse() was not called"));
    loseConnection();
    writing.get();
    EXPECT_EQ(log_.lines().size(), 1U);
}

TEST_F(MisuseTest, WriterThatWaitsAfterTheReleaseIsNone) {
    out_.releaseResponse();
    std::future<void> writing = std::async(std::launch::async, [this] {
        request_.handleOnThisThread();
        write(request_, 262145);
        write(request_, 65536);
    });
    EXPECT_TRUE(waitUntil([this] { return out_.getSentBytes() == 262145 + 65536; }));
    loseConnection();
    writing.get();
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MisuseTest, ReaderThatWaitsOnADaemonThreadIsNamed) {
    std::future<void> reading = std::async(std::launch::async, [this] {
        const ql::impl::DaemonCall call;
        char byte = 0;
        in_.readBytes(&byte, 1);
    });
    EXPECT_TRUE(log_.waitFor(qlLogType::Failure, "readBytes() waits on a daemon thread"));
    const qlMutexLocker locker(in_.getLock());
    in_.endFeed();
}

TEST_F(MisuseTest, ReaderThatFindsEverythingOnADaemonThreadIsNone) {
    const ql::impl::DaemonCall call;
    in_.feed("12", 2);
    char bytes[3];
    in_.readBytes(bytes, 2);
    {
        const qlMutexLocker locker(in_.getLock());
        in_.endFeed();
    }
    in_.readBytes(bytes, 3);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MisuseTest, ReaderThatWaitsOnAWorkerIsNone) {
    std::future<void> reading = std::async(std::launch::async, [this] {
        request_.handleOnThisThread();
        char byte = 0;
        in_.readBytes(&byte, 1);
    });
    ASSERT_TRUE(waitUntil([this] { return application_.notified >= 2; }));
    {
        const qlMutexLocker locker(in_.getLock());
        in_.endFeed();
    }
    reading.get();
    EXPECT_THAT(log_.lines(), IsEmpty());
}

// ---- A worker that goes without a release ----

class MissingReleaseTest : public MisuseTest {
protected:
    MissingReleaseTest() { request_.handleOnThisThread(); }

    void stop() { request_.workerThreadStopHandling({}); }

    /// Whether it is named once so much time has passed.
    bool isNamedAfterMs(std::int64_t ms) {
        clock_.advanceMs(ms);
        ql::impl::nameMissingRelease(request_);
        return !log_.texts(qlLogType::Failure, "nobody releaseResponse()").empty();
    }

    FakeClock clock_;
};

TEST_F(MissingReleaseTest, IsNamedAfter10SecondsWithoutAnswer) {
    stop();
    EXPECT_FALSE(isNamedAfterMs(9999));
    EXPECT_TRUE(isNamedAfterMs(1));
}

TEST_F(MissingReleaseTest, IsNamedAfterASecondWhenSomethingWasWritten) {
    write(request_, 1);
    stop();
    EXPECT_FALSE(isNamedAfterMs(999));
    EXPECT_TRUE(isNamedAfterMs(1));
}

TEST_F(MissingReleaseTest, IsNamedAfterASecondWhenTheBodyWasEnded) {
    out_.endSending();
    stop();
    EXPECT_FALSE(isNamedAfterMs(999));
    EXPECT_TRUE(isNamedAfterMs(1));
}

TEST_F(MissingReleaseTest, WorkerThatHasNotStoppedMayTakeItsTime) {
    write(request_, 1);
    EXPECT_FALSE(isNamedAfterMs(1000000));
}

TEST_F(MissingReleaseTest, OnlyAWorkerThatStoppedCostsALookAtTheClock) {
    ql::impl::nameMissingRelease(request_);
    EXPECT_EQ(clock_.readings(), 0);
    stop();
    const int before = clock_.readings();
    ql::impl::nameMissingRelease(request_);
    EXPECT_EQ(clock_.readings(), before + 1);
}

TEST_F(MissingReleaseTest, ReleasedResponseIsNone) {
    write(request_, 1);
    stop();
    out_.releaseResponse();
    EXPECT_FALSE(isNamedAfterMs(1000000));
}

TEST_F(MissingReleaseTest, ThreadThatTakesOverMayTakeItsTime) {
    stop();
    clock_.advanceMs(9999);
    request_.handleOnThisThread();
    EXPECT_FALSE(isNamedAfterMs(1000000));
    stop();
    EXPECT_FALSE(isNamedAfterMs(9999)) << "counted from the last one's stop";
    EXPECT_TRUE(isNamedAfterMs(1));
}

TEST_F(MissingReleaseTest, RequestThatNoWorkerEverHandledIsNone) {
    FakeRequest fresh(application_);
    fresh.workerThreadStopHandling({});
    clock_.advanceMs(1000000);
    ql::impl::nameMissingRelease(fresh);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

} // namespace
