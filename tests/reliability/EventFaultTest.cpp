// What fails in a server that waits by events fails once, at whatever place: it is told or refused, nothing hangs, no
// descriptor is left over, and the next client is served.

#include "integration/EchoSocket.h"
#include "reliability/Faults.h"
#include "support/Event.h"
#include "support/FailingAllocation.h"
#include "support/FailingCalls.h"
#include "support/FakeRequest.h"
#include "support/FreePort.h"
#include "support/RawClient.h"
#include "support/RawSocket.h"
#include "support/TestFile.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"
#include "vireo/AccessLog.h"
#include "vireo/ExchangeMetrics.h"
#include "vireo/ExchangeObserver.h"
#include "vireo/ExchangeRecord.h"
#include "vireo/HttpServer.h"
#include "vireo/ServerOptions.h"
#include "vireo/WebSocketAcceptor.h"
#include "vireo/WebSocketAnswer.h"
#include "vireo/WebSocketCompression.h"
#include "vireo/WebSocketOptions.h"
#include "vireo/WebSocketSession.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace vireotest {
namespace {

using ql::http::HttpServer;
using ql::http::ServerOptions;
using Status = HttpServer::Status;

constexpr std::size_t Window = ServerOptions::MinUploadWindowBytes;
constexpr std::string_view Event = "data: news\n\n";
constexpr std::size_t Events = 3;
/// One that is there, and long enough.
constexpr const char* ProgramFile = "/proc/self/exe";
constexpr std::uint64_t FileBytes = 1000000;
/// The opcode of a text, with the bit of RFC 7692 section 6.
constexpr unsigned int CompressedText = 0x41;

/// A worker thread answers, on which nothing fails: what fails is the library's.
class Application : public FakeServerImpl {
public:
    /// @param hasPool for WebSockets that are none of sessions. Its thread makes descriptors when it likes.
    explicit Application(bool hasPool) {
        onCreate = [this] {
            auto request = std::make_unique<FakeRequest>(*this);
            const std::lock_guard lock(mutex_);
            return requests_.emplace_back(std::move(request)).get();
        };
        onHandle = [this](ql::HttpBaseRequest* request) {
            const std::lock_guard lock(mutex_);
            waiting_.push_back(static_cast<FakeRequest*>(request));
            changed_.notify_all();
        };
        onAccept = [this](ql::http::WebSocket* socket) { addEchoSocket(pool_, socket, alive_); };
        onStopped = [this] {
            pool_.stopThreads(true);
            pool_.closeAll();
        };
        setDefaultInternalError("internal error");
        waiting_.reserve(64);
        if (hasPool) {
            pool_.startThreads(1);
        }
        worker_ = std::jthread([this](const std::stop_token& stop) { work(stop); });
    }

    /// Every request has ended, and is deleted.
    bool isQuiet() {
        const std::lock_guard lock(mutex_);
        if (isBusy_ || !waiting_.empty()) {
            return false;
        }
        requests_.remove_if([](const auto& request) { return request->isSchedulerDone(); });
        return requests_.empty() && alive_ == 0;
    }

private:
    void work(const std::stop_token& stop) {
        spareThisThread();
        std::unique_lock lock(mutex_);
        while (changed_.wait(lock, stop, [this] { return !waiting_.empty(); })) {
            FakeRequest& request = *waiting_.front();
            waiting_.erase(waiting_.begin());
            isBusy_ = true;
            lock.unlock();
            request.handleOnThisThread();
            handle(request);
            request.workerThreadStopHandling({});
            lock.lock();
            isBusy_ = false;
        }
    }

