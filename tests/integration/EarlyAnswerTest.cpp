#include "integration/ServerTest.h"

#include "support/RawSocket.h"

#include <chrono>
#include <cstdint>
#include <future>
#include <string>
#include <utility>

// What a client sees that is answered while it sends its body: all of the answer and an orderly end, and no reset that
// could take the answer from it.

namespace vireotest {
namespace {

using Status = RawSocket::Status;

/// The system takes up to 4 MiB from a client that does not look for its answer, and a piece of that is thrown away.
constexpr std::uint64_t MostSentBytes = 6291456;

struct EarlyBody {
    const char* name;
    const char* headers;
};

/// Sends without end, as chunks if need be, and looks for an answer in between.
class Uploader {
public:
    explicit Uploader(std::uint16_t port) : socket_(RawSocket::Connect("127.0.0.1", port, 0)) {}

    /// Sends all of it, or what the system takes of it while the server reads nothing.
    void send(std::string_view bytes) {
        while (!bytes.empty()) {
            const RawSocket::Result sent = socket_.send(bytes.data(), bytes.size(), inMs(100));
            EXPECT_NE(sent.status, Status::Broken);
            if (sent.status != Status::Done) {
                return;
            }
            sentBytes_ += sent.bytes;
            bytes.remove_prefix(sent.bytes);
        }
    }

    /// Goes on sending until the server has ended. @return what has come; without an end when that was no orderly one.
    std::string sendUntilTheEnd(bool isSending) {
        const std::string piece = "1000\r\n" + std::string(4096, 'x') + "\r\n";
        std::string answer;
        std::string buffer(4096, '\0');
        const Deadline deadline = soon();
        while (std::chrono::steady_clock::now() < deadline) {
            const RawSocket::Result got = socket_.receive(buffer.data(), buffer.size(), inMs(isSending ? 0 : 100));
            if (got.status == Status::End) {
                return answer + "END";
            }
            if (got.status == Status::Broken) {
                break;
            }
            answer.append(buffer, 0, got.bytes);
            if (isSending && answer.empty()) {
                const RawSocket::Result sent = socket_.send(piece.data(), piece.size(), inMs(10));
                EXPECT_NE(sent.status, Status::Broken);
                sentBytes_ += sent.bytes;
            }
        }
        return answer;
    }

    std::uint64_t sentBytes() const { return sentBytes_; }

private:
    static Deadline inMs(int ms) { return std::chrono::steady_clock::now() + std::chrono::milliseconds(ms); }

    RawSocket socket_;
    std::uint64_t sentBytes_ = 0;
};

ql::http::ServerOptions optionsOfEvents() {
    ql::http::ServerOptions options;
    options.setWaiting(ql::http::ServerOptions::Waiting::Event);
    return options;
}

using EarlyAnswerOfTheLibrary = ServerTest;

class EarlyAnswer : public ServerTest, public testing::WithParamInterface<EarlyBody> {
protected:
    static bool isExpecting() { return std::string_view(GetParam().headers).find("Expect") != std::string_view::npos; }

    static void expectAnswered(bool turbo) {
        Event proceed;
        Behaviour behaviour;
        behaviour.handler = [&](TestRequest& request) {
            EXPECT_TRUE(proceed.wait());
            request.reply("too large", 413);
        };
        ql::http::ServerOptions options = optionsOfEvents();
        options.setTurbo(turbo);
        TestServer server(std::move(behaviour), TestServer::parametersOfTests(), options);
        Uploader client(server.port());
        client.send(head("POST", "/", GetParam().headers));
        if (!isExpecting()) {
            client.send(std::string(1048576, '0'));
        }
        proceed.set();
        const std::string answer = client.sendUntilTheEnd(!isExpecting());
        EXPECT_THAT(answer, testing::StartsWith("HTTP/1.1 413 "));
        EXPECT_THAT(answer, testing::EndsWith("\r\n\r\ntoo largeEND"));
        EXPECT_LT(client.sentBytes(), MostSentBytes);
        EXPECT_EQ(server.application().finished()[0].bodyReceived, 0U);
    }
};

TEST_P(EarlyAnswer, ArrivesWholeAndTheConnectionEndsWithoutAReset) {
    for (int i = 0; i < 5; ++i) {
        expectAnswered(false);
    }
}

TEST_F(EarlyAnswerOfTheLibrary, HasItsTimeWhenTheServerIsDrained) {
    Event proceed;
    Behaviour behaviour;
    behaviour.handler = [&](TestRequest& request) {
        EXPECT_TRUE(proceed.wait());
        request.reply("too large", 413);
    };
    TestServer server(std::move(behaviour), TestServer::parametersOfTests(), optionsOfEvents());
    Uploader client(server.port());
    client.send(head("POST", "/", "Content-Length: 10000000\r\n") + std::string(1048576, '0'));
    server.application().seen();
    std::future<ql::http::HttpServer::DrainResult> drained =
        std::async(std::launch::async, [&] { return server.server().drain(30000); });
    EXPECT_TRUE(waitUntil([&] { return server.server().isDraining(); }));
    const auto begin = std::chrono::steady_clock::now();
    proceed.set();
    EXPECT_EQ(drained.get().finished, 1U);
    // The client does not end, and so long it is waited for.
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
    const std::string answer = client.sendUntilTheEnd(false);
    EXPECT_THAT(answer, testing::StartsWith("HTTP/1.1 413 "));
    EXPECT_THAT(answer, testing::EndsWith("\r\n\r\ntoo largeEND"));
}

TEST_P(EarlyAnswer, ArrivesWholeOfAnEngineInItsTurbo) {
    expectAnswered(true);
}

TEST_F(EarlyAnswerOfTheLibrary, ArrivesWholeAndTheConnectionEndsWithoutAReset) {
    ql::http::ServerOptions options = optionsOfEvents();
    options.setMaxBodyBytes(1000);
    const TestServer server(Behaviour{}, TestServer::parametersOfTests(), options);
    for (int i = 0; i < 5; ++i) {
        Uploader client(server.port());
        client.send(head("POST", "/", "Content-Length: 1073741824\r\n") + std::string(1048576, '0'));
        EXPECT_THAT(client.sendUntilTheEnd(true), testing::EndsWith("the body is too largeEND"));
    }
}

INSTANTIATE_TEST_SUITE_P(To, EarlyAnswer,
                         testing::Values(EarlyBody{"Expected",
                                                   "Content-Length: 1073741824\r\nExpect: 100-continue\r\n"},
                                         EarlyBody{"Large", "Content-Length: 1073741824\r\n"},
                                         EarlyBody{"Chunked", "Transfer-Encoding: chunked\r\n"}),
                         [](const auto& test) { return test.param.name; });

} // namespace
} // namespace vireotest
