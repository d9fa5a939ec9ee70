#include "integration/EchoSocket.h"
#include "integration/ServerTest.h"
#include "support/DrainClients.h"
#include "vireo/ListenEndpoint.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// A server that goes away and loses nothing.

namespace vireotest {
namespace {

using ql::http::HttpServer;
using ql::http::ServerOptions;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr std::uint32_t LongMs = 30000;

/// Longer than it takes until accepting has ended and an idle connection is waited for no more, and far less than who
/// has just connected is given.
void letDrainEnd() {
    for (int i = 0; i < 6; ++i) {
        letOthersRun();
    }
}

class Draining : public ServerTest {
protected:
    static ServerOptions options() {
        ServerOptions options;
        options.setWaiting(ServerOptions::Waiting::Event);
        return options;
    }

    void start(TestImpl::Handler handler, const ServerOptions& options = Draining::options()) {
        Behaviour behaviour;
        behaviour.handler = std::move(handler);
        behaviour.onStopped = [this] {
            if (const std::function<void()> onStopped = std::exchange(onStopped_, nullptr)) {
                onStopped();
            }
        };
        echoWebSockets(behaviour, alive_);
        server_ = std::make_unique<TestServer>(std::move(behaviour), TestServer::parametersWithWebSockets(), options);
    }

    void start(const ServerOptions& options = Draining::options()) {
        start([](TestRequest& request) { request.reply(request.readBody()); }, options);
    }

    HttpServer& server() { return server_->server(); }

    /// From now on the server is being drained, or was.
    std::future<HttpServer::DrainResult> drain(std::uint32_t deadlineMs = LongMs) {
        std::future<HttpServer::DrainResult> result =
            std::async(std::launch::async, [this, deadlineMs] { return server().drain(deadlineMs); });
        EXPECT_TRUE(waitUntil([&] {
            return server().isDraining() || result.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
        }));
        return result;
    }

    static void expect(std::future<HttpServer::DrainResult>& drained, std::uint64_t finished, std::uint64_t cut) {
        const HttpServer::DrainResult result = drained.get();
        EXPECT_EQ(result.finished, finished);
        EXPECT_EQ(result.cut, cut);
    }

    void expectNothingLostUnderLoad(const ServerOptions& options, const std::string& host);

