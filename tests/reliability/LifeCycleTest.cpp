#include "integration/EchoSocket.h"
#include "integration/ServerTest.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <vector>

namespace vireotest {
namespace {

class LifeCycle : public ServerTest {};

TEST_F(LifeCycle, ThousandsOfStartsAndStopsLeaveNothingBehind) {
    constexpr int Cycles = 2000;
    TestServer server((TestImpl::Handler()));
    std::size_t before = 0;
    for (int i = 0; i < Cycles; ++i) {
        if (i % 100 == 0) {
            ASSERT_EQ(server.connect().exchange(get("/")).status, 200);
        }
        server.stop();
        ASSERT_EQ(server.server().getStatus(), Status::Stopped);
        if (i == 0) {
            before = openHandles();
        }
        server.start();
    }
    server.stop();
    EXPECT_EQ(server.application().stoppedCount(), Cycles + 1U);
    EXPECT_LE(openHandles(), before);
}

TEST_F(LifeCycle, LibraryTerminatedAndInitialisedAgainServesAgain) {
    for (int i = 0; i < 100; ++i) {
        {
            TestServer server((TestImpl::Handler()));
            ASSERT_EQ(server.connect().exchange(post("/", "body")).body, "body");
        }
        ql::terminateVireo();
        ASSERT_FALSE(ql::IsVireoInitialized());
        ql::initializeVireo();
    }
}

TEST_F(LifeCycle, PoolsLeaveNothingOpen) {
    std::size_t before = 0;
    for (int i = 0; i < 200; ++i) {
        ql::http::WebSocketThread pool;
        pool.startThreads(1);
        pool.stopThreads(true);
        if (i == 0) {
            before = openHandles();
        }
    }
    EXPECT_LE(openHandles(), before);
}

/// One of each: an upload that stands still, a writer whose client does not read, an answer that is never ready, and a
/// WebSocket with messages on their way.
class BusyServer {
public:
    BusyServer() : server_(behaviour(), TestServer::parametersWithWebSockets()) {}

    /// Lets the clients do their worst and then stops. @return how long the stop took.
    std::chrono::milliseconds stopUnderLoad() {
        RawClient upload = server_.connect();
        upload.send(head("POST", "/upload", "Content-Length: 1000000\r\n") + std::string(1000, 'u'));
        RawClient reader(server_.port(), "127.0.0.1", 4096);
        reader.send(get("/stream"));
        RawClient waiter = server_.connect();
        waiter.send(get("/never"));
        RawClient talker = openWebSocket(server_.port());
        (void)server_.application().seen(3);
        for (int i = 0; i < 20; ++i) {
            talker.send(textFrame(std::string(1000, 'm')));
        }
        (void)readFrame(talker);
        const auto begin = std::chrono::steady_clock::now();
        server_.stop();
        const auto took = std::chrono::steady_clock::now() - begin;
        EXPECT_EQ(server_.application().finished(3).size(), 3U);
        EXPECT_EQ(alive_, 0);
        return std::chrono::duration_cast<std::chrono::milliseconds>(took);
    }

private:
    TestImpl::Behaviour behaviour() {
        TestImpl::Behaviour behaviour;
        echoWebSockets(behaviour, alive_);
        behaviour.handler = [](TestRequest& request) {
            if (request.getOriginalRequestUrl() == "/stream") {
                request.startStream();
                while (request.write(std::string(65536, 's'))) {
                }
            } else if (request.getOriginalRequestUrl() == "/upload") {
                request.readBody();
            }
        };
        return behaviour;
    }

    std::atomic<int> alive_{0};
    TestServer server_;
};

TEST_F(LifeCycle, StopsUnderMixedLoadAreQuick) {
    constexpr std::size_t Stops = 300;
    // A stop goes through a dozen switches between threads. Where the machine itself stood still, that isn't the
    // server.
    constexpr std::size_t Disturbed = 3;
    std::vector<std::chrono::milliseconds> durations;
    while (durations.size() < Stops && !HasFailure()) {
        BusyServer server;
        durations.push_back(server.stopUnderLoad());
    }
    std::sort(durations.begin(), durations.end());
    RecordProperty("longestMs", static_cast<int>(durations.back().count()));
    ASSERT_EQ(durations.size(), Stops);
    EXPECT_LT(durations[Stops - Disturbed - 1], std::chrono::seconds(1));
    EXPECT_LT(durations.back(), std::chrono::seconds(10));
}

} // namespace
} // namespace vireotest
