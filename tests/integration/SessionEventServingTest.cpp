#include "integration/SessionServer.h"
#include "vireo/ExchangeObserver.h"
#include "vireo/ExchangeRecord.h"

#include <future>
#include <memory>
#include <string>
#include <vector>

// WebSockets by RFC 6455 on a server that waits by events: its drain, and what its observers are told.

namespace vireotest {
namespace {

using ql::http::ExchangeRecord;
using ql::http::HttpServer;
using ql::http::ServerOptions;
using ql::http::WebSocketOptions;
using testing::ElementsAre;

/// Status and ending of each exchange.
class EndingLog : public ql::http::ExchangeObserver {
public:
    void onExchange(const ExchangeRecord& record) override {
        log_.add(std::to_string(record.getStatus()) + " " + ExchangeRecord::toText(record.getEnding()));
    }
    const SessionLog& log() const { return log_; }

private:
    SessionLog log_;
};

class SessionEventServing : public ServerTest {
protected:
    SessionEventServing() {
        options_.setWaiting(ServerOptions::Waiting::Event);
        options_.addExchangeObserver(endings_);
        ql::http::WebSocketOptions patient;
        patient.setCloseTimeoutMs(30000);
        options_.setWebSockets(acceptor_, patient);
    }

    void start() { server_ = std::make_unique<TestServer>(Behaviour{}, TestServer::parametersOfTests(), options_); }

    std::future<HttpServer::DrainResult> drain() {
        constexpr std::uint32_t DeadlineMs = 30000;
        auto result = std::async(std::launch::async, [this] { return server_->server().drain(DeadlineMs); });
        EXPECT_TRUE(waitUntil([this] { return server_->server().isDraining(); }));
        return result;
    }

    SessionLog sessionLog_;
    const std::shared_ptr<TestAcceptor> acceptor_ = std::make_shared<TestAcceptor>(sessionLog_);
    const std::shared_ptr<EndingLog> endings_ = std::make_shared<EndingLog>();
    ServerOptions options_;
    std::unique_ptr<TestServer> server_;
};

TEST_F(SessionEventServing, ObserversAreToldOfEveryOpening) {
    start();
    RawClient client = server_->connect();
    open(client);
    EXPECT_THAT(endings_->log().wait(1), ElementsAre("101 upgraded"));
    EXPECT_EQ(server_->connect().exchange(handshakeWith("Origin: null\r\n").text()).status, 403);
    EXPECT_EQ(endings_->log().wait(2)[1], "403 refused");
    Handshake handshake;
    handshake.key = "";
    EXPECT_EQ(server_->connect().exchange(handshake.text()).status, 400);
    EXPECT_EQ(endings_->log().wait(3)[2], "400 refused");
    handshake.protocolVersion = "";
    EXPECT_EQ(server_->connect().exchange(handshake.text()).status, 426);
    EXPECT_EQ(endings_->log().wait(4)[3], "426 refused");
    client.close();
}

TEST_F(SessionEventServing, DrainTellsSessionsAndWaitsForThem) {
    start();
    RawClient client = server_->connect();
    open(client);
    sessionLog_.wait(1);
    auto drained = drain();
    EXPECT_EQ(readClose(client), 1001);
    client.send(closeFrame(1001));
    EXPECT_EQ(client.readToEnd(), "");
    client.close();
    const HttpServer::DrainResult result = drained.get();
    EXPECT_EQ(result.finished, 1U);
    EXPECT_EQ(result.cut, 0U);
    EXPECT_THAT(sessionLog_.lines(), ElementsAre("open", "close 1001 ''", "gone"));
}

TEST_F(SessionEventServing, DrainCutsOffWhoStaysBeyondItsDeadline) {
    // Else their own time might be over first.
    WebSocketOptions patient;
    patient.setCloseTimeoutMs(WebSocketOptions::MaxTimeMs);
    options_.setWebSockets(acceptor_, patient);
    start();
    RawClient client = server_->connect();
    open(client);
    sessionLog_.wait(1);
    const HttpServer::DrainResult result = server_->server().drain(300);
    EXPECT_EQ(result.finished, 0U);
    EXPECT_EQ(result.cut, 1U);
    EXPECT_THAT(sessionLog_.lines(), ElementsAre("open", "close 1001 '' unclean", "gone"));
}

TEST_F(SessionEventServing, NobodyIsLetInDuringADrain) {
    options_.setDrainGraceMs(30000);
    start();
    RawClient client = server_->connect();
    EXPECT_EQ(client.exchange(get("/")).status, 200);
    auto drained = drain();
    RawClient late = server_->connect();
    const RawResponse response = late.exchange(Handshake{}.text());
    EXPECT_EQ(response.status, 503);
    EXPECT_EQ(response.value("Retry-After"), "1");
    EXPECT_EQ(acceptor_->decisions, 0);
    server_->stop();
    (void)drained.get();
}

} // namespace
} // namespace vireotest
