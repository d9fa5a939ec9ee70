#include "vireo/HttpReceiveDevice.h"

#include "support/FakeClock.h"
#include "support/FakeRequest.h"
#include "support/Pattern.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using ql::HttpReceiveDevice;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using vireotest::FakeClock;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;
using vireotest::letOthersRun;
using vireotest::pattern;
using vireotest::waitUntil;

/// A wait of the reader is cut into slices of so long.
constexpr milliseconds Slice{1000};

class HttpReceiveDeviceTest : public testing::Test {
protected:
    static std::uint64_t feed(HttpReceiveDevice& device, const std::string& bytes) {
        const qlMutexLocker locker(device.getLock());
        return device.writeBytes(bytes.data(), bytes.size());
    }
    std::uint64_t feed(const std::string& bytes) { return feed(device_, bytes); }

    void endFeed() {
        const qlMutexLocker locker(device_.getLock());
        device_.endFeed();
    }

    static std::string read(HttpReceiveDevice& device, std::size_t size) {
        std::string bytes(size, '?');
        bytes.resize(device.readBytes(bytes.data(), size));
        return bytes;
    }
    std::string read(std::size_t size) { return read(device_, size); }

    std::string readSome(std::size_t size) {
        std::string bytes(size, '?');
        bytes.resize(device_.readSome(bytes.data(), size));
        return bytes;
    }

    /// Reads on a thread that is the request's worker, which then notifies the application before the read and before
    /// each slice of its wait.
    std::future<std::string> readAsWorker(std::size_t size) {
        return std::async(std::launch::async, [this, size] {
            request_.handleOnThisThread();
            return read(size);
        });
    }

    /// The worker's read is inside its wait.
    [[nodiscard]] bool comesToWait() {
        if (!waitUntil([this] { return application_.notified >= 2; })) {
            return false;
        }
        // It notifies with the lock held, which is free again once it waits.
        const qlMutexLocker locker(device_.getLock());
        return true;
    }

    FakeServerImpl application_;
    FakeRequest request_{application_};
    HttpReceiveDevice& device_ = request_.editFeedDevice();
};

TEST_F(HttpReceiveDeviceTest, NewOneFeedsAndHasNothing) {
    EXPECT_FALSE(device_.atEnd());
    EXPECT_FALSE(device_.hasDeviceError());
    EXPECT_EQ(device_.getDeviceErrorMsg(), "");
    EXPECT_EQ(device_.getReceivedBytes(), 0);
}

TEST_F(HttpReceiveDeviceTest, IsNamedAndGoesBothWays) {
    EXPECT_STREQ(device_.getDeviceName(), "[http in]");
    EXPECT_EQ(static_cast<int>(device_.getDataWay()), 3);
}

TEST_F(HttpReceiveDeviceTest, LockIsTheSameEachTime) {
    EXPECT_EQ(&device_.getLock(), &device_.getLock());
}

TEST_F(HttpReceiveDeviceTest, WriteGivesItsSize) {
    EXPECT_EQ(feed("0123456789"), 10U);
    EXPECT_EQ(feed(""), 0U);
    EXPECT_FALSE(device_.hasDeviceError());
}

TEST_F(HttpReceiveDeviceTest, FullReadReturnsWithoutWaiting) {
    feed("0123456789");
    request_.handleOnThisThread();
    EXPECT_EQ(read(4), "0123");
    EXPECT_EQ(read(6), "456789");
    EXPECT_EQ(application_.notified, 2) << "once before each read, never for a slice";
    EXPECT_FALSE(device_.atEnd()) << "more may come";
}

TEST_F(HttpReceiveDeviceTest, ShortBodyIsReadToItsEnd) {
    feed("0123456789");
    endFeed();
    EXPECT_FALSE(device_.atEnd());
    EXPECT_EQ(read(100), "0123456789");
    EXPECT_TRUE(device_.atEnd());
    EXPECT_FALSE(device_.hasDeviceError());
}

