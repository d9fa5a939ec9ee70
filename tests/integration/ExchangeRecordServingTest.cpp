#include "integration/ServerTest.h"
#include "integration/SessionServer.h"
#include "support/Engine.h"
#include "vireo/ExchangeObserver.h"
#include "vireo/ExchangeRecord.h"
#include "vireo/WebSocket.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// What the observers of a server are told.

namespace vireotest {
namespace {

using ql::http::ExchangeRecord;
using Ending = ExchangeRecord::Ending;
using Phase = ExchangeRecord::Phase;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::Le;
using testing::SizeIs;

/// Keeps what it is told.
class Recorder : public ql::http::ExchangeObserver {
public:
    void onExchange(const ExchangeRecord& record) override {
        const std::lock_guard lock(mutex_);
        records_.push_back(record);
        changed_.notify_all();
    }

    /// So many, in the order in which they came. Throws when they don't come.
    std::vector<ExchangeRecord> records(std::size_t count) const {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_until(lock, soon(), [&] { return records_.size() >= count; })) {
            throw std::runtime_error("too few exchanges were recorded");
        }
        return records_;
    }
    ExchangeRecord first() const { return records(1)[0]; }
    /// The first of a target. Throws when it does not come.
    ExchangeRecord of(const std::string& target) const {
        for (std::size_t count = 1;; ++count) {
            const ExchangeRecord last = records(count)[count - 1];
            if (last.getTarget() == target) {
                return last;
            }
        }
    }

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<ExchangeRecord> records_;
};

/// How long it took until a phase was over, each that was reached.
std::vector<Phase> reachedPhases(const ExchangeRecord& record) {
    std::vector<Phase> reached;
    for (const Phase phase : {Phase::Head, Phase::Body, Phase::Wait, Phase::Send}) {
        if (record.getDurationMs(phase) >= 0) {
            reached.push_back(phase);
        }
    }
    return reached;
}

/// How it is told that a client has ended its sending, of which not all systems tell apart that it broke off.
testing::Matcher<Ending> isDeparture() {
    if (isEndOfSendingAHangUp()) {
        return testing::AnyOf(Ending::ClientLeft, Ending::ReadError);
    }
    return Ending::ClientLeft;
}

class ExchangeRecordServing : public ServerTest {
protected:
    ql::http::ServerOptions options() const {
        ql::http::ServerOptions options;
        options.setWaiting(ql::http::ServerOptions::Waiting::Event);
        options.addExchangeObserver(recorder_);
        return options;
    }

    std::unique_ptr<TestServer> serve(Behaviour behaviour, Parameters parameters = TestServer::parametersOfTests()) {
        return std::make_unique<TestServer>(std::move(behaviour), std::move(parameters), options());
    }
    std::unique_ptr<TestServer> serve(TestImpl::Handler handler = {}) {
        Behaviour behaviour;
        behaviour.handler = std::move(handler);
        return serve(std::move(behaviour));
    }

    /// The only one that there is, also when the server has stopped.
    ExchangeRecord only(std::unique_ptr<TestServer>& server) const {
        const ExchangeRecord record = recorder_->first();
        server->stop();
        EXPECT_THAT(recorder_->records(1), SizeIs(1));
        return record;
    }

