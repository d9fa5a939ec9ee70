#include "vireo/HttpResponseDevice.h"

#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "support/FakeClock.h"
#include "support/FakeRequest.h"
#include "support/Pattern.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using ql::HttpResponseDevice;
using ResponseState = HttpResponseDevice::ResponseState;
using vireotest::FakeClock;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;
using vireotest::letOthersRun;
using vireotest::pattern;
using vireotest::waitUntil;

constexpr std::size_t Chunk = 65536;

/// What one call of the daemon's side gave.
struct Taken {
    std::string bytes;
    bool endOfStream;
    bool noMoreData;
};

/// The test's thread is the request's worker.
class HttpResponseDeviceTest : public testing::Test {
protected:
    HttpResponseDeviceTest() { request_.handleOnThisThread(); }

    std::uint64_t write(const std::string& bytes) { return device_.writeBytes(bytes.data(), bytes.size()); }

    Taken take(std::size_t max) {
        Taken taken{std::string(max, '?'), true, true};
        taken.bytes.resize(device_.sendChunksThreadSafe(taken.bytes.data(), max, taken.endOfStream, taken.noMoreData));
        return taken;
    }

    std::vector<char> getData() {
        std::vector<char> data{'o', 'l', 'd'};
        const qlMutexLocker locker(device_.getLock());
        device_.getData(data);
        return data;
    }

    std::string getText() {
        const std::vector<char> data = getData();
        return {data.begin(), data.end()};
    }

    void loseConnection(const std::string& reason) {
        const qlMutexLocker locker(device_.getLock());
        device_.setConnectionLost(reason);
    }

    FakeServerImpl application_;
    FakeRequest request_{application_};
    HttpResponseDevice& device_ = request_.editInternalResponseDevice();
};

TEST_F(HttpResponseDeviceTest, NewOneIsEmptyAndNotReady) {
    EXPECT_EQ(device_.getResponseState(), ResponseState::NotReady);
    EXPECT_FALSE(device_.isEndSending());
    EXPECT_FALSE(device_.hasDataToSend());
    EXPECT_EQ(device_.getDataSize(), 0U);
    EXPECT_EQ(device_.getSentBytes(), 0);
    EXPECT_FALSE(device_.atEnd());
    EXPECT_FALSE(device_.hasDeviceError());
}

TEST_F(HttpResponseDeviceTest, IsNamedAndOnlyWritten) {
    EXPECT_STREQ(device_.getDeviceName(), "[http out]");
    EXPECT_EQ(static_cast<int>(device_.getDataWay()), 2);
}

TEST_F(HttpResponseDeviceTest, ResponseStatesHaveTheirNumbers) {
    EXPECT_EQ(static_cast<int>(ResponseState::NotReady), 0);
    EXPECT_EQ(static_cast<int>(ResponseState::Ready), 1);
    EXPECT_EQ(static_cast<int>(ResponseState::Streaming), 2);
    EXPECT_EQ(static_cast<int>(ResponseState::Buffered), 3);
    static_assert(sizeof(ResponseState) == 4);
}

TEST_F(HttpResponseDeviceTest, ReleaseMakesTheResponseReady) {
    device_.releaseResponse();
    EXPECT_EQ(device_.getResponseState(), ResponseState::Ready);
}

TEST_F(HttpResponseDeviceTest, ReleaseTakesTheLock) {
    device_.lock("test");
    std::future<void> releasing = std::async(std::launch::async, [this] { device_.releaseResponse(); });
    letOthersRun();
    EXPECT_EQ(device_.getResponseState(), ResponseState::NotReady);
    device_.unlock();
    releasing.get();
    EXPECT_EQ(device_.getResponseState(), ResponseState::Ready);
}

TEST_F(HttpResponseDeviceTest, StateIsSetUnderTheLock) {
    const qlMutexLocker locker(device_.getLock());
    device_.setResponseState(ResponseState::Streaming);
    EXPECT_EQ(device_.getResponseState(), ResponseState::Streaming);
}

