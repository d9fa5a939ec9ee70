#include "integration/EchoSocket.h"
#include "integration/ServerTest.h"
#include "support/FreePort.h"
#include "vireo/ListenEndpoint.h"
#include "vireo/TlsContext.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// A server that was told where to listen.

namespace vireotest {
namespace {

using ql::http::HttpServer;
using ql::http::ListenEndpoint;
using ql::http::ServerOptions;
using ql::http::TlsContext;
using StartError = HttpServer::StartError;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Ne;
using testing::SizeIs;
using testing::StartsWith;

constexpr const char* IPv4Loopback = "127.0.0.1";
constexpr const char* IPv6Loopback = "::1";

class Listening : public ServerTest {
protected:
    static ServerOptions listeningAt(const std::vector<ListenEndpoint>& endpoints) {
        ServerOptions options = optionsOfTests();
        for (const ListenEndpoint& endpoint : endpoints) {
            options.addListener(endpoint);
        }
        return options;
    }

    static std::unique_ptr<TestServer> serverAt(const std::vector<ListenEndpoint>& endpoints,
                                                Behaviour behaviour = {}) {
        return std::make_unique<TestServer>(std::move(behaviour), TestServer::parametersOfTests(),
                                            listeningAt(endpoints));
    }

    static int statusAt(std::uint16_t port, const std::string& host = IPv4Loopback) {
        return RawClient(port, host).exchange(get("/")).status;
    }
};

/// Where the machine has both kinds of addresses.
class ListeningToIPv6 : public Listening {
protected:
    void SetUp() override {
        if (!hasIPv6()) {
            GTEST_SKIP() << "this machine has no address ::1";
        }
    }
};

TEST_F(Listening, ServesAtEveryListenerAndTellsThePorts) {
    const auto server = serverAt({ListenEndpoint::Tcp(IPv4Loopback, 0), ListenEndpoint::Tcp(IPv4Loopback, 0)});
    const std::vector<std::uint16_t> ports = server->server().getPorts();
    ASSERT_THAT(ports, SizeIs(2));
    EXPECT_THAT(ports, Each(Ne(0)));
    EXPECT_NE(ports[0], ports[1]);
    EXPECT_EQ(server->server().getPort(), ports[0]);
    for (const std::uint16_t port : ports) {
        EXPECT_EQ(statusAt(port), 200);
    }
    server->stop();
    EXPECT_THAT(server->server().getPorts(), IsEmpty());
    EXPECT_EQ(server->server().getPort(), 0);
    for (const std::uint16_t port : ports) {
        EXPECT_TRUE(isPortFree(port));
    }
}

TEST_F(Listening, DoesNotConsultTheParametersPort) {
    const auto server = serverAt({ListenEndpoint::Tcp(IPv4Loopback, 0)});
    EXPECT_TRUE(isPortFree(server->port()));
}

TEST_F(Listening, WithoutListenersTellsTheOnePort) {
    const TestServer server(Behaviour{});
    EXPECT_THAT(const_cast<TestServer&>(server).server().getPorts(), ElementsAre(server.port()));
}

TEST_F(Listening, StartsAgainAtTheSamePlaces) {
    const auto server = serverAt({ListenEndpoint::Tcp(IPv4Loopback, 0), ListenEndpoint::Tcp(IPv4Loopback, freePort())});
    for (int run = 0; run < 3; ++run) {
        for (const std::uint16_t port : server->server().getPorts()) {
            EXPECT_EQ(statusAt(port), 200);
        }
        server->stop();
        server->start();
    }
}

TEST_F(Listening, ServesBodiesAndKeptConnections) {
    const auto server = serverAt({ListenEndpoint::Tcp(IPv4Loopback, 0)});
    RawClient client(server->server().getPort());
    const std::string body(300000, 'b');
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(client.exchange(post("/", body)).body, body);
    }
}

TEST_F(Listening, ServesWebSockets) {
    std::atomic<int> alive{0};
    Behaviour behaviour;
    echoWebSockets(behaviour, alive);
    TestServer server(behaviour, TestServer::parametersWithWebSockets(),
                      listeningAt({ListenEndpoint::Tcp(IPv4Loopback, 0)}));
    RawClient client = openWebSocket(server.server().getPort());
    client.send(textFrame("hello"));
    EXPECT_EQ(readFrame(client).second, "hello");
    server.stop();
    EXPECT_TRUE(waitUntil([&] { return alive == 0; }));
}

TEST_F(Listening, SharesItsLimitsAmongTheListeners) {
    ServerOptions options = listeningAt({ListenEndpoint::Tcp(IPv4Loopback, 0), ListenEndpoint::Tcp(IPv4Loopback, 0)});
    options.setMaxConnections(2);
    TestServer server(Behaviour{}, TestServer::parametersOfTests(), options);
    const std::vector<std::uint16_t> ports = server.server().getPorts();
    RawClient first(ports[0]);
    RawClient second(ports[1]);
    EXPECT_EQ(first.exchange(get("/")).status, 200);
    EXPECT_EQ(second.exchange(get("/")).status, 200);
    for (const std::uint16_t port : ports) {
        EXPECT_EQ(RawClient(port).readResponse().status, 503);
    }
    first.close();
    EXPECT_TRUE(waitUntil([&] { return RawClient(ports[1]).exchange(get("/")).status == 200; }));
}

TEST_F(Listening, CutsConnectionsAtTheStop) {
    const auto server = serverAt({ListenEndpoint::Tcp(IPv4Loopback, 0)});
    RawClient idle(server->server().getPort());
    EXPECT_EQ(idle.exchange(get("/")).status, 200);
    server->stop();
    EXPECT_EQ(idle.readToEnd(), "");
}

/// The log of a server with one listener, which has had one connection.
class ListeningTracked : public Listening {
protected:
    static void serveOne() {
        const auto server = serverAt({ListenEndpoint::Tcp(IPv4Loopback, 0)});
        EXPECT_EQ(statusAt(server->server().getPort()), 200);
        server->stop();
    }
};

TEST_F(ListeningTracked, WithAVerboseLogTellsOfEachConnection) {
    const TestLog log(true);
    serveOne();
    EXPECT_THAT(log.texts(qlLogType::Connection), ElementsAre(HasSubstr("started"), HasSubstr("closed")));
    EXPECT_THAT(log.texts(qlLogType::Server, "was not reused"), SizeIs(1));
}

TEST_F(ListeningTracked, WithoutOneTellsOfNone) {
    const TestLog log;
    serveOne();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ListeningToIPv6, ServesAtBothKindsOfAddresses) {
    const auto server = serverAt({ListenEndpoint::Tcp(IPv4Loopback, 0), ListenEndpoint::Tcp(IPv6Loopback, 0)});
    const std::vector<std::uint16_t> ports = server->server().getPorts();
    EXPECT_EQ(statusAt(ports[0]), 200);
    EXPECT_EQ(statusAt(ports[1], IPv6Loopback), 200);
    const std::vector<SeenRequest> seen = server->application().seen(2);
    EXPECT_EQ(seen[0].clientAddress, IPv4Loopback);
    EXPECT_EQ(seen[1].clientAddress, IPv6Loopback);
}

TEST_F(ListeningToIPv6, DualStackServesBothAndShowsEachWithItsOwnAddress) {
    const auto server = serverAt({ListenEndpoint::DualStack(0)});
    const std::uint16_t port = server->server().getPort();
    EXPECT_EQ(statusAt(port), 200);
    EXPECT_EQ(statusAt(port, IPv6Loopback), 200);
    const std::vector<SeenRequest> seen = server->application().seen(2);
    EXPECT_EQ(seen[0].clientAddress, IPv4Loopback);
    EXPECT_EQ(seen[1].clientAddress, IPv6Loopback);
}

TEST_F(ListeningToIPv6, EveryAddressOfEachKindMayHaveOnePort) {
    // A port that the system finds for the one may be a client's of the other.
    const std::uint16_t port = freePort();
    const auto ipv6 = serverAt({ListenEndpoint::Tcp("::", port)});
    const auto ipv4 = serverAt({ListenEndpoint::Tcp("0.0.0.0", port)});
    EXPECT_EQ(statusAt(port), 200);
    EXPECT_EQ(statusAt(port, IPv6Loopback), 200);
    EXPECT_THAT(ipv4->application().seen(1), SizeIs(1));
    EXPECT_EQ(ipv6->application().seenCount(), 1U);
}

TEST_F(ListeningToIPv6, LimitForAnAddressHoldsByWhicheverListenerItComes) {
    ServerOptions options = listeningAt({ListenEndpoint::DualStack(0), ListenEndpoint::Tcp(IPv4Loopback, 0)});
    options.setMaxConnectionsPerAddress(1);
    TestServer server(Behaviour{}, TestServer::parametersOfTests(), options);
    const std::vector<std::uint16_t> ports = server.server().getPorts();
    RawClient first(ports[0]);
    EXPECT_EQ(first.exchange(get("/")).status, 200);
    EXPECT_EQ(RawClient(ports[1]).readResponse().status, 503);
    EXPECT_EQ(statusAt(ports[0], IPv6Loopback), 200);
}

// ---- What cannot be listened on ----

struct BadListener {
    const char* name;
    ListenEndpoint endpoint;
    StartError error;
    const char* text;
};

void PrintTo(const BadListener& bad, std::ostream* out) {
    *out << bad.name;
}

/// What a listener for TLS without a context lacks first.
const char* whatTlsLacks() {
    std::string error;
    TlsContext::Create({}, &error);
    return error == "Vireo was built without TLS" ? "TLS is not built in" : "there is no context of TLS";
}

class ListeningInVain : public ServerTest, public testing::WithParamInterface<BadListener> {};

TEST_P(ListeningInVain, FailsWithItsReasonAndLeavesNothingOpen) {
    const std::uint16_t port = freePort();
    ServerOptions options = optionsOfTests();
    options.addListener(ListenEndpoint::Tcp(IPv4Loopback, port));
    options.addListener(GetParam().endpoint);
    options.addListener(ListenEndpoint::Tcp(IPv4Loopback, 0));
    HttpServer server(new TestImpl(Behaviour{}), options);
    server.startServer(TestServer::parametersOfTests());
    EXPECT_FALSE(server.waitUntilRunning(qlWaitCondition::NoTimeLimit));
    EXPECT_EQ(server.getStatus(), Status::Error);
    EXPECT_EQ(server.getStartError(), GetParam().error);
    EXPECT_THAT(server.getStartErrorText(),
                StartsWith("Cannot listen @" + GetParam().endpoint.toString() + " : " + GetParam().text));
    EXPECT_THAT(log_.texts(qlLogType::Failure), ElementsAre(server.getStartErrorText(), HasSubstr("Failed to create")));
    EXPECT_THAT(server.getPorts(), IsEmpty());
    EXPECT_TRUE(isPortFree(port));
}

INSTANTIATE_TEST_SUITE_P(
    Of, ListeningInVain,
    testing::Values(
        BadListener{"Name", ListenEndpoint::Tcp("localhost", 0), StartError::InvalidAddress, "no IP address"},
        BadListener{"Nothing", ListenEndpoint::Tcp("", 0), StartError::InvalidAddress, "no IP address"},
        BadListener{"Brackets", ListenEndpoint::Tcp("[::1]", 0), StartError::InvalidAddress, "no IP address"},
        BadListener{"Strange", ListenEndpoint::Tcp("192.0.2.1", 0), StartError::AddressNotAvailable, ""},
        BadListener{"Tls", ListenEndpoint::Tcp(IPv4Loopback, 0).setTls(nullptr), StartError::TlsUnavailable,
                    whatTlsLacks()}),
    [](const auto& bad) { return bad.param.name; });

TEST_F(Listening, AtATakenPortFailsAndNamesIt) {
    const TestServer other(Behaviour{});
    HttpServer server(new TestImpl(Behaviour{}), listeningAt({ListenEndpoint::Tcp(IPv4Loopback, other.port())}));
    server.startServer(TestServer::parametersOfTests());
    EXPECT_FALSE(server.waitUntilRunning(qlWaitCondition::NoTimeLimit));
    EXPECT_EQ(server.getStartError(), StartError::AddressInUse);
    EXPECT_THAT(server.getStartErrorText(), StartsWith("Cannot listen @127.0.0.1:" + std::to_string(other.port())));
}

} // namespace
} // namespace vireotest
