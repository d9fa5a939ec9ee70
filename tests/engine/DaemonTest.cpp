#include "engine/Daemon.h"

#include "server/Front.h"
#include "support/FakeRequest.h"
#include "support/OccupiedPort.h"
#include "support/OpenListener.h"
#include "support/RawClient.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"
#include "vireo/HttpServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

namespace {

using ql::impl::AcceptedSocket;
using ql::impl::Daemon;
using ql::impl::EngineOptions;
using ql::impl::Listener;
using testing::Contains;
using testing::Field;
using testing::IsEmpty;
using testing::StartsWith;
using vireotest::FakeServerImpl;
using vireotest::RawClient;
using vireotest::TestLog;
using vireotest::waitUntil;

/// Wherever the system finds a port.
EngineOptions someOptions() {
    EngineOptions options;
    options.listenBacklog = 16;
    options.threadPoolSize = 2;
    options.connectionTimeoutMs = 1000;
    options.connectionMemoryBytes = 32768;
    return options;
}

class DaemonTest : public testing::Test {
protected:
    const TestLog log_;
    ql::http::HttpServer server_{new FakeServerImpl};
};

TEST_F(DaemonTest, StartsAndStopsWithoutAWordOfTheEngine) {
    ql::impl::Front front;
    for (const bool turbo : {false, true}) {
        EngineOptions options = someOptions();
        options.turbo = turbo;
        options.webSockets = turbo;
        options.trackConnections = turbo;
        options.suspends = turbo;
        options.front = turbo ? &front : nullptr;
        std::unique_ptr<Daemon> daemon = Daemon::Start(options, server_);
        EXPECT_NE(daemon, nullptr);
        daemon.reset();
        EXPECT_THAT(log_.lines(), IsEmpty()) << "it took every option";
    }
}

TEST_F(DaemonTest, IsNoneWhenTheEngineRefusesWhichItSays) {
    EngineOptions options = someOptions();
    options.port = vireotest::occupiedPort();
    EXPECT_EQ(Daemon::Start(options, server_), nullptr);
    EXPECT_THAT(log_.lines(), Contains(Field(&TestLog::Line::text, StartsWith("libmicrohttpd: "))));
}

TEST_F(DaemonTest, ShutsWhoWasNotLetIn) {
    ql::impl::Front front;
    front.tls.emplace_back();
    EngineOptions options = someOptions();
    options.front = &front;
    options.connectionTimeoutMs = 0;
    const std::unique_ptr<Daemon> daemon = Daemon::Start(options, server_);
    const std::unique_ptr<Listener> listener = vireotest::openListener();
    RawClient client(listener->port());
    AcceptedSocket accepted;
    ASSERT_TRUE(waitUntil([&] { return listener->accept(accepted) == Listener::Outcome::Accepted; }));
    EXPECT_TRUE(daemon->addConnection(accepted));
    EXPECT_EQ(client.readToEnd(), "");
}

TEST(DaemonFlags, SayWhatIsAskedFor) {
    EngineOptions options = someOptions();
    EXPECT_EQ(Daemon::FlagsOf(options), 0x10009U);
    options.webSockets = true;
    EXPECT_EQ(Daemon::FlagsOf(options), 0x18009U);
    options.turbo = true;
    EXPECT_EQ(Daemon::FlagsOf(options), 0x19009U);
    options.webSockets = false;
    EXPECT_EQ(Daemon::FlagsOf(options), 0x11009U);
    ql::impl::Front front;
    options.front = &front;
    EXPECT_EQ(Daemon::FlagsOf(options), 0x11509U);
    options.suspends = true;
    EXPECT_EQ(Daemon::FlagsOf(options), 0x13509U);
    options.suspends = false;
    options.tls = true;
    EXPECT_EQ(Daemon::FlagsOf(options), 0x1250BU) << "a handshake is suspended while it waits";
}

TEST(DaemonFeatures, EngineCanPoll) {
    EXPECT_TRUE(Daemon::CanPoll());
}

} // namespace
