#include "integration/ServerTest.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <thread>
#include <utility>

// Clients that leave a server which waits by events: it notices them while it has nothing to say to them, and whatever
// arrives together with their end.

namespace vireotest {
namespace {

constexpr const char* Lost = "lost connection : ClientAbort";

/// One daemon thread with an older idle connection, which the engine looks after last: without it much goes well by
/// chance.
class LeavingServer : public TestServer {
public:
    enum class OnClientClose { End, GoOn };

    explicit LeavingServer(Behaviour behaviour, OnClientClose onClose = OnClientClose::End)
        : TestServer(std::move(behaviour), oneThread(), options(onClose)), older_(connect()) {
        EXPECT_EQ(older_.exchange(get("/older")).body, "older");
    }
    explicit LeavingServer(TestImpl::Handler handler, OnClientClose onClose = OnClientClose::End)
        : LeavingServer(behaviourOf(std::move(handler)), onClose) {}

    void expectServes() { EXPECT_EQ(older_.exchange(get("/older")).body, "older"); }

    /// Until the only daemon thread has come back from what others have sent, again and again.
    void letDaemonRun() {
        for (int i = 0; i < 10; ++i) {
            expectServes();
        }
    }

    /// The first request but the older connection's, when it is deleted.
    FinishedRequest finished() {
        for (std::size_t count = 1;; ++count) {
            const FinishedRequest last = application().finished(count).back();
            if (last.url != "/older") {
                return last;
            }
        }
    }

    static Behaviour behaviourOf(TestImpl::Handler handler) {
        Behaviour behaviour;
        behaviour.handler = [handler = std::move(handler)](TestRequest& request) {
            if (request.getOriginalRequestUrl() == "/older") {
                request.reply("older");
            } else {
                handler(request);
            }
        };
        return behaviour;
    }

private:
    static Parameters oneThread() {
        Parameters parameters = parametersOfTests();
        parameters.threadPoolSize = 1;
        return parameters;
    }
    static ql::http::ServerOptions options(OnClientClose onClose) {
        ql::http::ServerOptions options;
        options.setWaiting(ql::http::ServerOptions::Waiting::Event);
        options.setUploadWindowBytes(ql::http::ServerOptions::MinUploadWindowBytes);
        options.setEndOnClientClose(onClose == OnClientClose::End);
        return options;
    }

