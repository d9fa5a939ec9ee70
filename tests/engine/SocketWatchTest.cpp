#include "engine/SocketWatch.h"

#include "websocket/TestSockets.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

using ql::impl::SocketWatch;
using wstest::SocketPair;

constexpr int LongMs = 30000;

class SocketWatchTest : public testing::Test {
protected:
    SocketWatchTest() { watch_.open(); }

    /// Waits for news of the socket with key 1.
    SocketWatch::News next() {
        const auto news = watch_.wait(buffer_, LongMs);
        if (news.size() != 1) {
            ADD_FAILURE() << news.size() << " news";
            return {};
        }
        EXPECT_EQ(news.front().key, 1U);
        return news.front();
    }

    SocketWatch watch_;
    SocketWatch::NewsBuffer buffer_;
    SocketPair sockets_;
};

TEST_F(SocketWatchTest, EndOfThePeersSendingIsNews) {
    watch_.add(sockets_.server, 1);
    wstest::shutdownSending(sockets_.client);
    EXPECT_FALSE(next().isReset);
}

TEST_F(SocketWatchTest, ResetIsNewsOfItsOwn) {
    watch_.add(sockets_.server, 1);
    sockets_.resetClient();
    EXPECT_TRUE(next().isReset);
}

TEST_F(SocketWatchTest, WhatCameBeforeIsToldToo) {
    wstest::shutdownSending(sockets_.client);
    watch_.add(sockets_.server, 1);
    EXPECT_FALSE(next().isReset);
}

TEST_F(SocketWatchTest, EndBehindBytesIsNewsAndBytesAreNot) {
    watch_.add(sockets_.server, 1);
    EXPECT_TRUE(wstest::sendAll(sockets_.client, wstest::Bytes{1, 2, 3}));
    EXPECT_TRUE(watch_.wait(buffer_, 20).empty());
    wstest::shutdownSending(sockets_.client);
    EXPECT_FALSE(next().isReset);
    EXPECT_EQ(wstest::receiveExactly(sockets_.server, 3).size(), 3U) << "nothing was read";
}

#ifdef __linux__

TEST_F(SocketWatchTest, BytesAreNewsAgainAndAgainWhereTheyAreAskedFor) {
    EXPECT_TRUE(watch_.addForBytes(sockets_.server, 1));
    EXPECT_TRUE(watch_.wait(buffer_, 20).empty());
    EXPECT_TRUE(wstest::sendAll(sockets_.client, wstest::Bytes{1}));
    next();
    next();
    EXPECT_EQ(wstest::receiveExactly(sockets_.server, 1).size(), 1U) << "nothing was read";
    EXPECT_TRUE(watch_.wait(buffer_, 20).empty());
    sockets_.closeClient();
    next();
}

#endif

TEST_F(SocketWatchTest, RemovedSocketIsNotWatched) {
    watch_.add(sockets_.server, 1);
    watch_.remove(sockets_.server);
    sockets_.closeClient();
    EXPECT_TRUE(watch_.wait(buffer_, 20).empty());
}

TEST_F(SocketWatchTest, WakingEndsTheWaitThatIsUnderWayOrTheNext) {
    watch_.wake();
    EXPECT_TRUE(watch_.wait(buffer_, LongMs).empty());
    std::thread waking([this] { watch_.wake(); });
    EXPECT_TRUE(watch_.wait(buffer_, LongMs).empty());
    waking.join();
}

TEST_F(SocketWatchTest, MoreNewsThanOneWaitTellsIsToldByTheNext) {
    std::vector<SocketPair> many(buffer_.size() + 1);
    for (std::size_t i = 0; i < many.size(); ++i) {
        watch_.add(many[i].server, i);
        many[i].closeClient();
    }
    std::vector<bool> told(many.size());
    for (std::size_t count = 0; count < many.size();) {
        const auto news = watch_.wait(buffer_, LongMs);
        ASSERT_FALSE(news.empty());
        for (const SocketWatch::News& one : news) {
            count += told[one.key] ? 0U : 1U;
            told[one.key] = true;
        }
    }
}

} // namespace