TEST_F(HttpResponseDeviceTest, LockWithAReasonIsTheSameLock) {
    device_.lock(nullptr);
    std::atomic<bool> locked{false};
    std::thread other([&] {
        device_.getLock().lock();
        locked = true;
        device_.getLock().unlock();
    });
    letOthersRun();
    EXPECT_FALSE(locked);
    device_.unlock();
    other.join();
    EXPECT_TRUE(locked);
}

TEST_F(HttpResponseDeviceTest, ReadIsNotSupported) {
    char byte = 'x';
    EXPECT_EQ(device_.readBytes(&byte, 1), 0U);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(device_.getDeviceErrorMsg(), "read is not supported");
    EXPECT_TRUE(device_.atEnd());
}

// ---- Hand-over ----

TEST_F(HttpResponseDeviceTest, PartlyFilledChunkWaits) {
    EXPECT_EQ(write(pattern(100)), 100U);
    EXPECT_FALSE(device_.hasDataToSend());
    EXPECT_EQ(device_.getSentBytes(), 100);
}

TEST_F(HttpResponseDeviceTest, PartlyFilledChunkWaitsUntilFlush) {
    write(pattern(100));
    device_.flush();
    EXPECT_TRUE(device_.hasDataToSend());
    EXPECT_EQ(device_.getDataSize(), 100U);
}

TEST_F(HttpResponseDeviceTest, PartlyFilledChunkWaitsUntilEndSending) {
    write(pattern(100));
    device_.endSending();
    EXPECT_EQ(device_.getDataSize(), 100U);
}

TEST_F(HttpResponseDeviceTest, FullChunkIsHandedOverAtOnce) {
    EXPECT_EQ(write(pattern(Chunk)), Chunk);
    EXPECT_EQ(device_.getDataSize(), Chunk);
}

TEST_F(HttpResponseDeviceTest, ChunkThatFillsUpIsHandedOver) {
    write(pattern(Chunk - 1));
    EXPECT_EQ(device_.getDataSize(), 0U);
    write("x");
    EXPECT_EQ(device_.getDataSize(), Chunk);
}

TEST_F(HttpResponseDeviceTest, PieceLargerThanAChunkIsHandedOverWhole) {
    write(pattern(Chunk + 1));
    EXPECT_EQ(device_.getDataSize(), Chunk + 1);
}

TEST_F(HttpResponseDeviceTest, OnlyTheFullChunksAreHandedOver) {
    write(pattern(10));
    write(pattern(Chunk, 10));
    EXPECT_EQ(device_.getDataSize(), Chunk);
    device_.flush();
    EXPECT_EQ(device_.getDataSize(), Chunk + 10);
}

TEST_F(HttpResponseDeviceTest, FlushedChunkIsNotFilledAnyMore) {
    write(pattern(10));
    device_.flush();
    write(pattern(Chunk - 10, 10));
    EXPECT_EQ(device_.getDataSize(), 10U) << "the new chunk is not full";
    write(pattern(10, Chunk));
    EXPECT_EQ(device_.getDataSize(), Chunk + 10);
}

TEST_F(HttpResponseDeviceTest, FlushConcernsOnlyWhatWasWrittenBefore) {
    write("a");
    device_.flush();
    write("b");
    EXPECT_EQ(device_.getDataSize(), 1U);
}

TEST_F(HttpResponseDeviceTest, FlushOfNothingDoesNotConcernTheNextWrite) {
    device_.flush();
    write("a");
    EXPECT_EQ(device_.getDataSize(), 0U);
}

TEST_F(HttpResponseDeviceTest, EmptyWriteIsAccepted) {
    EXPECT_EQ(write(""), 0U);
    EXPECT_FALSE(device_.hasDeviceError());
    EXPECT_EQ(device_.getSentBytes(), 0);
}

TEST_F(HttpResponseDeviceTest, SentCountsEveryAcceptedByte) {
    write(pattern(10));
    write(pattern(100000));
    EXPECT_EQ(device_.getSentBytes(), 100010);
    take(100);
    device_.flush();
    device_.endSending();
    EXPECT_EQ(device_.getSentBytes(), 100010);
}