    static void handle(FakeRequest& request) {
        ql::HttpResponseDevice& out = request.editInternalResponseDevice();
        const std::string& url = request.getOriginalRequestUrl();
        if (url == "/never") {
            // Only the end of its client ends it.
            EXPECT_TRUE(waitUntil([&] { return out.hasDeviceError(); })) << "nobody has noticed that the client left";
        } else if (url == "/events") {
            out.releaseResponse();
            for (std::size_t sent = Event.size(); sent <= Events * Event.size(); sent += Event.size()) {
                out.writeBytes(Event.data(), Event.size());
                out.flush();
                EXPECT_TRUE(waitUntil([&] {
                    return out.hasDeviceError() || out.getSentBytes() >= static_cast<std::int64_t>(sent);
                })) << "the stream hangs";
            }
        } else if (url == "/file") {
            out.releaseFile(openForReading(ProgramFile), 0, FileBytes);
            return;
        } else if (url == "/upload") {
            std::array<char, 4096> piece;
            while (!request.editFeedDevice().atEnd()) {
                out.writeBytes(piece.data(), request.editFeedDevice().readBytes(piece.data(), piece.size()));
            }
        }
        out.endSending();
        out.releaseResponse();
    }

    ql::http::WebSocketThread pool_;
    std::atomic<int> alive_{0};
    std::mutex mutex_;
    std::condition_variable_any changed_;
    std::list<std::unique_ptr<FakeRequest>> requests_;
    std::vector<FakeRequest*> waiting_;
    bool isBusy_ = false;
    std::jthread worker_;
};

class EchoSession : public ql::http::WebSocketSession {
public:
    explicit EchoSession(std::atomic<int>& alive) : alive_(alive) { ++alive_; }
    ~EchoSession() override { --alive_; }

    void onText(std::string_view text) override { sendText(text); }

private:
    std::atomic<int>& alive_;
};

class EchoAcceptor : public ql::http::WebSocketAcceptor {
public:
    explicit EchoAcceptor(std::atomic<int>& alive) : alive_(alive) {}

    ql::http::WebSocketAnswer decide(const ql::http::WebSocketOpening& /*opening*/) override {
        return ql::http::WebSocketAnswer::Accept(std::make_unique<EchoSession>(alive_));
    }

private:
    std::atomic<int>& alive_;
};

class RunningServer {
public:
    explicit RunningServer(std::uint32_t engines = 1, const ServerOptions& given = options())
        : application_(new Application(given.getWebSocketAcceptor() == nullptr)), server_(application_, given) {
        parameters_.port = freePort();
        parameters_.threadPoolSize = engines;
        parameters_.webSocketEnabled = true;
    }

    /// @return false when it cannot be started.
    bool start() {
        server_.startServer(parameters_);
        EXPECT_TRUE(waitUntil([this] { return server_.getStatus() != Status::Starting; }));
        return server_.getStatus() == Status::Running;
    }

    HttpServer& server() { return server_; }
    Application& application() { return *application_; }
    RawClient connect() const { return RawClient(parameters_.port); }
    std::uint16_t port() const { return parameters_.port; }

    static ServerOptions options() {
        ServerOptions options;
        options.setWaiting(ServerOptions::Waiting::Event);
        options.setUploadWindowBytes(Window);
        options.setMaxBodyBytes(8 * Window);
        options.addExchangeObserver(
            std::make_shared<ql::http::AccessLog>(ql::http::AccessLog::Format::Json, [](std::string_view /*line*/) {}));
        options.addExchangeObserver(std::make_shared<ql::http::ExchangeMetrics>());
        return options;
    }

private:
    Application* application_;
    HttpServer server_;
    HttpServer::Parameters parameters_;
};

const Kind Allocations = allocations();
const Kind EngineCalls = calls("EngineCall", FailingCall::Engine);
const Kind Threads = calls("Thread", FailingCall::ThreadStart);
const Kind Descriptors = calls("Descriptor", FailingCall::Descriptor);
const Kind Watches = calls("Watch", FailingCall::Watch);
const Kind SocketOptions = calls("SocketOption", FailingCall::SocketOption);
const Kind FileReads = calls("FileRead", FailingCall::FileRead);

/// What a client does, with a running server, while something fails.
struct Visit {
    const char* name;
    std::function<void(RunningServer&)> act;

