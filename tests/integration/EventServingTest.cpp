#include "integration/ServerTest.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

// What only a server that waits by events does: connections that are put aside and taken up again, uploads that are
// held back, answers before the body.

namespace vireotest {
namespace {

using testing::EndsWith;
using testing::StartsWith;

constexpr std::uint64_t WindowBytes = ql::http::ServerOptions::MinUploadWindowBytes;

/// Bytes that show when any of them is lost, repeated or moved.
std::string pattern(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>((i * 31 + i / 251) & 0xFFU);
    }
    return bytes;
}

std::string chunk(std::string_view bytes) {
    char size[20];
    std::snprintf(size, sizeof size, "%zx", bytes.size());
    return size + std::string("\r\n").append(bytes).append("\r\n");
}

/// One daemon thread, so that all connections share it; the smallest window.
class EventServer : public TestServer {
public:
    explicit EventServer(TestImpl::Handler handler, unsigned int workers = 4, bool turbo = false)
        : TestServer(behaviourOf(std::move(handler), workers), oneThread(), options(turbo)) {}

private:
    static Behaviour behaviourOf(TestImpl::Handler handler, unsigned int workers) {
        Behaviour behaviour;
        behaviour.handler = std::move(handler);
        behaviour.workers = workers;
        return behaviour;
    }
    static Parameters oneThread() {
        Parameters parameters = parametersOfTests();
        parameters.threadPoolSize = 1;
        return parameters;
    }
    static ql::http::ServerOptions options(bool turbo) {
        ql::http::ServerOptions options;
        options.setTurbo(turbo);
        options.setWaiting(ql::http::ServerOptions::Waiting::Event);
        options.setUploadWindowBytes(WindowBytes);
        options.setEndOnClientClose(false);
        return options;
    }
};

using EventServing = ServerTest;

// ---- Requests without a body ----

/// An answer to GET that says when its application found that no body comes.
std::string endOfNoBody(std::function<void(TestRequest&)> onCreate, TestImpl::Handler inlineHandler) {
    Behaviour behaviour;
    behaviour.onCreate = std::move(onCreate);
    behaviour.inlineHandler = std::move(inlineHandler);
    behaviour.handler = [](TestRequest& request) { request.reply(request.readBody() + "at its end"); };
    ql::http::ServerOptions options;
    options.setWaiting(ql::http::ServerOptions::Waiting::Event);
    TestServer server(std::move(behaviour), TestServer::parametersOfTests(), options);
    return server.connect().exchange(get("/")).body;
}

TEST_F(EventServing, FeedOfARequestWithoutABodyHasEndedFromTheStart) {
    EXPECT_EQ(endOfNoBody({}, [](TestRequest& request) { request.reply(request.readBody() + "at once"); }), "at once");
    EXPECT_THAT(log_.texts(qlLogType::Failure), testing::IsEmpty());
}

TEST_F(EventServing, FeedThatWasAskedForBeforeTheHeadEndsAllTheSame) {
    EXPECT_EQ(endOfNoBody([](TestRequest& request) { EXPECT_FALSE(request.feed().atEnd()); }, {}), "at its end");
}

// ---- Late answers ----

TEST_F(EventServing, TwoHundredLateAnswersComeAtOnce) {
    constexpr unsigned int Count = 200;
    std::atomic<unsigned int> waiting{0};
    Event all;
    EventServer server(
        [&](TestRequest& request) {
            if (++waiting == Count) {
                all.set();
            }
            EXPECT_TRUE(all.wait());
            request.reply(request.getOriginalRequestUrl());
        },
        Count);
    std::vector<RawClient> clients;
    for (std::size_t i = 0; i < Count; ++i) {
        clients.push_back(server.connect());
        clients.back().send(get("/" + std::to_string(i)));
    }
    for (std::size_t i = 0; i < Count; ++i) {
        EXPECT_EQ(clients[i].readResponse().body, "/" + std::to_string(i));
    }
}

TEST_F(EventServing, ConnectionIsUsedAgainAfterEachLateAnswer) {
    EventServer server([](TestRequest& request) {
        letOthersRun();
        request.reply(request.readBody());
    });
    RawClient client = server.connect();
    for (int i = 0; i < 10; ++i) {
        const std::string body = "late " + std::to_string(i);
        EXPECT_EQ(client.exchange(post("/", body)).body, body);
        EXPECT_EQ(client.exchange(get("/")).body, "");
    }
}

TEST_F(EventServing, PipelinedLateAnswersComeInOrder) {
    EventServer server([](TestRequest& request) {
        letOthersRun();
        request.reply(request.getOriginalRequestUrl());
    });
    RawClient client = server.connect();
    client.send(get("/1") + get("/2") + get("/3"));
    for (const char* const target : {"/1", "/2", "/3"}) {
        EXPECT_EQ(client.readResponse().body, target);
    }
}

TEST_F(EventServing, StreamWithPausesArrivesPieceByPiece) {
    Event proceed[3];
    EventServer server([&](TestRequest& request) {
        request.startStream();
        for (Event& event : proceed) {
            request.write("event");
            request.out().flush();
            EXPECT_TRUE(event.wait());
            letOthersRun();
        }
        request.write("end");
        request.out().endSending();
    });
    RawClient client = server.connect();
    client.send(get("/"));
    for (Event& event : proceed) {
        client.readUntil("event\r\n");
        event.set();
    }
    client.readUntil("end\r\n0\r\n\r\n");
}

/// With turbo on the engine ends its sending by closing the connection alone, so that a client sees whether it does.
TEST_F(EventServing, ConnectionIsClosedAfterAStreamThatPausedBeforeItsEnd) {
    EventServer server(
        [](TestRequest& request) {
            request.startStream();
            request.write("late");
            request.out().flush();
            letOthersRun();
            request.out().endSending();
        },
        4, true);
    RawClient older = server.connect();
    older.exchange(get("/"));
    for (int i = 0; i < 5; ++i) {
        RawClient client = server.connect();
        client.send("GET / HTTP/1.0\r\n\r\n");
        EXPECT_THAT(client.readToEnd(), EndsWith("\r\n\r\nlate"));
    }
}

TEST_F(EventServing, ConnectionIsClosedAfterAStreamThatPausedBeforeItFellShort) {
    EventServer server(
        [](TestRequest& request) {
            const bool isShort = request.getOriginalRequestUrl() == "/short";
            request.response.contentLength = isShort ? 100 : 4;
            request.startStream();
            request.write("late");
            request.out().flush();
            letOthersRun();
            request.out().endSending();
        },
        4, true);
    RawClient older = server.connect();
    EXPECT_EQ(older.exchange(get("/")).body, "late");
    for (int i = 0; i < 5; ++i) {
        RawClient client = server.connect();
        client.send(get("/short"));
        EXPECT_THAT(client.readToEnd(), EndsWith("\r\n\r\nlate"));
    }
}

struct WholeRequest {
    std::string name;
    std::string bytes;

