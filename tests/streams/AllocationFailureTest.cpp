#include "streams/ChunkList.h"

#include "support/FailingAllocation.h"
#include "support/FakeRequest.h"
#include "support/Pattern.h"
#include "support/WaitUntil.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using vireotest::failAllocation;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;
using vireotest::pattern;

/// The list's node and the chunk's bytes, at least.
constexpr std::size_t AllocationsOfAChunk = 2;

/// Does `work` with its first allocation failing, then its second, and so on until it succeeds.
/// @param afterFailure looks at what each failure has left behind.
/// @return how often it failed.
std::size_t failUntilDone(const std::function<void()>& work, const std::function<void()>& afterFailure) {
    for (std::size_t nth = 1; nth < 10; ++nth) {
        try {
            failAllocation(nth);
            work();
            failAllocation(0);
            return nth - 1;
        } catch (const std::bad_alloc&) {
            afterFailure();
        }
    }
    failAllocation(0);
    throw std::runtime_error("it never succeeds");
}

/// Without chunks that an earlier test has left for later use.
class AllocationFailure : public testing::Test {
protected:
    AllocationFailure() { ql::impl::freeSpareChunks(); }
};

/// Whether the next new chunk has memory of its own: then there are two allocations, its bytes and the node of the
/// list.
bool nextChunkIsAllocated() {
    ql::impl::ChunkList chunks;
    std::uint64_t count = 0;
    failAllocation(AllocationsOfAChunk);
    try {
        ql::impl::appendToChunks(chunks, "abc", 3, count);
    } catch (const std::bad_alloc&) {
        return true;
    }
    failAllocation(0);
    return false;
}

std::vector<char> chunkOf(std::size_t capacity) {
    std::vector<char> chunk;
    chunk.reserve(capacity);
    return chunk;
}

TEST_F(AllocationFailure, UsedUpChunkIsUsedAgain) {
    ql::impl::ChunkList chunks;
    std::uint64_t count = 0;
    ql::impl::appendToChunks(chunks, "abc", 3, count);
    char byte = 0;
    std::uint64_t offset = 0;
    ql::impl::takeFromChunks(chunks, offset, &byte, 1);
    EXPECT_TRUE(nextChunkIsAllocated()) << "the first chunk still holds bytes";
    while (ql::impl::takeFromChunks(chunks, offset, &byte, 1) != 0) {
    }
    EXPECT_FALSE(nextChunkIsAllocated());
    EXPECT_TRUE(nextChunkIsAllocated()) << "the one before was dropped with its list";
}

TEST_F(AllocationFailure, SoManyChunksAreKept) {
    for (std::size_t i = 0; i < ql::impl::MaxSpareChunks + 3; ++i) {
        ql::impl::recycleChunk(chunkOf(ql::impl::MinChunkCapacity));
    }
    for (std::size_t i = 0; i < ql::impl::MaxSpareChunks; ++i) {
        ASSERT_FALSE(nextChunkIsAllocated()) << i;
    }
    EXPECT_TRUE(nextChunkIsAllocated());
}

TEST_F(AllocationFailure, ChunkOfAnotherCapacityIsNotKept) {
    ql::impl::recycleChunk(chunkOf(ql::impl::MinChunkCapacity + 1));
    ql::impl::recycleChunk(chunkOf(100));
    EXPECT_TRUE(nextChunkIsAllocated());
}

TEST_F(AllocationFailure, KeptChunksCanBeFreed) {
    ql::impl::recycleChunk(chunkOf(ql::impl::MinChunkCapacity));
    ql::impl::freeSpareChunks();
    EXPECT_TRUE(nextChunkIsAllocated());
}

TEST_F(AllocationFailure, BodyOfOneChunkIsTakenWithoutACopy) {
    FakeServerImpl application;
    FakeRequest request(application);
    request.handleOnThisThread();
    ql::HttpResponseDevice& device = request.editInternalResponseDevice();
    const std::string body = pattern(70000);
    device.writeBytes(body.data(), body.size());
    device.endSending();
    std::vector<char> taken;
    {
        const qlMutexLocker locker(device.getLock());
        failAllocation(1);
        device.getData(taken);
        failAllocation(0);
    }
    EXPECT_EQ(std::string(taken.begin(), taken.end()), body);
}