    const std::shared_ptr<Recorder> recorder_ = std::make_shared<Recorder>();
};

// ---- What a record tells ----

TEST_F(ExchangeRecordServing, TellsWhatWasAskedAndAnswered) {
    auto server = serve([](TestRequest& request) { request.reply("twelve bytes", 404); });
    const std::string request = get("/a%20b?c=d", "Referer: http://x/\r\nUser-Agent: a test\r\n");
    RawClient client = server->connect();
    const RawResponse response = client.exchange(request);
    const ExchangeRecord record = only(server);
    EXPECT_EQ(record.getMethod(), "GET");
    EXPECT_EQ(record.getTarget(), "/a%20b?c=d");
    EXPECT_EQ(record.getVersion(), "HTTP/1.1");
    EXPECT_EQ(record.getReferer(), "http://x/");
    EXPECT_EQ(record.getUserAgent(), "a test");
    EXPECT_EQ(record.getStatus(), 404);
    EXPECT_EQ(record.getReceivedHeadBytes(), request.size());
    EXPECT_EQ(record.getReceivedBodyBytes(), 0U);
    EXPECT_THAT(record.getSentHeadBytes(), AllOf(Ge(response.head.size() - 40), Le(response.head.size() + 40)));
    EXPECT_EQ(record.getSentBodyBytes(), 12U);
    EXPECT_EQ(record.getEnding(), Ending::Completed);
    EXPECT_EQ(record.getReason(), "");
    EXPECT_THAT(reachedPhases(record), ElementsAre(Phase::Head, Phase::Body, Phase::Wait, Phase::Send));
}

TEST_F(ExchangeRecordServing, TellsTheConnectionAndTheOrdinalOnIt) {
    auto server = serve();
    {
        RawClient one = server->connect();
        one.exchange(get("/1"));
        recorder_->records(1);
        one.exchange(get("/2"));
        recorder_->records(2);
    }
    server->connect().exchange(get("/3"));
    const std::vector<ExchangeRecord> records = recorder_->records(3);
    for (const ExchangeRecord& record : records) {
        EXPECT_EQ(record.getClientAddress().toString(), "127.0.0.1");
        EXPECT_NE(record.getClientPort(), 0);
        EXPECT_EQ(record.getLocalAddress().toString(), "127.0.0.1");
        EXPECT_EQ(record.getLocalPort(), server->port());
        EXPECT_THAT(record.getConnectionId(), SizeIs(32));
    }
    EXPECT_EQ(records[0].getClientPort(), records[1].getClientPort());
    EXPECT_EQ(records[0].getConnectionId(), records[1].getConnectionId());
    EXPECT_NE(records[1].getConnectionId(), records[2].getConnectionId());
    EXPECT_NE(records[1].getClientPort(), records[2].getClientPort());
    EXPECT_EQ(records[0].getOrdinal(), 1U);
    EXPECT_EQ(records[1].getOrdinal(), 2U);
    EXPECT_EQ(records[2].getOrdinal(), 1U);
}

TEST_F(ExchangeRecordServing, TellsBothEndsOfAConnectionOverIPv4ToASocketForBothKinds) {
    if (!hasIPv6()) {
        GTEST_SKIP() << "this machine has no address ::1";
    }
    ql::http::ServerOptions dualStack = options();
    dualStack.addListener(ql::http::ListenEndpoint::DualStack(0));
    dualStack.setMaxConnections(1);
    TestServer server(Behaviour{}, TestServer::parametersOfTests(), dualStack);
    const std::uint16_t port = server.server().getPort();
    RawClient client(port);
    client.exchange(get("/"));
    EXPECT_EQ(RawClient(port).readResponse().status, 503);
    for (const ExchangeRecord& record : recorder_->records(2)) {
        EXPECT_EQ(record.getClientAddress().toString(), "127.0.0.1");
        EXPECT_EQ(record.getClientText(), "127.0.0.1");
        EXPECT_NE(record.getClientPort(), 0);
        EXPECT_EQ(record.getLocalAddress().toString(), "127.0.0.1");
        EXPECT_EQ(record.getLocalPort(), port);
    }
}

ql::IpAddress forwardedAddress() {
    return ql::IpAddress::Parse("203.0.113.7").value();
}

TEST_F(ExchangeRecordServing, TellsWhatTheApplicationHasSaid) {
    auto server = serve([](TestRequest& request) {
        if (request.getOriginalRequestUrl() == "/said") {
            request.setRecordClient(forwardedAddress());
            request.setRecordId("id 1");
        }
        request.reply();
    });
    RawClient client = server->connect();
    client.exchange(get("/said"));
    client.exchange(get("/not"));
    const ExchangeRecord said = recorder_->of("/said");
    EXPECT_EQ(said.getForwardedClient(), forwardedAddress());
    EXPECT_EQ(said.getRequestId(), "id 1");
    EXPECT_EQ(said.getClientText(), "127.0.0.1");
    const ExchangeRecord notSaid = recorder_->of("/not");
    EXPECT_TRUE(notSaid.getForwardedClient().isEmpty());
    EXPECT_EQ(notSaid.getRequestId(), "");
}

TEST_F(ExchangeRecordServing, TellsWhatTheApplicationHasSaidOfOpenings) {
    SessionLog log;
    const auto acceptor = std::make_shared<TestAcceptor>(log, [&log](const ql::http::WebSocketOpening& opening) {
        const std::string& target = opening.getRequest().getOriginalRequestUrl();
        using Answer = ql::http::WebSocketAnswer;
        Answer answer =
            target == "/accepted" ? Answer::Accept(std::make_unique<LoggingSession>(log)) : Answer::Refuse(403);
        answer.setRecordClient(forwardedAddress());
        answer.setRecordId(target);
        return answer;
    });
    ql::http::ServerOptions ofSessions = options();
    ofSessions.setWebSockets(acceptor);
    TestServer server({}, TestServer::parametersOfTests(), ofSessions);
    for (const char* const target : {"/accepted", "/refused"}) {
        Handshake handshake;
        handshake.target = target;
        RawClient client = server.connect();
        client.send(handshake.text());
        client.readHead();
        const ExchangeRecord record = recorder_->of(target);
        EXPECT_EQ(record.getForwardedClient(), forwardedAddress());
        EXPECT_EQ(record.getRequestId(), target);
    }
}

TEST_F(ExchangeRecordServing, CountsTheBodiesThatWentOverTheConnection) {
    const std::string upload(200000, 'x');
    auto server = serve([](TestRequest& request) {
        const std::string body = request.readBody();
        if (request.getOriginalRequestUrl() == "/stream") {
            request.startStream();
        }
        request.write(body + "answer");
        request.out().endSending();
        request.out().releaseResponse();
    });
    RawClient client = server->connect();
    client.exchange(post("/buffer", upload));
    client.exchange(post("/stream", upload));
    client.exchange(head("POST", "/chunked", "Transfer-Encoding: chunked\r\n") + "4\r\nbody\r\n0\r\n\r\n");
    client.send(head("HEAD", "/", ""));
    client.readHead();
    const std::vector<ExchangeRecord> records = recorder_->records(4);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(records[i].getReceivedBodyBytes(), 200000U);
        EXPECT_EQ(records[i].getSentBodyBytes(), 200006U);
    }
    EXPECT_EQ(records[2].getReceivedBodyBytes(), 4U);
    EXPECT_EQ(records[3].getSentBodyBytes(), 0U);
}