TEST_F(HttpResponseDeviceTest, WriteResetsTheIdleCallback) {
    FakeClock clock;
    int idleCalls = 0;
    std::unique_ptr<ql::HttpBaseRequest::IdleCallbackHolder> holder;
    request_.setIdleCallback([&] { ++idleCalls; }, 1000, &holder, false);
    clock.advanceMs(999);
    write("a");
    clock.advanceMs(999);
    request_.updateIdleCallback();
    EXPECT_EQ(idleCalls, 0);
    clock.advanceMs(1);
    request_.updateIdleCallback();
    EXPECT_EQ(idleCalls, 1);
}

TEST_F(HttpResponseDeviceTest, RefusedWriteDoesNotResetTheIdleCallback) {
    FakeClock clock;
    int idleCalls = 0;
    std::unique_ptr<ql::HttpBaseRequest::IdleCallbackHolder> holder;
    request_.setIdleCallback([&] { ++idleCalls; }, 1000, &holder, false);
    device_.endSending();
    clock.advanceMs(999);
    write("a");
    clock.advanceMs(1);
    request_.updateIdleCallback();
    EXPECT_EQ(idleCalls, 1);
}

// ---- The 120 seconds ----

class HttpResponseHoldBackTest : public testing::Test {
protected:
    HttpResponseHoldBackTest() { request_.handleOnThisThread(); }

    void write(const std::string& bytes) { device_.writeBytes(bytes.data(), bytes.size()); }

    FakeClock clock_;
    FakeServerImpl application_;
    FakeRequest request_{application_};
    HttpResponseDevice& device_ = request_.editInternalResponseDevice();
};

TEST_F(HttpResponseHoldBackTest, WriteBefore120SecondsIsHeldBack) {
    write("a");
    clock_.advanceMs(119999);
    write("b");
    EXPECT_EQ(device_.getDataSize(), 0U);
}

TEST_F(HttpResponseHoldBackTest, WriteAfter120SecondsHandsEverythingOver) {
    write("a");
    clock_.advanceMs(120000);
    write("b");
    EXPECT_EQ(device_.getDataSize(), 2U);
}

TEST_F(HttpResponseHoldBackTest, TimeAloneHandsNothingOver) {
    write("a");
    clock_.advanceMs(1000000);
    EXPECT_EQ(device_.getDataSize(), 0U);
}

TEST_F(HttpResponseHoldBackTest, TimeRunsFromConstruction) {
    clock_.advanceMs(120000);
    write("a");
    EXPECT_EQ(device_.getDataSize(), 1U);
}

TEST_F(HttpResponseHoldBackTest, EachHandOverBeginsTheTimeAgain) {
    clock_.advanceMs(119000);
    write(pattern(Chunk));
    ASSERT_EQ(device_.getDataSize(), Chunk);
    clock_.advanceMs(119999);
    write("a");
    EXPECT_EQ(device_.getDataSize(), Chunk);
    clock_.advanceMs(1);
    write("b");
    EXPECT_EQ(device_.getDataSize(), Chunk + 2);
}

TEST_F(HttpResponseHoldBackTest, WriteThatHandsNothingOverDoesNotBeginTheTimeAgain) {
    clock_.advanceMs(60000);
    write("a");
    clock_.advanceMs(60000);
    write("b");
    EXPECT_EQ(device_.getDataSize(), 2U);
}

TEST_F(HttpResponseHoldBackTest, FlushOfNothingDoesNotBeginTheTimeAgain) {
    clock_.advanceMs(60000);
    device_.flush();
    clock_.advanceMs(60000);
    write("a");
    EXPECT_EQ(device_.getDataSize(), 1U);
}

TEST_F(HttpResponseHoldBackTest, ForcedHandOverIsOnce) {
    clock_.advanceMs(120000);
    write("a");
    write("b");
    EXPECT_EQ(device_.getDataSize(), 1U);
}

// ---- Refusals ----

TEST_F(HttpResponseDeviceTest, WriteOfAnotherThreadIsRefused) {
    std::uint64_t accepted = 1;
    std::thread([&] { accepted = device_.writeBytes("a", 1); }).join();
    EXPECT_EQ(accepted, 0U);
    EXPECT_EQ(device_.getSentBytes(), 0);
    EXPECT_FALSE(device_.hasDeviceError());
}