    friend void PrintTo(const WholeRequest& request, std::ostream* out) { *out << request.name; }
};

/// Requests that are complete, and whose client says so at once.
class EventServingHalfClosed : public EventServing, public testing::WithParamInterface<WholeRequest> {};

TEST_P(EventServingHalfClosed, LateAnswerIsSentAllTheSame) {
    EventServer server([](TestRequest& request) {
        const std::string body = request.readBody();
        letOthersRun();
        request.reply("got " + body);
    });
    // The engine looks after the newest of its connections first; without an older one much goes well by chance.
    RawClient older = server.connect();
    EXPECT_EQ(older.exchange(get("/")).status, 200);
    for (int i = 0; i < 5; ++i) {
        RawClient client = server.connect();
        client.send(GetParam().bytes);
        client.endSending();
        EXPECT_THAT(client.readResponse().body, StartsWith("got "));
    }
}

INSTANTIATE_TEST_SUITE_P(Request, EventServingHalfClosed,
                         testing::Values(WholeRequest{"Get", "GET / HTTP/1.1\r\nHost: x\r\n\r\n"},
                                         WholeRequest{"Post",
                                                      "POST / HTTP/1.1\r\nHost: x\r\nContent-Length: 4\r\n\r\nbody"},
                                         WholeRequest{"GetOfHttp10", "GET / HTTP/1.0\r\n\r\n"}),
                         [](const auto& parameter) { return parameter.param.name; });

TEST_F(EventServing, PausedStreamReachesAClientThatHasEndedItsSending) {
    EventServer server([](TestRequest& request) {
        request.startStream();
        for (int i = 0; i < 3; ++i) {
            request.write("event");
            request.out().flush();
            letOthersRun();
        }
        request.out().endSending();
    });
    RawClient older = server.connect();
    EXPECT_EQ(older.exchange(get("/")).status, 200);
    RawClient client = server.connect();
    client.send(get("/"));
    client.endSending();
    EXPECT_EQ(client.readResponse().body, "eventeventevent");
}

// ---- Uploads ----

TEST_F(EventServing, UploadBeyondTheWindowArrivesWhole) {
    EventServer server([](TestRequest& request) {
        std::string body(1, '?');
        request.feed().readBytes(body.data(), 1);
        letOthersRun();
        request.reply(body + request.readBody());
    });
    const std::string body = pattern(3000001);
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(post("/", body)).body, body);
    client.send(head("POST", "/", "Transfer-Encoding: chunked\r\n") + chunk(body) + "0\r\n\r\n");
    EXPECT_EQ(client.readResponse().body, body);
}