TEST_F(HttpReceiveDeviceTest, ReadThatTakesTheLastByteSeesTheEnd) {
    feed("0123456789");
    endFeed();
    EXPECT_EQ(read(9), "012345678");
    EXPECT_FALSE(device_.atEnd());
    EXPECT_EQ(read(1), "9");
    EXPECT_TRUE(device_.atEnd());
}

TEST_F(HttpReceiveDeviceTest, EndOfAnEmptyBodyIsTheEndAtOnce) {
    endFeed();
    EXPECT_TRUE(device_.atEnd());
    request_.handleOnThisThread();
    EXPECT_EQ(read(10), "");
    EXPECT_EQ(application_.notified, 1) << "no slice of a wait";
}

TEST_F(HttpReceiveDeviceTest, EndOfABodyThatWasReadIsTheEndAtOnce) {
    feed("0123456789");
    EXPECT_EQ(read(10), "0123456789");
    EXPECT_FALSE(device_.atEnd());
    endFeed();
    EXPECT_TRUE(device_.atEnd());
}

TEST_F(HttpReceiveDeviceTest, EndOfFeedMayBeToldAgain) {
    feed("0123456789");
    endFeed();
    endFeed();
    EXPECT_FALSE(device_.atEnd());
    EXPECT_EQ(read(100), "0123456789");
    endFeed();
    EXPECT_TRUE(device_.atEnd());
    EXPECT_FALSE(device_.hasDeviceError());
}

TEST_F(HttpReceiveDeviceTest, DataAfterTheEndOfFeedIsRefused) {
    feed("0123456789");
    endFeed();
    EXPECT_EQ(feed("more"), 0U);
    EXPECT_EQ(device_.getDeviceErrorMsg(), "no more feed");
    EXPECT_TRUE(device_.hasDeviceError());
    EXPECT_TRUE(device_.atEnd());
}

TEST_F(HttpReceiveDeviceTest, NothingIsReadAfterAnError) {
    feed("0123456789");
    endFeed();
    feed("more");
    EXPECT_EQ(read(10), "");
    EXPECT_EQ(device_.getReceivedBytes(), 0);
}

TEST_F(HttpReceiveDeviceTest, EmptyReadNeitherLocksNorNotifies) {
    device_.getLock().lock();
    std::uint64_t got = 1;
    std::atomic<bool> returned{false};
    std::thread reader([&] {
        request_.handleOnThisThread();
        got = device_.readBytes(nullptr, 0);
        returned = true;
    });
    EXPECT_TRUE(waitUntil([&] { return returned.load(); }));
    device_.getLock().unlock();
    reader.join();
    EXPECT_EQ(got, 0U);
    EXPECT_EQ(application_.notified, 0);
}

TEST_F(HttpReceiveDeviceTest, ReceivedCountsWhatTheReaderGot) {
    feed("0123456789");
    EXPECT_EQ(device_.getReceivedBytes(), 0);
    read(3);
    EXPECT_EQ(device_.getReceivedBytes(), 3);
    read(7);
    EXPECT_EQ(device_.getReceivedBytes(), 10);
}

TEST_F(HttpReceiveDeviceTest, PiecesOfEverySizeComeOutAsTheyWentIn) {
    const std::vector<std::size_t> pieces{1, 65535, 65536, 65537, 200000, 10, 0, 3};
    std::size_t total = 0;
    for (const std::size_t size : pieces) {
        ASSERT_EQ(feed(pattern(size, total)), size);
        total += size;
    }
    endFeed();
    std::string taken;
    for (std::size_t size = 1; taken.size() < total; size = size * 2 + 1) {
        const std::string part = read(size);
        ASSERT_EQ(part.size(), std::min(size, total - taken.size()));
        taken += part;
    }
    EXPECT_EQ(taken, pattern(total));
    EXPECT_TRUE(device_.atEnd());
}

TEST_F(HttpReceiveDeviceTest, FeedAndReadInTurnsKeepTheOrder) {
    std::string taken;
    for (std::size_t fed = 0; fed < 300000; fed += 1000) {
        feed(pattern(1000, fed));
        // Always behind, so that chunks are appended to while they are being read.
        taken += read(fed == 0 ? 1 : 1000);
    }
    endFeed();
    taken += read(1000);
    EXPECT_EQ(taken, pattern(300000));
}

