#include "integration/ServerTest.h"
#include "vireo/ExchangeObserver.h"
#include "vireo/ExchangeRecord.h"
#include "vireo/WebSocket.h"

#include <functional>
#include <memory>
#include <string>

// What a server that waits by events refuses by its size, or by its number on a connection.

namespace vireotest {
namespace {

using ql::http::ServerOptions;
using testing::StartsWith;

constexpr std::uint64_t MaxBytes = 1000;

class Recorder : public ql::http::ExchangeObserver {
public:
    void onExchange(const ql::http::ExchangeRecord& record) override {
        ending = record.getEnding();
        reason = record.getReason();
        target = record.getTarget();
        told.set();
    }
    ql::http::ExchangeRecord::Ending ending{};
    std::string reason;
    std::string target;
    Event told;
};

class RequestLimits : public ServerTest {
protected:
    static std::unique_ptr<TestServer> serve(const std::function<void(ServerOptions&)>& limit,
                                             Behaviour behaviour = {}) {
        ServerOptions options;
        options.setWaiting(ServerOptions::Waiting::Event);
        limit(options);
        return std::make_unique<TestServer>(std::move(behaviour), TestServer::parametersWithWebSockets(), options);
    }
    static void limitBody(ServerOptions& options) { options.setMaxBodyBytes(MaxBytes); }
    static void limitHead(ServerOptions& options) { options.setMaxHeadBytes(MaxBytes); }

    static std::string chunked(std::size_t chunks) {
        std::string request = head("POST", "/", "Transfer-Encoding: chunked\r\n");
        for (std::size_t i = 0; i < chunks; ++i) {
            request += "64\r\n" + std::string(100, 'x') + "\r\n";
        }
        return request + "0\r\n\r\n";
    }

