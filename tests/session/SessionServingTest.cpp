#include "session/SessionServing.h"

#include "session/SessionBench.h"
#include "vireo/WebSocketOptions.h"
#include "vireo/WebSocketPool.h"
#include "vireo/support/qlSystemUtils.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace sessiontest;
using ql::http::WebSocketOptions;
using ql::http::WebSocketPool;
using ql::impl::SessionCore;
using ql::impl::SessionServing;
using ql::impl::SessionStart;
using Events = std::vector<std::string>;

namespace {

constexpr std::int64_t LongMs = 3600000;

/// A connection that the engine hands over.
class Accepted {
public:
    explicit Accepted(const SessionServing& serving) : session_(std::make_unique<RecordingSession>(record)) {
        SessionCore::Of(*session_).prepare(serving.settings(), {});
    }

    void handOver(SessionServing& serving) {
        SessionStart start;
        start.session = std::move(session_);
        start.socket = upgrade.sockets.server;
        start.upgradeHandle = &upgrade;
        serving.begin(std::move(start));
    }

    Record record;
    wstest::UpgradeHandle upgrade;

private:
    std::unique_ptr<RecordingSession> session_;
};

class SessionServingTest : public testing::Test {
protected:
    ~SessionServingTest() override { EXPECT_TRUE(isEnded(0)); }

    /// Asks until all have gone, as the server does at its stop.
    bool isEnded(std::int64_t patienceMs) {
        const auto until = std::chrono::steady_clock::now() + wstest::Patience;
        while (!serving.areGone(qlSystemUtils::GetTimeBaseMs(), patienceMs)) {
            if (std::chrono::steady_clock::now() >= until) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    wstest::FakeEngine engine;
    const std::shared_ptr<WebSocketPool> pool = std::make_shared<WebSocketPool>(1);
    WebSocketOptions options = [this] {
        WebSocketOptions given;
        given.setPool(pool);
        given.setCloseTimeoutMs(WebSocketOptions::MaxTimeMs);
        return given;
    }();
    SessionServing serving{options};
    Accepted one{serving};
};

} // namespace

TEST_F(SessionServingTest, ConnectionThatComesAfterTheCutIsClosedUnopened) {
    EXPECT_TRUE(serving.areGone(0, 0));
    one.handOver(serving);
    EXPECT_EQ(one.upgrade.closes.count(), 1U);
    EXPECT_EQ(one.record.events(), Events{"gone"});
}

TEST_F(SessionServingTest, ConnectionThatComesAfterTheGoodbyeIsToldOfIt) {
    serving.sayGoodbye();
    one.handOver(serving);
    EXPECT_EQ(one.record.waitFor(1).front(), "open");
    EXPECT_EQ(wstest::receiveFrame(one.upgrade.sockets.client), (wstest::Bytes{CloseFrame, 2, 0x03, 0xE9}));
}

TEST_F(SessionServingTest, ConnectionThatComesWhenItsPoolHasGoneIsClosedUnopened) {
    pool->stop();
    one.handOver(serving);
    EXPECT_EQ(one.upgrade.closes.count(), 1U);
    EXPECT_EQ(one.record.events(), Events{"gone"});
    EXPECT_TRUE(serving.areGone(0, LongMs));
}

TEST_F(SessionServingTest, WhoStaysIsCutOffWhenThePatienceIsOver) {
    one.handOver(serving);
    one.record.waitFor(1);
    serving.sayGoodbye();
    const std::int64_t nowMs = qlSystemUtils::GetTimeBaseMs();
    EXPECT_FALSE(serving.areGone(nowMs, LongMs));
    EXPECT_FALSE(serving.areGone(nowMs + LongMs - 60000, LongMs));
    EXPECT_EQ(one.record.events(), Events{"open"});
    (void)serving.areGone(nowMs + LongMs, LongMs);
    EXPECT_EQ(one.record.waitForEnd(), (Events{"open", "close:1001::lost", "gone"}));
}
