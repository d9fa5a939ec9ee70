#include "integration/ServerTest.h"
#include "support/TestFile.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// The deadlines of a server that waits by events, with healthy clients beside those that are too slow. Each test has
// one deadline, so that a busy machine makes none but the slow miss one.

namespace vireotest {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using Options = ql::http::ServerOptions;

/// So long a healthy client may be kept from its processor.
constexpr std::uint32_t DeadlineMs = 3000;
/// Beyond what the system keeps for a client that takes nothing.
constexpr std::size_t LargeBytes = 16000000;

Options withoutDeadlines() {
    Options options;
    options.setWaiting(Options::Waiting::Event);
    options.setUploadWindowBytes(Options::MinUploadWindowBytes);
    options.setHeadTimeoutMs(0);
    options.setBodyProgress(1, 0);
    options.setAnswerTimeoutMs(0);
    options.setWriteTimeoutMs(0);
    return options;
}

/// One daemon thread, so that the slow and the healthy share it.
class DeadlineServer : public TestServer {
public:
    /// @param idleTimeoutMs the engine's; 0 for ever.
    DeadlineServer(TestImpl::Handler handler, const std::function<void(Options&)>& setDeadline,
                   std::uint32_t idleTimeoutMs = TestServer::parametersOfTests().connectionTimeoutMs)
        : TestServer(behaviourOf(std::move(handler)), oneThread(idleTimeoutMs), optionsOf(setDeadline)) {}

    /// How the request of this target ended; waits until it has.
    std::string endOf(const std::string& target) {
        for (std::size_t count = 1;; ++count) {
            const FinishedRequest last = application().finished(count).back();
            if (last.url == target) {
                return last.deviceError;
            }
        }
    }

private:
    static TestImpl::Behaviour behaviourOf(TestImpl::Handler handler) {
        Behaviour behaviour;
        behaviour.handler = std::move(handler);
        return behaviour;
    }
    static Parameters oneThread(std::uint32_t idleTimeoutMs) {
        Parameters parameters = parametersOfTests();
        parameters.threadPoolSize = 1;
        parameters.connectionTimeoutMs = idleTimeoutMs;
        return parameters;
    }
    static Options optionsOf(const std::function<void(Options&)>& setDeadline) {
        Options options = withoutDeadlines();
        setDeadline(options);
        return options;
    }
};

/// A client that asks again and again, and is answered each time.
class Healthy {
public:
    Healthy(DeadlineServer& server, std::string request)
        : client_(server.connect()), request_(std::move(request)), thread_([this] { ask(); }) {}
    ~Healthy() {
        isDone_ = true;
        thread_.join();
        EXPECT_GT(answers_, 0);
    }

private:
    void ask() {
        while (!isDone_) {
            ASSERT_EQ(client_.exchange(request_).status, 200);
            ++answers_;
            letOthersRun();
        }
    }

    RawClient client_;
    const std::string request_;
    std::atomic<bool> isDone_{false};
    int answers_ = 0;
    std::thread thread_;
};

class DeadlineServing : public ServerTest {
protected:
    DeadlineServing() : ServerTest(true) {}

    /// Exactly one connection was cut, for this.
    void expectOneCut(const std::string& reason) const {
        EXPECT_TRUE(log_.waitFor(qlLogType::Connection, " : " + reason));
        EXPECT_THAT(log_.texts(qlLogType::Connection, "TCP connection cut "), ElementsAre(EndsWith(" : " + reason)));
    }

    /// Sends these bytes one by one, until the server has had enough of it.
    static void sendByteByByte(RawClient& client, const std::string& begin) {
        client.send(begin);
        const Deadline deadline = soon();
        do {
            letOthersRun();
            ASSERT_LT(std::chrono::steady_clock::now(), deadline);
        } while (client.trySend("x"));
    }

