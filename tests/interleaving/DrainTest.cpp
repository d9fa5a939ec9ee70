#include "interleaving/Explore.h"
#include "support/FakeRequest.h"
#include "support/RawSocket.h"
#include "vireo/HttpServer.h"
#include "vireo/ListenEndpoint.h"
#include "vireo/ServerOptions.h"
#include "vireo/Vireo.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <unistd.h>

namespace {

using ql::http::HttpServer;
using ql::http::ListenEndpoint;
using ql::http::ServerOptions;
using std::chrono::milliseconds;
using vireotest::exploreRandomly;
using vireotest::FakeRequest;
using vireotest::FakeServerImpl;
using vireotest::RawSocket;

constexpr std::uint32_t LongMs = 60000;
constexpr std::string_view Request = "GET / HTTP/1.1\r\nHost: a\r\n\r\n";

/// A whole server, its engine's threads among those that are scheduled. It listens at a Unix socket, over which nothing
/// is on its way: what was sent is there. Each request is answered by a thread of its own.
class Server {
public:
    Server() {
        ServerOptions options;
        options.setWaiting(ServerOptions::Waiting::Event);
        options.addListener(ListenEndpoint::Unix(path_));
        auto* const application = new FakeServerImpl;
        application->onHandle = [this](ql::HttpBaseRequest* request) {
            workers_.emplace_back([request = static_cast<FakeRequest*>(request)] {
                request->handleOnThisThread();
                ql::HttpResponseDevice& out = request->editInternalResponseDevice();
                out.writeBytes("yes", 3);
                out.endSending();
                out.releaseResponse();
            });
        };
        server_ = std::make_unique<HttpServer>(application, options);
        HttpServer::Parameters parameters;
        parameters.threadPoolSize = 1;
        server_->startServer(parameters);
        EXPECT_TRUE(server_->waitUntilRunning(LongMs));
    }

    /// Once it has stopped, as its one daemon thread makes them.
    void joinWorkers() {
        for (std::thread& worker : workers_) {
            worker.join();
        }
    }

    HttpServer& operator*() { return *server_; }
    const std::string& path() const { return path_; }

private:
    const std::string path_ = "/tmp/vireo-interleaving-" + std::to_string(::getpid());
    std::vector<std::thread> workers_;
    std::unique_ptr<HttpServer> server_;
};

/// When a client comes, and when it sends its request after that.
struct Delays {
    milliseconds beforeConnecting;
    milliseconds beforeSending;
};

/// @return what a client gets that was let in; "refused" for another.
std::string ask(const std::string& path, const Delays& delays) {
    std::this_thread::sleep_for(delays.beforeConnecting);
    RawSocket socket = RawSocket::Connect(path, 0, 0);
    if (!socket.isOpen()) {
        return "refused";
    }
    std::this_thread::sleep_for(delays.beforeSending);
    if (socket.send(Request.data(), Request.size(), vireotest::soon()).bytes != Request.size()) {
        return "not sent";
    }
    std::string answer;
    std::array<char, 4096> piece;
    while (true) {
        const RawSocket::Result result = socket.receive(piece.data(), piece.size(), vireotest::soon());
        if (result.status != RawSocket::Status::Done) {
            return result.status == RawSocket::Status::End ? answer : "broken";
        }
        answer.append(piece.data(), result.bytes);
    }
}

/// Clients come while the server is drained.
void drainBesideClients(const std::vector<Delays>& clients) {
    Server server;
    std::vector<std::thread> threads;
    for (const Delays& delays : clients) {
        threads.emplace_back([&] {
            const std::string answer = ask(server.path(), delays);
            EXPECT_TRUE(answer == "refused" || (answer.starts_with("HTTP/1.1 200 ") && answer.ends_with("yes")))
                << answer;
        });
    }
    const HttpServer::DrainResult result = (*server).drain(LongMs);
    EXPECT_EQ(result.cut, 0U);
    for (std::thread& thread : threads) {
        thread.join();
    }
    server.joinWorkers();
}

TEST(DrainInterleavingTest, WhoWasLetInIsAnswered) {
    ql::initializeVireo();
    for (const milliseconds coming : {milliseconds(0), milliseconds(100), milliseconds(200)}) {
        for (const milliseconds sending : {milliseconds(0), milliseconds(150), milliseconds(900)}) {
            const std::vector<Delays> clients{{coming, sending}, {coming, milliseconds(0)}};
            exploreRandomly([&clients] { drainBesideClients(clients); }, 30);
        }
    }
    ql::terminateVireo();
}

} // namespace
