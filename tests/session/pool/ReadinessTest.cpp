#include "session/pool/Readiness.h"

#include "session/pool/PollReadiness.h"
#include "support/WaitUntil.h"
#include "websocket/Fakes.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <map>
#include <memory>
#include <thread>
#include <vector>

using namespace wstest;
using namespace ql::impl;

namespace {

constexpr std::int64_t SoonMs = 1;
constexpr std::int64_t NotInThisTestMs = 3600000;

struct Kind {
    const char* name;
    std::unique_ptr<Readiness> (*make)();
};

class ReadinessTest : public testing::TestWithParam<Kind> {
protected:
    /// Waits for news of one socket.
    Readiness::News next() {
        const Readiness::WaitResult result = readiness->wait(news, true);
        EXPECT_EQ(result.count, 1U);
        EXPECT_FALSE(result.woken || result.alarm);
        return result.count == 1 ? news[0] : Readiness::News{};
    }
    std::size_t newsNow() { return readiness->wait(news, false).count; }

    /// As a turn does before it waits.
    static void readAll(const SocketPair& pair) {
        std::array<unsigned char, 64> room;
        const SocketBuffer buffer{room.data(), room.size()};
        while (receiveFromSocket(pair.server, {&buffer, 1}) > 0) {
        }
    }
    static void fill(std::uint64_t socket) {
        Bytes bytes(65536);
        const SocketBuffer buffer{bytes.data(), bytes.size()};
        while (sendToSocket(socket, {&buffer, 1}) > 0) {
        }
    }

    std::unique_ptr<Readiness> readiness = GetParam().make();
    std::array<Readiness::News, Readiness::MostNews> news;
    SocketPair pair;
    WatchedSocket watched{pair.server, 1};
};

} // namespace

INSTANTIATE_TEST_SUITE_P(
    Of, ReadinessTest,
    testing::Values(Kind{"System", &makeReadiness},
                    Kind{"Poll", []() -> std::unique_ptr<Readiness> { return std::make_unique<PollReadiness>(); }}),
    [](const auto& kind) { return kind.param.name; });

TEST_P(ReadinessTest, InputIsNewsOnce) {
    readiness->watch(watched);
    EXPECT_EQ(newsNow(), 0U);
    ASSERT_TRUE(sendAll(pair.client, {1}));
    const Readiness::News one = next();
    EXPECT_EQ(one.id, 1U);
    EXPECT_TRUE(one.input);
    EXPECT_FALSE(one.room || one.ended);
    EXPECT_EQ(newsNow(), 0U);
}

TEST_P(ReadinessTest, InputFromBeforeIsNewsToo) {
    ASSERT_TRUE(sendAll(pair.client, {1}));
    readiness->watch(watched);
    EXPECT_TRUE(next().input);
}

TEST_P(ReadinessTest, InputOfARearmedSocketIsNewsAgain) {
    prepareSocket(pair.server);
    readiness->watch(watched);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(sendAll(pair.client, {1}));
        EXPECT_TRUE(next().input);
        readAll(pair);
        readiness->rearm(watched, true, false);
        EXPECT_EQ(newsNow(), 0U);
    }
}

TEST_P(ReadinessTest, RoomIsNewsWhereItIsWanted) {
    prepareSocket(pair.server);
    readiness->watch(watched);
    EXPECT_EQ(newsNow(), 0U);
    readiness->rearm(watched, true, true);
    const Readiness::News one = next();
    EXPECT_TRUE(one.room);
    EXPECT_FALSE(one.input || one.ended);
    fill(pair.server);
    readiness->rearm(watched, true, true);
    while (newsNow() > 0) {
        // The system may have made room after the last attempt.
        fill(pair.server);
        readiness->rearm(watched, true, true);
    }
    std::thread peer([this] {
        while (!receiveExactly(pair.client, 65536).empty()) {
        }
    });
    EXPECT_TRUE(next().room);
    pair.closeServer();
    peer.join();
}

