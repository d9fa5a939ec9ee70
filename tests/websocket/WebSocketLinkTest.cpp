#include "websocket/WebSocketLink.h"

#include "websocket/Internals.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <thread>

using namespace wstest;
using testing::IsEmpty;

namespace {

const Bytes Farewell{0x88, 0x02, 0x03, 0xE9};
const Bytes HelloAndFarewell{0x81, 0x02, 'h', 'i', 0x88, 0x02, 0x03, 0xE9};

class WebSocketLinkTest : public testing::Test {
protected:
    void write() { socket_->writeMessage("hi", 2, false); }
    Bytes queued() { return bytesOf(outgoing(*socket_)); }

    ql::impl::WebSocketRoster roster_;
    std::unique_ptr<RecordingSocket> socket_ = std::make_unique<RecordingSocket>();
};

TEST_F(WebSocketLinkTest, FarewellComesOnceBehindWhatIsWrittenAndBeforeNothing) {
    roster_.add(*socket_);
    write();
    roster_.sayGoodbye();
    EXPECT_TRUE(socket_->hasWritePending());
    roster_.sayGoodbye();
    write();
    EXPECT_EQ(queued(), HelloAndFarewell);
}

TEST_F(WebSocketLinkTest, OneThatComesLateIsToldAtOnce) {
    roster_.sayGoodbye();
    roster_.add(*socket_);
    EXPECT_EQ(queued(), Farewell);
}

TEST_F(WebSocketLinkTest, IsTheConnectionsWhereverItLives) {
    roster_.add(*socket_);
    auto moved = std::make_unique<RecordingSocket>(std::move(*socket_));
    roster_.sayGoodbye();
    EXPECT_THAT(queued(), IsEmpty());
    socket_ = std::move(moved);
    EXPECT_EQ(queued(), Farewell);
}

TEST_F(WebSocketLinkTest, FarewellMovesWithTheConnectionAndStaysTheOnlyOne) {
    roster_.add(*socket_);
    roster_.sayGoodbye();
    socket_ = std::make_unique<RecordingSocket>(std::move(*socket_));
    EXPECT_EQ(queued(), Farewell);
    write();
    EXPECT_EQ(queued(), Farewell);
}

TEST_F(WebSocketLinkTest, OneThatIsGoneIsLeftAlone) {
    roster_.add(*socket_);
    RecordingSocket other;
    roster_.add(other);
    socket_.reset();
    roster_.sayGoodbye();
    EXPECT_EQ(bytesOf(outgoing(other)), Farewell);
}

TEST_F(WebSocketLinkTest, ManyThatAreGoneAreForgotten) {
    for (int i = 0; i < 1000; ++i) {
        RecordingSocket gone;
        roster_.add(gone);
    }
    roster_.add(*socket_);
    roster_.sayGoodbye();
    EXPECT_EQ(queued(), Farewell);
}

TEST_F(WebSocketLinkTest, FarewellReachesAConnectionThatMovesAndGoesMeanwhile) {
    for (int round = 0; round < 500; ++round) {
        ql::impl::WebSocketRoster roster;
        socket_ = std::make_unique<RecordingSocket>();
        roster.add(*socket_);
        std::thread telling([&] { roster.sayGoodbye(); });
        for (int i = 0; i < 3; ++i) {
            socket_ = std::make_unique<RecordingSocket>(std::move(*socket_));
        }
        std::optional<RecordingSocket> going;
        going.emplace();
        roster.add(*going);
        going.reset();
        telling.join();
        ASSERT_EQ(queued(), Farewell) << "in round " << round;
    }
}

} // namespace
