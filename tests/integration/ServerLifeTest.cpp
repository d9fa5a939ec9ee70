#include "integration/ServerTest.h"

#include <atomic>
#include <string>
#include <thread>
#include <utility>

// Servers that start, stop, time out, and live side by side.

namespace vireotest {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

using ServerLife = ServerTest;

Parameters withTimeout(std::uint32_t ms) {
    Parameters parameters = TestServer::parametersOfTests();
    parameters.connectionTimeoutMs = ms;
    return parameters;
}

// ---- Start and stop ----

TEST_F(ServerLife, ServerStartsAgainAfterAStop) {
    TestServer server(Behaviour{});
    for (unsigned int run = 1; run <= 3; ++run) {
        EXPECT_EQ(server.connect().exchange(post("/", "run")).body, "run");
        server.stop();
        EXPECT_EQ(server.server().getStatus(), Status::Stopped);
        EXPECT_EQ(server.application().stoppedCount(), run);
        EXPECT_THROW(server.connect(), std::runtime_error);
        server.start();
    }
}

TEST_F(ServerLife, ParametersOfTheNextStartCount) {
    auto* const application = new TestImpl(Behaviour{});
    ql::http::HttpServer server(application, optionsOfTests());
    Parameters parameters = TestServer::parametersOfTests();
    for (int run = 0; run < 2; ++run) {
        parameters.port = freePort();
        server.startServer(parameters);
        ASSERT_TRUE(waitUntil([&] { return server.getStatus() == Status::Running; }));
        EXPECT_EQ(server.getParameters().port, parameters.port);
        EXPECT_EQ(RawClient(parameters.port).exchange(get("/")).status, 200);
        server.stopServer(true);
    }
}

TEST_F(ServerLife, StartOfARunningServerChangesNothing) {
    TestServer server(Behaviour{});
    Parameters other = TestServer::parametersOfTests();
    other.port = freePort();
    server.server().startServer(other);
    EXPECT_EQ(server.server().getParameters().port, server.port());
    EXPECT_EQ(server.connect().exchange(get("/")).status, 200);
    EXPECT_THROW(RawClient{other.port}, std::runtime_error);
}

TEST_F(ServerLife, StopWithoutWaitReturnsAndTheServerStops) {
    Event proceed;
    Behaviour behaviour;
    behaviour.onStopped = [&] { EXPECT_TRUE(proceed.wait()); };
    TestServer server(std::move(behaviour));
    server.server().stopServer(false);
    EXPECT_TRUE(server.server().shouldExit());
    EXPECT_EQ(server.server().getStatus(), Status::Running);
    proceed.set();
    EXPECT_TRUE(waitUntil([&] { return server.server().getStatus() == Status::Stopped; }));
}

TEST_F(ServerLife, PortInUseIsAnErrorForGood) {
    TestServer first(Behaviour{});
    auto* const application = new TestImpl(Behaviour{});
    ql::http::HttpServer second(application, optionsOfTests());
    Parameters parameters = TestServer::parametersOfTests();
    parameters.port = first.port();
    second.startServer(parameters);
    ASSERT_TRUE(waitUntil([&] { return second.getStatus() == Status::Error; }));
    EXPECT_EQ(application->stoppedCount(), 1U);
    const std::string failure = "Failed to create mhd server context";
    if (isEventMode()) {
        const std::string port = std::to_string(first.port());
        EXPECT_THAT(log_.texts(qlLogType::Failure), ElementsAre(StartsWith("Cannot listen @" + port + " : "), failure));
    } else {
        EXPECT_THAT(log_.texts(qlLogType::Failure), ElementsAre(failure));
        EXPECT_THAT(log_.texts(qlLogType::Engine), ElementsAre(StartsWith("libmicrohttpd: Failed to bind to port")));
    }

    parameters.port = freePort();
    second.startServer(parameters);
    second.stopServer(true);
    EXPECT_EQ(second.getStatus(), Status::Error);
    EXPECT_EQ(application->stoppedCount(), 1U);
    EXPECT_EQ(first.connect().exchange(get("/")).status, 200);
}

TEST_F(ServerLife, TwoServersLiveSideBySide) {
    TestServer one([](TestRequest& request) { request.reply("one"); });
    TestServer two([](TestRequest& request) { request.reply("two"); });
    RawClient clientOfOne = one.connect();
    RawClient clientOfTwo = two.connect();
    EXPECT_EQ(clientOfOne.exchange(get("/")).body, "one");
    EXPECT_EQ(clientOfTwo.exchange(get("/")).body, "two");
    one.stop();
    EXPECT_EQ(clientOfTwo.exchange(get("/")).body, "two");
    EXPECT_EQ(two.connect().exchange(get("/")).body, "two");
}

TEST_F(ServerLife, OtherInterfacesAreRefusedByDefault) {
    TestServer server(Behaviour{});
    EXPECT_EQ(RawClient(server.port(), "127.0.0.1").exchange(get("/")).status, 200);
    EXPECT_THROW(RawClient(server.port(), "127.0.0.2"), std::runtime_error);
}

TEST_F(ServerLife, OtherInterfacesAreServedOnRequest) {
    Parameters parameters = TestServer::parametersOfTests();
    parameters.listenOnAllInterfaces = true;
    TestServer server(Behaviour{}, parameters);
    EXPECT_EQ(RawClient(server.port(), "127.0.0.2").exchange(get("/")).status, 200);
}

TEST_F(ServerLife, OneDaemonThreadIsEnough) {
    Parameters parameters = TestServer::parametersOfTests();
    parameters.threadPoolSize = 1;
    TestServer server(Behaviour{}, parameters);
    RawClient one = server.connect();
    RawClient two = server.connect();
    EXPECT_EQ(one.exchange(post("/", "one")).body, "one");
    EXPECT_EQ(two.exchange(post("/", "two")).body, "two");
}

// ---- A stop at each stage ----

TEST_F(ServerLife, StopEndsIdleConnections) {
    TestServer server(Behaviour{});
    RawClient unused = server.connect();
    RawClient used = server.connect();
    EXPECT_EQ(used.exchange(get("/")).status, 200);
    server.stop();
    EXPECT_EQ(unused.readToEnd(), "");
    EXPECT_EQ(used.readToEnd(), "");
}

TEST_F(ServerLife, StopDuringTheHeadReachesNoApplication) {
    Parameters parameters = TestServer::parametersOfTests();
    parameters.threadPoolSize = 1;
    TestServer server(Behaviour{}, parameters);
    RawClient client = server.connect();
    client.send("GET / HTTP/1.1\r\nHost: loc");
    // The one daemon thread has seen those bytes when it has answered what came after them.
    EXPECT_EQ(server.connect().exchange(get("/")).status, 200);
    server.stop();
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_EQ(server.application().seenCount(), 1U);
}

TEST_F(ServerLife, StopDuringAnUploadReleasesTheBlockedReader) {
    std::atomic<bool> wasCut{false};
    Event reading;
    TestServer server([&](TestRequest& request) {
        char bytes[4];
        EXPECT_EQ(request.feed().readBytes(bytes, sizeof bytes), sizeof bytes);
        reading.set();
        wasCut = request.readBody().empty();
    });
    RawClient client = server.connect();
    client.send(head("POST", "/", "Content-Length: 1000\r\n") + "half");
    ASSERT_TRUE(reading.wait());
    server.stop();
    const FinishedRequest finished = server.application().finished()[0];
    EXPECT_EQ(finished.deviceError, "lost connection : DaemonShutdown");
    EXPECT_EQ(finished.state, ResponseState::NotReady);
    EXPECT_TRUE(wasCut);
    EXPECT_EQ(client.readToEnd(), "");
}

TEST_F(ServerLife, StopWhileAResponseIsAwaitedCutsTheRequest) {
    Event proceed;
    TestServer server([&](TestRequest& request) {
        EXPECT_TRUE(proceed.wait());
        EXPECT_FALSE(request.write("too late"));
        request.reply();
    });
    RawClient client = server.connect();
    client.send(get("/"));
    server.application().seen();
    server.stop();
    EXPECT_EQ(client.readToEnd(), "");
    proceed.set();
    EXPECT_EQ(server.application().finished()[0].deviceError, "lost connection : DaemonShutdown");
}

TEST_F(ServerLife, StopReleasesABlockedWriter) {
    std::atomic<std::uint64_t> accepted{0};
    TestServer server([&](TestRequest& request) {
        request.startStream();
        const std::string block(65536, 'x');
        while (request.write(block)) {
            accepted += block.size();
        }
    });
    RawClient client(server.port(), "127.0.0.1", 4096);
    client.send(get("/"));
    client.readHead();
    std::uint64_t before = 0;
    ASSERT_TRUE(waitUntil([&] {
        // Blocked is who does nothing for a while.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return std::exchange(before, accepted.load()) == accepted.load();
    }));
    server.stop();
    const FinishedRequest finished = server.application().finished()[0];
    EXPECT_EQ(finished.deviceError, "lost connection : DaemonShutdown");
    EXPECT_EQ(finished.state, ResponseState::Streaming);
}

TEST_F(ServerLife, StopBetweenTwoPiecesOfAStreamRefusesTheNext) {
    Event stopped;
    TestServer server([&](TestRequest& request) {
        request.startStream();
        request.write("first");
        request.out().flush();
        EXPECT_TRUE(stopped.wait());
        EXPECT_FALSE(request.write("second"));
    });
    RawClient client = server.connect();
    client.send(get("/"));
    client.readUntil("first\r\n");
    server.stop();
    EXPECT_EQ(client.readToEnd(), "");
    stopped.set();
    EXPECT_EQ(server.application().finished()[0].deviceError, "lost connection : DaemonShutdown");
}

TEST_F(ServerLife, RequestsHeldAreAnsweredWhenTheApplicationWaitsForThemInItsStop) {
    Event stopping;
    Event answered;
    Behaviour behaviour;
    behaviour.handler = [&](TestRequest& request) {
        EXPECT_TRUE(stopping.wait());
        request.reply("last words");
    };
    behaviour.onStopped = [&] {
        stopping.set();
        EXPECT_TRUE(answered.wait());
    };
    TestServer server(std::move(behaviour));
    RawClient client = server.connect();
    client.send(get("/"));
    server.application().seen();
    server.server().stopServer(false);
    EXPECT_EQ(client.readResponse().body, "last words");
    EXPECT_EQ(server.application().finished()[0].deviceError, "");
    answered.set();
}

TEST_F(ServerLife, RequestAfterTheCallToStopIsDiscarded) {
    Event stopping;
    Event proceed;
    Behaviour behaviour;
    behaviour.onStopped = [&] {
        stopping.set();
        EXPECT_TRUE(proceed.wait());
    };
    TestServer server(std::move(behaviour));
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(get("/before")).status, 200);
    server.server().stopServer(false);
    ASSERT_TRUE(stopping.wait());
    client.send(get("/after"));
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_THAT(log_.texts(qlLogType::Engine, "Discarding"),
                ElementsAre("Discarding http request, server is shutting down"));
    EXPECT_EQ(server.application().seenCount(), 1U);
    proceed.set();
}

