#include "integration/SessionServer.h"
#include "integration/TlsServer.h"
#include "vireo/TlsPeer.h"

#include <future>
#include <memory>
#include <string>

// WebSockets by RFC 6455 over TLS, where the engine stands between.

namespace vireotest {
namespace {

using ql::http::WebSocketAnswer;
using ql::http::WebSocketOpening;
using testing::ElementsAre;

class TlsSessionServing : public TlsServing {
protected:
    /// Ends the server before what its sessions write to.
    ~TlsSessionServing() override { server_.reset(); }

    void startWithSessions() {
        const auto decide = [this](const WebSocketOpening& opening) {
            const ql::http::TlsPeer* const peer = opening.getRequest().getTlsPeer();
            versions_.add(peer == nullptr ? "none" : peer->getVersion());
            return WebSocketAnswer::Accept(std::make_unique<LoggingSession>(sessionLog_));
        };
        ql::http::ServerOptions options = optionsOfTests();
        ql::http::WebSocketOptions patient;
        patient.setCloseTimeoutMs(30000);
        options.setWebSockets(std::make_shared<TestAcceptor>(sessionLog_, decide), patient);
        start({}, options);
    }

    SessionLog versions_;
    SessionLog sessionLog_;
};

TEST_F(TlsSessionServing, BrowserGetsItsWebSocket) {
    startWithSessions();
    TlsClient client(port_);
    client.send(Handshake{}.text() + textFrame("right behind"));
    EXPECT_EQ(client.readHead().status, 101);
    EXPECT_EQ(readFrame(client).second, "right behind");
    client.send(textFrame("later"));
    EXPECT_EQ(readFrame(client).second, "later");
    client.send(closeFrame(1000));
    EXPECT_EQ(readClose(client), 1000);
    EXPECT_EQ(client.readToEnd(), "");
    client.close();
    EXPECT_THAT(sessionLog_.wait(3), ElementsAre("open", "close 1000 ''", "gone"));
    EXPECT_THAT(versions_.lines(), ElementsAre("TLS1.3"));
}

TEST_F(TlsSessionServing, PageWithoutTlsIsFromElsewhere) {
    startWithSessions();
    TlsClient foreign(port_);
    EXPECT_EQ(foreign.exchange(handshakeWith("Origin: http://example.org\r\n").text()).status, 403);
    TlsClient own(port_);
    open(own, handshakeWith("Origin: https://example.org\r\n"));
    RawClient plain(plainPort_);
    open(plain, handshakeWith("Origin: http://example.org\r\n"));
    EXPECT_THAT(versions_.lines(), ElementsAre("TLS1.3", "none"));
    own.close();
    plain.close();
}

TEST_F(TlsSessionServing, StopTellsThePeer) {
    startWithSessions();
    TlsClient client(port_);
    open(client);
    sessionLog_.wait(1);
    std::future<void> stop = std::async(std::launch::async, [this] { server_->stop(); });
    EXPECT_EQ(readClose(client), 1001);
    client.send(closeFrame(1001));
    EXPECT_EQ(client.readToEnd(), "");
    client.close();
    stop.get();
    EXPECT_THAT(sessionLog_.lines(), ElementsAre("open", "close 1001 ''", "gone"));
}

} // namespace
} // namespace vireotest