// ---- Waiting ----

TEST_F(HttpReceiveDeviceTest, BlockedReaderGetsWhatItWaitsFor) {
    feed("01234");
    std::future<std::string> reading = readAsWorker(10);
    ASSERT_TRUE(comesToWait());
    EXPECT_EQ(device_.getReceivedBytes(), 5) << "what was there has been taken before the wait";
    feed("56789");
    EXPECT_EQ(reading.get(), "0123456789");
    EXPECT_FALSE(device_.atEnd());
}

TEST_F(HttpReceiveDeviceTest, BlockedReaderReturnsShortAtTheEndOfFeed) {
    std::future<std::string> reading = readAsWorker(10);
    ASSERT_TRUE(comesToWait());
    feed("0123");
    endFeed();
    EXPECT_EQ(reading.get(), "0123");
    EXPECT_TRUE(device_.atEnd());
    EXPECT_FALSE(device_.hasDeviceError());
}

// A reader that is not woken finds what came at its next slice. That some of many waits end early is what shows the
// wake-up, also on a machine that is slow now and then.
constexpr int ManyWaits = 5;

TEST_F(HttpReceiveDeviceTest, WantedAmountWakesTheReader) {
    const auto begin = steady_clock::now();
    for (int i = 0; i < ManyWaits; ++i) {
        application_.notified = 0;
        std::future<std::string> reading = readAsWorker(10);
        ASSERT_TRUE(comesToWait());
        feed("01234");
        feed("56789");
        EXPECT_EQ(reading.get(), "0123456789");
    }
    EXPECT_LT(steady_clock::now() - begin, ManyWaits * Slice);
}

TEST_F(HttpReceiveDeviceTest, MoreThanTheWantedAmountWakesTheReader) {
    const auto begin = steady_clock::now();
    for (int i = 0; i < ManyWaits; ++i) {
        application_.notified = 0;
        std::future<std::string> reading = readAsWorker(10);
        ASSERT_TRUE(comesToWait());
        feed("0123456789ab");
        EXPECT_EQ(reading.get(), "0123456789");
        EXPECT_EQ(read(2), "ab");
    }
    EXPECT_LT(steady_clock::now() - begin, ManyWaits * Slice);
}

TEST_F(HttpReceiveDeviceTest, WhatTheBlockedReaderDoesNotWantIsKept) {
    std::future<std::string> reading = readAsWorker(10);
    ASSERT_TRUE(comesToWait());
    {
        const qlMutexLocker locker(device_.getLock());
        device_.writeBytes("0123", 4);
        device_.writeBytes("456789abcd", 10);
        device_.writeBytes("efgh", 4);
        device_.endFeed();
    }
    EXPECT_EQ(reading.get(), "0123456789");
    EXPECT_EQ(device_.getReceivedBytes(), 10);
    EXPECT_FALSE(device_.atEnd());
    EXPECT_EQ(read(100), "abcdefgh");
    EXPECT_TRUE(device_.atEnd());
}

TEST_F(HttpReceiveDeviceTest, EndComesOnceTheBlockedReaderHasTheRest) {
    std::future<std::string> reading = readAsWorker(10);
    ASSERT_TRUE(comesToWait());
    {
        const qlMutexLocker locker(device_.getLock());
        device_.writeBytes("0123", 4);
        device_.endFeed();
        EXPECT_FALSE(device_.atEnd()) << "the reader, which needs the lock, cannot have taken it";
        EXPECT_EQ(device_.getReceivedBytes(), 0);
    }
    EXPECT_EQ(reading.get(), "0123");
    EXPECT_TRUE(device_.atEnd());
    EXPECT_EQ(device_.getReceivedBytes(), 4);
}

TEST_F(HttpReceiveDeviceTest, FeedLocksAndWakesTheReader) {
    const auto begin = steady_clock::now();
    for (int i = 0; i < ManyWaits; ++i) {
        application_.notified = 0;
        std::future<std::string> reading = readAsWorker(10);
        ASSERT_TRUE(comesToWait());
        device_.feed("0123", 4);
        device_.feed("456789abc", 9);
        EXPECT_EQ(reading.get(), "0123456789");
        EXPECT_EQ(read(3), "abc");
    }
    EXPECT_LT(steady_clock::now() - begin, ManyWaits * Slice);
}