TEST_F(ExchangeRecordServing, PhasesTellWhatTheTimeWasSpentOn) {
    // They outlive the server.
    const TestLog log(true);
    Event hasBegun;
    auto server = serve([&](TestRequest& request) {
        const std::string body = request.readBody();
        request.startStream();
        request.write("begun");
        request.out().flush();
        EXPECT_TRUE(hasBegun.wait());
        letOthersRun();
        request.out().endSending();
        request.out().releaseResponse();
    });
    RawClient client = server->connect();
    // From there on the time counts.
    EXPECT_TRUE(log.waitFor(qlLogType::Connection, "TCP connection started "));
    letOthersRun();
    client.send(head("POST", "/", "Content-Length: 4\r\n"));
    server->application().seen();
    letOthersRun();
    client.send("body");
    client.readUntil("begun\r\n");
    hasBegun.set();
    client.readUntil("0\r\n\r\n");
    const ExchangeRecord record = recorder_->first();
    EXPECT_GE(record.getDurationMs(Phase::Head), 20);
    EXPECT_GE(record.getDurationMs(Phase::Body), 20);
    EXPECT_GE(record.getDurationMs(Phase::Wait), 0);
    EXPECT_GE(record.getDurationMs(Phase::Send), 20);
    const auto since = std::chrono::system_clock::now() - record.getStartTime();
    EXPECT_GE(since, std::chrono::milliseconds(record.getTotalDurationMs() - 1));
    EXPECT_LE(since, Patience);
}