    /// Lets handlers go on.
    Event proceed_;
    std::atomic<int> alive_{0};
    /// What the application does when the server stops next.
    std::function<void()> onStopped_;
    std::unique_ptr<TestServer> server_;
};

// ---- The end ----

TEST_F(Draining, StopsAServerThatHasNothingToDo) {
    start();
    RawClient idle = server_->connect();
    EXPECT_EQ(idle.exchange(get("/")).status, 200);
    // The client may have its answer before the engine says that it is sent.
    server_->application().finished();
    EXPECT_FALSE(server().isDraining());
    const HttpServer::DrainResult result = server().drain(LongMs);
    EXPECT_EQ(result.finished, 0U);
    EXPECT_EQ(result.cut, 0U);
    EXPECT_EQ(server().getStatus(), Status::Stopped);
    EXPECT_FALSE(server().isDraining());
    EXPECT_EQ(server_->application().stoppedCount(), 1U);
    EXPECT_EQ(idle.readToEnd(), "");
    EXPECT_THROW(server_->connect(), std::runtime_error);
    server_->start();
    EXPECT_EQ(server_->connect().exchange(get("/")).value("Connection"), "");
}

TEST_F(Draining, DoesNothingWithAServerThatDoesNotRun) {
    start();
    server().stopServer(true);
    EXPECT_EQ(server().drain(LongMs).cut, 0U);
    EXPECT_FALSE(server().isDraining());
    EXPECT_EQ(server_->application().stoppedCount(), 1U);
}

TEST_F(Draining, StopsAtOnceAndSaysSoWhereItPolls) {
    start(ServerOptions());
    RawClient client = server_->connect();
    EXPECT_EQ(client.exchange(get("/")).status, 200);
    server().drain(LongMs);
    EXPECT_EQ(server().getStatus(), Status::Stopped);
    EXPECT_THAT(log_.texts(qlLogType::Server, "drained"),
                ElementsAre("Only a server with Waiting::Event can be drained : it stops"));
}

TEST_F(Draining, CutsAtTheDeadlineWhatIsNotFinished) {
    start([this](TestRequest& request) {
        EXPECT_TRUE(proceed_.wait());
        request.reply("too late");
    });
    RawClient client = server_->connect();
    client.send(get("/"));
    server_->application().seen();
    std::future<HttpServer::DrainResult> drained = drain(300);
    EXPECT_EQ(client.readToEnd(), "");
    expect(drained, 0, 1);
    proceed_.set();
}

TEST_F(Draining, IsCutShortByAStop) {
    start([this](TestRequest& request) {
        EXPECT_TRUE(proceed_.wait());
        request.reply("too late");
    });
    RawClient client = server_->connect();
    client.send(get("/"));
    server_->application().seen();
    std::future<HttpServer::DrainResult> drained = drain();
    server().stopServer(true);
    expect(drained, 0, 1);
    proceed_.set();
}

TEST_F(Draining, EndsForEveryoneWhoAskedAtTheEarliestDeadline) {
    start([this](TestRequest& request) {
        EXPECT_TRUE(proceed_.wait());
        request.reply("too late");
    });
    RawClient client = server_->connect();
    client.send(get("/"));
    server_->application().seen();
    std::future<HttpServer::DrainResult> drained = drain();
    EXPECT_EQ(server().drain(1).cut, 1U);
    expect(drained, 0, 1);
    proceed_.set();
}

TEST_F(Draining, TellsOfTheRunThatWasDrainedAlthoughAnotherHasBegun) {
    start([this](TestRequest& request) {
        EXPECT_TRUE(proceed_.wait());
        request.reply("answer");
    });
    std::thread restart;
    onStopped_ = [&] {
        Event begins;
        restart = std::thread([&] {
            begins.set();
            // Waits for the stop, and is there before who waits for the drain.
            server_->start();
        });
        EXPECT_TRUE(begins.wait());
        letOthersRun();
    };
    RawClient client = server_->connect();
    client.send(get("/"));
    server_->application().seen();
    std::future<HttpServer::DrainResult> drained = drain();
    proceed_.set();
    expect(drained, 1, 0);
    restart.join();
}

// ---- Requests ----

TEST_F(Draining, AnswersWhatIsUnderWayAndWhatComes) {
    start([&](TestRequest& request) {
        if (request.getOriginalRequestUrl() == "/late") {
            EXPECT_TRUE(proceed_.wait());
        }
        request.reply("answer");
    });
    RawClient late = server_->connect();
    RawClient kept = server_->connect();
    EXPECT_EQ(kept.exchange(get("/")).value("Connection"), "");
    server_->application().finished();
    late.send(get("/late"));
    server_->application().seen(2);
    std::future<HttpServer::DrainResult> drained = drain();
    const RawResponse next = kept.exchange(get("/"));
    EXPECT_EQ(next.body, "answer");
    EXPECT_EQ(next.value("Connection"), "close");
    EXPECT_EQ(kept.readToEnd(), "");
    letDrainEnd();
    proceed_.set();
    const RawResponse last = late.readResponse();
    EXPECT_EQ(last.body, "answer");
    EXPECT_EQ(last.value("Connection"), "close");
    expect(drained, 2, 0);
}

TEST_F(Draining, RefusesNewRequestsWhereItIsToldTo) {
    ServerOptions refusing = options();
    refusing.setDrainAnswer(ServerOptions::DrainAnswer::Refuse);
    start(
        [&](TestRequest& request) {
            if (request.getOriginalRequestUrl() == "/late") {
                EXPECT_TRUE(proceed_.wait());
            }
            request.reply("answer");
        },
        refusing);
    RawClient late = server_->connect();
    RawClient kept = server_->connect();
    EXPECT_EQ(kept.exchange(get("/")).status, 200);
    server_->application().finished();
    late.send(get("/late"));
    server_->application().seen(2);
    std::future<HttpServer::DrainResult> drained = drain();
    const RawResponse refused = kept.exchange(post("/", "body"));
    EXPECT_EQ(refused.status, 503);
    EXPECT_EQ(refused.value("Connection"), "close");
    EXPECT_EQ(refused.value("Retry-After"), "1");
    proceed_.set();
    EXPECT_EQ(late.readResponse().body, "answer");
    expect(drained, 1, 0);
    EXPECT_EQ(server_->application().seenCount(), 2U);
}

TEST_F(Draining, AnswersOfTheLibraryCloseTheirConnections) {
    ServerOptions withGrace = options();
    withGrace.setDrainGraceMs(60000);
    start(
        [](TestRequest& request) {
            request.response.throwing = TestResponse::Operation::GetHeaders;
            request.reply();
        },
        withGrace);
    std::future<HttpServer::DrainResult> drained = drain();
    const std::string upgrade = "Upgrade: WebSocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: ";
    const std::vector<std::pair<std::string, int>> statusOfRequests{
        {get("/"), 500}, {get("/", upgrade + "13\r\n"), 500}, {get("/", upgrade + "8\r\n"), 426}};
    for (const auto& [request, status] : statusOfRequests) {
        RawClient client = server_->connect();
        const RawResponse response = client.exchange(request);
        EXPECT_EQ(response.status, status);
        EXPECT_EQ(response.value("Connection"), "close") << request;
        EXPECT_EQ(client.readToEnd(), "");
    }
    server_->application().finished();
    server().stopServer(true);
    expect(drained, 1, 0);
}

TEST_F(Draining, WaitsForAnUpload) {
    start();
    RawClient upload = server_->connect();
    const std::string body(2000000, 'u');
    upload.send(head("POST", "/", "Content-Length: 2000000\r\n") + body.substr(0, 1000));
    server_->application().seen();
    std::future<HttpServer::DrainResult> drained = drain();
    letDrainEnd();
    std::thread sending([&] { upload.send(body.substr(1000)); });
    EXPECT_EQ(upload.readResponse().body, body);
    sending.join();
    expect(drained, 1, 0);
}

TEST_F(Draining, ApplicationEndsItsStreams) {
    start([this](TestRequest& request) {
        request.startStream();
        do {
            request.write("event");
            request.out().flush();
            letOthersRun();
        } while (!server().isDraining());
        request.out().endSending();
    });
    RawClient client = server_->connect();
    client.send(get("/"));
    RawResponse response = client.readHead();
    std::future<HttpServer::DrainResult> drained = drain();
    client.readBody(response);
    EXPECT_THAT(response.body, StartsWith("event"));
    expect(drained, 1, 0);
}

TEST_F(Draining, WaitsForTheFirstRequestOfWhoHasJustConnected) {
    start();
    RawClient client = server_->connect();
    EXPECT_EQ(server_->connect().exchange(get("/")).status, 200);
    server_->application().finished();
    std::future<HttpServer::DrainResult> drained = drain();
    letDrainEnd();
    EXPECT_EQ(client.exchange(post("/", "first")).body, "first");
    expect(drained, 1, 0);
}

TEST_F(Draining, AcceptsThroughItsGrace) {
    ServerOptions withGrace = options();
    withGrace.setDrainGraceMs(60000);
    start(withGrace);
    std::future<HttpServer::DrainResult> drained = drain();
    for (int i = 0; i < 5; ++i) {
        letOthersRun();
        const RawResponse response = server_->connect().exchange(post("/", "body"));
        EXPECT_EQ(response.body, "body");
        EXPECT_EQ(response.value("Connection"), "close");
    }
    RawClient socket = openWebSocket(server_->port());
    socket.send(textFrame("still served"));
    EXPECT_EQ(readFrame(socket).second, "still served");
    server_->application().finished(5);
    server().stopServer(true);
    expect(drained, 5, 1);
}

// ---- WebSockets ----

constexpr unsigned char CloseFrame = 0x88;
const std::string GoingAway = "\x03\xE9";

TEST_F(Draining, TellsWebSocketsAndWaitsUntilTheyHaveGone) {
    start();
    RawClient first = openWebSocket(server_->port());
    RawClient second = openWebSocket(server_->port());
    first.send(textFrame("hello"));
    EXPECT_EQ(readFrame(first).second, "hello");
    std::future<HttpServer::DrainResult> drained = drain();
    EXPECT_EQ(readFrame(first), std::make_pair(CloseFrame, GoingAway));
    EXPECT_EQ(readFrame(second), std::make_pair(CloseFrame, GoingAway));
    first.send(textFrame("not answered any more"));
    first.send(clientFrame(GoingAway, 8));
    EXPECT_EQ(first.readToEnd(), "");
    letDrainEnd();
    EXPECT_EQ(server().getStatus(), Status::Running) << "one is still there";
    second.close();
    expect(drained, 2, 0);
    EXPECT_EQ(alive_, 0);
}

TEST_F(Draining, CutsAWebSocketThatStays) {
    start();
    RawClient client = openWebSocket(server_->port());
    std::future<HttpServer::DrainResult> drained = drain(500);
    EXPECT_EQ(readFrame(client), std::make_pair(CloseFrame, GoingAway));
    expect(drained, 0, 1);
    EXPECT_EQ(client.readToEnd(), "");
}

// ---- Under load ----

void Draining::expectNothingLostUnderLoad(const ServerOptions& options, const std::string& host) {
    const auto answer = [this](TestRequest& request) {
        if (request.getOriginalRequestUrl() != "/stream") {
            request.reply(request.readBody());
            return;
        }
        request.startStream();
        for (int i = 0; i < 20 && !server().isDraining(); ++i) {
            request.write("event");
            request.out().flush();
            std::this_thread::yield();
        }
        request.out().endSending();
    };
    for (int round = 0; round < 10 && !HasFailure(); ++round) {
        start(answer, options);
        DrainClients clients(server().getPort(), host);
        ASSERT_TRUE(waitUntil([&] { return clients.answered() >= 50; }));
        EXPECT_EQ(server().drain(LongMs).cut, 0U);
        EXPECT_THAT(clients.losses(), IsEmpty()) << "in round " << round;
    }
}

TEST_F(Draining, LosesNothingUnderLoad) {
    expectNothingLostUnderLoad(options(), "127.0.0.1");
}

TEST_F(Draining, LosesNothingUnderLoadAtAUnixSocket) {
    const std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("vireo-drain-" + std::to_string(currentProcessId()));
    ServerOptions options = Draining::options();
    options.addListener(ql::http::ListenEndpoint::Unix(path.string()));
    expectNothingLostUnderLoad(options, path.string());
    EXPECT_FALSE(std::filesystem::exists(path));
}

} // namespace
} // namespace vireotest