TEST_F(EventServing, ManyChunksInOneSegmentAtTheWindowArriveWhole) {
    EventServer server([](TestRequest& request) {
        std::string body(1, '?');
        request.feed().readBytes(body.data(), 1);
        letOthersRun();
        request.reply(body + request.readBody());
    });
    std::string body;
    std::string chunks;
    for (const std::size_t size : {60000U, 5000U, 5000U, 10U, 10U, 10U, 60000U, 60000U, 10U}) {
        const std::string piece = pattern(size);
        body += piece;
        chunks += chunk(piece);
    }
    RawClient client = server.connect();
    client.send(head("POST", "/", "Transfer-Encoding: chunked\r\n") + chunks + "0\r\n\r\n");
    EXPECT_EQ(client.readResponse().body, body);
    EXPECT_EQ(client.exchange(get("/")).status, 200);
}

TEST_F(EventServing, AnswerWithoutReadingTheRestOfAnAcceptedBodyIsSent) {
    std::atomic<bool> wasWhole{true};
    Event answered;
    EventServer server([&](TestRequest& request) {
        char byte = 0;
        request.feed().readBytes(&byte, 1);
        letOthersRun();
        request.reply("enough");
        EXPECT_TRUE(waitUntil([&] { return request.feed().hasDeviceError(); }));
        wasWhole = !request.readBody().empty();
    });
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(post("/", pattern(8000000))).body, "enough");
    server.application().finished();
    EXPECT_FALSE(wasWhole);
}

/// A worker that writes more than is taken before the body is read, while the rest of the body is held back.
class EventServingMutualWait : public EventServing {
protected:
    void expectNamed(const std::function<void(TestRequest&)>& beforeWriting, std::size_t firstBytes,
                     const std::function<void()>& beforeTheRest) {
        EventServer server([&](TestRequest& request) {
            char byte = 0;
            request.feed().readBytes(&byte, 1);
            request.editInternalResponseDevice().releaseResponse();
            request.write(std::string(327680, 'x'));
            beforeWriting(request);
            request.write(std::string(65536, 'x'));
        });
        RawClient client = server.connect();
        const std::string request = post("/echo", pattern(30000000));
        std::thread sending([&] {
            client.trySend(request.substr(0, firstBytes));
            beforeTheRest();
            client.trySend(request.substr(firstBytes));
        });
        EXPECT_TRUE(waitUntil([&] {
            return log_.texts(qlLogType::Failure) ==
                   std::vector<std::string>{"writeBytes() waits with more than 256 KiB that nobody takes: the rest of "
                                            "the body is to be read first : /echo"};
        }));
        server.stop();
        sending.join();
    }
};

TEST_F(EventServingMutualWait, IsNamedWhenTheWriterComesLast) {
    expectNamed([](TestRequest& /*request*/) { letOthersRun(); }, 30000000, [] {});
}

TEST_F(EventServingMutualWait, IsNamedWhenTheBodyComesLast) {
    Event writes;
    expectNamed([&](TestRequest& /*request*/) { writes.set(); }, 1000,
                [&] {
                    EXPECT_TRUE(writes.wait());
                    letOthersRun();
                });
}

// ---- Answers before the body ----

struct Upload {
    const char* name;
    const char* headers;
};

class EventServingEarly : public EventServing, public testing::WithParamInterface<Upload> {};

TEST_P(EventServingEarly, AnswerIsSentWithoutTheBody) {
    std::string feedError;
    EventServer server([&](TestRequest& request) {
        letOthersRun();
        request.reply("too large", 413);
        EXPECT_TRUE(waitUntil([&] { return request.feed().hasDeviceError(); }));
        feedError = request.feed().getDeviceErrorMsg();
    });
    RawClient client = server.connect();
    client.send(head("POST", "/", GetParam().headers));
    // The first thing that comes: no "100 Continue".
    const RawResponse response = client.readResponse();
    EXPECT_EQ(response.status, 413);
    EXPECT_EQ(response.value("Connection"), "close");
    EXPECT_EQ(response.body, "too large");
    EXPECT_EQ(client.readToEnd(), "");
    const FinishedRequest finished = server.application().finished()[0];
    EXPECT_EQ(finished.bodyReceived, 0U);
    EXPECT_EQ(finished.deviceError, "");
    EXPECT_EQ(feedError, "lost connection : AnsweredEarly");
}