TEST_F(HttpResponseDeviceTest, WriteWithoutAWorkerIsRefused) {
    request_.workerThreadStopHandling("");
    EXPECT_EQ(write("a"), 0U);
    EXPECT_EQ(device_.getSentBytes(), 0);
}

TEST_F(HttpResponseDeviceTest, FlushOfAnotherThreadHandsNothingOver) {
    write("a");
    std::thread([&] { device_.flush(); }).join();
    EXPECT_EQ(device_.getDataSize(), 0U);
}

TEST_F(HttpResponseDeviceTest, WriteAfterEndSendingIsRefused) {
    device_.endSending();
    EXPECT_EQ(write("a"), 0U);
    EXPECT_EQ(device_.getSentBytes(), 0);
    EXPECT_FALSE(device_.hasDeviceError());
}

TEST_F(HttpResponseDeviceTest, WriteAfterAnErrorIsRefused) {
    loseConnection("ClientAbort");
    EXPECT_EQ(write("a"), 0U);
    EXPECT_EQ(device_.getSentBytes(), 0);
}

TEST_F(HttpResponseDeviceTest, LostConnectionIsADeviceErrorWithItsReason) {
    loseConnection("ClientAbort");
    EXPECT_TRUE(device_.hasDeviceError());
    EXPECT_EQ(device_.getDeviceErrorMsg(), "lost connection : ClientAbort");
    EXPECT_TRUE(device_.atEnd());
}

// ---- End of sending ----

TEST_F(HttpResponseDeviceTest, EndSendingIsSeen) {
    device_.endSending();
    EXPECT_TRUE(device_.isEndSending());
    EXPECT_FALSE(device_.atEnd());
}

TEST_F(HttpResponseDeviceTest, EndSendingDoesNotCheckTheThread) {
    write("a");
    std::thread([this] { device_.endSending(); }).join();
    EXPECT_TRUE(device_.isEndSending());
    EXPECT_EQ(device_.getDataSize(), 1U);
}

TEST_F(HttpResponseDeviceTest, EndSendingAgainHandsNothingOverTwice) {
    write("a");
    device_.endSending();
    device_.endSending();
    EXPECT_EQ(device_.getDataSize(), 1U);
    EXPECT_EQ(getText(), "a");
}

TEST_F(HttpResponseDeviceTest, EndSendingAfterAnErrorHandsNothingOver) {
    write("a");
    loseConnection("ClientAbort");
    device_.endSending();
    EXPECT_TRUE(device_.isEndSending());
    EXPECT_EQ(device_.getDataSize(), 0U);
}

TEST_F(HttpResponseDeviceTest, EndSendingDoesNotWaitForRoom) {
    write(pattern(300000));
    write(pattern(10));
    device_.endSending();
    EXPECT_EQ(device_.getDataSize(), 300010U);
}

// ---- The body in one piece ----

TEST_F(HttpResponseDeviceTest, DataIsTheWholeBodyInOnePiece) {
    const std::string body = pattern(200000);
    write(body.substr(0, 10));
    write(body.substr(10, 100000));
    write(body.substr(100010));
    device_.endSending();
    EXPECT_TRUE(getText() == body);
}

TEST_F(HttpResponseDeviceTest, TakenDataIsTheEnd) {
    write("abc");
    device_.endSending();
    EXPECT_FALSE(device_.atEnd());
    getData();
    EXPECT_TRUE(device_.atEnd());
    EXPECT_EQ(device_.getDataSize(), 0U);
    EXPECT_FALSE(device_.hasDataToSend());
    EXPECT_FALSE(device_.hasDeviceError());
    EXPECT_EQ(getText(), "");
}

TEST_F(HttpResponseDeviceTest, DataOfAnEmptyBodyReplacesWhatWasThere) {
    device_.endSending();
    EXPECT_EQ(getText(), "");
    EXPECT_TRUE(device_.atEnd());
}