TEST_F(ServerLife, ManyStopsAtOnceAreOne) {
    TestServer server(Behaviour{});
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] { server.stop(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(server.server().getStatus(), Status::Stopped);
    EXPECT_EQ(server.application().stoppedCount(), 1U);
}

// ---- Time-outs: the shortest is a second ----

TEST_F(ServerLife, IdleConnectionTimesOut) {
    TestServer server(Behaviour{}, withTimeout(1));
    RawClient unused = server.connect();
    RawClient used = server.connect();
    EXPECT_EQ(used.exchange(get("/")).status, 200);
    EXPECT_EQ(unused.readToEnd(), "");
    EXPECT_EQ(used.readToEnd(), "");
    EXPECT_EQ(server.application().finished()[0].deviceError, "");
}

TEST_F(ServerLife, UnfinishedHeadTimesOut) {
    TestServer server(Behaviour{}, withTimeout(1));
    RawClient client = server.connect();
    client.send("GET / HTTP/1.1\r\nHost:");
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_EQ(server.application().seenCount(), 0U);
}

TEST_F(ServerLife, UnfinishedUploadTimesOut) {
    TestServer server(Behaviour{}, withTimeout(1));
    RawClient client = server.connect();
    client.send(head("POST", "/", "Content-Length: 1000\r\n") + "half");
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_EQ(server.application().finished()[0].deviceError, "lost connection : TimeoutReached");
}

TEST_F(ServerLife, ClientThatEndsTogetherWithItsLastBytesIsNoticedByTheTimeoutAtTheLatest) {
    Event blocked;
    Event proceed;
    Behaviour behaviour;
    behaviour.inlineHandler = [&](TestRequest& request) {
        if (request.getOriginalRequestUrl() == "/block") {
            blocked.set();
            EXPECT_TRUE(proceed.wait());
            request.reply();
        }
    };
    Parameters parameters = withTimeout(1);
    parameters.threadPoolSize = 1;
    TestServer server(std::move(behaviour), parameters);
    RawClient upload = server.connect();
    RawClient other = server.connect();
    upload.send(head("POST", "/upload", "Content-Length: 1000\r\n"));
    server.application().seen(1);
    other.send(get("/block"));
    ASSERT_TRUE(blocked.wait());
    // The engine finds both at once, and libmicrohttpd 0.9.75 sees only the bytes then.
    upload.send("half");
    upload.close();
    proceed.set();
    EXPECT_EQ(other.readResponse().status, 200);
    const std::vector<FinishedRequest> finished = server.application().finished(2);
    const auto& lost = finished[0].url == "/upload" ? finished[0] : finished[1];
    if (isEndOfSendingAHangUp()) {
        EXPECT_EQ(lost.deviceError, "lost connection : WriteError");
    } else {
        EXPECT_THAT(lost.deviceError, AnyOf("lost connection : TimeoutReached", "lost connection : ClientAbort"));
    }
}

TEST_F(ServerLife, ClientThatDoesNotReadTimesOut) {
    Behaviour behaviour;
    behaviour.handler = [](TestRequest& request) {
        request.startStream();
        const std::string block(65536, 'x');
        while (request.write(block)) {
        }
    };
    TestServer server(std::move(behaviour), withTimeout(1000));
    RawClient client(server.port(), "127.0.0.1", 4096);
    client.send(get("/"));
    EXPECT_EQ(server.application().finished()[0].deviceError, "lost connection : TimeoutReached");
}

TEST_F(ServerLife, ApplicationThatTakesLongerThanTheTimeoutIsCutOffToo) {
    Event cut;
    Behaviour behaviour;
    behaviour.handler = [&](TestRequest& request) {
        EXPECT_TRUE(cut.wait());
        request.reply("too late");
    };
    TestServer server(std::move(behaviour), withTimeout(1000));
    RawClient client = server.connect();
    client.send(get("/"));
    if (isEventMode()) {
        // Its connection is put aside, and has no time-out there. Another one tells when that is over.
        server.application().seen();
        EXPECT_EQ(server.connect().readToEnd(), "");
        cut.set();
        EXPECT_EQ(client.readResponse().body, "too late");
        return;
    }
    EXPECT_EQ(client.readToEnd(), "");
    cut.set();
    EXPECT_EQ(server.application().finished()[0].deviceError, "lost connection : TimeoutReached");
}

TEST_F(ServerLife, NoTimeoutLeavesAConnectionAlone) {
    TestServer patient(Behaviour{}, withTimeout(0));
    TestServer strict(Behaviour{}, withTimeout(1));
    RawClient client = patient.connect();
    // The other server's time-out tells when the shortest one there is has passed.
    EXPECT_EQ(strict.connect().readToEnd(), "");
    EXPECT_EQ(client.exchange(get("/")).status, 200);
}

// ---- Log lines ----

class VerboseServer : public ServerTest {
protected:
    VerboseServer() : ServerTest(true) {}

    std::vector<std::string> connectionLines() const { return log_.texts(qlLogType::Connection); }
};

TEST_F(ServerLife, QuietServerTracksNoConnections) {
    {
        TestServer server(Behaviour{});
        EXPECT_EQ(server.connect().exchange(get("/")).status, 200);
    }
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(VerboseServer, StartIsAnnounced) {
    TestServer server(Behaviour{});
    const std::string port = std::to_string(server.port());
    EXPECT_THAT(log_.texts(qlLogType::Server, "Starting"),
                ElementsAre("Starting http server : listen @" + port + ", with flags " +
                            (isEventMode() ? "0x12509" : "0x10009")));
}

TEST_F(VerboseServer, StartWithWebSocketsIsAnnounced) {
    TestServer server(Behaviour{}, TestServer::parametersWithWebSockets());
    const std::string port = std::to_string(server.port());
    EXPECT_THAT(log_.texts(qlLogType::Server, "Starting"),
                ElementsAre("Starting http server : listen @" + port + ", with flags " +
                            (isEventMode() ? "0x1a509" : "0x18009")));
}

TEST_F(VerboseServer, ConnectionIsTrackedWithItsUses) {
    TestServer server(Behaviour{});
    {
        RawClient client = server.connect();
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(client.exchange(get("/")).status, 200);
        }
    }
    ASSERT_TRUE(log_.waitFor(qlLogType::Connection, "TCP connection closed "));
    const std::vector<std::string> lines = connectionLines();
    ASSERT_THAT(lines, SizeIs(2));
    const std::string prefix = "TCP connection started ";
    ASSERT_THAT(lines[0], StartsWith(prefix));
    const std::string id = lines[0].substr(prefix.size());
    EXPECT_EQ(id.size(), 32U);
    EXPECT_THAT(lines[1], StartsWith("TCP connection closed " + id + " after 3 uses in "));
    EXPECT_THAT(log_.texts(qlLogType::Server, "not reused"), IsEmpty());
    for (const TestLog::Line& line : log_.lines()) {
        EXPECT_EQ(line.tag, line.type == qlLogType::Server ? "httpserver" : "tcp");
    }
}

TEST_F(VerboseServer, ConnectionThatWasNotReusedIsReported) {
    TestServer server(Behaviour{});
    EXPECT_EQ(server.connect().exchange(get("/")).status, 200);
    ASSERT_TRUE(log_.waitFor(qlLogType::Connection, " after 1 uses in "));
    const std::string id = connectionLines()[0].substr(std::string("TCP connection started ").size());
    EXPECT_THAT(log_.texts(qlLogType::Server, "not reused"),
                ElementsAre("TCP connection was not reused ! " + id + " reverse proxy might be missconfigured !"));
}

TEST_F(VerboseServer, UnusedConnectionHasNoUses) {
    TestServer server(Behaviour{});
    server.connect().close();
    ASSERT_TRUE(log_.waitFor(qlLogType::Connection, " after 0 uses in "));
    EXPECT_THAT(log_.texts(qlLogType::Server, "not reused"), SizeIs(1));
}

TEST_F(VerboseServer, StopClosesTheRecordsOfOpenConnections) {
    TestServer server(Behaviour{});
    RawClient one = server.connect();
    RawClient two = server.connect();
    EXPECT_EQ(one.exchange(get("/")).status, 200);
    EXPECT_EQ(two.exchange(get("/")).status, 200);
    server.stop();
    EXPECT_THAT(log_.texts(qlLogType::Connection, "closed"), SizeIs(2));
}

} // namespace
} // namespace vireotest