TEST_F(HttpReceiveDeviceTest, FeedAfterTheEndIsRefused) {
    endFeed();
    device_.feed("x", 1);
    EXPECT_EQ(device_.getDeviceErrorMsg(), "no more feed");
    EXPECT_EQ(read(1), "");
}

TEST_F(HttpReceiveDeviceTest, EndOfFeedWakesTheReader) {
    const auto begin = steady_clock::now();
    for (int i = 0; i < ManyWaits; ++i) {
        application_.notified = 0;
        std::future<std::string> reading = readAsWorker(10);
        ASSERT_TRUE(comesToWait());
        endFeed();
        EXPECT_EQ(reading.get(), "");
        device_.reset();
    }
    EXPECT_LT(steady_clock::now() - begin, ManyWaits * Slice);
}

TEST_F(HttpReceiveDeviceTest, ReaderWaitsAlsoAfterResetsInTheMiddleOfAChunk) {
    feed("0123456789");
    EXPECT_EQ(read(4), "0123");
    device_.reset();
    endFeed();
    EXPECT_EQ(read(10), "0123456789");
    device_.reset();
    application_.notified = 0;
    std::future<std::string> reading = readAsWorker(1);
    ASSERT_TRUE(comesToWait());
    device_.feed("x", 1);
    EXPECT_EQ(reading.get(), "x");
}

TEST_F(HttpReceiveDeviceTest, SmallerArrivalsAreCollectedAtTheNextSlice) {
    // Bytes of an earlier read do not count as arrived.
    feed(pattern(1000));
    read(1000);
    std::atomic<steady_clock::time_point> beforeTheWait{steady_clock::time_point{}};
    application_.onNotify = [&] {
        if (application_.notified == 2) {
            beforeTheWait = steady_clock::now();
        }
    };
    std::future<std::string> reading = readAsWorker(1000);
    ASSERT_TRUE(comesToWait());
    {
        // However long they take, the slice does not end between them.
        const qlMutexLocker locker(device_.getLock());
        for (int i = 0; i < 99; ++i) {
            device_.writeBytes("0123456789", 10);
        }
    }
    ASSERT_TRUE(waitUntil([this] { return device_.getReceivedBytes() != 1000; }));
    EXPECT_GE(steady_clock::now() - beforeTheWait.load(), Slice);
    EXPECT_EQ(device_.getReceivedBytes(), 1990) << "all at once";
    feed("0123456789");
    EXPECT_EQ(reading.get().size(), 1000U);
}

TEST_F(HttpReceiveDeviceTest, EachSliceRunsTheIdleCallbackAndNotifies) {
    std::atomic<int> idleCalls{0};
    std::unique_ptr<ql::HttpBaseRequest::IdleCallbackHolder> holder;
    request_.setIdleCallback([&] { ++idleCalls; }, 0, &holder, false);
    std::future<std::string> reading = readAsWorker(10);
    EXPECT_TRUE(waitUntil([this] { return application_.notified >= 4; }));
    endFeed();
    reading.get();
    EXPECT_GE(idleCalls, 4);
    EXPECT_EQ(idleCalls, application_.notified);
}

TEST_F(HttpReceiveDeviceTest, ReaderThatIsNotTheWorkerReadsWithoutNotifying) {
    feed("0123456789");
    EXPECT_EQ(read(10), "0123456789");
    EXPECT_EQ(application_.notified, 0);
}

TEST_F(HttpReceiveDeviceTest, ErrorSetWhileWaitingEndsTheRead) {
    std::future<std::string> reading = readAsWorker(10);
    ASSERT_TRUE(comesToWait());
    {
        const qlMutexLocker locker(device_.getLock());
        device_.writeBytes("0123", 4);
        device_.endFeed();
        device_.writeBytes("more", 4);
    }
    // It had come to wait before; what it finds afterwards is taken in the same pass.
    EXPECT_EQ(reading.get(), "0123");
    EXPECT_EQ(device_.getDeviceErrorMsg(), "no more feed");
}