TEST_F(HttpResponseDeviceTest, DataIsOnlyWhatWasHandedOver) {
    write("abc");
    device_.flush();
    write("def");
    EXPECT_EQ(getText(), "abc");
    device_.endSending();
    EXPECT_EQ(getText(), "def");
}

// ---- The body in pieces ----

TEST_F(HttpResponseDeviceTest, NothingHandedOverGivesNothing) {
    write("abc");
    const Taken taken = take(10);
    EXPECT_EQ(taken.bytes, "");
    EXPECT_FALSE(taken.endOfStream);
    EXPECT_FALSE(taken.noMoreData);
}

TEST_F(HttpResponseDeviceTest, PieceThatFillsTheBufferDoesNotSayWhetherMoreComes) {
    write("abc");
    device_.endSending();
    const Taken taken = take(3);
    EXPECT_EQ(taken.bytes, "abc");
    EXPECT_FALSE(taken.endOfStream);
    EXPECT_FALSE(taken.noMoreData);
    const Taken rest = take(3);
    EXPECT_EQ(rest.bytes, "");
    EXPECT_TRUE(rest.endOfStream);
    EXPECT_TRUE(rest.noMoreData);
}

TEST_F(HttpResponseDeviceTest, LastPieceMayCarryTheEnd) {
    write("abc");
    device_.endSending();
    const Taken taken = take(4);
    EXPECT_EQ(taken.bytes, "abc");
    EXPECT_TRUE(taken.endOfStream);
    EXPECT_TRUE(taken.noMoreData);
}

TEST_F(HttpResponseDeviceTest, QueueThatRanDryIsNotTheEnd) {
    write("abc");
    device_.flush();
    const Taken taken = take(4);
    EXPECT_EQ(taken.bytes, "abc");
    EXPECT_FALSE(taken.endOfStream);
    EXPECT_FALSE(taken.noMoreData);
}

TEST_F(HttpResponseDeviceTest, NoMoreChunksAreTakenThanFillTheBuffer) {
    write(pattern(Chunk));
    write(pattern(Chunk));
    write(pattern(Chunk));
    EXPECT_EQ(take(10).bytes.size(), 10U);
    EXPECT_EQ(device_.getDataSize(), 2 * Chunk) << "one whole chunk is with the daemon now";
    EXPECT_EQ(take(Chunk - 10).bytes.size(), Chunk - 10);
    EXPECT_EQ(device_.getDataSize(), 2 * Chunk);
    EXPECT_EQ(take(Chunk).bytes.size(), Chunk);
    EXPECT_EQ(device_.getDataSize(), Chunk);
    EXPECT_EQ(take(1).bytes.size(), 1U);
    EXPECT_EQ(device_.getDataSize(), 0U);
}

TEST_F(HttpResponseDeviceTest, LastTakenChunkMayOvershoot) {
    write(pattern(Chunk));
    write(pattern(Chunk));
    EXPECT_EQ(take(Chunk + 1).bytes.size(), Chunk + 1);
    EXPECT_EQ(device_.getDataSize(), 0U);
    EXPECT_EQ(take(Chunk).bytes.size(), Chunk - 1);
}

TEST_F(HttpResponseDeviceTest, AskingForNothingGivesNothing) {
    write(pattern(Chunk));
    EXPECT_EQ(take(0).bytes, "");
    EXPECT_EQ(device_.getDataSize(), Chunk);
}

class HttpResponseSplitTest : public HttpResponseDeviceTest, public testing::WithParamInterface<std::size_t> {};