TEST_P(EventServingEarly, FirstReadLetsTheBodyCome) {
    std::atomic<bool> hasRead{false};
    EventServer server([&](TestRequest& request) {
        letOthersRun();
        hasRead = true;
        char byte = 0;
        request.feed().readBytes(&byte, 1);
        request.reply("accepted");
    });
    RawClient client = server.connect();
    client.send(head("POST", "/", GetParam().headers));
    server.application().seen();
    if (std::string_view(GetParam().headers).find("xpect") != std::string_view::npos) {
        EXPECT_EQ(client.readUntil("\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");
        EXPECT_TRUE(hasRead);
    }
    client.send("5\r\n");
    client.reset();
    server.application().finished();
    EXPECT_TRUE(hasRead);
}

INSTANTIATE_TEST_SUITE_P(Of, EventServingEarly,
                         testing::Values(Upload{"Expected", "Content-Length: 1073741824\r\nExpect: 100-continue\r\n"},
                                         Upload{"SmallExpected", "Content-Length: 4\r\nexpect: 100-Continue\r\n"},
                                         Upload{"Large", "Content-Length: 1073741824\r\n"},
                                         Upload{"Chunked", "Transfer-Encoding: chunked\r\n"}),
                         [](const auto& test) { return test.param.name; });

TEST_F(EventServing, SmallBodyThatNobodyReadsLeavesTheConnectionUsable) {
    EventServer server([](TestRequest& request) { request.reply("no", 401); });
    RawClient client = server.connect();
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(client.exchange(post("/", "small")).status, 401);
    }
}

// ---- Uploads that are broken off ----

struct Abort {
    const char* name;
    const char* request;
    std::function<void(RawClient&)> leave;
    /// Whether the client waits until the application has the request: a reset takes back what was not read.
    bool onceSeen = false;
};

class EventServingAborted : public EventServing, public testing::WithParamInterface<Abort> {};

TEST_P(EventServingAborted, FeedEndsWithAnErrorAndTheWorkerIsFree) {
    std::atomic<int> failed{0};
    EventServer server(
        [&](TestRequest& request) {
            if (request.getOriginalRequestUrl() == "/next") {
                request.reply("next");
                return;
            }
            request.readBody();
            EXPECT_THAT(request.feed().getDeviceErrorMsg(), StartsWith("lost connection : "));
            EXPECT_FALSE(request.write("late"));
            ++failed;
        },
        1);
    RawClient older = server.connect();
    EXPECT_EQ(older.exchange(get("/next")).status, 200);
    for (int i = 1; i <= 20; ++i) {
        RawClient client = server.connect();
        const std::size_t seen = server.application().seenCount();
        client.send(GetParam().request);
        if (GetParam().onceSeen) {
            server.application().seen(seen + 1);
        }
        GetParam().leave(client);
        EXPECT_EQ(older.exchange(get("/next")).status, 200);
        ASSERT_TRUE(waitUntil([&] { return failed == i; }));
    }
}

INSTANTIATE_TEST_SUITE_P(
    By, EventServingAborted,
    testing::Values(Abort{"EndWithData", "POST /u HTTP/1.1\r\nHost: x\r\nContent-Length: 1000\r\n\r\nhalf",
                          [](RawClient& client) { client.endSending(); }},
                    Abort{"CloseWithData", "POST /u HTTP/1.1\r\nHost: x\r\nContent-Length: 1000\r\n\r\nhalf",
                          [](RawClient& client) { client.close(); }},
                    Abort{"EndWithChunk",
                          "POST /u HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nhalf\r\n",
                          [](RawClient& client) { client.endSending(); }},
                    Abort{"EndInsideAChunk",
                          "POST /u HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n40\r\nhalf",
                          [](RawClient& client) { client.endSending(); }},
                    Abort{"LaterEnd", "POST /u HTTP/1.1\r\nHost: x\r\nContent-Length: 1000\r\n\r\nhalf",
                          [](RawClient& client) {
                              letOthersRun();
                              client.endSending();
                          }},
                    Abort{"Reset", "POST /u HTTP/1.1\r\nHost: x\r\nContent-Length: 1000\r\n\r\nhalf",
                          [](RawClient& client) { client.reset(); }, true},
                    Abort{"HeadOnly", "POST /u HTTP/1.1\r\nHost: x\r\nContent-Length: 1000\r\n\r\n",
                          [](RawClient& client) { client.endSending(); }}),
    [](const auto& test) { return test.param.name; });

