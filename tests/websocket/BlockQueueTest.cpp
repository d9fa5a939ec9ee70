#include "websocket/BlockQueue.h"

#include "websocket/Frames.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

using namespace wstest;
using ql::impl::BlockQueue;
using ql::impl::BlockSize;
using ql::impl::SocketBuffer;

namespace {

Bytes slice(const Bytes& bytes, std::size_t begin, std::size_t end) {
    return {bytes.begin() + static_cast<std::ptrdiff_t>(begin), bytes.begin() + static_cast<std::ptrdiff_t>(end)};
}

class BlockQueueTest : public testing::Test {
protected:
    Bytes content() const {
        Bytes bytes(queue.size());
        queue.peek(bytes);
        return bytes;
    }

    /// Receives `bytes` into room of so many blocks.
    void receive(const Bytes& bytes, std::size_t blockCount) {
        BlockQueue::Room room(queue, blockCount);
        std::size_t done = 0;
        for (const SocketBuffer& buffer : room.buffers()) {
            const std::size_t part = std::min(bytes.size() - done, static_cast<std::size_t>(buffer.size));
            std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(done), part, buffer.data);
            done += part;
        }
        ASSERT_EQ(done, bytes.size()) << "no room";
        room.keep(bytes.size());
    }

    void expectReset() const {
        EXPECT_TRUE(queue.isEmpty());
        EXPECT_EQ(queue.blockCount(), 0U);
        EXPECT_EQ(offset, 0U);
        EXPECT_EQ(end, BlockSize);
    }

    ql::impl::BlockList blocks;
    std::uint64_t offset = 0;
    std::uint64_t end = BlockSize;
    BlockQueue queue{blocks, offset, end};
};

} // namespace

TEST_F(BlockQueueTest, NewQueueIsEmpty) {
    EXPECT_TRUE(queue.isEmpty());
    EXPECT_FALSE(queue.endsWithFullBlock());
    EXPECT_EQ(content(), Bytes{});
}

TEST_F(BlockQueueTest, AppendsInPiecesOfAnySize) {
    for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, BlockSize - 1, BlockSize, BlockSize + 1}) {
        const Bytes bytes = pattern(3 * BlockSize + 5);
        for (std::size_t at = 0; at < bytes.size(); at += piece) {
            queue.append(slice(bytes, at, std::min(at + piece, bytes.size())));
        }
        EXPECT_EQ(queue.size(), bytes.size());
        EXPECT_EQ(queue.blockCount(), 4U);
        EXPECT_TRUE(content() == bytes) << piece;
        queue.skip(bytes.size());
        queue.releaseIfEmpty();
        expectReset();
    }
}

TEST_F(BlockQueueTest, AppendingNothingTakesNoBlock) {
    queue.append({});
    expectReset();
}

TEST_F(BlockQueueTest, FullBlockIsFollowedByANewOne) {
    queue.append(pattern(BlockSize));
    EXPECT_TRUE(queue.endsWithFullBlock());
    EXPECT_EQ(queue.blockCount(), 1U);
    queue.append(pattern(1));
    EXPECT_FALSE(queue.endsWithFullBlock());
    EXPECT_EQ(queue.blockCount(), 2U);
    EXPECT_EQ(end, 1U);
}

TEST_F(BlockQueueTest, ConsumedBlocksAreReleasedAtOnce) {
    const Bytes bytes = pattern(5 * BlockSize);
    queue.append(bytes);
    for (std::size_t gone = 1; gone < bytes.size(); ++gone) {
        queue.skip(1);
        ASSERT_EQ(queue.blockCount(), 5 - gone / BlockSize);
        ASSERT_EQ(offset, gone % BlockSize);
        ASSERT_EQ(queue.size(), bytes.size() - gone);
    }
    queue.skip(1);
    expectReset();
}

TEST_F(BlockQueueTest, SkippingNothingDoesNothing) {
    queue.skip(0);
    expectReset();
    queue.append(pattern(BlockSize));
    queue.skip(0);
    EXPECT_EQ(queue.size(), BlockSize);
}

TEST_F(BlockQueueTest, BlockThatIsConsumedAsFarAsItIsFilledTakesWhatFollows) {
    queue.append(pattern(10));
    queue.skip(10);
    EXPECT_TRUE(queue.isEmpty());
    EXPECT_EQ(queue.blockCount(), 1U);
    queue.append(pattern(3));
    EXPECT_EQ(queue.blockCount(), 1U);
    EXPECT_EQ(content(), pattern(3));
}

TEST_F(BlockQueueTest, EmptyQueueGivesUpItsLastBlockOnlyWhenItIsToldTo) {
    queue.append(pattern(10));
    queue.skip(9);
    queue.releaseIfEmpty();
    EXPECT_EQ(queue.size(), 1U);
    queue.skip(1);
    queue.releaseIfEmpty();
    expectReset();
}