TEST_F(AllocationFailure, ChunkListTakesNothingOfThePiece) {
    ql::impl::ChunkList chunks;
    std::uint64_t count = 0;
    const std::string first = pattern(65530);
    const std::string piece = pattern(100, first.size());
    ql::impl::appendToChunks(chunks, first.data(), first.size(), count);
    EXPECT_GE(failUntilDone([&] { ql::impl::appendToChunks(chunks, piece.data(), piece.size(), count); },
                            [&] {
                                EXPECT_EQ(chunks.size(), 1U);
                                EXPECT_EQ(chunks.back().size(), first.size());
                                EXPECT_EQ(count, first.size());
                            }),
              AllocationsOfAChunk);
    EXPECT_EQ(count, 65630U);
    std::string taken(count, '?');
    std::uint64_t offset = 0;
    EXPECT_EQ(ql::impl::takeFromChunks(chunks, offset, taken.data(), count), count);
    EXPECT_EQ(taken, pattern(65630));
}

TEST_F(AllocationFailure, FillingSpareCapacityAllocatesNothing) {
    ql::impl::ChunkList chunks;
    std::uint64_t count = 0;
    ql::impl::appendToChunks(chunks, "abc", 3, count);
    failAllocation(1);
    ql::impl::appendToChunks(chunks, "def", 3, count);
    failAllocation(0);
    EXPECT_EQ(count, 6U);
}

TEST_F(AllocationFailure, LeavesTheReceiveDeviceAsItWas) {
    FakeServerImpl application;
    FakeRequest request(application);
    ql::HttpReceiveDevice& device = request.editFeedDevice();
    const std::string piece = pattern(70000);
    {
        const qlMutexLocker locker(device.getLock());
        device.writeBytes("0123456789", 10);
        EXPECT_GE(failUntilDone([&]() QL_NO_THREAD_SAFETY_ANALYSIS { device.writeBytes(piece.data(), piece.size()); },
                                [&] { EXPECT_FALSE(device.hasDeviceError()); }),
                  AllocationsOfAChunk);
        device.endFeed();
    }
    std::string taken(100000, '?');
    taken.resize(device.readBytes(taken.data(), taken.size()));
    EXPECT_EQ(taken, "0123456789" + piece);
}

TEST_F(AllocationFailure, GivesABlockedReaderNothingOfThePiece) {
    FakeServerImpl application;
    FakeRequest request(application);
    ql::HttpReceiveDevice& device = request.editFeedDevice();
    std::future<std::string> reading = std::async(std::launch::async, [&] {
        request.handleOnThisThread();
        std::string taken(10, '?');
        taken.resize(device.readBytes(taken.data(), taken.size()));
        return taken;
    });
    ASSERT_TRUE(vireotest::waitUntil([&] { return application.notified >= 2; }));
    {
        // It notified with the lock held, which is free since it waits.
        const qlMutexLocker locker(device.getLock());
        device.writeBytes("0123", 4);
        failAllocation(1);
        EXPECT_THROW(device.writeBytes("abcdefghijk", 11), std::bad_alloc);
        device.writeBytes("456789", 6);
    }
    EXPECT_EQ(reading.get(), "0123456789");
}

TEST_F(AllocationFailure, TakesNothingForAReaderThatCannotWait) {
    FakeServerImpl application;
    FakeRequest request(application);
    ql::HttpReceiveDevice& device = request.editFeedDevice();
    device.feed("0123", 4);
    std::string taken(10, '?');
    failAllocation(1);
    EXPECT_THROW(device.readBytes(taken.data(), taken.size()), std::bad_alloc);
    device.feed("456789", 6);
    {
        const qlMutexLocker locker(device.getLock());
        device.endFeed();
    }
    EXPECT_EQ(device.readBytes(taken.data(), taken.size()), 10U);
    EXPECT_EQ(taken, "0123456789");
}

TEST_F(AllocationFailure, LeavesTheResponseDeviceAsItWas) {
    FakeServerImpl application;
    FakeRequest request(application);
    request.handleOnThisThread();
    ql::HttpResponseDevice& device = request.editInternalResponseDevice();
    const std::string piece = pattern(70000);
    device.writeBytes("0123456789", 10);
    EXPECT_GE(failUntilDone([&] { device.writeBytes(piece.data(), piece.size()); },
                            [&] {
                                EXPECT_EQ(device.getSentBytes(), 10);
                                EXPECT_EQ(device.getDataSize(), 0U);
                                EXPECT_FALSE(device.hasDeviceError());
                            }),
              AllocationsOfAChunk);
    device.endSending();
    std::string taken(100000, '?');
    bool endOfStream = false;
    bool noMoreData = false;
    taken.resize(device.sendChunksThreadSafe(taken.data(), taken.size(), endOfStream, noMoreData));
    EXPECT_EQ(taken, "0123456789" + piece);
}

} // namespace
