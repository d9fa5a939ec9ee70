#include "integration/EchoSocket.h"
#include "integration/ServerTest.h"
#include "vireo/ListenEndpoint.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

// A server at a Unix socket, and at one that was inherited.

namespace vireotest {
namespace {

namespace fs = std::filesystem;

using ql::http::HttpServer;
using ql::http::ListenEndpoint;
using ql::http::ServerOptions;
using StartError = HttpServer::StartError;
using testing::ElementsAre;
using testing::IsEmpty;

class ListeningAtAPath : public ServerTest {
public:
    ~ListeningAtAPath() override { fs::remove_all(directory_); }

protected:
    ListeningAtAPath() {
        fs::remove_all(directory_); // of a process that was killed
        fs::create_directory(directory_);
    }

    ServerOptions options() const {
        ServerOptions options = optionsOfTests();
        options.addListener(ListenEndpoint::Unix(path_));
        return options;
    }

    RawClient connect() const { return RawClient(0, path_); }

    const fs::path directory_ = fs::temp_directory_path() / ("vireo-listen-" + std::to_string(::getpid()));
    const std::string path_ = directory_ / "socket";
};

TEST_F(ListeningAtAPath, ServesClientsThatHaveNoAddress) {
    TestServer server(Behaviour{}, TestServer::parametersOfTests(), options());
    RawClient client = connect();
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(client.exchange(post("/", "body")).body, "body");
    }
    EXPECT_EQ(server.application().seen(1)[0].clientAddress, "");
    EXPECT_THAT(server.server().getPorts(), ElementsAre(0));
    EXPECT_EQ(server.server().getPort(), 0);
    EXPECT_THAT(log_.linesOf(qlLogType::Engine), IsEmpty()) << "a Unix socket lacks what the engine asks for";
    server.stop();
    EXPECT_TRUE(fs::is_empty(directory_));
}

TEST_F(ListeningAtAPath, StartsAgain) {
    TestServer server(Behaviour{}, TestServer::parametersOfTests(), options());
    for (int run = 0; run < 3; ++run) {
        EXPECT_EQ(connect().exchange(get("/")).status, 200);
        server.stop();
        EXPECT_THROW(connect(), std::runtime_error);
        server.start();
    }
}

TEST_F(ListeningAtAPath, ServesWebSockets) {
    std::atomic<int> alive{0};
    Behaviour behaviour;
    echoWebSockets(behaviour, alive);
    TestServer server(behaviour, TestServer::parametersWithWebSockets(), options());
    RawClient client = openWebSocket(0, path_);
    client.send(textFrame("hello"));
    EXPECT_EQ(readFrame(client).second, "hello");
    server.stop();
    EXPECT_TRUE(waitUntil([&] { return alive == 0; }));
}

TEST_F(ListeningAtAPath, HasNoLimitForAnAddressButTheOneForAll) {
    ServerOptions limited = options();
    limited.setMaxConnectionsPerAddress(1);
    limited.setMaxConnections(2);
    TestServer server(Behaviour{}, TestServer::parametersOfTests(), limited);
    RawClient first = connect();
    RawClient second = connect();
    EXPECT_EQ(first.exchange(get("/")).status, 200);
    EXPECT_EQ(second.exchange(get("/")).status, 200);
    EXPECT_EQ(connect().readResponse().status, 503);
}

TEST_F(ListeningAtAPath, WhereAnotherServesFailsAndLeavesNothing) {
    const TestServer other(Behaviour{}, TestServer::parametersOfTests(), options());
    ServerOptions both = optionsOfTests();
    const std::string own = directory_ / "own";
    both.addListener(ListenEndpoint::Unix(own));
    both.addListener(ListenEndpoint::Unix(path_));
    HttpServer server(new TestImpl(Behaviour{}), both);
    server.startServer(TestServer::parametersOfTests());
    EXPECT_FALSE(server.waitUntilRunning(qlWaitCondition::NoTimeLimit));
    EXPECT_EQ(server.getStartError(), StartError::AddressInUse);
    EXPECT_EQ(server.getStartErrorText(), "Cannot listen @unix:" + path_ + " : another socket listens there");
    EXPECT_FALSE(fs::exists(own));
    EXPECT_EQ(connect().exchange(get("/")).status, 200);
}

/// A socket that listens before the server is there.
class ListeningAtAnInheritedSocket : public ServerTest {
public:
    ~ListeningAtAnInheritedSocket() override { ::close(socket_); }

protected:
    ListeningAtAnInheritedSocket() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const native = reinterpret_cast<sockaddr*>(&address);
        if (::bind(socket_, native, size) != 0 || ::listen(socket_, 16) != 0 ||
            ::getsockname(socket_, native, &size) != 0) {
            throw std::runtime_error("no socket");
        }
        port_ = ntohs(address.sin_port);
    }

    ServerOptions options() const {
        ServerOptions options = optionsOfTests();
        options.addListener(ListenEndpoint::Inherited(static_cast<std::uint64_t>(socket_)));
        return options;
    }

    /// Whoever has the socket accepts, the server being gone.
    void expectStillListens() const {
        const RawClient waiting(port_);
        const int accepted = ::accept(socket_, nullptr, nullptr);
        EXPECT_GE(accepted, 0);
        ::close(accepted);
    }

    const int socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::uint16_t port_ = 0;
};

TEST_F(ListeningAtAnInheritedSocket, ServesWhoHasWaitedAndLeavesTheSocketAtItsStop) {
    RawClient early(port_);
    TestServer server(Behaviour{}, TestServer::parametersOfTests(), options());
    EXPECT_EQ(early.exchange(get("/")).status, 200);
    EXPECT_THAT(server.server().getPorts(), ElementsAre(port_));
    server.stop();
    expectStillListens();
    RawClient between(port_);
    server.start();
    EXPECT_EQ(between.exchange(get("/")).status, 200);
}

TEST_F(ListeningAtAnInheritedSocket, LeavesTheSocketAfterADrain) {
    TestServer server(Behaviour{}, TestServer::parametersOfTests(), options());
    EXPECT_EQ(RawClient(port_).exchange(get("/")).status, 200);
    server.server().drain(10000);
    expectStillListens();
}

TEST_F(ListeningAtAnInheritedSocket, MayBeSharedByServers) {
    TestServer first(Behaviour{}, TestServer::parametersOfTests(), options());
    TestServer second(Behaviour{}, TestServer::parametersOfTests(), options());
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(RawClient(port_).exchange(get("/")).status, 200);
    }
    first.stop();
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(RawClient(port_).exchange(get("/")).status, 200);
    }
}

TEST_F(ListeningAtAnInheritedSocket, ThatIsNoneFailsAndIsLeftOpen) {
    const int datagrams = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ServerOptions wrong = optionsOfTests();
    wrong.addListener(ListenEndpoint::Inherited(static_cast<std::uint64_t>(datagrams)));
    HttpServer server(new TestImpl(Behaviour{}), wrong);
    server.startServer(TestServer::parametersOfTests());
    EXPECT_FALSE(server.waitUntilRunning(qlWaitCondition::NoTimeLimit));
    EXPECT_EQ(server.getStartError(), StartError::InvalidAddress);
    EXPECT_EQ(server.getStartErrorText(),
              "Cannot listen @fd:" + std::to_string(datagrams) + " : no socket that listens for connections");
    EXPECT_EQ(::close(datagrams), 0);
}

} // namespace
} // namespace vireotest
