#include "integration/EchoSocket.h"
#include "integration/ServerTest.h"

#include <atomic>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// Everything at once: several clients with all kinds of requests, some of which go away in the middle, and a server
// that stops while they are at it.

namespace vireotest {
namespace {

using testing::IsEmpty;

constexpr int Clients = 4;
constexpr int ActionsBeforeAStop = 300;
constexpr std::size_t StreamBlocks = 12;
constexpr std::size_t BlockBytes = 50000;

void serve(TestRequest& request) {
    const std::string& url = request.getOriginalRequestUrl();
    if (url == "/stream") {
        request.startStream();
        const std::string block(BlockBytes, 's');
        for (std::size_t i = 0; i < StreamBlocks && request.write(block); ++i) {
        }
        request.out().endSending();
    } else if (url == "/ignore") {
        request.reply("ignored");
    } else {
        request.reply(request.readBody());
    }
}

/// One client with its own course of events, the same in every run.
class Client {
public:
    Client(std::uint16_t port, unsigned int seed) : port_(port), random_(seed) {}

    /// Does one thing. Throws when the server fails it.
    void act(bool withWebSockets) {
        switch (upTo(withWebSockets ? 9 : 8)) {
        case 0:
            keepAlive();
            break;
        case 1:
            upload();
            break;
        case 2:
            chunkedUpload();
            break;
        case 3:
            ignoredUpload();
            break;
        case 4:
            pipeline();
            break;
        case 5:
            stream();
            break;
        case 6:
            abortedHead();
            break;
        case 7:
            abortedUpload();
            break;
        case 8:
            abortedStream();
            break;
        default:
            webSocket();
            break;
        }
    }

private:
    std::size_t upTo(std::size_t last) { return std::uniform_int_distribution<std::size_t>(0, last)(random_); }

    std::string body() { return std::string(upTo(200000), static_cast<char>('a' + upTo(25))); }

    void leave(RawClient& client) {
        if (upTo(1) == 0) {
            client.reset();
        } else {
            client.close();
        }
    }

    static void expect(bool isRight, const char* what) {
        if (!isRight) {
            throw std::runtime_error(what);
        }
    }

    void keepAlive() {
        RawClient client(port_);
        for (std::size_t i = upTo(4); i > 0; --i) {
            expect(client.exchange(get("/empty")).status == 200, "a GET fails");
        }
    }

    void upload() {
        RawClient client(port_);
        const std::string sent = body();
        expect(client.exchange(post("/echo", sent)).body == sent, "an echo differs");
    }

    void chunkedUpload() {
        RawClient client(port_);
        client.send(head("POST", "/echo", "Transfer-Encoding: chunked\r\n"));
        client.send("3\r\nabc\r\n");
        client.send("5\r\ndefgh\r\n0\r\n\r\n");
        expect(client.readResponse().body == "abcdefgh", "a chunked echo differs");
    }

    void ignoredUpload() {
        RawClient client(port_);
        expect(client.exchange(post("/ignore", body())).body == "ignored", "an upload is not ignored");
    }

    void pipeline() {
        RawClient client(port_);
        client.send(post("/echo", "one") + get("/empty") + post("/echo", "three"));
        expect(client.readResponse().body == "one", "the first of a pipeline differs");
        expect(client.readResponse().body.empty(), "the second of a pipeline differs");
        expect(client.readResponse().body == "three", "the third of a pipeline differs");
    }

    void stream() {
        RawClient client(port_);
        expect(client.exchange(get("/stream")).body.size() == StreamBlocks * BlockBytes, "a stream is cut");
    }

    void abortedHead() {
        RawClient client(port_);
        const std::string request = get("/empty");
        client.trySend(request.substr(0, upTo(request.size() - 1)));
        leave(client);
    }

    void abortedUpload() {
        RawClient client(port_);
        client.trySend(head("POST", "/echo", "Content-Length: 1000000\r\n") + body());
        // Not in the orderly way: the engine may not notice that until the connection times out.
        client.reset();
    }

    void abortedStream() {
        RawClient client(port_);
        client.trySend(get("/stream"));
        client.skip(upTo(100000));
        leave(client);
    }

    void webSocket() {
        RawClient client = openWebSocket(port_);
        for (std::size_t i = upTo(5); i > 0; --i) {
            const std::string text(upTo(3000), 'w');
            client.send(textFrame(text));
            expect(readFrame(client).second == text, "a WebSocket's echo differs");
        }
        leave(client);
    }

    const std::uint16_t port_;
    std::mt19937 random_;
};

class MixedTraffic : public ServerTest {
protected:
    /// Lets the clients loose, and stops the server in the middle of it.
    static void runUntilStop(TestServer& server, unsigned int seed) {
        const bool withWebSockets = server.server().getParameters().webSocketEnabled;
        std::atomic<int> actions{0};
        std::atomic<bool> isStopping{false};
        std::atomic<bool> hasFailed{false};
        std::vector<std::thread> clients;
        for (unsigned int i = 0; i < Clients; ++i) {
            clients.emplace_back([&, i] {
                Client client(server.port(), seed + i);
                while (!isStopping && !hasFailed) {
                    try {
                        client.act(withWebSockets);
                        ++actions;
                    } catch (const TimedOut& error) {
                        hasFailed = true;
                        ADD_FAILURE() << error.what();
                    } catch (const std::exception& error) {
                        // A server that stops may cut off anything, but it does so at once.
                        if (!isStopping) {
                            hasFailed = true;
                            ADD_FAILURE() << error.what();
                        }
                    }
                }
            });
        }
        bool goesOn = true;
        for (int done = 0; goesOn && done < ActionsBeforeAStop; done = actions) {
            goesOn = waitUntil([&] { return actions > done || hasFailed; }) && !hasFailed;
        }
        EXPECT_TRUE(goesOn);
        isStopping = true;
        server.stop();
        for (std::thread& client : clients) {
            client.join();
        }
    }
};

TEST_F(MixedTraffic, NothingIsLostAndNothingHangsWithServerStopsInBetween) {
    for (unsigned int round = 0; round < 3; ++round) {
        std::atomic<int> openSockets{0};
        {
            Behaviour behaviour;
            behaviour.handler = serve;
            behaviour.workers = 6;
            echoWebSockets(behaviour, openSockets);
            TestServer server(std::move(behaviour), TestServer::parametersWithWebSockets());
            runUntilStop(server, 100 * round);
            EXPECT_EQ(openSockets, 0);
            EXPECT_EQ(server.server().getStatus(), Status::Stopped);
        }
        EXPECT_THAT(log_.texts(qlLogType::Failure), IsEmpty());
    }
}

TEST_F(MixedTraffic, OneServerStartsAgainAfterEachStop) {
    Behaviour behaviour;
    behaviour.handler = serve;
    behaviour.workers = 6;
    TestServer server(std::move(behaviour));
    for (unsigned int round = 0; round < 3; ++round) {
        runUntilStop(server, 1000 + 100 * round);
        server.start();
    }
    EXPECT_EQ(server.connect().exchange(post("/echo", "still here")).body, "still here");
    EXPECT_THAT(log_.texts(qlLogType::Failure), IsEmpty());
}

} // namespace
} // namespace vireotest
