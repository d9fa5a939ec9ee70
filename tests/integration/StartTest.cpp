#include "integration/ServerTest.h"

#include <chrono>
#include <cstdint>
#include <future>
#include <limits>
#include <memory>

// What a server tells of its start: whether it runs, why it does not, and where it listens.

namespace vireotest {
namespace {

using ql::http::HttpServer;
using StartError = HttpServer::StartError;

class Start : public ServerTest {
protected:
    static constexpr unsigned long Long = qlWaitCondition::NoTimeLimit;

    static Parameters onPort(std::uint16_t port) {
        Parameters parameters = TestServer::parametersOfTests();
        parameters.port = port;
        return parameters;
    }

    std::uint16_t occupiedPort() const { return other_.port(); }

    const TestServer other_{Behaviour{}};
    const std::unique_ptr<HttpServer> server_ =
        std::make_unique<HttpServer>(new TestImpl(Behaviour{}), optionsOfTests());
};

TEST_F(Start, EndsTheWaitWhenTheServerRuns) {
    EXPECT_FALSE(server_->waitUntilRunning(Long)) << "nobody has started it";
    server_->startServer(onPort(freePort()));
    EXPECT_TRUE(server_->waitUntilRunning(Long));
    EXPECT_EQ(server_->getStatus(), Status::Running);
    EXPECT_EQ(server_->getStartError(), StartError::None);
    server_->stopServer(true);
    EXPECT_FALSE(server_->waitUntilRunning(Long));
}

TEST_F(Start, WaitIsOverAfterItsTime) {
    Event proceed;
    Behaviour behaviour;
    behaviour.onStopped = [&] { EXPECT_TRUE(proceed.wait()); };
    const auto server = std::make_unique<HttpServer>(new TestImpl(behaviour), optionsOfTests());
    // Starting as long as the application lets go of what has failed.
    server->startServer(onPort(occupiedPort()));
    EXPECT_FALSE(server->waitUntilRunning(1));
    std::future<bool> waiting = std::async(std::launch::async, [&] { return server->waitUntilRunning(Long); });
    proceed.set();
    EXPECT_FALSE(waiting.get());
    EXPECT_EQ(server->getStatus(), Status::Error);
}

TEST_F(Start, CanBeWaitedForAsLongAsANumberSays) {
    Event proceed;
    Behaviour behaviour;
    behaviour.onStopped = [&] { EXPECT_TRUE(proceed.wait()); };
    const auto server = std::make_unique<HttpServer>(new TestImpl(behaviour), optionsOfTests());
    server->startServer(onPort(occupiedPort()));
    std::future<bool> waiting = std::async(
        std::launch::async, [&] { return server->waitUntilRunning(std::numeric_limits<unsigned long>::max()); });
    EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    proceed.set();
    EXPECT_FALSE(waiting.get());
}

TEST_F(Start, FindsAPortAndTellsIt) {
    EXPECT_EQ(server_->getPort(), 0);
    for (int run = 0; run < 2; ++run) {
        server_->startServer(onPort(0));
        ASSERT_TRUE(server_->waitUntilRunning(Long));
        EXPECT_NE(server_->getPort(), 0);
        EXPECT_EQ(RawClient(server_->getPort()).exchange(get("/")).status, 200);
        server_->stopServer(true);
        EXPECT_EQ(server_->getPort(), 0);
    }
}

TEST_F(Start, TellsThePortThatWasAskedFor) {
    const std::uint16_t port = freePort();
    server_->startServer(onPort(port));
    ASSERT_TRUE(server_->waitUntilRunning(Long));
    EXPECT_EQ(server_->getPort(), port);
}

TEST_F(Start, OnATakenPortFailsWithItsReason) {
    server_->startServer(onPort(occupiedPort()));
    EXPECT_FALSE(server_->waitUntilRunning(Long));
    EXPECT_EQ(server_->getStatus(), Status::Error);
    EXPECT_EQ(server_->getStartError(), StartError::AddressInUse);
    EXPECT_EQ(server_->getPort(), 0);
}

TEST(StartWithoutTheLibrary, FailsWithItsReason) {
    const TestLog log;
    const auto server = std::make_unique<HttpServer>(new TestImpl(Behaviour{}), optionsOfTests());
    server->startServer(TestServer::parametersOfTests());
    EXPECT_FALSE(server->waitUntilRunning(30000));
    EXPECT_EQ(server->getStartError(), StartError::NotInitialized);
}

TEST(StartWithoutAnImplementation, FailsWithItsReason) {
    const TestLog log;
    const auto server = std::make_unique<HttpServer>(nullptr);
    server->startServer(TestServer::parametersOfTests());
    EXPECT_FALSE(server->waitUntilRunning(30000));
    EXPECT_EQ(server->getStartError(), StartError::NotInitialized);
}

} // namespace
} // namespace vireotest
