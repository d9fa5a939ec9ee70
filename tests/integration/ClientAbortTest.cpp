#include "integration/ServerTest.h"

#include <string>
#include <string_view>
#include <thread>
#include <utility>

// Clients that go away: at each stage, with a reset and in the orderly way. The request is completed with the reason
// and deleted, and the server goes on.

namespace vireotest {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::Matcher;

enum class Departure { Reset, Close };

void leave(RawClient& client, Departure departure) {
    if (departure == Departure::Reset) {
        client.reset();
    } else {
        client.close();
    }
}

class ClientAbort : public ServerTest, public testing::WithParamInterface<Departure> {
protected:
    static void expectServes(TestServer& server) { EXPECT_EQ(server.connect().exchange(get("/next")).status, 200); }

    /// Nothing reaches the application of a client that leaves after such a part of a request.
    static void expectUnseen(std::string_view part) {
        TestServer server(Behaviour{});
        RawClient client = server.connect();
        client.send(part);
        leave(client, departure());
        expectServes(server);
        EXPECT_EQ(server.application().seenCount(), 1U);
    }

    static Departure departure() { return GetParam(); }
    static std::string lost(const std::string& reason) { return "lost connection : " + reason; }
    /// The reason when the client leaves before it has sent everything.
    static Matcher<std::string> lostWhileSending() {
        if (isEndOfSendingAHangUp()) {
            // The engine sees the hang-up before it reads.
            return lostBy("WriteError");
        }
        return lostBy(departure() == Departure::Reset ? "ReadError" : "ClientAbort");
    }
    /// A reason that the engine gives; who waits by events may see a reset before it does.
    static Matcher<std::string> lostBy(const std::string& reason) {
        return AnyOf(lost(reason), lost(isEventMode() ? "ClientAbort" : reason));
    }
};

/// Answers "/next" at once, and leaves all else to the test's handler.
TestImpl::Handler except(TestImpl::Handler handler) {
    return [handler = std::move(handler)](TestRequest& request) {
        if (request.getOriginalRequestUrl() == "/next") {
            request.reply("next");
        } else {
            handler(request);
        }
    };
}

TEST_P(ClientAbort, BeforeTheRequestNothingHappens) {
    expectUnseen("");
}

TEST_P(ClientAbort, InsideTheRequestLineNothingReachesTheApplication) {
    expectUnseen("GET /aborted HT");
}

TEST_P(ClientAbort, InsideTheHeadersNothingReachesTheApplication) {
    expectUnseen("GET /aborted HTTP/1.1\r\nHost: localhost\r\nX-Half: wa");
}

TEST_P(ClientAbort, DuringTheUploadEndsTheReader) {
    Event reading;
    TestServer server(except([&](TestRequest& request) {
        char bytes[4];
        EXPECT_EQ(request.feed().readBytes(bytes, sizeof bytes), sizeof bytes);
        reading.set();
        EXPECT_EQ(request.readBody(), "");
        EXPECT_EQ(request.out().writeBytes("late", 4), 0U);
    }));
    RawClient client = server.connect();
    client.send(head("POST", "/upload", "Content-Length: 1000\r\n") + "half");
    ASSERT_TRUE(reading.wait());
    leave(client, departure());
    const FinishedRequest finished = server.application().finished()[0];
    EXPECT_THAT(finished.deviceError, lostWhileSending());
    EXPECT_EQ(finished.state, ResponseState::NotReady);
    EXPECT_EQ(finished.bodyReceived, 4U);
    EXPECT_FALSE(finished.hasConnection);
    EXPECT_GE(server.application().notifyCount(), 1U);
    expectServes(server);
}

TEST_P(ClientAbort, DuringAChunkedUploadEndsTheReader) {
    Event reading;
    TestServer server(except([&](TestRequest& request) {
        char bytes[4];
        EXPECT_EQ(request.feed().readBytes(bytes, sizeof bytes), sizeof bytes);
        reading.set();
        EXPECT_EQ(request.readBody(), "");
    }));
    RawClient client = server.connect();
    client.send(head("POST", "/upload", "Transfer-Encoding: chunked\r\n") + "4\r\nhalf\r\n");
    ASSERT_TRUE(reading.wait());
    leave(client, departure());
    EXPECT_THAT(server.application().finished()[0].deviceError, lostWhileSending());
    expectServes(server);
}

TEST_P(ClientAbort, AfterTheReleaseAndBeforeTheEndOfTheUploadIsReported) {
    Event released;
    TestServer server(except([&](TestRequest& request) {
        request.reply("early");
        released.set();
    }));
    RawClient client = server.connect();
    client.send(head("POST", "/upload", "Content-Length: 1000\r\n") + "half");
    ASSERT_TRUE(released.wait());
    leave(client, departure());
    const FinishedRequest finished = server.application().finished()[0];
    EXPECT_THAT(finished.deviceError, lostWhileSending());
    EXPECT_EQ(finished.state, ResponseState::Ready);
    expectServes(server);
}

TEST_P(ClientAbort, WhileTheResponseIsAwaitedIsReportedOnceItIsSent) {
    Event left;
    TestServer server(except([&](TestRequest& request) {
        EXPECT_TRUE(left.wait());
        // More than fits into the buffers of the system.
        request.reply(std::string(16U << 20U, 'x'));
    }));
    RawClient client = server.connect();
    client.send(get("/slow"));
    server.application().seen();
    leave(client, departure());
    left.set();
    EXPECT_THAT(server.application().finished()[0].deviceError, lostBy("WriteError"));
    expectServes(server);
}

TEST_P(ClientAbort, DuringAStreamReleasesTheBlockedWriter) {
    letBrokenPipesKill();
    Event blocked;
    std::atomic<std::uint64_t> accepted{0};
    TestServer server(except([&](TestRequest& request) {
        request.startStream();
        const std::string block(65536, 'x');
        while (request.write(block)) {
            accepted += block.size();
        }
    }));
    RawClient client(server.port(), "127.0.0.1", 4096);
    client.send(get("/endless"));
    client.skip(100000);
    // Nobody reads any more: everything between here and the writer fills up.
    std::uint64_t before = 0;
    ASSERT_TRUE(waitUntil([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return std::exchange(before, accepted.load()) == accepted.load();
    }));
    leave(client, departure());
    const FinishedRequest finished = server.application().finished()[0];
    EXPECT_THAT(finished.deviceError, lostBy("WriteError"));
    EXPECT_EQ(finished.state, ResponseState::Streaming);
    expectServes(server);
}

TEST_P(ClientAbort, BetweenTwoPiecesOfAStreamRefusesTheNext) {
    letBrokenPipesKill();
    Event left;
    TestServer server(except([&](TestRequest& request) {
        request.startStream();
        request.write("first");
        request.out().flush();
        EXPECT_TRUE(left.wait());
        EXPECT_TRUE(waitUntil([&] {
            const bool accepted = request.write("more");
            request.out().flush();
            return !accepted;
        }));
    }));
    RawClient client = server.connect();
    client.send(get("/stream"));
    client.readUntil("first\r\n");
    leave(client, departure());
    left.set();
    EXPECT_THAT(server.application().finished()[0].deviceError, lostBy("WriteError"));
    expectServes(server);
}

TEST_P(ClientAbort, DuringABufferedResponseIsReported) {
    letBrokenPipesKill();
    // More than fits into the buffers of the system.
    TestServer server(except([](TestRequest& request) { request.reply(std::string(16U << 20U, 'x')); }));
    RawClient client(server.port(), "127.0.0.1", 4096);
    client.send(get("/large"));
    client.skip(10000);
    leave(client, departure());
    const FinishedRequest finished = server.application().finished()[0];
    EXPECT_THAT(finished.deviceError, lostBy("WriteError"));
    EXPECT_EQ(finished.state, ResponseState::Buffered);
    expectServes(server);
}

TEST_P(ClientAbort, AfterTheResponseIsNone) {
    TestServer server(except([](TestRequest& request) { request.reply("whole"); }));
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(get("/")).body, "whole");
    EXPECT_EQ(server.application().finished()[0].deviceError, "");
    leave(client, departure());
    // This one stays: a hang-up may overtake the engine's own notice that all was sent.
    RawClient next = server.connect();
    EXPECT_EQ(next.exchange(get("/next")).status, 200);
    EXPECT_EQ(server.application().finished(2)[1].deviceError, "");
}

INSTANTIATE_TEST_SUITE_P(By, ClientAbort, testing::Values(Departure::Reset, Departure::Close),
                         [](const auto& test) { return test.param == Departure::Reset ? "Reset" : "Close"; });

} // namespace
} // namespace vireotest
