#include "integration/ServerTest.h"

#include "vireo/ServerOptions.h"

#include <cstddef>
#include <string>

namespace {

using ql::http::ServerOptions;
using testing::ElementsAre;
using testing::HasSubstr;
using vireotest::Behaviour;
using vireotest::get;
using vireotest::post;
using vireotest::RawClient;
using vireotest::TestRequest;
using vireotest::TestServer;

/// What browsers send beside the first line, with cookies of two kilobytes.
std::string browserHeaders() {
    return "User-Agent: Mozilla/5.0 (X11; Linux x86_64; rv:128.0) Gecko/20100101 Firefox/128.0\r\n"
           "Accept: text/html,application/xhtml+xml,application/xml;q=0.9,image/avif,image/webp,*/*;q=0.8\r\n"
           "Accept-Language: en-US,en;q=0.5\r\nAccept-Encoding: gzip, deflate, br, zstd\r\n"
           "Referer: http://127.0.0.1/somewhere/else?from=here\r\nUpgrade-Insecure-Requests: 1\r\n"
           "Sec-Fetch-Dest: document\r\nSec-Fetch-Mode: navigate\r\nSec-Fetch-Site: same-origin\r\n"
           "Cookie: session=" +
           std::string(1000, 's') + "; consent=" + std::string(1000, 'c') + "\r\n";
}

class ServerOptionsTest : public vireotest::ServerTest {
protected:
    explicit ServerOptionsTest(bool verbose = false) : ServerTest(verbose) {}

    static ServerOptions withMemory(std::size_t bytes) {
        ServerOptions options = vireotest::optionsOfTests();
        options.setConnectionMemoryBytes(bytes);
        return options;
    }
};

TEST_F(ServerOptionsTest, LeastMemoryServesWhatBrowsersSend) {
    const std::string body(300000, 'b');
    TestServer server(Behaviour{}, TestServer::parametersOfTests(),
                      withMemory(ServerOptions::MinConnectionMemoryBytes));
    RawClient client = server.connect();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(client.exchange(get("/", browserHeaders())).status, 200);
        EXPECT_EQ(client.exchange(post("/", body, browserHeaders())).body, body);
    }
}

TEST_F(ServerOptionsTest, LeastMemoryStreamsAnAnswer) {
    const std::string body(300000, 'b');
    Behaviour behaviour;
    behaviour.handler = [&](TestRequest& request) {
        request.startStream();
        request.write(body);
        request.out().endSending();
    };
    TestServer server(behaviour, TestServer::parametersOfTests(), withMemory(ServerOptions::MinConnectionMemoryBytes));
    EXPECT_EQ(server.connect().exchange(get("/", browserHeaders())).body, body);
}

TEST_F(ServerOptionsTest, HeadThatDoesNotFitTheMemoryIsRefusedByTheEngine) {
    const std::string large = "X-Large: " + std::string(20000, 'x') + "\r\n";
    TestServer small(Behaviour{}, TestServer::parametersOfTests(), withMemory(16384));
    EXPECT_EQ(small.connect().exchange(get("/", large)).status, 431);
    TestServer usual(Behaviour{});
    EXPECT_EQ(usual.connect().exchange(get("/", large)).status, 200);
}

class ServerOptionsStartTest : public ServerOptionsTest {
protected:
    ServerOptionsStartTest() : ServerOptionsTest(true) {}

    static auto saysTurbo() {
        return HasSubstr(vireotest::isEventMode() ? "with flags 0x13509" : "with flags 0x11009");
    }
};

TEST_F(ServerOptionsStartTest, TurboIsAFlagOfTheEngine) {
    ServerOptions options = vireotest::optionsOfTests();
    options.setTurbo(true);
    TestServer server(Behaviour{}, TestServer::parametersOfTests(), options);
    EXPECT_THAT(log_.texts(qlLogType::Server, "Starting"), ElementsAre(saysTurbo()));
    EXPECT_EQ(server.connect().exchange(get("/")).status, 200);
}

TEST_F(ServerOptionsStartTest, OptionsHoldForEveryRun) {
    ServerOptions options = vireotest::optionsOfTests();
    options.setTurbo(true);
    TestServer server(Behaviour{}, TestServer::parametersOfTests(), options);
    options.setTurbo(false);
    server.stop();
    server.start();
    EXPECT_THAT(log_.texts(qlLogType::Server, "Starting"), ElementsAre(saysTurbo(), saysTurbo()));
}

} // namespace
