#include "server/LingeringCloses.h"

#include "support/WaitUntil.h"
#include "websocket/SocketPort.h"
#include "websocket/TestSockets.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <utility>

namespace {

using ql::impl::LingeringCloses;
using ql::impl::LingeringSocket;
using ql::impl::SocketFunctions;
using ql::impl::SocketWatch;
using wstest::SocketPair;

/// Every socket has received as much as there is room for, while one of these lives.
class EndlessBytes {
public:
    EndlessBytes() {
        received = 0;
        functions = ql::impl::systemSocketFunctions;
        functions.receive = &EndlessBytes::receive;
        ql::impl::socketFunctions = &functions;
    }
    ~EndlessBytes() { ql::impl::socketFunctions = &ql::impl::systemSocketFunctions; }
    EndlessBytes(const EndlessBytes&) = delete;
    EndlessBytes& operator=(const EndlessBytes&) = delete;

    static inline std::uint64_t received = 0;

private:
    static std::int64_t receive(std::uint64_t /*socket*/, ql::impl::SocketBuffers buffers) {
        received += buffers.front().size;
        return static_cast<std::int64_t>(buffers.front().size);
    }

    static inline SocketFunctions functions;
};

class LingeringClosesTest : public testing::Test {
protected:
    LingeringClosesTest() { watch_.open(); }

    /// As the engine does: it closes the socket right afterwards.
    void answerEarly(SocketPair& sockets) {
        LingeringSocket socket(sockets.server);
        ASSERT_TRUE(socket.isOpen());
        closes_.add(std::move(socket), 0);
        sockets.closeServer();
    }

    /// Tells of what the watch has to tell.
    void takeNews() {
        const auto news = watch_.wait(buffer_, 30000);
        ASSERT_EQ(news.size(), 1U);
        ASSERT_TRUE(LingeringCloses::isKey(news.front().key));
        closes_.take(news.front());
    }

    SocketWatch watch_;
    SocketWatch::NewsBuffer buffer_;
    LingeringCloses closes_{watch_};
    SocketPair sockets_;
};

TEST_F(LingeringClosesTest, ClientSeesAnEndAndNoResetWhateverItHasSent) {
    ASSERT_TRUE(wstest::sendAll(sockets_.client, wstest::Bytes(1000)));
    answerEarly(sockets_);
    unsigned char byte = 0;
    const ql::impl::SocketBuffer buffer{&byte, 1};
    EXPECT_EQ(ql::impl::receiveFromSocket(sockets_.client, {&buffer, 1}), 0);
    EXPECT_TRUE(wstest::sendAll(sockets_.client, wstest::Bytes(1000)));
    closes_.takeDue(0);
    EXPECT_EQ(ql::impl::receiveFromSocket(sockets_.client, {&buffer, 1}), 0);
    EXPECT_EQ(closes_.size(), 1U);
}

TEST_F(LingeringClosesTest, SilentClientIsClosedAfterItsTime) {
    answerEarly(sockets_);
    for (std::int64_t nowMs = 0; nowMs < LingeringCloses::MostMs; nowMs = closes_.nextDueMs(10000)) {
        closes_.takeDue(nowMs);
        EXPECT_EQ(closes_.size(), 1U);
    }
    EXPECT_EQ(closes_.nextDueMs(10000), LingeringCloses::MostMs);
    closes_.takeDue(LingeringCloses::MostMs);
    EXPECT_EQ(closes_.size(), 0U);
    EXPECT_EQ(closes_.nextDueMs(10000), 10000);
}

TEST_F(LingeringClosesTest, ClientThatEndsIsClosedAtOnce) {
    ASSERT_TRUE(wstest::sendAll(sockets_.client, wstest::Bytes(1000)));
    answerEarly(sockets_);
    wstest::shutdownSending(sockets_.client);
    takeNews();
    EXPECT_EQ(closes_.size(), 0U);
}

TEST_F(LingeringClosesTest, ClientThatHasEndedBeforeIsClosedAtTheFirstLook) {
    wstest::shutdownSending(sockets_.client);
    ASSERT_TRUE(wstest::atEnd(sockets_.server)) << "it has not arrived";
    answerEarly(sockets_);
    closes_.takeDue(0);
    EXPECT_EQ(closes_.size(), 0U);
}

TEST_F(LingeringClosesTest, ClientThatResetsIsClosedAtOnce) {
    answerEarly(sockets_);
    sockets_.resetClient();
    takeNews();
    EXPECT_EQ(closes_.size(), 0U);
}

TEST_F(LingeringClosesTest, WhatComesIsTakenInPiecesWithPauses) {
    const EndlessBytes endless;
    answerEarly(sockets_);
    closes_.takeDue(0);
    EXPECT_EQ(EndlessBytes::received, LingeringCloses::PieceBytes);
    closes_.takeDue(LingeringCloses::PauseMs - 1);
    EXPECT_EQ(EndlessBytes::received, LingeringCloses::PieceBytes);
    EXPECT_EQ(closes_.nextDueMs(10000), LingeringCloses::PauseMs);
    closes_.takeDue(LingeringCloses::PauseMs);
    EXPECT_EQ(EndlessBytes::received, 2 * LingeringCloses::PieceBytes);
}

TEST_F(LingeringClosesTest, NoMoreIsTakenThanAClientIsWorth) {
    const EndlessBytes endless;
    answerEarly(sockets_);
    wstest::shutdownSending(sockets_.client);
    takeNews();
    EXPECT_EQ(EndlessBytes::received, LingeringCloses::MostBytes);
    EXPECT_EQ(closes_.size(), 0U);
}

TEST_F(LingeringClosesTest, OldestIsClosedForOneTooMany) {
    answerEarly(sockets_);
    SocketPair others;
    for (std::size_t i = 0; i < LingeringCloses::MostSockets; ++i) {
        EXPECT_TRUE(wstest::sendAll(sockets_.client, wstest::Bytes(1))) << "it lives";
        closes_.add(LingeringSocket(others.server), 0);
    }
    EXPECT_EQ(closes_.size(), LingeringCloses::MostSockets);
    // Whoever has been closed resets who sends.
    EXPECT_TRUE(vireotest::waitUntil([&] { return !wstest::sendAll(sockets_.client, wstest::Bytes(1)); }));
}

} // namespace