TEST_P(ReadinessTest, InputThatIsNotWantedIsNewsOnceItIs) {
    readiness->watch(watched);
    readiness->rearm(watched, false, false);
    ASSERT_TRUE(sendAll(pair.client, {1}));
    EXPECT_EQ(newsNow(), 0U);
    readiness->rearm(watched, false, true);
    const Readiness::News room = next();
    EXPECT_TRUE(room.room);
    EXPECT_FALSE(room.input);
    readiness->rearm(watched, true, false);
    EXPECT_TRUE(next().input);
}

TEST_P(ReadinessTest, EndOfInputIsNews) {
    readiness->watch(watched);
    shutdownSending(pair.client);
    const Readiness::News one = next();
    EXPECT_TRUE(one.ended || one.input);
}

TEST_P(ReadinessTest, ResetIsAnEndOfInput) {
    readiness->watch(watched);
    pair.resetClient();
    EXPECT_TRUE(next().ended);
}

TEST_P(ReadinessTest, ForgottenSocketHasNoNews) {
    readiness->watch(watched);
    readiness->forget(watched);
    ASSERT_TRUE(sendAll(pair.client, {1}));
    EXPECT_EQ(newsNow(), 0U);
}

TEST_P(ReadinessTest, SocketThatWasForgottenBetweenTwoWaitsHasNoNews) {
    readiness->watch(watched);
    EXPECT_EQ(newsNow(), 0U);
    readiness->forget(watched);
    ASSERT_TRUE(sendAll(pair.client, {1}));
    EXPECT_EQ(newsNow(), 0U);
}

TEST_P(ReadinessTest, SocketThatWasForgottenAfterNewsHasNone) {
    readiness->watch(watched);
    ASSERT_TRUE(sendAll(pair.client, {1}));
    EXPECT_TRUE(next().input);
    readiness->forget(watched);
    EXPECT_EQ(newsNow(), 0U);
}

TEST_P(ReadinessTest, WhoHasTheDescriptorOfAForgottenSocketHasNewsOfItsOwn) {
    readiness->watch(watched);
    EXPECT_EQ(newsNow(), 0U);
    readiness->forget(watched);
    WatchedSocket second{pair.server, std::uint64_t{1} << 32 | 1};
    readiness->watch(second);
    ASSERT_TRUE(sendAll(pair.client, {1}));
    EXPECT_EQ(next().id, second.id);
    EXPECT_EQ(newsNow(), 0U);
}

TEST_P(ReadinessTest, SocketThatComesWhileAThreadWaitsIsWatched) {
    Counter waits;
    std::thread waiting([&] {
        waits.add();
        EXPECT_TRUE(next().input);
    });
    waits.waitFor(1);
    readiness->watch(watched);
    sendAll(pair.client, {1});
    waiting.join();
}

TEST_P(ReadinessTest, SocketThatIsRearmedWhileAThreadWaitsIsWatched) {
    prepareSocket(pair.server);
    readiness->watch(watched);
    sendAll(pair.client, {1});
    EXPECT_TRUE(next().input);
    std::thread waiting([&] { EXPECT_TRUE(next().input); });
    readAll(pair);
    readiness->rearm(watched, true, false);
    sendAll(pair.client, {1});
    waiting.join();
}

TEST_P(ReadinessTest, EachOfManySocketsHasItsNewsOnce) {
    constexpr std::size_t Count = 100;
    constexpr std::size_t AtATime = 16;
    std::vector<SocketPair> pairs(Count);
    std::vector<WatchedSocket> all;
    for (std::size_t i = 0; i < Count; ++i) {
        all.push_back({pairs[i].server, i});
    }
    for (WatchedSocket& one : all) {
        readiness->watch(one);
    }
    for (const SocketPair& one : pairs) {
        ASSERT_TRUE(sendAll(one.client, {1}));
    }
    std::map<std::uint64_t, int> seen;
    while (seen.size() < Count) {
        const std::size_t count = readiness->wait(std::span(news).first(AtATime), true).count;
        ASSERT_GT(count, 0U);
        ASSERT_LE(count, AtATime);
        for (std::size_t i = 0; i < count; ++i) {
            EXPECT_EQ(++seen[news[i].id], 1);
        }
    }
    EXPECT_EQ(newsNow(), 0U);
}

TEST_P(ReadinessTest, WakingEndsTheNextWait) {
    readiness->wake();
    const Readiness::WaitResult result = readiness->wait(news, true);
    EXPECT_TRUE(result.woken);
    EXPECT_EQ(result.count, 0U);
    EXPECT_FALSE(readiness->wait(news, false).woken);
}

