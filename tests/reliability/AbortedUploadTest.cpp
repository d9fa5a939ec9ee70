#include "integration/ServerTest.h"

#include <atomic>
#include <functional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

// A thousand uploads whose clients leave half-way, in each way in which they can, against a handful of workers. None of
// them may stay with one: an application has no more workers than that, and readBytes() waits.

namespace vireotest {
namespace {

constexpr int Uploads = 1000;
constexpr int GetEach = 50;
constexpr unsigned int Workers = 4;

/// How a client leaves that has sent half a body.
struct Leaving {
    const char* name;
    /// Whether it leaves only when a worker has the half: a reset takes back what was not read.
    bool onceRead;
    std::function<void(RawClient&)> leave;

    friend void PrintTo(const Leaving& leaving, std::ostream* out) { *out << leaving.name; }
};

struct Kind {
    const char* name;
    const char* headers;
    const char* half;

    friend void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }
};

const Kind WithLength{"WithLength", "Content-Length: 1000\r\n", "half"};
const Kind Chunked{"Chunked", "Transfer-Encoding: chunked\r\n", "40\r\nhalf"};

const Leaving EndWithData{"EndWithData", false, [](RawClient& client) { client.close(); }};
const Leaving EndAlone{"EndAlone", true, [](RawClient& client) { client.close(); }};
const Leaving Reset{"Reset", true, [](RawClient& client) { client.reset(); }};
const Leaving HalfClose{"HalfClose", false, [](RawClient& client) {
                            client.endSending();
                            client.readToEnd();
                        }};

class AbortedUploads : public ServerTest, public testing::WithParamInterface<std::pair<Leaving, Kind>> {
protected:
    static ql::http::ServerOptions options() {
        ql::http::ServerOptions options;
        options.setWaiting(ql::http::ServerOptions::Waiting::Event);
        return options;
    }
};

TEST_P(AbortedUploads, HoldNoWorkerAndNoConnection) {
    const auto& [leaving, kind] = GetParam();
    std::atomic<int> read{0};
    std::atomic<int> whole{0};
    std::atomic<unsigned int> together{0};
    Behaviour behaviour;
    behaviour.workers = Workers;
    behaviour.handler = [&](TestRequest& request) {
        const std::string& target = request.getOriginalRequestUrl();
        if (target == "/upload") {
            char half[4];
            request.feed().readBytes(half, sizeof half);
            ++read;
            request.readBody();
            whole += request.feed().hasDeviceError() ? 0 : 1;
            return;
        }
        if (target == "/together") {
            ++together;
            EXPECT_TRUE(waitUntil([&] { return together == Workers; }));
        }
        request.reply(target);
    };
    TestServer server(std::move(behaviour), TestServer::parametersOfTests(), options());
    RawClient other = server.connect();
    EXPECT_EQ(other.exchange(get("/first")).body, "/first");
    const std::string upload = head("POST", "/upload", kind.headers) + kind.half;
    const std::size_t handlesBefore = openHandles();
    for (int i = 1; i <= Uploads; ++i) {
        RawClient client = server.connect();
        client.send(upload);
        if (leaving.onceRead) {
            ASSERT_TRUE(waitUntil([&] { return read == i; }));
        }
        leaving.leave(client);
        if (i % GetEach == 0) {
            ASSERT_EQ(other.exchange(get("/next")).body, "/next");
        }
    }
    // All workers at once: none of them is held any more.
    std::vector<RawClient> clients;
    for (unsigned int i = 0; i < Workers; ++i) {
        clients.push_back(server.connect());
        clients.back().send(get("/together"));
    }
    for (RawClient& client : clients) {
        EXPECT_EQ(client.readResponse().body, "/together");
    }
    clients.clear();
    constexpr std::size_t Gets = 1 + Uploads / GetEach + Workers;
    EXPECT_EQ(server.application().finished(Uploads + Gets).size(), Uploads + Gets);
    EXPECT_EQ(read, Uploads);
    EXPECT_EQ(whole, 0);
    EXPECT_TRUE(waitUntil([&] { return openHandles() <= handlesBefore; }));
}

std::vector<std::pair<Leaving, Kind>> allKinds() {
    std::vector<std::pair<Leaving, Kind>> all;
    for (const Leaving& leaving : {EndWithData, EndAlone, Reset, HalfClose}) {
        for (const Kind& kind : {WithLength, Chunked}) {
            all.emplace_back(leaving, kind);
        }
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(Of, AbortedUploads, testing::ValuesIn(allKinds()),
                         [](const auto& test) { return std::string(test.param.first.name) + test.param.second.name; });

} // namespace
} // namespace vireotest