    /// A GET whose head has so many bytes.
    static std::string headOf(std::size_t bytes) {
        const std::string empty = get("/", "X: \r\n");
        return get("/", "X: " + std::string(bytes - empty.size(), 'x') + "\r\n");
    }
};

TEST_F(RequestLimits, LongerBodyIsRefusedBeforeItIsSentAndTheApplicationIsAsked) {
    auto server = serve(limitBody);
    for (const char* const expect : {"", "Expect: 100-continue\r\n"}) {
        RawClient client = server->connect();
        client.send(head("POST", "/", "Content-Length: 1001\r\n" + std::string(expect)));
        const RawResponse response = client.readResponse();
        EXPECT_EQ(response.status, 413);
        EXPECT_EQ(response.value("Connection"), "close");
        EXPECT_EQ(response.body, "the body is too large");
        EXPECT_EQ(client.readToEnd(), "");
    }
    EXPECT_EQ(server->application().seenCount(), 0U);
}

TEST_F(RequestLimits, BodyOfTheLimitIsTaken) {
    auto server = serve(limitBody);
    RawClient client = server->connect();
    EXPECT_EQ(client.exchange(post("/", std::string(MaxBytes, 'x'))).body, std::string(MaxBytes, 'x'));
    EXPECT_EQ(client.exchange(chunked(MaxBytes / 100)).body, std::string(MaxBytes, 'x'));
}

TEST_F(RequestLimits, BodyThatTurnsOutLongerFailsAndClosesTheConnection) {
    std::string feedError;
    std::size_t received = 0;
    Behaviour behaviour;
    behaviour.handler = [&](TestRequest& request) {
        received = request.readBody().size();
        feedError = request.feed().getDeviceErrorMsg();
    };
    auto server = serve(limitBody, std::move(behaviour));
    RawClient client = server->connect();
    client.trySend(chunked(MaxBytes / 100 + 1));
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_EQ(server->application().finished()[0].deviceError, "lost connection : BodyTooLarge");
    EXPECT_EQ(feedError, "lost connection : BodyTooLarge");
    EXPECT_LE(received, MaxBytes);
}

TEST_F(RequestLimits, BodyThatTurnsOutLongerIsRecordedAsRefused) {
    const auto recorder = std::make_shared<Recorder>();
    auto server = serve([&](ServerOptions& options) {
        limitBody(options);
        options.addExchangeObserver(recorder);
    });
    RawClient client = server->connect();
    client.trySend(chunked(MaxBytes / 100 + 1));
    EXPECT_TRUE(recorder->told.wait());
    EXPECT_EQ(recorder->ending, ql::http::ExchangeRecord::Ending::Refused);
    EXPECT_EQ(recorder->reason, "the body is too large");
}

TEST_F(RequestLimits, WhatStrictHttpRefusesIsRecordedAsRefusedWithTheTargetThatCame) {
    const auto recorder = std::make_shared<Recorder>();
    auto server = serve([&](ServerOptions& options) {
        options.setStrictHttp(true);
        options.addExchangeObserver(recorder);
    });
    EXPECT_EQ(server->connect().exchange(get("80/hello")).status, 400);
    EXPECT_TRUE(recorder->told.wait());
    EXPECT_EQ(recorder->ending, ql::http::ExchangeRecord::Ending::Refused);
    EXPECT_EQ(recorder->reason, "bad target");
    EXPECT_EQ(recorder->target, "80/hello");
}

TEST_F(RequestLimits, LargerHeadIsRefusedBeforeTheApplicationIsAsked) {
    auto server = serve(limitHead);
    RawClient client = server->connect();
    EXPECT_EQ(client.exchange(headOf(MaxBytes)).status, 200);
    const RawResponse response = client.exchange(headOf(MaxBytes + 1));
    EXPECT_EQ(response.status, 431);
    EXPECT_EQ(response.value("Connection"), "close");
    EXPECT_EQ(response.body, "the head is too large");
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_EQ(server->application().seenCount(), 1U);
}

TEST_F(RequestLimits, HeadIsLookedAtBeforeTheBody) {
    auto server = serve([](ServerOptions& options) {
        limitHead(options);
        limitBody(options);
    });
    const std::string tooLong = "Content-Length: 1001\r\n";
    EXPECT_EQ(server->connect().exchange(head("POST", "/", tooLong)).status, 413);
    EXPECT_EQ(
        server->connect().exchange(head("POST", "/", tooLong + "X: " + std::string(MaxBytes, 'x') + "\r\n")).status,
        431);
}

TEST_F(RequestLimits, LastAnswerOfAConnectionSaysSo) {
    auto server = serve([](ServerOptions& options) { options.setMaxRequestsPerConnection(3); });
    for (int i = 0; i < 2; ++i) {
        RawClient client = server->connect();
        EXPECT_FALSE(client.exchange(get("/")).has("Connection"));
        EXPECT_FALSE(client.exchange(get("/")).has("Connection"));
        EXPECT_EQ(client.exchange(get("/")).value("Connection"), "close");
        EXPECT_EQ(client.readToEnd(), "");
    }
    RawClient client = server->connect();
    client.send(get("/") + get("/") + get("/") + get("/"));
    client.readToEnd();
    server->stop();
    EXPECT_EQ(server->application().seenCount(), 9U);
}

TEST_F(RequestLimits, LastAnswerMayBeOneOfTheLibraryOrAStream) {
    Behaviour behaviour;
    behaviour.handler = [](TestRequest& request) {
        request.response.headers["c"] = {"Connection", "x-own"};
        request.startStream();
        request.write("stream");
        request.out().endSending();
    };
    auto server = serve([](ServerOptions& options) { options.setMaxRequestsPerConnection(1); }, std::move(behaviour));
    RawClient client = server->connect();
    EXPECT_THAT(client.exchange(get("/")).value("Connection"), StartsWith("close"));
    EXPECT_EQ(client.readToEnd(), "");
    const std::string handshake = "Upgrade: WebSocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 1\r\n";
    EXPECT_EQ(server->connect().exchange(get("/", handshake)).value("Connection"), "close");
}

TEST_F(RequestLimits, LastRequestMayBeAHandshake) {
    auto server = serve([](ServerOptions& options) { options.setMaxRequestsPerConnection(1); });
    RawClient client = server->connect();
    client.send(get("/", "Upgrade: WebSocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                         "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"));
    const RawResponse response = client.readHead();
    EXPECT_EQ(response.status, 101);
    EXPECT_THAT(response.value("Connection"), StartsWith("Upgrade"));
}

TEST_F(RequestLimits, DoNotHoldWhereTheEngineIsPolled) {
    auto server = serve([](ServerOptions& options) {
        options.setWaiting(ServerOptions::Waiting::Polling);
        options.setMaxBodyBytes(1);
        options.setMaxHeadBytes(1);
        options.setMaxRequestsPerConnection(1);
    });
    RawClient client = server->connect();
    EXPECT_EQ(client.exchange(post("/", "body")).body, "body");
    EXPECT_EQ(client.exchange(chunked(2)).status, 200);
}

} // namespace
} // namespace vireotest