TEST_F(BlockQueueTest, PeekStopsWhereTheBytesEndAndConsumesNothing) {
    const Bytes bytes = pattern(2500);
    queue.append(bytes);
    queue.skip(1000);
    const auto peek = [&](std::size_t count) {
        Bytes out(count, 0xEE);
        queue.peek(out);
        return out;
    };
    EXPECT_EQ(peek(0), Bytes{});
    EXPECT_EQ(peek(24), slice(bytes, 1000, 1024));
    EXPECT_EQ(peek(1100), slice(bytes, 1000, 2100));
    EXPECT_EQ(peek(1502), concatenate({slice(bytes, 1000, 2500), Bytes(2, 0xEE)}));
    EXPECT_EQ(queue.size(), 1500U);
    EXPECT_EQ(offset, 1000U);
}

TEST_F(BlockQueueTest, GatherListsTheBytesBlockByBlockAsFarAsThereIsRoom) {
    const Bytes bytes = pattern(3000);
    queue.append(bytes);
    queue.skip(1000);
    for (std::size_t room = 1; room <= 4; ++room) {
        std::array<SocketBuffer, 4> out{};
        Bytes listed;
        for (const SocketBuffer& buffer : queue.gather(std::span(out).first(room))) {
            listed.insert(listed.end(), buffer.data, buffer.data + buffer.size);
        }
        EXPECT_EQ(listed, slice(bytes, 1000, std::min(room * BlockSize, bytes.size()))) << room;
    }
    EXPECT_EQ(queue.size(), 2000U);
}

TEST_F(BlockQueueTest, UnmasksAcrossBlocksFromEveryOffset) {
    const Bytes masked = clientFrame(0x82, pattern(2500));
    const std::size_t header = masked.size() - 2500;
    for (std::size_t before = 0; before <= BlockSize; before += 31) {
        queue.append(pattern(before));
        queue.append(slice(masked, header, masked.size()));
        queue.append(Bytes{1, 2});
        queue.skip(before);
        Bytes out(2500);
        queue.takeUnmasked(out, SomeKey.data());
        ASSERT_TRUE(out == pattern(2500)) << before;
        ASSERT_EQ(content(), (Bytes{1, 2}));
        queue.skip(2);
        queue.releaseIfEmpty();
    }
}

TEST_F(BlockQueueTest, CutsBackToAnyEarlierSize) {
    for (const std::size_t gone : {std::size_t{0}, std::size_t{5}}) {
        for (const std::size_t before : {std::size_t{0}, std::size_t{1}, BlockSize - 6, BlockSize - 5, BlockSize,
                                         BlockSize + 1, 2 * BlockSize, 2 * BlockSize + 7}) {
            if (before == 0 && gone > 0) {
                continue; // a queue from which bytes are sent holds some
            }
            const Bytes bytes = pattern(gone + before);
            queue.append(bytes);
            queue.skip(gone);
            const std::size_t blocksBefore = queue.blockCount();
            const std::uint64_t endBefore = end;
            queue.append(pattern(3 * BlockSize));
            queue.cutTo(before);
            EXPECT_EQ(queue.blockCount(), blocksBefore) << before;
            EXPECT_EQ(end, endBefore) << before;
            EXPECT_EQ(content(), slice(bytes, gone, bytes.size())) << before;
            queue.skip(before);
            queue.releaseIfEmpty();
        }
    }
}

TEST_F(BlockQueueTest, RoomIsTheRestOfTheLastBlockAndNewOnes) {
    queue.append(pattern(1000));
    {
        const BlockQueue::Room room(queue, 3);
        ASSERT_EQ(room.buffers().size(), 3U);
        EXPECT_EQ(room.buffers()[0].size, 24U);
        EXPECT_EQ(room.buffers()[1].size, BlockSize);
        EXPECT_EQ(room.buffers()[2].size, BlockSize);
    }
    EXPECT_EQ(content(), pattern(1000));
    EXPECT_EQ(queue.blockCount(), 1U) << "blocks that stay empty are not kept";
}

TEST_F(BlockQueueTest, WhatIsReceivedIntoRoomMayEndAnywhere) {
    for (const std::size_t before : {std::size_t{0}, std::size_t{1000}, BlockSize}) {
        for (std::size_t count = 0; count <= 3 * BlockSize - 1000; ++count) {
            queue.append(pattern(before));
            receive(pattern(count), 3);
            ASSERT_TRUE(content() == concatenate({pattern(before), pattern(count)})) << before << ", " << count;
            ASSERT_EQ(queue.blockCount(), (before + count + BlockSize - 1) / BlockSize);
            queue.skip(before + count);
            queue.releaseIfEmpty();
        }
    }
}