    friend void PrintTo(const Visit& visit, std::ostream* out) { *out << visit.name; }
};

void getSomething(RunningServer& server) {
    server.connect().exchange(get("/path?name=value", "Cookie: a=b\r\nReferer: http://example.org/a/long/way\r\n"));
}

void upload(RunningServer& server) {
    server.connect().exchange(post("/upload", std::string(4 * Window, 'x')));
}

void uploadChunks(RunningServer& server) {
    RawClient client = server.connect();
    client.send(head("POST", "/upload", "Transfer-Encoding: chunked\r\n"));
    for (int i = 0; i < 8; ++i) {
        client.send("4000\r\n" + std::string(0x4000, 'x') + "\r\n");
    }
    client.send("0\r\n\r\n");
    client.readResponse();
}

/// A body that nobody reads.
void uploadInVain(RunningServer& server, std::size_t size) {
    RawClient client = server.connect();
    client.send(head("POST", "/unread", "Content-Length: " + std::to_string(size) + "\r\n"));
    client.trySend(std::string(size, 'x'));
    client.readResponse();
    client.endSending();
    client.readToEnd();
}

void followEvents(RunningServer& server) {
    server.connect().exchange(get("/events"));
}

void openWebSocketAndEcho(RunningServer& server) {
    RawClient client = openWebSocket(server.port());
    client.send(textFrame("message"));
    readFrame(client);
    client.endSending();
    client.readToEnd();
}

void fetchFile(RunningServer& server) {
    const RawResponse response = server.connect().exchange(get("/file"));
    EXPECT_TRUE(response.status != 200 || response.body == contentOf(ProgramFile).substr(0, FileBytes));
}

/// Two messages, each compressed, so that the second refers to the first.
void echoCompressed(RunningServer& server) {
    RawClient client = server.connect();
    client.send(get("/socket", "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                               "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
                               "Sec-WebSocket-Extensions: permessage-deflate\r\n"));
    if (client.readHead().status != 101) {
        return;
    }
    // "Hello" (RFC 7692 section 7.2.3.1).
    const std::string frame = clientFrame(std::string_view("\xf2\x48\xcd\xc9\xc9\x07\x00", 7), CompressedText);
    for (int i = 0; i < 2; ++i) {
        client.send(frame);
        readFrame(client);
    }
    client.send(clientFrame("\x03\xe8", 8));
    client.readToEnd();
}

void endSendingAndWait(RunningServer& server) {
    RawClient client = server.connect();
    client.send(get("/never"));
    client.endSending();
    client.readToEnd();
}

void leave(RunningServer& server) {
    const int before = server.application().handled;
    const std::size_t failuresBefore = allocationFailures + callFailures();
    RawClient client = server.connect();
    client.send(get("/never"));
    EXPECT_TRUE(waitUntil([&] {
        return server.application().handled != before || allocationFailures + callFailures() != failuresBefore;
    }));
    if (server.application().handled != before) {
        client.reset();
    }
}

class EventFault : public Fault {
protected:
    static void serveTheNext(RunningServer& server) {
        EXPECT_TRUE(waitUntil([&] { return server.application().isQuiet(); })) << "something is left";
        EXPECT_EQ(server.connect().exchange(get("/next")).status, 200);
        EXPECT_TRUE(waitUntil([&] { return server.application().isQuiet(); })) << "something is left";
    }
};

class EventFaultDuringAVisit : public EventFault, public testing::WithParamInterface<std::tuple<Kind, Visit>> {};

TEST_P(EventFaultDuringAVisit, IsSurvived) {
    const auto& [kind, visitor] = GetParam();
    RunningServer server;
    ASSERT_TRUE(server.start());
    visitor.act(server);
    // The pool's poll thread has its descriptors by then.
    openWebSocketAndEcho(server);
    serveTheNext(server);
    const std::size_t handles = openHandles();
    const std::size_t failures = failOneAfterTheOther(kind, [&, &arm = kind.arm, &act = visitor.act] {
        visit([&] { act(server); });
        arm(0);
        serveTheNext(server);
        EXPECT_TRUE(waitUntil([&] { return openHandles() <= handles; })) << "a descriptor is left over";
    });
    EXPECT_GT(failures, 0U);
}

std::string nameOfVisit(const testing::TestParamInfo<std::tuple<Kind, Visit>>& info) {
    return std::string(std::get<1>(info.param).name) + "With" + std::get<0>(info.param).name;
}

INSTANTIATE_TEST_SUITE_P(
    Visits, EventFaultDuringAVisit,
    testing::Combine(
        testing::Values(Allocations, EngineCalls, Descriptors, Watches),
        testing::Values(Visit{"Get", getSomething}, Visit{"HeldUpload", upload}, Visit{"ChunkedUpload", uploadChunks},
                        Visit{"UnreadUpload", [](RunningServer& server) { uploadInVain(server, 8 * Window); }},
                        Visit{"RefusedUpload", [](RunningServer& server) { uploadInVain(server, 9 * Window); }},
                        Visit{"EventStream", followEvents}, Visit{"WebSocket", openWebSocketAndEcho},
                        Visit{"EndOfSending", endSendingAndWait}, Visit{"Reset", leave})),
    nameOfVisit);

INSTANTIATE_TEST_SUITE_P(Files, EventFaultDuringAVisit,
                         testing::Combine(testing::Values(Allocations, EngineCalls, FileReads),
                                          testing::Values(Visit{"File", fetchFile})),
                         nameOfVisit);

class EventFaultOfASession : public EventFault, public testing::WithParamInterface<Kind> {};

TEST_P(EventFaultOfASession, ThatIsCompressedIsSurvived) {
    const Kind& kind = GetParam();
    std::atomic<int> alive{0};
    ServerOptions options = RunningServer::options();
    ql::http::WebSocketCompression compression;
    compression.setMinBytes(0);
    ql::http::WebSocketOptions sessions;
    sessions.setCompression(compression);
    sessions.setThreads(1);
    options.setWebSockets(std::make_shared<EchoAcceptor>(alive), sessions);
    RunningServer server(1, options);
    ASSERT_TRUE(server.start());
    echoCompressed(server);
    serveTheNext(server);
    ASSERT_TRUE(waitUntil([&] { return alive == 0; }));
    const std::size_t handles = openHandles();
    const std::size_t failures = failOneAfterTheOther(kind, [&] {
        visit([&] { echoCompressed(server); });
        kind.arm(0);
        serveTheNext(server);
        EXPECT_TRUE(waitUntil([&] { return alive == 0; })) << "a session is left over";
        EXPECT_TRUE(waitUntil([&] { return openHandles() <= handles; })) << "a descriptor is left over";
    });
    EXPECT_GT(failures, 0U);
}

INSTANTIATE_TEST_SUITE_P(Sessions, EventFaultOfASession,
                         testing::Values(Allocations, EngineCalls, Descriptors, Watches), nameOfKind);

/// Keeps how exchanges have ended.
class Endings : public ql::http::ExchangeObserver {
public:
    void onExchange(const ql::http::ExchangeRecord& record) override {
        const std::lock_guard lock(mutex_);
        reasons_.push_back(record.getReason());
    }

