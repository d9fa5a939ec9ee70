#include "integration/TlsServer.h"
#include "support/Pattern.h"
#include "support/TestFile.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <thread>
#include <vector>

// A server with TLS, in both modes.

namespace vireotest {
namespace {

using ql::http::HttpServer;
using ql::http::ServerOptions;
using ql::http::TlsOptions;
using ql::http::TlsPeer;
using testing::HasSubstr;
using testing::IsEmpty;

using ClientCertificates = TlsOptions::ClientCertificates;

constexpr const char* Tls12 = "NORMAL:-VERS-ALL:+VERS-TLS1.2";
constexpr const char* Tls13 = "NORMAL:-VERS-ALL:+VERS-TLS1.3";

/// What an application sees of its clients, as text.
void tellPeer(TestRequest& request) {
    const TlsPeer* const peer = request.getTlsPeer();
    request.reply(peer == nullptr ? "plain"
                                  : peer->getVersion() + ' ' + peer->getServerName() + ' ' + peer->getSubject() + ' ' +
                                        (peer->isResumed() ? "resumed" : "new"));
}

TEST_F(TlsServing, ServesRequestsWithAndWithoutTls) {
    start();
    TlsWishes wishes;
    wishes.trustPem = authority_.pem();
    wishes.serverName = "a.test";
    wishes.protocols = {"h2", "http/1.1"};
    for (const char* priorities : {Tls12, Tls13}) {
        wishes.priorities = priorities;
        TlsClient client(port_, wishes);
        EXPECT_EQ(client.session().protocol(), "http/1.1");
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(client.exchange(post("/", "some bytes")).body, "some bytes");
        }
    }
    EXPECT_EQ(RawClient(plainPort_).exchange(post("/", "some bytes")).body, "some bytes");
}

TEST_F(TlsServing, RequestsKnowTheirPeer) {
    start(tellPeer);
    TlsWishes wishes;
    wishes.serverName = "a.test";
    wishes.priorities = Tls12;
    EXPECT_EQ(TlsClient(port_, wishes).exchange(get("/")).body, "TLS1.2 a.test  new");
    EXPECT_EQ(RawClient(plainPort_).exchange(get("/")).body, "plain");
}

TEST_F(TlsServing, PeerIsOneForAllRequestsOfItsConnection) {
    std::vector<const TlsPeer*> peers;
    start([&](TestRequest& request) {
        peers.push_back(request.getTlsPeer());
        request.reply();
    });
    TlsClient client(port_);
    client.exchange(get("/"));
    client.exchange(get("/"));
    server_->application().finished(2);
    ASSERT_EQ(peers.size(), 2U);
    EXPECT_NE(peers[0], nullptr);
    EXPECT_EQ(peers[0], peers[1]);
}

TEST_F(TlsServing, SessionsEndWithANotice) {
    start();
    TlsClient client(port_);
    EXPECT_EQ(client.exchange(get("/", "Connection: close\r\n")).status, 200);
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_TRUE(client.hasEndedCleanly());
}

TEST_F(TlsServing, SessionsEndWithANoticeAlsoWithTurbo) {
    ServerOptions options = optionsOfTests();
    options.setTurbo(true);
    start({}, options);
    TlsClient client(port_);
    EXPECT_EQ(client.exchange(get("/", "Connection: close\r\n")).status, 200);
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_TRUE(client.hasEndedCleanly());
}

TEST_F(TlsServing, RequestsInOneRecordAreAnsweredEach) {
    start();
    TlsClient client(port_);
    client.send(post("/", "one") + post("/", "two") + post("/", "three"));
    EXPECT_EQ(client.readResponse().body, "one");
    EXPECT_EQ(client.readResponse().body, "two");
    EXPECT_EQ(client.readResponse().body, "three");
}

TEST_F(TlsServing, RequestInTheClearIsClosedWithoutAnAnswer) {
    start();
    RawClient client(port_);
    client.trySend(get("/"));
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_EQ(server_->application().seenCount(), 0U);
    EXPECT_TRUE(isServed());
}

TEST_F(TlsServing, HandshakesThatFailAreNotLogged) {
    start();
    RawClient client(port_);
    client.trySend("no handshake at all, whatever it is\r\n\r\n");
    EXPECT_EQ(client.readToEnd(), "");
    EXPECT_TRUE(isServed());
    EXPECT_THAT(log_.texts(qlLogType::Engine), IsEmpty());
}

TEST_F(TlsServing, HandshakesThatStandStillAreBoundByTheConnectionTimeout) {
    // Those who are served must not take so long, whatever the machine does besides.
    parameters_.connectionTimeoutMs = 3000;
    start();
    std::vector<RawClient> silent;
    std::vector<RawClient> halfway;
    for (int i = 0; i < 150; ++i) {
        silent.emplace_back(port_);
        halfway.emplace_back(port_);
        halfway.back().send("\x16\x03\x01\x02");
    }
    EXPECT_TRUE(isServed());
    // What they get is a notice at most.
    for (RawClient& client : silent) {
        client.readToEnd();
    }
    for (RawClient& client : halfway) {
        client.readToEnd();
    }
    EXPECT_TRUE(isServed());
}

TEST_F(TlsServing, HandshakesThatStandStillTakeNoProcessorTime) {
    start();
    std::vector<RawClient> halfway;
    for (int i = 0; i < 20; ++i) {
        halfway.emplace_back(port_);
        halfway.back().send("\x16\x03\x01\x02");
    }
    EXPECT_TRUE(isServed());
    const auto begin = std::chrono::steady_clock::now();
    const std::clock_t before = std::clock();
    for (int i = 0; i < 10; ++i) {
        letOthersRun();
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    EXPECT_LT(static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC, took.count() / 2);
}

TEST_F(TlsServing, BodiesOf100MegabytesArriveWholeBothWays) {
    constexpr std::size_t Size = 104857600;
    constexpr std::size_t PieceSize = 1048576;
    std::atomic<std::uint64_t> received{0};
    start([&](TestRequest& request) {
        std::vector<char> piece(PieceSize);
        for (std::uint64_t count = 1; count != 0;) {
            count = request.feed().readBytes(piece.data(), piece.size());
            received += count;
        }
        request.response.contentLength = Size;
        request.startStream();
        for (std::size_t sent = 0; sent < Size; sent += PieceSize) {
            std::fill(piece.begin(), piece.end(), static_cast<char>('a' + sent / PieceSize % 26));
            request.write({piece.data(), piece.size()});
        }
        request.out().endSending();
    });
    TlsClient client(port_);
    client.send(head("POST", "/", "Content-Length: " + std::to_string(Size) + "\r\n"));
    const std::string piece(PieceSize, 'x');
    for (std::size_t sent = 0; sent < Size; sent += PieceSize) {
        client.send(piece);
    }
    const RawResponse response = client.readHead();
    EXPECT_EQ(response.status, 200);
    for (std::size_t read = 0; read < Size; read += PieceSize) {
        ASSERT_EQ(client.read(PieceSize), std::string(PieceSize, static_cast<char>('a' + read / PieceSize % 26)));
    }
    EXPECT_EQ(received, Size);
}

// ---- Certificates ----

TEST_F(TlsServing, ServerNameChoosesTheCertificate) {
    const TestCertificate other = authority_.issueFor({"b.test"});
    TlsOptions options = optionsOf(certificate_);
    options.addCertificate(other.chainPem, other.keyPem);
    context_ = contextOf(options);
    start();
    TlsWishes wishes;
    wishes.serverName = "b.test";
    EXPECT_EQ(TlsClient(port_, wishes).session().fingerprint(), other.fingerprint);
    wishes.serverName = "a.test";
    EXPECT_EQ(TlsClient(port_, wishes).session().fingerprint(), certificate_.fingerprint);
}

TEST_F(TlsServing, NewCertificateIsServedFromTheReloadOn) {
    start();
    TlsClient before(port_);
    EXPECT_EQ(before.exchange(get("/")).status, 200);
    const TestCertificate second = authority_.issueFor({"a.test"});
    ASSERT_TRUE(context_->reload(optionsOf(second)));
    TlsClient after(port_);
    EXPECT_EQ(after.session().fingerprint(), second.fingerprint);
    EXPECT_EQ(after.exchange(get("/")).status, 200);
    EXPECT_EQ(before.exchange(get("/")).status, 200);
}

TEST_F(TlsServing, BrokenCertificateLeavesTheOldOneServed) {
    start();
    const TestCertificate second = authority_.issueFor({"a.test"});
    TlsOptions broken;
    broken.addCertificate(second.chainPem, certificate_.keyPem);
    std::string error;
    EXPECT_FALSE(context_->reload(broken, &error));
    EXPECT_NE(error, "");
    EXPECT_EQ(TlsClient(port_).session().fingerprint(), certificate_.fingerprint);
    EXPECT_TRUE(isServed());
}

TEST_F(TlsServing, ReloadsUnderLoadLoseNothing) {
    start();
    std::atomic<bool> isOver{false};
    std::atomic<int> served{0};
    std::vector<std::string> losses(4);
    std::vector<std::thread> clients;
    clients.reserve(losses.size());
    for (std::string& loss : losses) {
        clients.emplace_back([&, this] {
            try {
                while (!isOver) {
                    TlsClient client(port_);
                    for (int i = 0; i < 3; ++i) {
                        if (client.exchange(post("/", "bytes")).body != "bytes") {
                            loss = "another body";
                        }
                        ++served;
                    }
                }
            } catch (const std::exception& error) {
                loss = error.what();
            }
        });
    }
    TestCertificate last;
    for (int i = 0; i < 30; ++i) {
        last = authority_.issueFor({"a.test"});
        EXPECT_TRUE(context_->reload(optionsOf(last)));
        const int before = served;
        EXPECT_TRUE(waitUntil([&] { return served >= before + 4; }));
    }
    EXPECT_EQ(TlsClient(port_).session().fingerprint(), last.fingerprint);
    isOver = true;
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_THAT(losses, testing::Each(""));
}

TEST_F(TlsServing, SessionsAreTakenUpAgain) {
    start(tellPeer);
    for (const char* priorities : {Tls12, Tls13}) {
        TlsWishes wishes;
        wishes.priorities = priorities;
        TlsClient first(port_, wishes);
        EXPECT_THAT(first.exchange(get("/")).body, HasSubstr("new"));
        wishes.ticket = first.session().ticket();
        EXPECT_THAT(TlsClient(port_, wishes).exchange(get("/")).body, HasSubstr("resumed"));
    }
}

// ---- Certificates of clients ----

class TlsServingToClients : public TlsServing {
protected:
    TlsOptions wanting(ClientCertificates wanted) {
        TlsOptions options = optionsOf(certificate_);
        options.setClientCertificates(wanted);
        options.addTrusted(clients_.pem());
        return options;
    }

    static TlsWishes showing(TestAuthority& authority, const std::string& name) {
        CertificateOrder order;
        order.commonName = name;
        TlsWishes wishes;
        wishes.certificate = authority.issue(order);
        return wishes;
    }

    /// False also when the connection ends before, or with the handshake.
    bool isServedWith(const TlsWishes& wishes) const {
        try {
            return isServed(wishes);
        } catch (const TimedOut&) {
            throw;
        } catch (const std::runtime_error&) {
            return false;
        }
    }

    TestAuthority clients_{"Authority of clients"};
};

TEST_F(TlsServingToClients, RequiredCertificatesComeFirst) {
    context_ = contextOf(wanting(ClientCertificates::Required));
    start(tellPeer);
    TestAuthority others("Another authority");
    for (const char* priorities : {Tls12, Tls13}) {
        TlsWishes ada = showing(clients_, "Ada");
        TlsWishes mallory = showing(others, "Mallory");
        TlsWishes nobody;
        ada.priorities = mallory.priorities = nobody.priorities = priorities;
        EXPECT_THAT(TlsClient(port_, ada).exchange(get("/")).body, HasSubstr("CN=Ada"));
        EXPECT_FALSE(isServedWith(mallory));
        EXPECT_FALSE(isServedWith(nobody));
    }
    EXPECT_EQ(server_->application().seenCount(), 2U);
}

TEST_F(TlsServingToClients, AskedCertificatesAreTold) {
    context_ = contextOf(wanting(ClientCertificates::Asked));
    start(tellPeer);
    TestAuthority others("Another authority");
    EXPECT_THAT(TlsClient(port_, showing(clients_, "Ada")).exchange(get("/")).body, HasSubstr("CN=Ada"));
    EXPECT_EQ(TlsClient(port_, showing(others, "Mallory")).exchange(get("/")).body, "TLS1.3   new");
    EXPECT_EQ(TlsClient(port_).exchange(get("/")).body, "TLS1.3   new");
}

TEST_F(TlsServingToClients, CertificatesGoWithTheirSession) {
    context_ = contextOf(wanting(ClientCertificates::Required));
    start(tellPeer);
    for (const char* priorities : {Tls12, Tls13}) {
        TlsWishes wishes = showing(clients_, "Ada");
        wishes.priorities = priorities;
        TlsClient first(port_, wishes);
        first.exchange(get("/"));
        wishes.ticket = first.session().ticket();
        wishes.certificate.reset();
        const std::string seen = TlsClient(port_, wishes).exchange(get("/")).body;
        EXPECT_THAT(seen, HasSubstr("CN=Ada resumed"));
    }
}

TEST_F(TlsServingToClients, CertificateThatExpiresIsNotTakenUpAgain) {
    context_ = contextOf(wanting(ClientCertificates::Required));
    start(tellPeer);
    CertificateOrder order;
    order.commonName = "Ada";
    // Before that there is to be a handshake.
    order.end = 5;
    TlsWishes wishes;
    wishes.certificate = clients_.issue(order);
    TlsClient first(port_, wishes);
    EXPECT_EQ(first.exchange(get("/")).status, 200);
    wishes.ticket = first.session().ticket();
    EXPECT_TRUE(waitUntil([&] { return !isServedWith(wishes); }));
    EXPECT_EQ(first.exchange(get("/")).status, 200);
}

TEST_F(TlsServingToClients, ReloadThatTrustsOthersForgetsTheSessions) {
    context_ = contextOf(wanting(ClientCertificates::Required));
    start(tellPeer);
    TlsWishes wishes = showing(clients_, "Ada");
    TlsClient first(port_, wishes);
    EXPECT_EQ(first.exchange(get("/")).status, 200);
    wishes.ticket = first.session().ticket();
    TestAuthority others("Another authority");
    TlsOptions options = optionsOf(certificate_);
    options.setClientCertificates(ClientCertificates::Required);
    options.addTrusted(others.pem());
    ASSERT_TRUE(context_->reload(options));
    EXPECT_FALSE(isServedWith(wishes));
    EXPECT_TRUE(isServedWith(showing(others, "Eve")));
}

TEST_F(TlsServingToClients, EachListenerHasItsOwnContext) {
    const auto strict = contextOf(wanting(ClientCertificates::Required));
    ServerOptions options = optionsOfTests();
    options.addListener(loopback().setTls(strict));
    start(tellPeer, options);
    const std::uint16_t strictPort = server_->server().getPorts().at(0);
    const std::uint16_t laxPort = server_->server().getPorts().at(1);
    TlsWishes wishes;
    TlsClient lax(laxPort, wishes);
    EXPECT_EQ(lax.exchange(get("/")).status, 200);
    // Nor does a session of the one open the other.
    wishes.ticket = lax.session().ticket();
    port_ = strictPort;
    EXPECT_FALSE(isServedWith(wishes));
    EXPECT_TRUE(isServedWith(showing(clients_, "Ada")));
}

// ---- The start ----

TEST_F(TlsServing, ListenerWithoutAContextDoesNotStart) {
    ServerOptions options = optionsOfTests();
    options.addListener(loopback().setTls(nullptr));
    HttpServer server(new TestImpl({}), options);
    server.startServer(TestServer::parametersOfTests());
    EXPECT_FALSE(server.waitUntilRunning(60000));
    EXPECT_EQ(server.getStartError(), HttpServer::StartError::TlsUnavailable);
    EXPECT_THAT(server.getStartErrorText(), HasSubstr("Cannot listen @127.0.0.1:0 : there is no context of TLS"));
}

TEST_F(TlsServing, StartsAgain) {
    start();
    for (int run = 0; run < 3; ++run) {
        port_ = server_->server().getPorts().at(0);
        EXPECT_TRUE(isServed());
        server_->stop();
        server_->start();
    }
}

TEST_F(TlsServing, StopEndsHandshakesUnderWay) {
    start();
    std::vector<RawClient> clients;
    for (int i = 0; i < 20; ++i) {
        clients.emplace_back(port_);
        clients.back().send("\x16\x03\x01");
    }
    EXPECT_TRUE(isServed());
    server_->stop();
    for (RawClient& client : clients) {
        client.readToEnd();
    }
}

TEST_F(TlsServing, WhoIsTooManyIsClosedWithoutAnAnswer) {
    ServerOptions options = optionsOfTests();
    options.setMaxConnections(1);
    start({}, options);
    TlsClient first(port_);
    EXPECT_EQ(first.exchange(get("/")).status, 200);
    RawClient second(port_);
    EXPECT_EQ(second.readToEnd(), "");
    EXPECT_EQ(first.exchange(get("/")).status, 200);
}

// ---- WebSockets ----

TEST_F(TlsServing, WebSocketsEcho) {
    start();
    TlsClient client(port_);
    upgrade(client);
    const std::string large(60000, 'b');
    for (const std::string& message : {std::string("hello"), large, std::string("again")}) {
        client.send(textFrame(message));
        EXPECT_EQ(readFrame(client).second, message);
    }
}

TEST_F(TlsServing, WebSocketsCloseInAnOrderlyWay) {
    start();
    TlsClient client(port_);
    upgrade(client);
    EXPECT_TRUE(waitUntil([this] { return alive_ == 1; }));
    client.send(clientFrame("\x03\xe8", 8));
    client.readToEnd();
    EXPECT_TRUE(client.hasEndedCleanly());
    EXPECT_TRUE(waitUntil([this] { return alive_ == 0; }));
}

TEST_F(TlsServing, FilesAreReadAndEncrypted) {
    const TestDirectory directory;
    const std::string content = pattern(1000000);
    const auto path = directory.write("file", content);
    start([&](TestRequest& request) { request.out().releaseFile(openForReading(path), 12345, 900000); });
    TlsClient client(port_);
    EXPECT_TRUE(client.exchange(get("/")).body == content.substr(12345, 900000));
    EXPECT_EQ(client.exchange(get("/")).status, 200);
    EXPECT_TRUE(waitUntil([&] { return !isOpen(path); }));
}

TEST_F(TlsServing, FileThatHasBecomeShorterBreaksOff) {
    const TestDirectory directory;
    const auto path = directory.write("file", "short");
    start([&](TestRequest& request) { request.out().releaseFile(openForReading(path), 0, 900000); });
    TlsClient client(port_);
    client.send(get("/"));
    EXPECT_EQ(client.readHead().value("Content-Length"), "900000");
    EXPECT_EQ(client.readToEnd(), "short");
    EXPECT_TRUE(waitUntil([&] { return !isOpen(path); }));
}

} // namespace
} // namespace vireotest