    RawClient older_;
};

using OnClientClose = LeavingServer::OnClientClose;
using ClientLeaving = ServerTest;

bool waitForLoss(TestRequest& request) {
    return waitUntil([&] { return request.out().hasDeviceError(); });
}

// ---- Resets ----

/// What a handler does before it waits for the loss, what its client has sent, and what it has received.
struct Waiting {
    const char* name;
    std::string request;
    std::function<void(TestRequest&)> before;
    std::string received = {};
};

class ClientReset : public ClientLeaving, public testing::WithParamInterface<Waiting> {};

TEST_P(ClientReset, EndsAnExchangeThatIsPutAside) {
    for (int i = 0; i < 5; ++i) {
        Event waiting;
        std::string error;
        std::string feedError;
        LeavingServer server([&](TestRequest& request) {
            GetParam().before(request);
            waiting.set();
            EXPECT_TRUE(waitForLoss(request));
            error = request.out().getDeviceErrorMsg();
            request.readBody();
            feedError = request.feed().getDeviceErrorMsg();
        });
        RawClient client = server.connect();
        client.send(GetParam().request);
        ASSERT_TRUE(waiting.wait());
        client.readUntil(GetParam().received);
        server.letDaemonRun();
        client.reset();
        EXPECT_EQ(server.finished().deviceError, Lost);
        EXPECT_EQ(error, Lost);
        EXPECT_EQ(feedError, GetParam().request.substr(0, 4) == "POST" ? Lost : "");
        server.expectServes();
    }
}

INSTANTIATE_TEST_SUITE_P(
    While, ClientReset,
    testing::Values(Waiting{"TheAnswerIsAwaited", get("/"), [](TestRequest&) {}},
                    Waiting{"AStreamPauses", get("/"),
                            [](TestRequest& request) {
                                request.startStream();
                                request.write("event");
                                request.out().flush();
                            },
                            "event"},
                    Waiting{"HeldAtTheHead", head("POST", "/", "Content-Length: 1000000\r\n"), [](TestRequest&) {}},
                    Waiting{"HeldAtTheWindow",
                            head("POST", "/", "Content-Length: 1000000\r\n") + std::string(300000, 'x'),
                            [](TestRequest& request) {
                                char byte = 0;
                                request.feed().readBytes(&byte, 1);
                            }}),
    [](const auto& test) { return test.param.name; });

TEST_F(ClientLeaving, ResetBeforeTheRequestIsPutAsideIsNotMissed) {
    for (const std::string& request : {get("/"), head("POST", "/", "Expect: 100-continue\r\nContent-Length: 4\r\n")}) {
        Event handling;
        Behaviour behaviour;
        behaviour.inlineHandler = [&](TestRequest& handled) {
            if (handled.getOriginalRequestUrl() == "/older") {
                handled.reply("older");
                return;
            }
            handling.set();
            EXPECT_TRUE(waitForLoss(handled));
        };
        LeavingServer server(std::move(behaviour));
        RawClient client = server.connect();
        client.send(request);
        ASSERT_TRUE(handling.wait());
        client.reset();
        EXPECT_EQ(server.finished().deviceError, Lost);
        server.expectServes();
    }
}

// ---- The end of a client's sending, after its request ----

struct Sent {
    const char* name;
    const char* bytes;
};

std::string nameOf(const testing::TestParamInfo<Sent>& test) {
    return test.param.name;
}

class ClientEnd : public ClientLeaving, public testing::WithParamInterface<Sent> {};

TEST_P(ClientEnd, IsReportedAndNotified) {
    // Reading and the end of the older connection's request notify, too.
    std::atomic<bool> hasRead{false};
    Event reading;
    Event notified;
    Behaviour behaviour = LeavingServer::behaviourOf([&](TestRequest& request) {
        request.readBody();
        hasRead = true;
        reading.set();
        EXPECT_TRUE(waitUntil([&] { return request.hasClientLeft(); }));
        EXPECT_TRUE(notified.wait());
        // Long enough for the looks that end the exchange where the option says so.
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        EXPECT_FALSE(request.out().hasDeviceError());
        request.reply("all the same");
    });
    behaviour.onNotify = [&] {
        if (hasRead) {
            notified.set();
        }
    };
    LeavingServer server(std::move(behaviour), OnClientClose::GoOn);
    RawClient client = server.connect();
    server.application().finished();
    client.send(GetParam().bytes);
    EXPECT_TRUE(reading.wait());
    client.endSending();
    EXPECT_EQ(client.readResponse().body, "all the same");
    EXPECT_EQ(client.readToEnd(), "") << "the connection is closed";
    EXPECT_EQ(server.finished().deviceError, "");
}

TEST_P(ClientEnd, EndsAnAnswerThatIsAwaited) {
    LeavingServer server([](TestRequest& request) {
        request.readBody();
        EXPECT_TRUE(waitForLoss(request));
        EXPECT_TRUE(request.hasClientLeft());
        EXPECT_FALSE(request.feed().hasDeviceError());
    });
    RawClient client = server.connect();
    client.send(GetParam().bytes);
    client.endSending();
    EXPECT_EQ(server.finished().deviceError, Lost);
    EXPECT_EQ(client.readToEnd(), "");
    server.expectServes();
}

TEST_P(ClientEnd, LeavesAnAnswerThatIsThereInTime) {
    Behaviour behaviour;
    behaviour.inlineHandler = [](TestRequest& request) {
        request.reply(request.getOriginalRequestUrl() == "/older" ? "older" : "at once");
    };
    LeavingServer server(std::move(behaviour));
    for (int i = 0; i < 20; ++i) {
        RawClient client = server.connect();
        client.send(GetParam().bytes);
        client.endSending();
        EXPECT_EQ(client.readResponse().body, "at once");
        EXPECT_EQ(client.readToEnd(), "");
    }
}

INSTANTIATE_TEST_SUITE_P(Of, ClientEnd,
                         testing::Values(Sent{"Get", "GET / HTTP/1.1\r\nHost: x\r\n\r\n"},
                                         Sent{"Post", "POST / HTTP/1.1\r\nHost: x\r\nContent-Length: 4\r\n\r\nbody"}),
                         nameOf);

TEST_F(ClientLeaving, EndEndsAStreamThatPauses) {
    LeavingServer server([](TestRequest& request) {
        request.startStream();
        request.write("event");
        request.out().flush();
        EXPECT_TRUE(waitForLoss(request));
    });
    RawClient client = server.connect();
    client.send(get("/"));
    client.readUntil("event\r\n");
    client.close();
    EXPECT_EQ(server.finished().deviceError, Lost);
    server.expectServes();
}

TEST_F(ClientLeaving, ClientThatStaysHasNotLeft) {
    LeavingServer server([](TestRequest& request) {
        letOthersRun();
        EXPECT_FALSE(request.hasClientLeft());
        request.reply("stays");
    });
    EXPECT_EQ(server.connect().exchange(get("/")).body, "stays");
}

// ---- The end of a client's sending, within its request ----

class ClientEndWithin : public ClientLeaving, public testing::WithParamInterface<Sent> {};

TEST_P(ClientEndWithin, ClosesTheConnectionAndFailsTheFeed) {
    std::atomic<int> failed{0};
    std::atomic<int> begun{0};
    LeavingServer server([&](TestRequest& request) {
        ++begun;
        request.readBody();
        EXPECT_THAT(request.feed().getDeviceErrorMsg(), testing::StartsWith("lost connection : "));
        ++failed;
    });
    for (int i = 0; i < 20; ++i) {
        RawClient client = server.connect();
        client.send(GetParam().bytes);
        client.endSending();
        EXPECT_EQ(client.readToEnd().find("HTTP/1.1 2"), std::string::npos);
    }
    EXPECT_TRUE(waitUntil([&] { return failed == begun; }));
    server.expectServes();
}

INSTANTIATE_TEST_SUITE_P(
    Its, ClientEndWithin,
    testing::Values(
        Sent{"RequestLine", "GET / HT"}, Sent{"Head", "GET / HTTP/1.1\r\nHost: x\r\nX-Half: wa"},
        Sent{"BodyThatHasNotBegun", "POST / HTTP/1.1\r\nHost: x\r\nContent-Length: 1000\r\n\r\n"},
        Sent{"Body", "POST / HTTP/1.1\r\nHost: x\r\nContent-Length: 1000\r\n\r\nhalf"},
        Sent{"BodyOverTheWindow", "POST / HTTP/1.1\r\nHost: x\r\nContent-Length: 1000000\r\n\r\nhalf"},
        Sent{"ChunksThatHaveNotBegun", "POST / HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n"},
        Sent{"SizeOfAChunk", "POST / HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n4"},
        Sent{"Chunks", "POST / HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nhalf\r\n"},
        Sent{"Trailer",
             "POST / HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nhalf\r\n0\r\nTrailer: ha"}),
    nameOf);

} // namespace
} // namespace vireotest
