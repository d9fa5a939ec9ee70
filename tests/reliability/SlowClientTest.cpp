#include "integration/ServerTest.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <map>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

// A thousand clients that are too slow, each in the same way: all of them are cut off, and nobody else is delayed.

namespace vireotest {
namespace {

using Options = ql::http::ServerOptions;

constexpr std::size_t Count = 1000;
/// So long a healthy client may be kept from its processor.
constexpr std::uint32_t DeadlineMs = 3000;

/// A way of being slow.
struct Slowness {
    const char* name;
    /// What each client begins with.
    std::string begin;
    /// Whether it goes on, byte by byte.
    bool trickles;
    void (*setDeadline)(Options&);
    /// Whether the application gets its request.
    bool hasRequest;

    friend void PrintTo(const Slowness& slowness, std::ostream* out) { *out << slowness.name; }
};

Options optionsOf(const Slowness& slowness) {
    Options options;
    options.setWaiting(Options::Waiting::Event);
    options.setConnectionMemoryBytes(32768);
    options.setHeadTimeoutMs(0);
    options.setBodyProgress(4096, 0);
    options.setAnswerTimeoutMs(0);
    options.setWriteTimeoutMs(0);
    slowness.setDeadline(options);
    return options;
}

/// On a daemon thread, so that no worker plays a part.
void answerSome(TestRequest& request) {
    if (request.getOriginalRequestUrl() == "/large") {
        // More than the system keeps for a client that takes nothing.
        static const std::string Large(5000000, 'b');
        request.out().releaseBuffer(Large.data(), Large.size());
    } else if (request.getOriginalRequestUrl() == "/healthy") {
        request.reply("healthy");
    }
}

class SlowClients : public ServerTest, public testing::WithParamInterface<Slowness> {
protected:
    SlowClients() : ServerTest(true) {}

    std::size_t cuts() const {
        return log_.texts(qlLogType::Connection, " : " + std::string(GetParam().name) + "Timeout").size();
    }
};

TEST_P(SlowClients, AreCutOffAndDelayNobodyElse) {
    ASSERT_TRUE(allowDescriptors(3 * Count));
    TestImpl::Behaviour behaviour;
    behaviour.inlineHandler = &answerSome;
    TestServer server(behaviour, TestServer::parametersOfTests(), optionsOf(GetParam()));
    std::atomic<bool> isOver{false};
    std::size_t answered = 0;
    std::thread healthy([&] {
        RawClient client = server.connect();
        for (; !isOver; ++answered) {
            ASSERT_EQ(client.exchange(get("/healthy")).body, "healthy");
        }
    });
    std::vector<RawClient> slow;
    for (std::size_t i = 0; i < Count; ++i) {
        slow.emplace_back(server.port(), "127.0.0.1", 4096);
        slow.back().send(GetParam().begin);
    }
    EXPECT_TRUE(waitUntil([&] {
        if (GetParam().trickles) {
            std::for_each(slow.begin(), slow.end(), [](RawClient& client) { client.trySend("x"); });
        }
        return cuts() == Count;
    }));
    isOver = true;
    healthy.join();
    if (!GetParam().hasRequest) {
        return;
    }
    std::map<std::string, std::size_t> ends;
    for (const FinishedRequest& request : server.application().finished(server.application().seenCount())) {
        ++ends[request.deviceError];
    }
    const std::map<std::string, std::size_t> expected{
        {"", answered}, {"lost connection : " + std::string(GetParam().name) + "Timeout", Count}};
    EXPECT_EQ(ends, expected);
}

INSTANTIATE_TEST_SUITE_P(
    By, SlowClients,
    testing::Values(Slowness{"Head", "GET / HTTP/1.1\r\nHost: x\r\nX-Slow: ", true,
                             [](Options& options) { options.setHeadTimeoutMs(DeadlineMs); }, false},
                    Slowness{"Body", head("POST", "/body", "Content-Length: 60000\r\n"), true,
                             [](Options& options) { options.setBodyProgress(4096, DeadlineMs); }, true},
                    Slowness{"Answer", get("/never"), false,
                             [](Options& options) { options.setAnswerTimeoutMs(DeadlineMs); }, true},
                    Slowness{"Write", get("/large"), false,
                             [](Options& options) { options.setWriteTimeoutMs(DeadlineMs); }, true}),
    [](const auto& test) { return test.param.name; });

} // namespace
} // namespace vireotest
