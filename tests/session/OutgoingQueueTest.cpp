#include "session/OutgoingQueue.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

using ql::impl::EncodedFrame;
using ql::impl::FrameType;
using ql::impl::OutgoingQueue;
using ql::impl::SocketBuffer;

namespace {

EncodedFrame frame(FrameType type, const std::string& payload) {
    return {type, true, {reinterpret_cast<const unsigned char*>(payload.data()), payload.size()}};
}

EncodedFrame message(const std::string& payload) {
    return frame(FrameType::Text, payload);
}

/// The payloads of what would be sent, the headers of two bytes left out.
std::string contents(const OutgoingQueue& queue) {
    std::array<SocketBuffer, 64> buffers;
    std::string all;
    for (const SocketBuffer& buffer : queue.gather(buffers)) {
        const std::string bytes(buffer.data, buffer.data + buffer.size);
        const bool isWhole = static_cast<unsigned char>(bytes[0]) >= 0x80;
        all += (all.empty() ? "" : " ") + (isWhole ? bytes.substr(2) : bytes);
    }
    return all;
}

} // namespace

TEST(OutgoingQueue, MessagesLeaveInOrderAndAreCounted) {
    OutgoingQueue queue;
    EXPECT_TRUE(queue.isEmpty());
    queue.addMessage(message("first"));
    queue.addMessage(message("second"));
    EXPECT_EQ(contents(queue), "first second");
    EXPECT_EQ(queue.bytes(), 7U + 8U);
    EXPECT_EQ(queue.frames(), 2U);
    queue.skip(7 + 4);
    EXPECT_EQ(contents(queue), "cond");
    EXPECT_EQ(queue.bytes(), 4U);
    queue.skip(4);
    EXPECT_TRUE(queue.isEmpty());
    EXPECT_EQ(queue.bytes(), 0U);
}

TEST(OutgoingQueue, MessageMayBePartlyOnItsWay) {
    OutgoingQueue queue;
    queue.addMessage(message("first"), 4);
    EXPECT_EQ(contents(queue), "rst");
    EXPECT_EQ(queue.bytes(), 3U);
}

TEST(OutgoingQueue, GathersNoMoreThanThereIsRoomFor) {
    OutgoingQueue queue;
    for (int i = 0; i < 5; ++i) {
        queue.addMessage(message("x"));
    }
    std::array<SocketBuffer, 3> buffers;
    EXPECT_EQ(queue.gather(buffers).size(), 3U);
}

TEST(OutgoingQueue, ControlFramesPassMessagesButNotWhatHasBegun) {
    OutgoingQueue queue;
    queue.addMessage(message("first"), 3);
    queue.addMessage(message("second"));
    queue.addPing(frame(FrameType::Ping, "ping"));
    queue.setPong(frame(FrameType::Pong, "pong"));
    EXPECT_EQ(contents(queue), "irst ping pong second");
    queue.skip(4 + 3);
    EXPECT_EQ(contents(queue), "ing pong second");
    queue.addPing(frame(FrameType::Ping, "other"));
    EXPECT_EQ(contents(queue), "ing pong other second");
    queue.skip(3 + 6 + 7 + 8);
    EXPECT_TRUE(queue.isEmpty());
}

TEST(OutgoingQueue, PongTakesThePlaceOfOneThatHasNotBegun) {
    OutgoingQueue queue;
    queue.setPong(frame(FrameType::Pong, "first"));
    queue.addPing(frame(FrameType::Ping, "ping"));
    queue.setPong(frame(FrameType::Pong, "2"));
    EXPECT_EQ(contents(queue), "2 ping");
    EXPECT_EQ(queue.bytes(), 3U + 6U);
    queue.skip(1);
    queue.setPong(frame(FrameType::Pong, "third"));
    EXPECT_EQ(queue.frames(), 3U);
    EXPECT_EQ(queue.bytes(), 2U + 6U + 7U);
}

TEST(OutgoingQueue, MessagesWaitForTheEndOfOneInPieces) {
    OutgoingQueue queue;
    queue.addMessage(message("before"));
    queue.openMessage();
    queue.addMessage(message("after"));
    queue.addPiece(message("piece1"));
    queue.addPing(frame(FrameType::Ping, "ping"));
    queue.addPiece(message("piece2"));
    EXPECT_EQ(contents(queue), "ping before piece1 piece2");
    EXPECT_EQ(queue.bytes() - queue.sendableBytes(), 7U);
    queue.finishMessage();
    EXPECT_EQ(contents(queue), "ping before piece1 piece2 after");
    EXPECT_EQ(queue.bytes(), queue.sendableBytes());
    EXPECT_FALSE(queue.isMessageOpen());
}