    bool has(const std::string& reason) {
        const std::lock_guard lock(mutex_);
        return std::ranges::find(reasons_, reason) != reasons_.end();
    }

private:
    std::mutex mutex_;
    std::vector<std::string> reasons_;
};

TEST_F(EventFault, OfTheEngineToTakeAnAnswerIsRecorded) {
    const auto endings = std::make_shared<Endings>();
    ServerOptions options = RunningServer::options();
    options.addExchangeObserver(endings);
    RunningServer server(1, options);
    ASSERT_TRUE(server.start());
    failOneAfterTheOther(EngineCalls, [&] {
        visit([&] { getSomething(server); });
        EngineCalls.arm(0);
        serveTheNext(server);
    });
    EXPECT_TRUE(endings->has("the engine took no answer"));
}

// The watch sees that a client leaves, and cannot look again, while the daemon thread has read the request and the
// exchange has not begun.
TEST_F(EventFault, OfTheNextLookAtAClientEndsTheRequestThatIsAboutToBegin) {
    vireotest::Event held;
    vireotest::Event proceed;
    std::atomic<bool> holds{false};
    RunningServer server;
    server.application().onCreate = [&, create = server.application().onCreate] {
        if (holds.exchange(false)) {
            held.set();
            EXPECT_TRUE(proceed.wait());
        }
        return create();
    };
    ASSERT_TRUE(server.start());
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(get("/first")).status, 200);
    holds = true;
    client.send(get("/never"));
    ASSERT_TRUE(held.wait());
    const std::size_t before = allocationFailures;
    failAllocationOfOthers(1);
    client.endSending();
    EXPECT_TRUE(waitUntil([&] { return allocationFailures != before; }));
    failAllocationOfOthers(0);
    proceed.set();
    EXPECT_EQ(client.readToEnd(), "");
    serveTheNext(server);
}