TEST_P(ReadinessTest, WakingEndsOneOfManyWaits) {
    constexpr std::size_t Count = 3;
    Counter ended;
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < Count; ++i) {
        threads.emplace_back([&] {
            std::array<Readiness::News, 1> room;
            EXPECT_TRUE(readiness->wait(room, true).woken);
            ended.add();
        });
    }
    for (std::size_t i = 1; i <= Count; ++i) {
        EXPECT_EQ(ended.count(), i - 1);
        readiness->wake();
        EXPECT_TRUE(ended.waitFor(i));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_P(ReadinessTest, ThreadsThatWaitTakeTurns) {
    // One has the news, another must then wait for the next ones.
    prepareSocket(pair.server);
    readiness->watch(watched);
    constexpr int Rounds = 200;
    Counter served;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            std::array<Readiness::News, 1> room;
            for (;;) {
                const Readiness::WaitResult result = readiness->wait(room, true);
                if (result.woken) {
                    readiness->wake();
                    return;
                }
                if (result.count > 0) {
                    readAll(pair);
                    readiness->rearm(watched, true, false);
                    served.add();
                }
            }
        });
    }
    for (int i = 1; i <= Rounds; ++i) {
        ASSERT_TRUE(sendAll(pair.client, {1}));
        ASSERT_TRUE(served.waitFor(static_cast<std::size_t>(i)));
    }
    readiness->wake();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_P(ReadinessTest, OneOfThoseWhoWaitFollowsWhoLeaves) {
    readiness->watch(watched);
    SocketPair second;
    WatchedSocket other{second.server, 2};
    readiness->watch(other);
    Counter told;
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            std::array<Readiness::News, 1> room;
            if (readiness->wait(room, true).count == 1) {
                told.add();
            }
        });
    }
    vireotest::letOthersRun();
    EXPECT_TRUE(sendAll(pair.client, {1}));
    EXPECT_TRUE(told.waitFor(1));
    EXPECT_TRUE(sendAll(second.client, {1}));
    EXPECT_TRUE(told.waitFor(2));
    // Only for one who would wait for ever.
    readiness->wake();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_P(ReadinessTest, AlarmEndsAWait) {
    readiness->setAlarm(SoonMs);
    const Readiness::WaitResult result = readiness->wait(news, true);
    EXPECT_TRUE(result.alarm);
    EXPECT_FALSE(result.woken);
    EXPECT_FALSE(readiness->wait(news, false).alarm);
}

TEST_P(ReadinessTest, AlarmOfThisMomentEndsAWait) {
    readiness->setAlarm(0);
    EXPECT_TRUE(readiness->wait(news, true).alarm);
}

TEST_P(ReadinessTest, AlarmMovesWhileAThreadWaits) {
    readiness->setAlarm(NotInThisTestMs);
    std::thread waiting([&] { EXPECT_TRUE(readiness->wait(news, true).alarm); });
    readiness->setAlarm(SoonMs);
    waiting.join();
}

TEST_P(ReadinessTest, AlarmMayBeFarAwayOrNone) {
    readiness->setAlarm(Readiness::NoAlarm - 1);
    EXPECT_FALSE(readiness->wait(news, false).alarm);
    readiness->setAlarm(Readiness::NoAlarm);
    EXPECT_FALSE(readiness->wait(news, false).alarm);
}

TEST(PollReadiness, PollsWithoutATimeLimitUntilThereIsAnAlarm) {
    PollReadiness readiness;
    std::vector<int> timeouts;
    FakeSystem system;
    system.poll = [&](void* entries, std::size_t count, int timeoutMs) {
        timeouts.push_back(timeoutMs);
        readiness.wake();
        return systemSocketFunctions.poll(entries, count, 0);
    };
    std::array<Readiness::News, 1> news;
    readiness.wait(news, true);
    readiness.setAlarm(NotInThisTestMs);
    readiness.wait(news, true);
    ASSERT_EQ(timeouts.size(), 2U);
    EXPECT_LT(timeouts[0], 0);
    EXPECT_GT(timeouts[1], 0);
}