// ---- Starvation ----

TEST_F(HttpReceiveDeviceTest, ReaderGivesUpAfter360SecondsWithoutAByte) {
    FakeClock clock;
    clock.replay({0, 360000});
    EXPECT_EQ(read(10), "");
    EXPECT_EQ(device_.getDeviceErrorMsg(), "wait too long without incoming data");
    EXPECT_TRUE(device_.atEnd());
    EXPECT_EQ(clock.readings(), 2) << "start of the timer and first look at it";
}

TEST_F(HttpReceiveDeviceTest, ReaderWaitsOnBefore360Seconds) {
    FakeClock clock;
    clock.replay({0, 359999, 360000});
    EXPECT_EQ(read(10), "");
    EXPECT_EQ(clock.readings(), 3) << "it gave up at the second look";
    EXPECT_EQ(device_.getDeviceErrorMsg(), "wait too long without incoming data");
}

TEST_F(HttpReceiveDeviceTest, EachByteBeginsThe360SecondsAgain) {
    FakeClock clock;
    feed("0");
    // Start, restart when the byte is taken, and two looks: 359999 ms and 360000 ms after that byte.
    clock.replay({0, 1000, 360999, 361000});
    EXPECT_EQ(read(10), "0");
    EXPECT_EQ(clock.readings(), 4);
    EXPECT_EQ(device_.getDeviceErrorMsg(), "wait too long without incoming data");
    EXPECT_EQ(device_.getReceivedBytes(), 1);
}

TEST_F(HttpReceiveDeviceTest, ReadThatGetsAllItWantsNeverStarves) {
    FakeClock clock;
    feed("0123456789");
    clock.replay({0, 1000000});
    EXPECT_EQ(read(10), "0123456789");
    EXPECT_FALSE(device_.hasDeviceError());
}

TEST_F(HttpReceiveDeviceTest, StarvedDeviceReadsNoMore) {
    {
        FakeClock clock;
        clock.replay({0, 360000});
        read(10);
    }
    feed("0123456789");
    EXPECT_EQ(read(10), "");
}

// ---- Reading what is there ----

TEST_F(HttpReceiveDeviceTest, SomeIsWhatIsThere) {
    feed("0123456789");
    EXPECT_EQ(readSome(4), "0123");
    EXPECT_EQ(readSome(100), "456789");
    EXPECT_EQ(device_.getReceivedBytes(), 10);
    EXPECT_FALSE(device_.atEnd());
}

TEST_F(HttpReceiveDeviceTest, SomeIsNothingAtTheEndAfterAnErrorAndForNoRoom) {
    EXPECT_EQ(device_.readSome(nullptr, 0), 0U);
    feed("01");
    endFeed();
    EXPECT_EQ(readSome(10), "01");
    EXPECT_TRUE(device_.atEnd());
    EXPECT_EQ(readSome(10), "");
    EXPECT_FALSE(device_.hasDeviceError());
    feed("more");
    EXPECT_EQ(readSome(10), "");
}

// Not woken, a reader finds a byte at its next slice alone.
TEST_F(HttpReceiveDeviceTest, EachByteWakesWhoWantsSome) {
    constexpr std::size_t Count = 200;
    std::future<std::string> reading = std::async(std::launch::async, [this] {
        std::string bytes;
        while (!device_.atEnd()) {
            bytes += readSome(100);
        }
        return bytes;
    });
    const std::string bytes = pattern(Count);
    EXPECT_TRUE(waitUntil([&, fed = std::size_t{0}]() mutable {
        while (fed < Count && device_.getReceivedBytes() == static_cast<std::int64_t>(fed)) {
            device_.feed(&bytes[fed], 1);
            ++fed;
        }
        return fed == Count;
    }));
    endFeed();
    EXPECT_EQ(reading.get(), bytes);
}

TEST_F(HttpReceiveDeviceTest, WhoWantsSomeGetsNoMoreThanThereIsRoomFor) {
    std::future<std::string> reading = std::async(std::launch::async, [this] { return readSome(4); });
    letOthersRun();
    device_.feed("0123456789", 10);
    EXPECT_EQ(reading.get(), "0123");
    EXPECT_EQ(read(6), "456789");
}