class EventFaultAtTheStart : public EventFault, public testing::WithParamInterface<Kind> {};

TEST_P(EventFaultAtTheStart, IsToldOrSurvived) {
    const Kind& kind = GetParam();
    const std::size_t handles = openHandles();
    const std::size_t failures = failOneAfterTheOther(kind, [&] {
        kind.arm(0);
        {
            RunningServer server(2);
            const std::size_t before = kind.failures();
            kind.arm(nth());
            const bool isRunning = server.start();
            if (isRunning) {
                // Who leaves is noticed, or it is in the log that he is not.
                visit([&] { getSomething(server); });
                kind.arm(0);
                visit([&] { endSendingAndWait(server); });
                serveTheNext(server);
            } else {
                kind.arm(0);
                EXPECT_GT(kind.failures(), before);
                EXPECT_NE(server.server().getStartError(), HttpServer::StartError::None);
                EXPECT_TRUE(isPortFree(server.port())) << "a listener is left that nobody closes";
            }
        }
        EXPECT_EQ(openHandles(), handles) << "a descriptor is left over";
    });
    EXPECT_GT(failures, 0U);
}

INSTANTIATE_TEST_SUITE_P(Starts, EventFaultAtTheStart,
                         testing::Values(Allocations, Threads, Descriptors, Watches, SocketOptions), nameOfKind);

class EventFaultAtTheEnd : public EventFault, public testing::WithParamInterface<Kind> {};

TEST_P(EventFaultAtTheEnd, OfADrainIsSurvived) {
    const Kind& kind = GetParam();
    const std::size_t handles = openHandles();
    failOneAfterTheOther(kind, [&] {
        kind.arm(0);
        {
            RunningServer server(2);
            ASSERT_TRUE(server.start());
            RawClient idle = server.connect();
            EXPECT_EQ(idle.exchange(get("/first")).status, 200);
            kind.arm(nth());
            server.server().drain(1000);
            kind.arm(0);
            EXPECT_EQ(server.server().getStatus(), Status::Stopped);
            EXPECT_EQ(server.application().stopped, 1);
            EXPECT_TRUE(isPortFree(server.port()));
        }
        EXPECT_EQ(openHandles(), handles) << "a descriptor is left over";
    });
}

TEST_P(EventFaultAtTheEnd, OfAStopIsSurvived) {
    const Kind& kind = GetParam();
    const std::size_t handles = openHandles();
    failOneAfterTheOther(kind, [&] {
        kind.arm(0);
        {
            RunningServer server(2);
            ASSERT_TRUE(server.start());
            RawClient client = server.connect();
            client.send(get("/never"));
            EXPECT_TRUE(waitUntil([&] { return server.application().handled == 1; }));
            kind.arm(nth());
            server.server().stopServer(true);
            kind.arm(0);
            EXPECT_EQ(server.server().getStatus(), Status::Stopped);
            EXPECT_EQ(server.application().stopped, 1);
            EXPECT_TRUE(waitUntil([&] { return server.application().isQuiet(); })) << "something is left";
        }
        EXPECT_EQ(openHandles(), handles) << "a descriptor is left over";
    });
}

INSTANTIATE_TEST_SUITE_P(Ends, EventFaultAtTheEnd, testing::Values(Allocations, Descriptors), nameOfKind);

} // namespace
} // namespace vireotest