TEST(OutgoingQueue, MessagesBehindOneThatIsNeverFinishedGoWithTheClose) {
    OutgoingQueue queue;
    queue.openMessage();
    queue.addPiece(message("piece"));
    queue.addMessage(message("after"));
    queue.addClose(frame(FrameType::Close, "bye"));
    EXPECT_EQ(contents(queue), "piece bye");
    EXPECT_EQ(queue.bytes(), 7U + 5U);
}

TEST(OutgoingQueue, DropsTheOldestMessageOfWhichNothingIsSent) {
    OutgoingQueue queue;
    queue.addMessage(message("begun"), 3);
    queue.addMessage(message("old"));
    queue.addMessage(message("new"));
    queue.addPing(frame(FrameType::Ping, "ping"));
    EXPECT_TRUE(queue.dropOldestMessage(true));
    EXPECT_EQ(contents(queue), "egun ping new");
    EXPECT_EQ(queue.bytes(), 4U + 6U + 5U);
    EXPECT_TRUE(queue.dropOldestMessage(true));
    EXPECT_FALSE(queue.dropOldestMessage(true));
    EXPECT_EQ(contents(queue), "egun ping");
}

TEST(OutgoingQueue, DropsNoPieces) {
    OutgoingQueue queue;
    queue.openMessage();
    queue.addPiece(message("piece"));
    queue.addMessage(message("after"));
    EXPECT_TRUE(queue.dropOldestMessage(true));
    EXPECT_FALSE(queue.dropOldestMessage(true));
    EXPECT_EQ(contents(queue), "piece");
    EXPECT_EQ(queue.bytes(), queue.sendableBytes());
}

TEST(OutgoingQueue, DropsNothingBehindPiecesForThem) {
    OutgoingQueue queue;
    queue.openMessage();
    queue.addMessage(message("held"));
    EXPECT_FALSE(queue.dropOldestMessage(false));
    EXPECT_EQ(queue.bytes(), 6U);
}

TEST(OutgoingQueue, KnowsWhatCannotBeDropped) {
    constexpr std::uint64_t Cost = OutgoingQueue::FrameCost;
    OutgoingQueue queue;
    queue.addMessage(message("begun"), 3);
    queue.addMessage(message("not"));
    queue.addPing(frame(FrameType::Ping, "ping"));
    EXPECT_EQ(queue.undroppableLoad(), 4 + 6 + 2 * Cost);
    EXPECT_EQ(queue.load(), 4 + 5 + 6 + 3 * Cost);
    queue.openMessage();
    queue.addPiece(message("piece"));
    queue.addMessage(message("held"));
    EXPECT_EQ(queue.undroppableLoad(), 4 + 6 + 7 + 3 * Cost);
    EXPECT_EQ(queue.sendableLoad(), 4 + 5 + 6 + 7 + 4 * Cost);
    EXPECT_EQ(queue.load(), 4 + 5 + 6 + 7 + 6 + 5 * Cost);
    queue.skip(4 + 6 + 5 + 3);
    EXPECT_EQ(queue.undroppableLoad(), 4 + Cost);
    queue.dropUnsent();
    EXPECT_EQ(queue.undroppableLoad(), 4 + Cost);
    queue.skip(4);
    EXPECT_EQ(queue.undroppableLoad(), 0U);
}

TEST(OutgoingQueue, DroppingOneAndAddingOneForEverTakesNoMoreMemory) {
    OutgoingQueue queue;
    queue.addMessage(message("begun"), 3);
    for (int i = 0; i < 100000; ++i) {
        queue.addMessage(message("m" + std::to_string(i)));
        if (i >= 10) {
            ASSERT_TRUE(queue.dropOldestMessage(true));
        }
    }
    EXPECT_EQ(queue.frames(), 11U);
    EXPECT_EQ(contents(queue).substr(0, 11), "egun m99990");
}

TEST(OutgoingQueue, KeepsOnlyWhatHasBegun) {
    OutgoingQueue queue;
    queue.addMessage(message("begun"), 3);
    queue.addMessage(message("not"));
    queue.addPing(frame(FrameType::Ping, "ping"));
    queue.openMessage();
    queue.addMessage(message("held"));
    queue.dropUnsent();
    EXPECT_EQ(contents(queue), "egun");
    EXPECT_EQ(queue.bytes(), 4U);
    queue.skip(4);
    queue.addMessage(message("x"));
    queue.dropUnsent();
    EXPECT_TRUE(queue.isEmpty());
}