TEST_F(HttpReceiveDeviceTest, WhoWantsAllAfterwardsGetsAll) {
    std::future<std::string> some = std::async(std::launch::async, [this] { return readSome(4); });
    device_.feed("0", 1);
    EXPECT_EQ(some.get(), "0");
    std::future<std::string> reading = readAsWorker(4);
    ASSERT_TRUE(comesToWait());
    device_.feed("12", 2);
    device_.feed("34", 2);
    EXPECT_EQ(reading.get(), "1234");
}

TEST_F(HttpReceiveDeviceTest, EndOfFeedWakesWhoWantsSome) {
    std::future<std::string> reading = std::async(std::launch::async, [this] { return readSome(4); });
    letOthersRun();
    endFeed();
    EXPECT_EQ(reading.get(), "");
}

TEST_F(HttpReceiveDeviceTest, ReadingSomeTakesNoWorker) {
    FakeClock clock;
    std::unique_ptr<ql::HttpBaseRequest::IdleCallbackHolder> holder;
    request_.handleOnThisThread();
    request_.setIdleCallback([] { ADD_FAILURE() << "called"; }, 0, &holder, false);
    clock.replay({0, 359999, 360000});
    EXPECT_EQ(readSome(10), "");
    EXPECT_EQ(device_.getDeviceErrorMsg(), "wait too long without incoming data");
    EXPECT_EQ(application_.notified, 0);
}

// ---- Reset ----

TEST_F(HttpReceiveDeviceTest, ResetMakesAnEndedDeviceFeedAgain) {
    feed("01");
    endFeed();
    read(2);
    ASSERT_TRUE(device_.atEnd());
    device_.reset();
    EXPECT_FALSE(device_.atEnd());
    EXPECT_EQ(device_.getReceivedBytes(), 0);
    EXPECT_EQ(feed("23"), 2U);
    EXPECT_EQ(read(2), "23");
    EXPECT_EQ(device_.getReceivedBytes(), 2);
}

TEST_F(HttpReceiveDeviceTest, ResetClearsTheError) {
    endFeed();
    feed("more");
    ASSERT_TRUE(device_.hasDeviceError());
    device_.reset();
    EXPECT_FALSE(device_.hasDeviceError());
    EXPECT_EQ(device_.getDeviceErrorMsg(), "");
}

TEST_F(HttpReceiveDeviceTest, ResetKeepsWhatIsBuffered) {
    feed("0123");
    endFeed();
    device_.reset();
    EXPECT_EQ(feed("4567"), 4U);
    EXPECT_EQ(read(8), "01234567");
}

TEST_F(HttpReceiveDeviceTest, ResetGoesBackToTheBeginningOfTheFrontChunk) {
    feed("0123");
    read(2);
    device_.reset();
    EXPECT_EQ(read(4), "0123");
}

// ---- Both sides at once ----

TEST_F(HttpReceiveDeviceTest, FeederAndReaderMeetWithoutLosingAByte) {
    constexpr std::size_t Total = 4000000;
    std::thread feeder([this] {
        std::size_t fed = 0;
        for (std::size_t size = 1; fed < Total; size = size * 3 % 70001 + 1) {
            const std::size_t part = std::min(size, Total - fed);
            feed(pattern(part, fed));
            fed += part;
        }
        endFeed();
    });
    request_.handleOnThisThread();
    std::string taken;
    for (std::size_t size = 1; !device_.atEnd(); size = size * 5 % 90001 + 1) {
        taken += read(size);
    }
    feeder.join();
    EXPECT_TRUE(taken == pattern(Total)) << taken.size();
    EXPECT_EQ(device_.getReceivedBytes(), static_cast<std::int64_t>(Total));
}

TEST_F(HttpReceiveDeviceTest, DestructorFreesWhatWasNotRead) {
    auto request = std::make_unique<FakeRequest>(application_);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(feed(request->editFeedDevice(), pattern(100000)), 100000U);
    }
    request.reset();
}

} // namespace