TEST_P(HttpResponseSplitTest, PiecesOfAnySizePutTheBodyTogether) {
    // Never more than 256 KiB handed over before another hand-over, so that no write waits.
    const std::vector<std::size_t> writes{1, Chunk - 1, 10, Chunk, Chunk + 1, 60000};
    std::string body;
    for (const std::size_t size : writes) {
        ASSERT_EQ(write(pattern(size, body.size())), size);
        body += pattern(size, body.size());
        device_.flush();
    }
    device_.endSending();
    std::string received;
    Taken taken{};
    do {
        taken = take(GetParam());
        EXPECT_EQ(taken.bytes.size(), std::min(GetParam(), body.size() - received.size()));
        EXPECT_EQ(taken.endOfStream, taken.bytes.size() < GetParam());
        EXPECT_EQ(taken.noMoreData, taken.endOfStream);
        received += taken.bytes;
    } while (!taken.endOfStream && received.size() <= body.size());
    EXPECT_TRUE(received == body) << received.size();
    EXPECT_EQ(device_.getDataSize(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Sizes, HttpResponseSplitTest,
                         testing::Values(std::size_t{1}, std::size_t{2}, std::size_t{9}, std::size_t{10},
                                         std::size_t{11}, Chunk - 1, Chunk, Chunk + 1, 2 * Chunk, 1000000),
                         testing::PrintToStringParamName());

TEST_F(HttpResponseDeviceTest, SmallBodyComesOutAtEverySplit) {
    const std::string body = "0123456789";
    for (std::size_t first = 0; first <= body.size(); ++first) {
        for (std::size_t size = 1; size <= body.size() + 1; ++size) {
            FakeRequest request(application_);
            request.handleOnThisThread();
            HttpResponseDevice& device = request.editInternalResponseDevice();
            device.writeBytes(body.data(), first);
            device.flush();
            device.writeBytes(body.data() + first, body.size() - first);
            device.endSending();
            std::string received;
            for (bool end = false, noMore = false; !end && received.size() <= body.size();) {
                std::string piece(size, '?');
                piece.resize(device.sendChunksThreadSafe(piece.data(), size, end, noMore));
                received += piece;
            }
            EXPECT_EQ(received, body) << first << " " << size;
        }
    }
}

// ---- Back-pressure ----

/// Whether the worker of a released response waits in writeBytes(), or is about to, with all that it writes put by:
/// from here on another thread may end the body.
bool isHeldBack(FakeRequest& request) {
    return ql::impl::RequestAccess::state(request).writerWaits;
}

/// The request's worker is a thread of its own, which may block.
class HttpResponseBackPressureTest : public testing::Test {
protected:
    /// Runs on the worker.
    std::future<void> onWorker(std::function<void()> work) {
        return std::async(std::launch::async, [this, work = std::move(work)] {
            request_.handleOnThisThread();
            work();
        });
    }

    std::uint64_t write(std::size_t size) {
        const std::string bytes = pattern(size);
        return device_.writeBytes(bytes.data(), bytes.size());
    }

    /// Starts a write of one chunk on the worker, and gives it the time to get through if it is let through.
    void startWrite() {
        const std::int64_t accepted = device_.getSentBytes() + static_cast<std::int64_t>(Chunk);
        writing_ = onWorker([this] {
            written_ = write(Chunk);
            hasWritten_ = true;
        });
        ASSERT_TRUE(waitUntil([&] { return device_.getSentBytes() == accepted; }));
        letOthersRun();
    }

    void loseConnection() {
        const qlMutexLocker locker(device_.getLock());
        device_.setConnectionLost("ClientAbort");
    }

    std::uint64_t take(std::size_t max) {
        std::string bytes(max, '?');
        bool endOfStream = false;
        bool noMoreData = false;
        return device_.sendChunksThreadSafe(bytes.data(), max, endOfStream, noMoreData);
    }

    FakeServerImpl application_;
    FakeRequest request_{application_};
    HttpResponseDevice& device_ = request_.editInternalResponseDevice();
    std::future<void> writing_;
    std::atomic<bool> hasWritten_{false};
    std::uint64_t written_ = 0;
};

TEST_F(HttpResponseBackPressureTest, WriterDoesNotWaitAt262144Bytes) {
    onWorker([this] {
        write(262144);
        EXPECT_EQ(device_.getDataSize(), 262144U);
        EXPECT_EQ(write(Chunk), Chunk);
    }).get();
    EXPECT_EQ(device_.getDataSize(), 262144U + Chunk);
}

TEST_F(HttpResponseBackPressureTest, WriterWaitsAt262145Bytes) {
    onWorker([this] { write(262145); }).get();
    startWrite();
    EXPECT_FALSE(hasWritten_);
    EXPECT_EQ(device_.getDataSize(), 262145U);
    take(1);
    writing_.get();
    EXPECT_EQ(written_, Chunk);
    EXPECT_EQ(device_.getDataSize(), Chunk);
}

TEST_F(HttpResponseBackPressureTest, WriteThatHandsNothingOverDoesNotWait) {
    onWorker([this] {
        write(262145);
        EXPECT_EQ(write(100), 100U);
    }).get();
    EXPECT_EQ(device_.getDataSize(), 262145U);
}

TEST_F(HttpResponseBackPressureTest, FlushWaitsToo) {
    onWorker([this] { write(262145); }).get();
    std::atomic<bool> flushed{false};
    std::future<void> flushing = onWorker([&] {
        write(1);
        device_.flush();
        flushed = true;
    });
    ASSERT_TRUE(waitUntil([this] { return device_.getSentBytes() == 262146; }));
    letOthersRun();
    EXPECT_FALSE(flushed);
    take(1);
    flushing.get();
    EXPECT_EQ(device_.getDataSize(), 1U);
}

TEST_F(HttpResponseBackPressureTest, OneWakeUpLetsTheWriterInHoweverLongTheQueueIs) {
    // Chunks of a byte: each that is taken wakes the writer, and the queue stays too long.
    std::size_t smallChunks = 1000;
    onWorker([&] {
        for (std::size_t i = 0; i < smallChunks; ++i) {
            write(1);
            device_.flush();
        }
        write(1000000);
    }).get();
    ASSERT_EQ(device_.getDataSize(), smallChunks + 1000000);
    startWrite();
    EXPECT_FALSE(hasWritten_);
    // More than one only where the writer comes to its wait late.
    EXPECT_TRUE(waitUntil([&] {
        take(1);
        --smallChunks;
        return hasWritten_ || smallChunks == 0;
    }));
    EXPECT_TRUE(hasWritten_);
    EXPECT_EQ(device_.getDataSize(), smallChunks + 1000000 + Chunk);
    take(2000000);
    writing_.get();
}

TEST_F(HttpResponseBackPressureTest, ReadFromWhatTheDaemonHasDoesNotWakeTheWriter) {
    onWorker([this] {
        write(Chunk);
        write(262145);
    }).get();
    ASSERT_EQ(take(1), 1U);
    ASSERT_EQ(device_.getDataSize(), 262145U);
    startWrite();
    EXPECT_EQ(take(100), 100U);
    letOthersRun();
    EXPECT_FALSE(hasWritten_) << "nothing was taken from the queue";
    EXPECT_EQ(take(Chunk), Chunk);
    writing_.get();
}

TEST_F(HttpResponseBackPressureTest, LostConnectionReleasesTheWriter) {
    onWorker([this] { write(262145); }).get();
    startWrite();
    EXPECT_FALSE(hasWritten_);
    loseConnection();
    writing_.get();
    EXPECT_EQ(written_, Chunk) << "it had been accepted";
    onWorker([this] { EXPECT_EQ(write(1), 0U); }).get();
}

TEST_F(HttpResponseBackPressureTest, LossBetweenTheWritersCheckAndItsWaitReleasesItToo) {
    onWorker([this] { write(262145); }).get();
    device_.lock("test");
    // The writer has looked for an error before it counts the bytes, and then comes to the lock.
    startWrite();
    device_.setConnectionLost("ClientAbort");
    device_.unlock();
    EXPECT_TRUE(waitUntil([this] { return hasWritten_.load(); }));
    take(1);
    writing_.get();
    EXPECT_EQ(written_, Chunk);
}

TEST_F(HttpResponseBackPressureTest, EndOfTheBodyWhileTheWriterWaitsHandsEverythingOverOnce) {
    const std::string begin = pattern(262145);
    // What fills the chunk up, and a few bytes more, for which there is another one.
    for (const std::size_t rest : {std::size_t{536}, std::size_t{600}}) {
        FakeRequest request(application_);
        HttpResponseDevice& device = request.editInternalResponseDevice();
        const std::string body = begin + pattern(65000) + pattern(rest);
        device.releaseResponse();
        std::atomic<bool> hasWritten{false};
        std::future<void> writing = std::async(std::launch::async, [&] {
            request.handleOnThisThread();
            device.writeBytes(body.data(), begin.size());
            device.writeBytes(body.data() + begin.size(), 65000);
            device.writeBytes(body.data() + begin.size() + 65000, rest);
            hasWritten = true;
        });
        ASSERT_TRUE(waitUntil([&] { return isHeldBack(request); }));
        ASSERT_FALSE(hasWritten);
        device.endSending();
        EXPECT_EQ(device.getDataSize(), body.size());
        std::string received(body.size() + 1, '?');
        bool end = false;
        bool noMore = false;
        received.resize(device.sendChunksThreadSafe(received.data(), received.size(), end, noMore));
        writing.get();
        EXPECT_TRUE(received == body) << received.size();
        EXPECT_TRUE(end);
        EXPECT_EQ(device.getDataSize(), 0U);
    }
}

TEST_F(HttpResponseBackPressureTest, EndOfTheBodyReleasesItsWriterThoughNothingIsTaken) {
    FakeRequest request(application_);
    HttpResponseDevice& device = request.editInternalResponseDevice();
    const std::string body = pattern(400000);
    device.releaseResponse();
    std::future<void> writing = std::async(std::launch::async, [&] {
        request.handleOnThisThread();
        device.writeBytes(body.data(), 300000);
        device.writeBytes(body.data() + 300000, 100000);
    });
    ASSERT_TRUE(waitUntil([&] { return isHeldBack(request); }));
    device.endSending();
    const bool returned = writing.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    {
        // So that a writer that is still held back ends all the same.
        const qlMutexLocker locker(device.getLock());
        std::vector<char> taken;
        device.getData(taken);
        EXPECT_TRUE(std::equal(taken.begin(), taken.end(), body.begin(), body.end())) << taken.size();
        device.setConnectionLost("Test");
    }
    EXPECT_TRUE(returned);
}

TEST_F(HttpResponseBackPressureTest, WriterAndDaemonMeetWithoutLosingAByte) {
    constexpr std::size_t Total = 4000000;
    std::future<void> writing = onWorker([this] {
        const std::string body = pattern(Total);
        std::size_t written = 0;
        for (std::size_t size = 1; written < Total; size = size * 3 % 90001 + 1) {
            const std::size_t part = std::min(size, Total - written);
            ASSERT_EQ(device_.writeBytes(body.data() + written, part), part);
            written += part;
            if (size % 5 == 0) {
                device_.flush();
            }
        }
        device_.endSending();
    });
    std::string received;
    for (bool end = false, noMore = false; !end;) {
        std::string piece(50000, '?');
        piece.resize(device_.sendChunksThreadSafe(piece.data(), piece.size(), end, noMore));
        received += piece;
        if (piece.empty()) {
            std::this_thread::yield();
        }
    }
    writing.get();
    EXPECT_TRUE(received == pattern(Total)) << received.size();
}

TEST_F(HttpResponseBackPressureTest, DestructorFreesWhatWasNotSent) {
    auto request = std::make_unique<FakeRequest>(application_);
    request->handleOnThisThread();
    HttpResponseDevice& device = request->editInternalResponseDevice();
    const std::string bytes = pattern(100000);
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(device.writeBytes(bytes.data(), bytes.size()), bytes.size());
    }
    device.writeBytes("pending", 7);
    char one = 0;
    bool endOfStream = false;
    bool noMoreData = false;
    ASSERT_EQ(device.sendChunksThreadSafe(&one, 1, endOfStream, noMoreData), 1U);
    request.reset();
}

TEST_F(HttpResponseBackPressureTest, DestructorWaitsForTheLock) {
    auto request = std::make_unique<FakeRequest>(application_);
    qlMutex& lock = request->editInternalResponseDevice().getLock();
    lock.lock();
    std::atomic<bool> destroyed{false};
    std::thread destroyer([&] {
        request.reset();
        destroyed = true;
    });
    letOthersRun();
    EXPECT_FALSE(destroyed);
    lock.unlock();
    destroyer.join();
    EXPECT_TRUE(destroyed);
}

} // namespace