TEST_F(ExchangeRecordServing, HeadOfALaterRequestBeginsWithItsRequestLine) {
    auto server = serve();
    RawClient client = server->connect();
    client.exchange(get("/"));
    letOthersRun();
    letOthersRun();
    const std::chrono::system_clock::time_point before = std::chrono::system_clock::now();
    client.exchange(get("/"));
    // The record's time is one of whole milliseconds.
    EXPECT_GE(recorder_->records(2)[1].getStartTime(), before - std::chrono::milliseconds(2));
}

TEST_F(ExchangeRecordServing, AnswerBeforeTheBodyEndsItsPhase) {
    auto server = serve([](TestRequest& request) {
        letOthersRun();
        request.reply("no", 401);
    });
    RawClient client = server->connect();
    client.send(head("POST", "/", "Content-Length: 1000000000\r\n"));
    client.readToEnd();
    const ExchangeRecord record = only(server);
    EXPECT_EQ(record.getStatus(), 401);
    EXPECT_EQ(record.getReceivedBodyBytes(), 0U);
    EXPECT_GE(record.getDurationMs(Phase::Body), 20);
    EXPECT_EQ(record.getDurationMs(Phase::Wait), 0);
}

// ---- Who is told, and when ----

TEST_F(ExchangeRecordServing, EachOfManyExchangesIsToldOnce) {
    constexpr int Clients = 40;
    constexpr int Requests = 25;
    auto server = serve();
    std::vector<std::thread> threads;
    for (int i = 0; i < Clients; ++i) {
        threads.emplace_back([&, i] {
            RawClient client = server->connect();
            for (int j = 0; j < Requests; ++j) {
                client.exchange(get("/" + std::to_string(i) + "/" + std::to_string(j)));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::map<std::string, int> times;
    recorder_->records(Clients * Requests);
    server->stop();
    for (const ExchangeRecord& record : recorder_->records(Clients * Requests)) {
        ++times[record.getTarget()];
        EXPECT_EQ(record.getEnding(), Ending::Completed);
    }
    EXPECT_THAT(times, SizeIs(Clients * Requests));
    EXPECT_TRUE(std::all_of(times.begin(), times.end(), [](const auto& entry) { return entry.second == 1; }));
}

TEST_F(ExchangeRecordServing, ObserverIsToldWhenTheApplicationHasTheRequestBack) {
    /// Waits for what only a thread can bring that needs the library's locks.
    class Waiting : public ql::http::ExchangeObserver {
    public:
        explicit Waiting(std::atomic<TestImpl*>& application) : application_(application) {}
        void onExchange(const ExchangeRecord& record) override {
            application_.load()->finished(record.getOrdinal());
            told.set();
        }
        Event told;

    private:
        std::atomic<TestImpl*>& application_;
    };
    std::atomic<TestImpl*> application{nullptr};
    const auto waiting = std::make_shared<Waiting>(application);
    ql::http::ServerOptions both = options();
    both.addExchangeObserver(waiting);
    TestServer server(Behaviour{}, TestServer::parametersOfTests(), both);
    application = &server.application();
    server.connect().exchange(get("/"));
    EXPECT_TRUE(waiting->told.wait());
    recorder_->records(1);
}

TEST_F(ExchangeRecordServing, NobodyIsToldWhereTheEngineIsPolled) {
    ql::http::ServerOptions polling = options();
    polling.setWaiting(ql::http::ServerOptions::Waiting::Polling);
    TestServer server(Behaviour{}, TestServer::parametersOfTests(), polling);
    EXPECT_EQ(server.connect().exchange(get("/")).status, 200);
    server.stop();
    EXPECT_THAT(recorder_->records(0), SizeIs(0));
}

// ---- Endings ----

std::string handshake(const std::string& version = "13", const std::string& key = "dGhlIHNhbXBsZSBub25jZQ==") {
    return get("/socket", "Upgrade: WebSocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: " + version + "\r\n" +
                              (key.empty() ? "" : "Sec-WebSocket-Key: " + key + "\r\n"));
}

TEST_F(ExchangeRecordServing, UpgradeIsToldWhenTheSocketIsHandedOver) {
    std::size_t told = 0;
    Behaviour behaviour;
    behaviour.onWebSocket = [&](ql::http::WebSocketThread& /*pool*/, ql::http::WebSocket* socket) {
        told = recorder_->records(1).size();
        const std::unique_ptr<ql::http::WebSocket> owned(socket);
        owned->markForDeletion();
    };
    auto server = serve(std::move(behaviour), TestServer::parametersWithWebSockets());
    RawClient client = server->connect();
    client.send(handshake());
    client.readToEnd();
    const ExchangeRecord record = only(server);
    EXPECT_EQ(told, 1U);
    EXPECT_EQ(record.getEnding(), Ending::Upgraded);
    EXPECT_EQ(record.getStatus(), 101);
    EXPECT_EQ(record.getTarget(), "/socket");
    EXPECT_EQ(record.getSentBodyBytes(), 0U);
    EXPECT_THAT(reachedPhases(record), SizeIs(4));
}

TEST_F(ExchangeRecordServing, RefusedHandshakesAreTold) {
    auto server = serve(Behaviour{}, TestServer::parametersWithWebSockets());
    server->connect().exchange(handshake("12"));
    recorder_->records(1);
    server->connect().exchange(handshake("13", ""));
    const std::vector<ExchangeRecord> records = recorder_->records(2);
    EXPECT_EQ(records[0].getStatus(), 426);
    EXPECT_EQ(records[0].getSentBodyBytes(), 87U);
    EXPECT_EQ(records[1].getStatus(), 500);
    for (const ExchangeRecord& record : records) {
        EXPECT_EQ(record.getEnding(), Ending::Refused);
        EXPECT_EQ(record.getTarget(), "/socket");
        EXPECT_NE(record.getReason(), "");
    }
}

TEST_F(ExchangeRecordServing, ConnectionForWhichThereIsNoRoomIsTold) {
    ql::http::ServerOptions limited = options();
    limited.setMaxConnections(1);
    TestServer server(Behaviour{}, TestServer::parametersOfTests(), limited);
    RawClient first = server.connect();
    first.exchange(get("/"));
    recorder_->records(1);
    EXPECT_EQ(server.connect().readResponse().status, 503);
    const ExchangeRecord record = recorder_->records(2)[1];
    EXPECT_EQ(record.getEnding(), Ending::Refused);
    EXPECT_EQ(record.getStatus(), 503);
    EXPECT_EQ(record.getReason(), "too many connections");
    EXPECT_EQ(record.getMethod(), "");
    EXPECT_EQ(record.getTarget(), "");
    EXPECT_EQ(record.getClientAddress().toString(), "127.0.0.1");
    EXPECT_NE(record.getClientPort(), 0);
    EXPECT_EQ(record.getLocalPort(), server.port());
    EXPECT_THAT(reachedPhases(record), SizeIs(0));
}

TEST_F(ExchangeRecordServing, HeadThatTheEngineRefusesIsTold) {
    auto server = serve();
    RawClient client = server->connect();
    client.send("GET /target HTTP/1.1\r\nHost: x\r\nContent-Length: x\r\n\r\n");
    const RawResponse response = client.readResponse();
    const ExchangeRecord record = only(server);
    EXPECT_EQ(response.status, 400);
    EXPECT_EQ(record.getTarget(), "/target");
    EXPECT_EQ(record.getMethod(), "");
    EXPECT_EQ(record.getStatus(), 400);
    EXPECT_EQ(record.getEnding(), Ending::Refused);
    EXPECT_EQ(record.getOrdinal(), 1U);
}

TEST_F(ExchangeRecordServing, RequestLineThatTheEngineTakesForNoneIsNotTold) {
    auto server = serve();
    RawClient client = server->connect();
    client.send("garbage\r\n\r\n");
    client.readToEnd();
    EXPECT_EQ(server->connect().exchange(get("/next")).status, 200);
    EXPECT_EQ(only(server).getTarget(), "/next");
}

TEST_F(ExchangeRecordServing, HeadThatDoesNotFitIsTold) {
    auto server = serve();
    RawClient client = server->connect();
    client.trySend(get("/target", "X: " + std::string(300000, 'x') + "\r\n"));
    client.readToEnd();
    const ExchangeRecord record = only(server);
    EXPECT_EQ(record.getTarget(), "/target");
    EXPECT_EQ(record.getStatus(), 431);
    EXPECT_EQ(record.getEnding(), Ending::Refused);
}

TEST_F(ExchangeRecordServing, BrokenHeadIsToldAsTheClientsDeparture) {
    auto server = serve();
    RawClient client = server->connect();
    client.send("GET /target HTTP/1.1\r\nHos");
    letOthersRun();
    client.endSending();
    client.readToEnd();
    const ExchangeRecord record = only(server);
    EXPECT_EQ(record.getTarget(), "/target");
    EXPECT_EQ(record.getStatus(), 0);
    EXPECT_THAT(record.getEnding(), isDeparture());
    EXPECT_THAT(reachedPhases(record), ElementsAre(Phase::Head));
}

TEST_F(ExchangeRecordServing, BodyThatTheEngineRefusesIsTold) {
    auto server = serve([](TestRequest& request) { request.readBody(); });
    RawClient client = server->connect();
    client.send(head("POST", "/", "Transfer-Encoding: chunked\r\n") + "x\r\n");
    const RawResponse response = client.readResponse();
    const ExchangeRecord record = only(server);
    EXPECT_EQ(response.status, 400);
    EXPECT_EQ(record.getStatus(), 400);
    EXPECT_EQ(record.getEnding(), Ending::Refused);
}

TEST_F(ExchangeRecordServing, ExceptionOfTheApplicationIsToldAsAFailure) {
    Behaviour behaviour;
    behaviour.createThrows = true;
    auto server = serve(std::move(behaviour));
    server->connect().exchange(get("/"));
    const ExchangeRecord record = only(server);
    EXPECT_EQ(record.getStatus(), 500);
    EXPECT_EQ(record.getSentBodyBytes(), 19U);
    EXPECT_EQ(record.getEnding(), Ending::Failed);
    EXPECT_EQ(record.getReason(), "internal error");
}

TEST_F(ExchangeRecordServing, ResponseThatFailsOnItsWayIsToldAsAFailure) {
    auto server = serve([](TestRequest& request) {
        request.startStream();
        request.write("half");
        request.out().flush();
        const qlMutexLocker locker(request.out().getLock());
        request.out().setConnectionLost("disk on fire");
    });
    RawClient client = server->connect();
    client.send(get("/"));
    client.readToEnd();
    const ExchangeRecord record = only(server);
    EXPECT_EQ(record.getStatus(), 200);
    EXPECT_EQ(record.getEnding(), Ending::Failed);
    EXPECT_EQ(record.getReason(), "lost connection : disk on fire");
}

TEST_F(ExchangeRecordServing, UploadThatIsBrokenOffIsToldAsTheClientsDeparture) {
    auto server = serve();
    RawClient client = server->connect();
    client.send(head("POST", "/", "Content-Length: 1000\r\n") + "half");
    server->application().seen();
    letOthersRun();
    client.endSending();
    const ExchangeRecord record = only(server);
    EXPECT_THAT(record.getEnding(), isDeparture());
    EXPECT_EQ(record.getReceivedBodyBytes(), 4U);
    EXPECT_EQ(record.getStatus(), 0);
    EXPECT_THAT(reachedPhases(record), ElementsAre(Phase::Head, Phase::Body));
}

TEST_F(ExchangeRecordServing, ClientThatLeavesWhileItWaitsIsTold) {
    Event proceed;
    std::atomic<int> waiting{0};
    Behaviour behaviour;
    behaviour.handler = [&](TestRequest& request) {
        if (request.getOriginalRequestUrl() == "/other") {
            request.reply();
            return;
        }
        ++waiting;
        EXPECT_TRUE(proceed.wait());
    };
    Parameters oneThread = TestServer::parametersOfTests();
    oneThread.threadPoolSize = 1;
    auto server = serve(std::move(behaviour), oneThread);
    RawClient other = server->connect();
    for (const std::string target : {"/reset", "/close"}) {
        const int before = waiting;
        RawClient client = server->connect();
        client.send(get(target));
        EXPECT_TRUE(waitUntil([&] { return waiting != before; }));
        // Until the only daemon thread has come back from this request.
        for (int i = 0; i < 10; ++i) {
            EXPECT_EQ(other.exchange(get("/other")).status, 200);
        }
        if (target == "/reset") {
            client.reset();
        } else {
            client.close();
        }
        const ExchangeRecord record = recorder_->of(target);
        EXPECT_EQ(record.getEnding(), Ending::ClientLeft);
        EXPECT_EQ(record.getStatus(), 0);
        EXPECT_THAT(reachedPhases(record), ElementsAre(Phase::Head, Phase::Body, Phase::Wait));
    }
    proceed.set();
}

TEST_F(ExchangeRecordServing, ResetOfAStreamIsToldAsAFailedWrite) {
    auto server = serve([](TestRequest& request) {
        request.startStream();
        while (request.write(std::string(65536, 'x'))) {
        }
    });
    RawClient client = server->connect();
    client.send(get("/"));
    client.skip(1000000);
    client.reset();
    const ExchangeRecord record = only(server);
    EXPECT_EQ(record.getStatus(), 200);
    EXPECT_GE(record.getSentBodyBytes(), 1000000U);
    EXPECT_THAT(record.getEnding(), testing::AnyOf(Ending::WriteError, Ending::ClientLeft));
}

TEST_F(ExchangeRecordServing, ConnectionThatIsIdleForTooLongIsTold) {
    Parameters parameters = TestServer::parametersOfTests();
    parameters.connectionTimeoutMs = 3000;
    auto server = serve(Behaviour{}, std::move(parameters));
    RawClient client = server->connect();
    client.send(head("POST", "/", "Content-Length: 1000\r\n") + "half");
    const ExchangeRecord record = only(server);
    EXPECT_EQ(record.getEnding(), Ending::IdleTimeout);
}

TEST_F(ExchangeRecordServing, StopIsToldOfWhatWasUnderWay) {
    Event proceed;
    auto server = serve([&](TestRequest&) { EXPECT_TRUE(proceed.wait()); });
    RawClient client = server->connect();
    client.send(get("/"));
    server->application().seen();
    server->stop();
    const ExchangeRecord record = only(server);
    proceed.set();
    EXPECT_EQ(record.getEnding(), Ending::ServerStopped);
    EXPECT_EQ(record.getStatus(), 0);
    EXPECT_THAT(reachedPhases(record), ElementsAre(Phase::Head, Phase::Body, Phase::Wait));
}

TEST_F(ExchangeRecordServing, RequestThatComesWhenTheServerStopsIsToldAsRefused) {
    Event stopping;
    Event proceed;
    Behaviour behaviour;
    behaviour.onStopped = [&] {
        stopping.set();
        EXPECT_TRUE(proceed.wait());
    };
    auto server = serve(std::move(behaviour));
    RawClient client = server->connect();
    // Who still waits to be accepted is not served any more.
    client.exchange(get("/"));
    server->server().stopServer(false);
    EXPECT_TRUE(stopping.wait());
    client.send(get("/late"));
    client.readToEnd();
    const ExchangeRecord record = recorder_->records(2)[1];
    proceed.set();
    server->stop();
    EXPECT_THAT(recorder_->records(2), SizeIs(2));
    EXPECT_EQ(record.getEnding(), Ending::Refused);
    EXPECT_EQ(record.getMethod(), "GET");
    EXPECT_EQ(record.getTarget(), "/late");
    EXPECT_EQ(record.getStatus(), 0);
}

// ---- Deadlines ----

/// So long a client may take for what it does in time.
constexpr std::uint32_t DeadlineMs = 2000;

/// A deadline, and a client or an application that misses it.
struct Late {
    const char* name;
    void (*setDeadline)(ql::http::ServerOptions&);
    const char* request;
    /// As the record has it.
    const char* target;
    Ending ending;
};

class LateExchangeRecord : public ExchangeRecordServing, public testing::WithParamInterface<Late> {};

TEST_P(LateExchangeRecord, TellsWhichDeadlineHasPassed) {
    ql::http::ServerOptions lateOptions = options();
    GetParam().setDeadline(lateOptions);
    Behaviour behaviour;
    behaviour.inlineHandler = [](TestRequest&) {};
    auto server = std::make_unique<TestServer>(behaviour, TestServer::parametersOfTests(), lateOptions);
    RawClient client = server->connect();
    client.send(GetParam().request);
    client.readToEnd();
    const ExchangeRecord record = only(server);
    EXPECT_EQ(record.getEnding(), GetParam().ending);
    EXPECT_EQ(record.getTarget(), GetParam().target);
    EXPECT_EQ(record.getStatus(), 0);
    EXPECT_EQ(record.getOrdinal(), 1U);
    EXPECT_EQ(record.getClientAddress().toString(), "127.0.0.1");
}

void setHeadDeadline(ql::http::ServerOptions& options) {
    options.setHeadTimeoutMs(DeadlineMs);
}

INSTANTIATE_TEST_SUITE_P(
    Of, LateExchangeRecord,
    testing::Values(Late{"Connection", &setHeadDeadline, "", "", Ending::HeadTimeout},
                    Late{"RequestLine", &setHeadDeadline, "GET /late", "", Ending::HeadTimeout},
                    Late{"Head", &setHeadDeadline, "GET /late HTTP/1.1\r\nHost", "/late", Ending::HeadTimeout},
                    Late{"Body", [](ql::http::ServerOptions& options) { options.setBodyProgress(1, DeadlineMs); },
                         "POST /late HTTP/1.1\r\nHost: x\r\nContent-Length: 9\r\n\r\nhalf", "/late",
                         Ending::BodyTimeout},
                    Late{"Answer", [](ql::http::ServerOptions& options) { options.setAnswerTimeoutMs(DeadlineMs); },
                         "GET /late HTTP/1.1\r\nHost: x\r\n\r\n", "/late", Ending::AnswerTimeout}),
    [](const auto& test) { return test.param.name; });

TEST_F(ExchangeRecordServing, ClientThatTakesNothingIsTold) {
    ql::http::ServerOptions lateOptions = options();
    lateOptions.setWriteTimeoutMs(DeadlineMs);
    Behaviour behaviour;
    behaviour.handler = [](TestRequest& request) {
        request.startStream();
        const std::string block(65536, 'b');
        while (request.write(block)) {
        }
    };
    auto server = std::make_unique<TestServer>(behaviour, TestServer::parametersOfTests(), lateOptions);
    RawClient client(server->port(), "127.0.0.1", 4096);
    client.send(get("/stream"));
    const ExchangeRecord record = only(server);
    EXPECT_EQ(record.getEnding(), Ending::WriteTimeout);
    EXPECT_EQ(record.getStatus(), 200);
}

} // namespace
} // namespace vireotest