    static void answer(TestRequest& request) { request.reply(request.readBody()); }
};

// ---- The head ----

void setHeadDeadline(Options& options) {
    options.setHeadTimeoutMs(DeadlineMs);
}

TEST_F(DeadlineServing, HeadThatComesByteByByteIsCutOff) {
    DeadlineServer server(&answer, &setHeadDeadline);
    const Healthy healthy(server, get("/healthy"));
    RawClient client = server.connect();
    sendByteByByte(client, "GET / HTTP/1.1\r\nHost: x\r\nX-Slow: ");
    expectOneCut("HeadTimeout");
}

TEST_F(DeadlineServing, RequestLineThatComesByteByByteIsCutOff) {
    DeadlineServer server(&answer, &setHeadDeadline);
    const Healthy healthy(server, get("/healthy"));
    RawClient client = server.connect();
    sendByteByByte(client, "GET /");
    expectOneCut("HeadTimeout");
}

TEST_F(DeadlineServing, ClientThatSendsNothingIsCutOff) {
    DeadlineServer server(&answer, &setHeadDeadline);
    const Healthy healthy(server, get("/healthy"));
    RawClient client = server.connect();
    EXPECT_EQ(client.readToEnd(), "");
    expectOneCut("HeadTimeout");
}

TEST_F(DeadlineServing, PlaceOfAClientThatStaysSilentIsFreeAgain) {
    DeadlineServer server(
        &answer,
        [](Options& options) {
            setHeadDeadline(options);
            options.setMaxConnections(1);
        },
        0);
    const RawClient silent = server.connect();
    EXPECT_TRUE(log_.waitFor(qlLogType::Connection, "TCP connection closed "));
    EXPECT_EQ(server.connect().exchange(get("/")).status, 200);
    EXPECT_THAT(log_.texts(qlLogType::Connection, "TCP connection started "), testing::SizeIs(2));
    EXPECT_THAT(log_.texts(qlLogType::Failure), testing::IsEmpty());
}

TEST_F(DeadlineServing, KeptConnectionMayBeIdleForLonger) {
    DeadlineServer server(&answer, &setHeadDeadline);
    RawClient idle = server.connect();
    EXPECT_EQ(idle.exchange(get("/")).status, 200);
    // As long as a first head may take.
    RawClient slow = server.connect();
    EXPECT_EQ(slow.readToEnd(), "");
    EXPECT_EQ(idle.exchange(get("/")).status, 200);
    expectOneCut("HeadTimeout");
}

/// Fails where it is asked about lines on connections.
class FailingLog : public TestLog {
public:
    FailingLog() : TestLog(true) {}

