#include "integration/SessionServer.h"
#include "integration/TlsServer.h"

#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// TLS with what only a server has that waits by events.

namespace vireotest {
namespace {

using ql::http::HttpServer;
using ql::http::ServerOptions;
using ql::http::WebSocketOptions;
using testing::ElementsAre;

constexpr std::uint32_t LongMs = 30000;
/// Who is served must not take so long, whatever the machine does besides.
constexpr std::uint32_t HeadTimeoutMs = 3000;
constexpr unsigned char CloseFrame = 0x88;

/// Longer than a peer that has left is given for what it sent before.
void letPeerBeNoticed() {
    for (int i = 0; i < 10; ++i) {
        letOthersRun();
    }
}

class TlsEventServing : public TlsServing {
protected:
    static ServerOptions options() {
        ServerOptions options;
        options.setWaiting(ServerOptions::Waiting::Event);
        return options;
    }

    void start(TestImpl::Handler handler = {}, const ServerOptions& options = TlsEventServing::options()) {
        TlsServing::start(std::move(handler), options);
    }

    TestImpl& application() const { return server_->application(); }
};

// ---- Deadlines and limits ----

TEST_F(TlsEventServing, HandshakesAreBoundByTheHeadDeadline) {
    ServerOptions impatient = options();
    impatient.setHeadTimeoutMs(HeadTimeoutMs);
    start({}, impatient);
    std::vector<RawClient> silent;
    std::vector<RawClient> trickling;
    for (int i = 0; i < 150; ++i) {
        silent.emplace_back(port_);
        trickling.emplace_back(port_);
        trickling.back().send("\x16\x03\x01\x02");
    }
    EXPECT_TRUE(isServed());
    for (RawClient& client : silent) {
        EXPECT_EQ(client.readToEnd(), "");
    }
    for (RawClient& client : trickling) {
        EXPECT_EQ(client.readToEnd(), "");
    }
    EXPECT_TRUE(isServed());
}

TEST_F(TlsEventServing, HandshakeThatComesByteByByteIsCutOff) {
    ServerOptions impatient = options();
    impatient.setHeadTimeoutMs(HeadTimeoutMs);
    start({}, impatient);
    RawClient client(port_);
    // The first bytes of a handshake, of which each comes soon after the other: more than there is time for.
    const std::string hello = std::string("\x16\x03\x01\x40\x00\x01\x00\x3f\xfc\x03\x03", 11) + std::string(16378, 'r');
    std::size_t sent = 0;
    EXPECT_TRUE(waitUntil([&] { return !client.trySend(hello.substr(sent++, 1)); }));
    EXPECT_LT(sent, hello.size());
    EXPECT_TRUE(isServed());
}

TEST_F(TlsEventServing, BodyThatIsTooLongIsRefusedBeforeItIsSent) {
    ServerOptions limited = options();
    limited.setMaxBodyBytes(1000);
    start({}, limited);
    TlsClient client(port_);
    client.send(head("POST", "/", "Content-Length: 1000000\r\n"));
    const RawResponse response = client.readResponse();
    EXPECT_EQ(response.status, 413);
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_TRUE(client.hasEndedCleanly());
}

TEST_F(TlsEventServing, AnswerBeforeTheBodyReachesWhoStillSends) {
    start([](TestRequest& request) { request.reply("no more", 403); });
    TlsClient client(port_);
    client.send(head("POST", "/", "Content-Length: 100000000\r\n"));
    const std::string piece(65536, 'x');
    for (int i = 0; i < 20; ++i) {
        client.trySend(piece);
    }
    const RawResponse response = client.readResponse();
    EXPECT_EQ(response.status, 403);
    EXPECT_EQ(response.body, "no more");
}

TEST_F(TlsEventServing, UploadIsHeldBackByItsWindow) {
    constexpr std::uint64_t Size = 20000000;
    ServerOptions narrow = options();
    narrow.setUploadWindowBytes(ServerOptions::MinUploadWindowBytes);
    Event isFull;
    Event proceed;
    std::atomic<std::uint64_t> received{0};
    start(
        [&](TestRequest& request) {
            std::vector<char> piece(4096);
            received += request.feed().readBytes(piece.data(), piece.size());
            isFull.set();
            EXPECT_TRUE(proceed.wait());
            for (std::uint64_t count = 1; count != 0;) {
                count = request.feed().readBytes(piece.data(), piece.size());
                received += count;
            }
            request.reply(std::to_string(received));
        },
        narrow);
    TlsClient client(port_);
    client.send(head("POST", "/", "Content-Length: " + std::to_string(Size) + "\r\n"));
    auto sent = std::async(std::launch::async, [&] {
        const std::string piece(100000, 'x');
        for (std::uint64_t i = 0; i < Size; i += piece.size()) {
            client.send(piece);
        }
    });
    EXPECT_TRUE(isFull.wait());
    EXPECT_EQ(sent.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    proceed.set();
    sent.get();
    EXPECT_EQ(client.readResponse().body, std::to_string(Size));
}

TEST_F(TlsEventServing, LateAnswersReachTheirClients) {
    Event proceed;
    start([&](TestRequest& request) {
        EXPECT_TRUE(proceed.wait());
        request.reply(request.readBody());
    });
    TlsClient client(port_);
    client.send(post("/", "one") + post("/", "two"));
    letOthersRun();
    proceed.set();
    EXPECT_EQ(client.readResponse().body, "one");
    EXPECT_EQ(client.readResponse().body, "two");
}

TEST_F(TlsEventServing, ClientThatEndsItsSessionGetsItsAnswerWhole) {
    const std::string body(1000000, 'b');
    Event proceed;
    start([&](TestRequest& request) {
        EXPECT_TRUE(proceed.wait());
        request.reply(body);
    });
    TlsClient client(port_);
    client.send(get("/", "Connection: close\r\n"));
    application().seen(1);
    // Nobody reads it while the answer is waited for.
    client.sayGoodbye();
    letOthersRun();
    proceed.set();
    // The engine has given all of the answer to the system, and closed.
    application().finished(1);
    letOthersRun();
    EXPECT_EQ(client.readResponse().body, body);
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_TRUE(client.hasEndedCleanly());
}

TEST_F(TlsEventServing, ClientThatLeavesIsNoticedWhileItsAnswerIsWaitedFor) {
    Event isGone;
    start([&](TestRequest& request) {
        EXPECT_TRUE(waitUntil([&] { return request.isSchedulerDone(); }));
        isGone.set();
    });
    {
        TlsClient client(port_);
        client.send(get("/"));
        application().seen(1);
    }
    EXPECT_TRUE(isGone.wait());
}

// ---- The end ----

TEST_F(TlsEventServing, DrainAnswersWhatIsUnderWay) {
    Event proceed;
    start([&](TestRequest& request) {
        EXPECT_TRUE(proceed.wait());
        request.reply(request.readBody());
    });
    TlsClient client(port_);
    // The second one lies in the session when the first is answered.
    client.send(post("/", "one") + post("/", "two"));
    application().seen(1);
    auto drained = std::async(std::launch::async, [this] { return server_->server().drain(LongMs); });
    EXPECT_TRUE(waitUntil([this] { return server_->server().isDraining(); }));
    proceed.set();
    const RawResponse first = client.readResponse();
    EXPECT_EQ(first.body, "one");
    EXPECT_EQ(first.value("Connection"), "close");
    EXPECT_EQ(drained.get().cut, 0U);
}

TEST_F(TlsEventServing, DrainDoesNotWaitForTheRestOfARecord) {
    start();
    RawClient half(port_);
    half.send("\x16\x03\x01\x02");
    TlsClient idle(port_);
    EXPECT_EQ(idle.exchange(get("/")).status, 200);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(server_->server().drain(LongMs).cut, 0U);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(LongMs / 2));
}

TEST_F(TlsEventServing, DrainTellsWebSocketsToGoAndWaitsForThem) {
    start();
    TlsClient client(port_);
    upgrade(client);
    auto drained = std::async(std::launch::async, [this] { return server_->server().drain(LongMs); });
    const auto [type, reason] = readFrame(client);
    EXPECT_EQ(type, CloseFrame);
    EXPECT_EQ(reason.substr(0, 2), "\x03\xe9");
    EXPECT_EQ(drained.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    client.send(clientFrame("\x03\xe9", 8));
    const HttpServer::DrainResult result = drained.get();
    EXPECT_EQ(result.finished, 1U);
    EXPECT_EQ(result.cut, 0U);
}

TEST_F(TlsEventServing, WhatAWebSocketIsSentLastGoesOutAtTheStop) {
    std::atomic<ql::http::WebSocket*> accepted{nullptr};
    Behaviour behaviour;
    behaviour.onWebSocket = [&](ql::http::WebSocketThread& /*pool*/, ql::http::WebSocket* socket) {
        accepted = socket;
    };
    const std::string farewell(20000, 'f');
    behaviour.onStopped = [&] {
        const std::unique_ptr<ql::http::WebSocket> socket(accepted.exchange(nullptr));
        socket->assignCurrentThread();
        socket->writeMessage(farewell.data(), farewell.size(), false);
        socket->markForDeletion();
    };
    ServerOptions listening = options();
    listening.addListener(loopback().setTls(context_));
    TestServer server(std::move(behaviour), TestServer::parametersWithWebSockets(), listening);
    TlsClient client(server.server().getPort());
    upgrade(client);
    EXPECT_TRUE(waitUntil([&] { return accepted != nullptr; }));
    auto stopped = std::async(std::launch::async, [&] { server.stop(); });
    EXPECT_EQ(readFrame(client).second, farewell);
    stopped.get();
}

// ---- WebSockets whose peers leave ----

class TlsWebSocketPeer : public TlsEventServing {
protected:
    void SetUp() override {
        start();
        // What is opened once.
        isServed();
        EXPECT_TRUE(waitUntil([this] { return application().finishedCount() == 1; }));
    }

    std::unique_ptr<TlsClient> connect() {
        auto client = std::make_unique<TlsClient>(port_);
        upgrade(*client);
        client->send(textFrame("hello"));
        EXPECT_EQ(readFrame(*client).second, "hello");
        EXPECT_EQ(alive_, 1);
        return client;
    }

    void expectGone() {
        EXPECT_TRUE(waitUntil([this] { return alive_ == 0; }));
    }
};

TEST_F(TlsWebSocketPeer, ThatClosesIsNoticed) {
    const auto client = connect();
    client->close();
    expectGone();
}

TEST_F(TlsWebSocketPeer, ThatEndsItsSendingIsNoticed) {
    const auto client = connect();
    client->endSending();
    expectGone();
}

TEST_F(TlsWebSocketPeer, ThatEndsItsSessionAndItsSendingIsNoticed) {
    const auto client = connect();
    client->sayGoodbye();
    client->endSending();
    expectGone();
}

TEST_F(TlsWebSocketPeer, ThatResetsIsNoticed) {
    const auto client = connect();
    client->reset();
    expectGone();
}

TEST_F(TlsWebSocketPeer, TakesItsDescriptorsAlong) {
    constexpr std::size_t Peers = 4;
    const std::size_t before = openHandles();
    for (std::size_t i = 0; i < Peers; ++i) {
        connect()->close();
        expectGone();
    }
    // The pool's threads may have opened what they need only now.
    EXPECT_TRUE(waitUntil([&] { return openHandles() < before + Peers; }));
}

/// Counts bytes, and takes its time.
class SlowSocket : public ql::http::WebSocket {
public:
    SlowSocket(WebSocket&& accepted, const Event& proceed, std::atomic<std::size_t>& received, Event& isGone)
        : WebSocket(std::move(accepted)), proceed_(proceed), received_(received), isGone_(isGone) {}
    ~SlowSocket() override { isGone_.set(); }

    void onMessageReceived(std::vector<unsigned char>& message, bool /*isBinary*/) override {
        EXPECT_TRUE(proceed_.wait());
        received_ += message.size();
    }

private:
    const Event& proceed_;
    std::atomic<std::size_t>& received_;
    Event& isGone_;
};

TEST_F(TlsEventServing, WebSocketReadsAllThatCameBeforeItsPeerLeft) {
    // More than lies between the engine and a WebSocket.
    constexpr std::size_t Messages = 6;
    const std::string message(50000, 'm');
    Event proceed;
    Event isGone;
    std::atomic<std::size_t> received{0};
    Behaviour behaviour;
    behaviour.webSocketThreads = 1;
    behaviour.onWebSocket = [&](ql::http::WebSocketThread& pool, ql::http::WebSocket* accepted) {
        const std::unique_ptr<ql::http::WebSocket> former(accepted);
        std::unique_ptr<ql::http::WebSocket> slow =
            std::make_unique<SlowSocket>(std::move(*former), proceed, received, isGone);
        pool.addWebSocket(slow);
    };
    ServerOptions listening = options();
    listening.addListener(loopback().setTls(context_));
    TestServer server(std::move(behaviour), TestServer::parametersWithWebSockets(), listening);
    TlsClient client(server.server().getPort());
    upgrade(client);
    for (std::size_t i = 0; i < Messages; ++i) {
        client.send(textFrame(message));
    }
    client.sayGoodbye();
    client.endSending();
    letPeerBeNoticed();
    proceed.set();
    EXPECT_TRUE(isGone.wait());
    EXPECT_EQ(received, Messages * message.size());
}

class TlsSessionPeer : public TlsEventServing {
protected:
    ~TlsSessionPeer() override { server_.reset(); }

    void SetUp() override {
        WebSocketOptions sessions;
        // Only that the peer has left ends a session.
        sessions.setPingIntervalMs(0);
        ServerOptions serving = options();
        serving.setWebSockets(std::make_shared<TestAcceptor>(sessionLog_), sessions);
        start({}, serving);
    }

    SessionLog sessionLog_;
};

TEST_F(TlsSessionPeer, ThatClosesBehindALongMessageIsNoticed) {
    TlsClient client(port_);
    open(client);
    client.send(clientFrame("are you there?", 9) + clientFrame(std::string(60000, 'b'), 2));
    EXPECT_EQ(readFrame(client).second, "are you there?");
    client.close();
    EXPECT_THAT(sessionLog_.wait(3), ElementsAre("open", "close 1006 '' unclean", "gone"));
}

} // namespace
} // namespace vireotest