// ---- A stop with connections that are put aside ----

class EventServingStop : public EventServing {
protected:
    /// Stops a server whose client has sent this, while the handler waits inside.
    void expectStops(const std::string& request, const std::function<void(TestRequest&)>& beforeWaiting,
                     const std::function<void(TestRequest&)>& afterStop) {
        Event inside;
        Event proceed;
        EventServer server([&](TestRequest& handled) {
            beforeWaiting(handled);
            inside.set();
            EXPECT_TRUE(proceed.wait());
            afterStop(handled);
        });
        RawClient client = server.connect();
        std::thread sending([&] { client.trySend(request); });
        EXPECT_TRUE(inside.wait());
        letOthersRun();
        server.stop();
        sending.join();
        client.readToEnd();
        proceed.set();
        EXPECT_EQ(server.application().finished()[0].deviceError, "lost connection : DaemonShutdown");
    }

    static void doNothing(TestRequest& /*request*/) {}
    static void expectFailedFeed(TestRequest& request) {
        request.readBody();
        EXPECT_EQ(request.feed().getDeviceErrorMsg(), "lost connection : DaemonShutdown");
    }
};

TEST_F(EventServingStop, CutsARequestThatIsHeldAtItsHead) {
    expectStops(head("POST", "/", "Content-Length: 4\r\nExpect: 100-continue\r\n"), &doNothing, &expectFailedFeed);
}

TEST_F(EventServingStop, CutsAnUploadThatIsHeldAtItsWindow) {
    const auto readOne = [](TestRequest& request) {
        char byte = 0;
        request.feed().readBytes(&byte, 1);
    };
    expectStops(post("/", pattern(30000000)), readOne, &expectFailedFeed);
}

TEST_F(EventServingStop, CutsARequestThatWaitsForItsAnswer) {
    expectStops(get("/"), &doNothing, [](TestRequest& request) { EXPECT_FALSE(request.write("too late")); });
}

TEST_F(EventServingStop, CutsAStreamThatPauses) {
    const auto begin = [](TestRequest& request) {
        request.startStream();
        request.write("event");
        request.out().flush();
    };
    expectStops(get("/"), begin, [](TestRequest& request) { EXPECT_FALSE(request.write("too late")); });
}

TEST_F(EventServingStop, BeginsWithWhomItHasLetIn) {
    const TestLog log(true);
    Event inside;
    Event proceed;
    Behaviour behaviour;
    behaviour.inlineHandler = [&](TestRequest& request) {
        inside.set();
        EXPECT_TRUE(proceed.wait());
        request.reply();
    };
    Parameters parameters = TestServer::parametersOfTests();
    parameters.threadPoolSize = 1;
    ql::http::ServerOptions options;
    options.setWaiting(ql::http::ServerOptions::Waiting::Event);
    options.setMaxConnections(2);
    TestServer server(std::move(behaviour), parameters, options);
    RawClient busy = server.connect();
    busy.send(get("/"));
    EXPECT_TRUE(inside.wait());
    const RawClient second = server.connect();
    // Refused once the one before is with the engine, whose thread has something else to do.
    EXPECT_EQ(server.connect().readResponse().status, 503);
    std::thread stopping([&] { server.stop(); });
    letOthersRun();
    proceed.set();
    stopping.join();
    EXPECT_EQ(log.texts(qlLogType::Connection, "TCP connection started").size(), 2U);
    EXPECT_EQ(log.texts(qlLogType::Connection, "TCP connection closed").size(), 2U);
}

TEST_F(EventServingStop, CutsManyOfThemWhileNewsComes) {
    for (int run = 0; run < 5; ++run) {
        EventServer server(
            [](TestRequest& request) {
                request.startStream();
                const std::string block(65536, 'x');
                while (request.write(block)) {
                }
            },
            8);
        std::vector<RawClient> clients;
        for (int i = 0; i < 40; ++i) {
            clients.push_back(server.connect());
            clients.back().send(i % 2 == 0 ? get("/") : head("POST", "/", "Transfer-Encoding: chunked\r\n"));
        }
        server.application().seen(40);
        server.stop();
        EXPECT_EQ(server.application().finished(40).size(), 40U);
        server.start();
        EXPECT_EQ(server.connect().exchange(head("HEAD", "/", "Connection: close\r\n")).status, 200);
        server.stop();
    }
}

} // namespace
} // namespace vireotest