    bool isLogTypeEnabled(qlLogType type) const override {
        if (type == qlLogType::Connection) {
            throw std::runtime_error("no lines");
        }
        return TestLog::isLogTypeEnabled(type);
    }
};

// Its descriptor is somebody else's by then.
TEST_F(DeadlineServing, ClosedConnectionIsLeftAloneEvenIfItsEndCannotBeLogged) {
    TestServer others(Behaviour{}, TestServer::parametersOfTests(), Options());
    DeadlineServer server(&answer, &setHeadDeadline);
    RawClient healthy = server.connect();
    EXPECT_EQ(healthy.exchange(get("/")).status, 200);
    std::vector<RawClient> strangers;
    {
        const FailingLog log;
        RawClient client = server.connect();
        client.endSending();
        EXPECT_EQ(client.readToEnd(), "");
        // On the same thread, so that the descriptor is closed.
        EXPECT_EQ(healthy.exchange(get("/")).status, 200);
        for (int i = 0; i < 8; ++i) {
            strangers.push_back(others.connect());
            EXPECT_EQ(strangers.back().exchange(get("/")).status, 200);
        }
    }
    // As long as a head may take.
    RawClient slow = server.connect();
    EXPECT_EQ(slow.readToEnd(), "");
    for (RawClient& stranger : strangers) {
        EXPECT_EQ(stranger.exchange(get("/")).status, 200);
    }
}

// ---- The body ----

void setBodyDeadline(Options& options) {
    options.setBodyProgress(1000, DeadlineMs);
}

TEST_F(DeadlineServing, BodyThatTricklesIsCutOff) {
    std::string feedError;
    DeadlineServer server(
        [&](TestRequest& request) {
            request.readBody();
            if (request.getOriginalRequestUrl() == "/slow") {
                feedError = request.feed().getDeviceErrorMsg();
            }
            request.reply();
        },
        &setBodyDeadline);
    const Healthy healthy(server, post("/healthy", "body"));
    RawClient client = server.connect();
    sendByteByByte(client, head("POST", "/slow", "Content-Length: 100000\r\n"));
    EXPECT_EQ(server.endOf("/slow"), "lost connection : BodyTimeout");
    EXPECT_EQ(feedError, "lost connection : BodyTimeout");
    expectOneCut("BodyTimeout");
}

TEST_F(DeadlineServing, ChunkHeadThatTricklesIsCutOff) {
    DeadlineServer server(&answer, &setBodyDeadline);
    const Healthy healthy(server, post("/healthy", "body"));
    RawClient client = server.connect();
    sendByteByByte(client, head("POST", "/slow", "Transfer-Encoding: chunked\r\n") + "5;");
    EXPECT_EQ(server.endOf("/slow"), "lost connection : BodyTimeout");
}

TEST_F(DeadlineServing, BodyHeldBackForItsReaderIsNotCutOff) {
    Event isRead;
    DeadlineServer server(
        [&](TestRequest& request) {
            if (request.getOriginalRequestUrl() == "/held") {
                char byte = 0;
                request.feed().readBytes(&byte, 1);
                EXPECT_TRUE(isRead.wait());
            }
            answer(request);
        },
        &setBodyDeadline);
    const std::string body(8000000, 'b');
    RawClient held = server.connect();
    std::thread sending([&] { held.send(post("/held", body)); });
    server.application().seen();
    // Not held back for the reader, so that the time passes.
    RawClient slow = server.connect();
    slow.send(head("POST", "/slow", "Content-Length: 10\r\n"));
    EXPECT_EQ(server.endOf("/slow"), "lost connection : BodyTimeout");
    isRead.set();
    sending.join();
    EXPECT_EQ(held.readResponse().body, body.substr(1));
    expectOneCut("BodyTimeout");
}

TEST_F(DeadlineServing, BodyThatTheApplicationTakesNoMoreOfIsCutOff) {
    Event isOver;
    DeadlineServer server(
        [&](TestRequest& request) {
            if (request.getOriginalRequestUrl() == "/held") {
                char byte = 0;
                request.feed().readBytes(&byte, 1);
                EXPECT_TRUE(isOver.wait());
            }
            answer(request);
        },
        [](Options& options) { options.setAnswerTimeoutMs(DeadlineMs); });
    RawClient held = server.connect();
    held.send(head("POST", "/held", "Content-Length: 8000000\r\n") + std::string(100000, 'b'));
    EXPECT_EQ(held.readToEnd(), "");
    isOver.set();
    EXPECT_EQ(server.endOf("/held"), "lost connection : AnswerTimeout");
    expectOneCut("AnswerTimeout");
}

TEST_F(DeadlineServing, UploadUndecidedAtItsHeadIsNotCutOff) {
    Event isDecided;
    DeadlineServer server(
        [&](TestRequest& request) {
            if (request.getOriginalRequestUrl() == "/undecided") {
                EXPECT_TRUE(isDecided.wait());
            }
            answer(request);
        },
        &setBodyDeadline);
    RawClient undecided = server.connect();
    undecided.send(head("POST", "/undecided", "Content-Length: 4\r\nExpect: 100-continue\r\n"));
    server.application().seen();
    RawClient slow = server.connect();
    slow.send(head("POST", "/slow", "Content-Length: 10\r\n"));
    EXPECT_EQ(server.endOf("/slow"), "lost connection : BodyTimeout");
    isDecided.set();
    undecided.readUntil("\r\n\r\n");
    undecided.send("body");
    EXPECT_EQ(undecided.readResponse().body, "body");
}

// ---- The answer ----

void setAnswerDeadline(Options& options) {
    options.setAnswerTimeoutMs(DeadlineMs);
}

TEST_F(DeadlineServing, ApplicationThatNeverAnswersIsCutOff) {
    Event isOver;
    DeadlineServer server(
        [&](TestRequest& request) {
            if (request.getOriginalRequestUrl() == "/never") {
                EXPECT_TRUE(isOver.wait());
                EXPECT_FALSE(request.write("too late"));
            }
            answer(request);
        },
        &setAnswerDeadline);
    const Healthy healthy(server, get("/healthy"));
    RawClient client = server.connect();
    client.send(post("/never", "body"));
    EXPECT_EQ(client.readToEnd(), "");
    isOver.set();
    EXPECT_EQ(server.endOf("/never"), "lost connection : AnswerTimeout");
    expectOneCut("AnswerTimeout");
}

TEST_F(DeadlineServing, StreamThatHasBegunMayPauseForLonger) {
    Event isOver;
    DeadlineServer server(
        [&](TestRequest& request) {
            if (request.getOriginalRequestUrl() == "/stream") {
                request.startStream();
                request.write("event");
                request.out().flush();
                EXPECT_TRUE(isOver.wait());
                request.write("event");
                request.out().endSending();
                return;
            }
            EXPECT_TRUE(isOver.wait());
        },
        [](Options& options) {
            setAnswerDeadline(options);
            options.setWriteTimeoutMs(DeadlineMs);
        });
    RawClient stream = server.connect();
    stream.send(get("/stream"));
    stream.readUntil("event\r\n");
    // As long as an answer may take.
    RawClient never = server.connect();
    never.send(get("/never"));
    EXPECT_EQ(never.readToEnd(), "");
    isOver.set();
    stream.readUntil("event\r\n0\r\n\r\n");
    expectOneCut("AnswerTimeout");
}

// ---- A client that takes nothing ----

void setWriteDeadline(Options& options) {
    options.setWriteTimeoutMs(DeadlineMs);
}

void streamWithoutEnd(TestRequest& request) {
    request.startStream();
    const std::string block(65536, 'b');
    while (request.write(block)) {
    }
}

RawClient connectWithSmallBuffer(const DeadlineServer& server) {
    return RawClient(server.port(), "127.0.0.1", 4096);
}

TEST_F(DeadlineServing, ClientThatDoesNotTakeABufferedAnswerIsCutOff) {
    const std::string body(LargeBytes, 'b');
    DeadlineServer server(
        [&](TestRequest& request) { request.reply(request.getOriginalRequestUrl() == "/large" ? body : "small"); },
        &setWriteDeadline);
    const Healthy healthy(server, get("/small"));
    RawClient client = connectWithSmallBuffer(server);
    client.send(get("/large"));
    EXPECT_EQ(server.endOf("/large"), "lost connection : WriteTimeout");
    expectOneCut("WriteTimeout");
}

TEST_F(DeadlineServing, FileThatHasBecomeShorterIsCutOff) {
    const TestDirectory directory;
    const auto path = directory.write("file", std::string(1000, 'f'));
    DeadlineServer server([&](TestRequest& request) { request.out().releaseFile(openForReading(path), 0, 2000); },
                          [](Options& options) { options.setWriteTimeoutMs(100); });
    RawClient client = server.connect();
    client.send(get("/file"));
    const std::string answer = client.readToEnd();
    EXPECT_THAT(answer, HasSubstr("Content-Length: 2000"));
    EXPECT_EQ(answer.substr(answer.find("\r\n\r\n") + 4), std::string(1000, 'f'));
    EXPECT_EQ(server.endOf("/file"), "lost connection : WriteTimeout");
    EXPECT_TRUE(waitUntil([&] { return !isOpen(path); }));
}

TEST_F(DeadlineServing, NothingIsKeptForAClientThatTookNothing) {
    DeadlineServer server([&](TestRequest& request) { request.reply(std::string(LargeBytes, 'b')); },
                          &setWriteDeadline);
    RawClient client = connectWithSmallBuffer(server);
    client.send(get("/large"));
    EXPECT_EQ(server.endOf("/large"), "lost connection : WriteTimeout");
    server.stop(); // after which it is closed
    // What had come over, and none of what the server's system had kept for it.
    EXPECT_LT(client.readToEnd().size(), 30000U);
}

TEST_F(DeadlineServing, ClientThatDoesNotTakeAStreamIsCutOff) {
    DeadlineServer server(
        [](TestRequest& request) {
            if (request.getOriginalRequestUrl() != "/stream") {
                request.reply("small");
                return;
            }
            streamWithoutEnd(request);
        },
        &setWriteDeadline);
    const Healthy healthy(server, get("/small"));
    RawClient client = connectWithSmallBuffer(server);
    client.send(get("/stream"));
    EXPECT_EQ(server.endOf("/stream"), "lost connection : WriteTimeout");
    expectOneCut("WriteTimeout");
}

TEST_F(DeadlineServing, ClientThatTakesWhatThereIsMayWaitForMore) {
    Event isOver;
    DeadlineServer server(
        [&](TestRequest& request) {
            if (request.getOriginalRequestUrl() == "/endless") {
                streamWithoutEnd(request);
                return;
            }
            request.startStream();
            request.write("event");
            request.out().flush();
            EXPECT_TRUE(isOver.wait());
            request.write("event");
            request.out().endSending();
        },
        &setWriteDeadline);
    RawClient stream = server.connect();
    stream.send(get("/stream"));
    stream.readUntil("event\r\n");
    RawClient slow = connectWithSmallBuffer(server);
    slow.send(get("/endless"));
    EXPECT_EQ(server.endOf("/endless"), "lost connection : WriteTimeout");
    isOver.set();
    stream.readUntil("event\r\n0\r\n\r\n");
    expectOneCut("WriteTimeout");
}

} // namespace
} // namespace vireotest
