#include "websocket/MessageInProgress.h"

#include "websocket/Frames.h"

#include <gtest/gtest.h>

using namespace wstest;

namespace {

class MessageInProgressTest : public testing::Test {
protected:
    Bytes payload;
    bool isBinary = false;
    ql::impl::MessageInProgress message{payload, isBinary};
};

} // namespace

TEST_F(MessageInProgressTest, OpensWithItsFirstByteOfPayload) {
    EXPECT_FALSE(message.isOpen());
    EXPECT_EQ(message.addFrame(0, true), 0U);
    EXPECT_FALSE(message.isOpen());
    EXPECT_EQ(message.addFrame(3, true), 0U);
    EXPECT_TRUE(message.isOpen());
    EXPECT_EQ(message.addFrame(0, true), 3U);
    EXPECT_TRUE(message.isOpen());
}

TEST_F(MessageInProgressTest, EveryFrameMakesRoomForItsPayload) {
    EXPECT_EQ(message.addFrame(3, false), 0U);
    payload = {1, 2, 3};
    EXPECT_EQ(message.addFrame(2, false), 3U);
    EXPECT_EQ(payload, (Bytes{1, 2, 3, 0, 0}));
}

TEST_F(MessageInProgressTest, TypeIsThatOfTheFrameThatOpensIt) {
    message.addFrame(0, true);
    EXPECT_TRUE(isBinary) << "it may be the only frame";
    message.addFrame(1, false);
    EXPECT_FALSE(isBinary) << "an empty fragment has opened nothing";
    message.addFrame(1, true);
    EXPECT_FALSE(isBinary);
}

TEST_F(MessageInProgressTest, ClosingForgetsEverythingButTheStorage) {
    message.addFrame(5000, true);
    message.close();
    EXPECT_FALSE(message.isOpen());
    EXPECT_FALSE(isBinary);
    EXPECT_TRUE(payload.empty());
    EXPECT_GE(payload.capacity(), 5000U);
}

TEST_F(MessageInProgressTest, GoesOnInAnotherPlace) {
    Bytes otherPayload;
    bool otherIsBinary = false;
    ql::impl::MessageInProgress other(otherPayload, otherIsBinary);
    message.addFrame(1, false);
    other.continueFrom(message);
    EXPECT_TRUE(other.isOpen());
    EXPECT_FALSE(message.isOpen());
}
