// Whatever fails once, at whatever place: nothing crashes, nothing hangs, and the next client is served.

#include "integration/EchoSocket.h"
#include "reliability/Faults.h"
#include "support/FailingAllocation.h"
#include "support/FailingCalls.h"
#include "support/FakeRequest.h"
#include "support/FreePort.h"
#include "support/RawClient.h"
#include "support/TestLog.h"
#include "support/TestOptions.h"
#include "support/WaitUntil.h"
#include "vireo/HttpServer.h"
#include "vireo/support/SystemError.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <ostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace vireotest {
namespace {

using ql::http::HttpServer;
using Status = HttpServer::Status;

/// It allocates next to nothing itself, so that what fails is the library's.
class Application : public FakeServerImpl {
public:
    Application() {
        onCreate = [this] {
            auto request = std::make_unique<EchoRequest>(*this);
            request->response.headers["x"] = {"X-Header", "value"};
            request->response.cookies["cookie"] = "value";
            const std::lock_guard lock(mutex_);
            return requests_.emplace_back(std::move(request)).get();
        };
        onAccept = [this](ql::http::WebSocket* socket) { addEchoSocket(pool_, socket, alive_); };
        onStopped = [this] {
            pool_.stopThreads(true);
            pool_.closeAll();
        };
        setDefaultInternalError("internal error");
    }

    void startPool() { pool_.startThreads(1); }

    /// Every request has ended, and is deleted.
    bool isQuiet() {
        const std::lock_guard lock(mutex_);
        requests_.remove_if([](const auto& request) { return request->isSchedulerDone(); });
        return requests_.empty() && alive_ == 0;
    }

private:
    ql::http::WebSocketThread pool_;
    std::atomic<int> alive_{0};
    std::mutex mutex_;
    std::list<std::unique_ptr<EchoRequest>> requests_;
};

class RunningServer {
public:
    explicit RunningServer(const ql::http::ServerOptions& options = optionsOfTests())
        : application_(new Application), server_(application_, options) {
        parameters_.port = freePort();
        parameters_.threadPoolSize = 1;
        parameters_.webSocketEnabled = true;
    }

    /// @return false when it cannot be started.
    bool start() {
        server_.startServer(parameters_);
        EXPECT_TRUE(waitUntil([this] { return server_.getStatus() != Status::Starting; }));
        return server_.getStatus() == Status::Running;
    }

    /// To its end.
    void drain() {
        server_.drain(30000);
        EXPECT_EQ(server_.getStatus(), Status::Stopped);
    }

    Application& application() { return *application_; }
    RawClient connect() const { return RawClient(parameters_.port); }
    std::uint16_t port() const { return parameters_.port; }

private:
    Application* application_;
    HttpServer server_;
    HttpServer::Parameters parameters_;
};

/// What a client does, with a running server, while something fails.
struct Visit {
    const char* name;
    std::function<void(RunningServer&)> act;

    friend void PrintTo(const Visit& visit, std::ostream* out) { *out << visit.name; }
};

std::string nameOf(const testing::TestParamInfo<Visit>& info) {
    return info.param.name;
}

const std::string Target = "/path?name=value&other=another+value+for+the+heap";
const std::string Headers = "Cookie: a=b; c=d\r\nX-One: 1, 2, 3\r\nX-Two: a value long enough for the heap, surely\r\n";

void getSomething(RunningServer& server) {
    server.connect().exchange(get(Target, Headers));
}

void postSomething(RunningServer& server) {
    server.connect().exchange(post("/path", std::string(100000, 'x'), Headers));
}

void echo(std::uint16_t port) {
    RawClient client = openWebSocket(port);
    client.send(textFrame(std::string(3000, 'm')));
    if (readFrame(client).second != std::string(3000, 'm')) {
        ADD_FAILURE() << "another message";
    }
    client.endSending();
    client.readToEnd();
}

void openWebSocketAndEcho(RunningServer& server) {
    echo(server.port());
}

class FaultDuringAVisit : public Fault, public testing::WithParamInterface<Visit> {
protected:
    FaultDuringAVisit() {
        server_.application().startPool();
        EXPECT_TRUE(server_.start());
    }

    void scenario() {
        visit([&] { GetParam().act(server_); });
        disarm();
        EXPECT_TRUE(waitUntil([&] { return server_.application().isQuiet(); })) << "something is left";
        EXPECT_EQ(server_.connect().exchange(get("/next")).status, 200);
        EXPECT_TRUE(waitUntil([&] { return server_.application().isQuiet(); })) << "something is left";
    }

    static void disarm() {
        failAllocationOfOthers(0);
        for (const FailingCall kind : {FailingCall::Engine, FailingCall::Receive, FailingCall::Send}) {
            failCall(kind, 0);
        }
    }

    RunningServer server_;
};

TEST_P(FaultDuringAVisit, OfAnyAllocationIsSurvived) {
    EXPECT_GT(failAllocations([this] { scenario(); }), 0U);
}

TEST_P(FaultDuringAVisit, OfAnyCallOfTheEngineIsSurvived) {
    EXPECT_GT(failCalls(FailingCall::Engine, [this] { scenario(); }), 0U);
}

INSTANTIATE_TEST_SUITE_P(Visits, FaultDuringAVisit,
                         testing::Values(Visit{"Get", getSomething}, Visit{"Post", postSomething},
                                         Visit{"WebSocket", openWebSocketAndEcho}),
                         nameOf);

class FaultOfASocket : public FaultDuringAVisit {};

TEST_P(FaultOfASocket, InReceivingIsSurvived) {
    EXPECT_GT(failCalls(FailingCall::Receive, [this] { scenario(); }), 0U);
}

TEST_P(FaultOfASocket, InSendingIsSurvived) {
    EXPECT_GT(failCalls(FailingCall::Send, [this] { scenario(); }), 0U);
}

INSTANTIATE_TEST_SUITE_P(Visits, FaultOfASocket, testing::Values(Visit{"WebSocket", openWebSocketAndEcho}), nameOf);

class FaultOfAPoll : public Fault, public testing::WithParamInterface<int> {
protected:
    FaultOfAPoll() { setPollError(GetParam()); }
};

TEST_P(FaultOfAPoll, EndsTheServiceOfThePoolAndNothingElse) {
    const std::string line = "Got an error during call to WSAPoll " + ql::SystemError(GetParam()).toString();
    std::size_t ends = 0;
    const std::size_t failures = failCalls(FailingCall::Poll, [&] {
        const TestLog log;
        const std::size_t failuresBefore = callFailures();
        const std::size_t handlesBefore = openHandles();
        {
            std::atomic<bool> isDone{false};
            std::jthread client; // ends when the server has stopped
            RunningServer server;
            server.application().startPool();
            ASSERT_TRUE(server.start());
            client = std::jthread([&isDone, port = server.port()] {
                visit([&] { echo(port); });
                isDone = true;
            });
            EXPECT_TRUE(waitUntil([&] { return isDone || callFailures() > failuresBefore; }));
            // From the failure on nobody serves WebSockets. All others are served, and the server can be stopped.
            const RawClient late = openWebSocket(server.port());
            EXPECT_EQ(server.connect().exchange(get("/next")).status, 200);
        }
        const std::size_t lines = log.texts(qlLogType::Failure, line).size();
        ends += lines;
        if (isEventMode()) {
            // Whoever accepts polls as well, and goes on.
            EXPECT_LE(lines, callFailures() - failuresBefore);
        } else {
            EXPECT_EQ(lines, callFailures() - failuresBefore);
        }
        EXPECT_EQ(openHandles(), handlesBefore) << "something stays open";
    });
    EXPECT_GT(failures, 0U);
    EXPECT_GT(ends, 0U);
}

INSTANTIATE_TEST_SUITE_P(Errors, FaultOfAPoll, testing::Values(ENOMEM, EINVAL));

TEST_F(Fault, OfAPollByAnInterruptionChangesNothing) {
    setPollError(EINTR);
    const TestLog log;
    RunningServer server;
    server.application().startPool();
    ASSERT_TRUE(server.start());
    const std::size_t failures = failCalls(FailingCall::Poll, [&] {
        echo(server.port());
        EXPECT_TRUE(waitUntil([&] { return server.application().isQuiet(); })) << "something is left";
    });
    EXPECT_GT(failures, 0U);
    EXPECT_EQ(log.texts(qlLogType::Failure).size(), 0U);
}

// Engine 0.9.75 does not complete it.
TEST_F(Fault, OfARequestTwiceLeavesNothing) {
    RunningServer server;
    ASSERT_TRUE(server.start());
    const auto refuse = [&server] {
        RawClient client = server.connect();
        client.send("GET /" + Target + " HTTP/1.1\r\nCookie: =\"\r\n\r\n");
        client.readToEnd();
    };
    refuse();
    EXPECT_EQ(server.connect().exchange(get("/next")).status, 200);
    EXPECT_TRUE(waitUntil([&] { return server.application().isQuiet(); }));
    const std::size_t before = livingAllocations;
    constexpr int Times = 100;
    for (int i = 0; i < Times; ++i) {
        refuse();
    }
    EXPECT_TRUE(waitUntil([before] { return livingAllocations < before + Times / 2; })) << livingAllocations - before;
}

// An application must not decide on a request from which something went missing without a word.
TEST_F(Fault, OfAnAllocationDuringTheIntakeIsAParseError) {
    std::atomic<int> parseErrors{0};
    RunningServer server;
    server.application().onHandle = [&](ql::HttpBaseRequest* request) {
        for (const auto* map : {&request->getCookies(), &request->getQueryParameters()}) {
            for (const auto& [name, values] : *map) {
                EXPECT_FALSE(values.empty()) << name;
            }
        }
        if (request->hasParseError()) {
            ++parseErrors;
            EXPECT_EQ(request->getParseError(), "out of memory");
            return;
        }
        EXPECT_EQ(request->getOriginalRequestUrl(), Target);
        EXPECT_EQ(request->getHeaders().getAll().size(), 4U); // "Host" and "Cookie" among them
        EXPECT_EQ(request->getCookies().size(), 2U);
        EXPECT_EQ(request->getQueryParameters().size(), 2U);
    };
    ASSERT_TRUE(server.start());
    failAllocations([&] {
        visit([&] { getSomething(server); });
        failAllocationOfOthers(0);
        EXPECT_TRUE(waitUntil([&] { return server.application().isQuiet(); })) << "something is left";
    });
    EXPECT_GT(parseErrors, 0);
}

TEST_F(Fault, OfAnyThreadAtTheStartIsToldAndSurvived) {
    const std::size_t failures = failCalls(FailingCall::ThreadStart, [] {
        const std::size_t before = callFailures();
        RunningServer server;
        try {
            server.application().startPool();
        } catch (const std::system_error&) {
            return; // a pool that could not be started is stopped
        }
        if (server.start()) {
            visit([&] { getSomething(server); });
        } else {
            EXPECT_GT(callFailures(), before);
        }
    });
    // Poll thread and worker of the pool, server thread, daemon thread; watch, acceptor.
    EXPECT_GE(failures, isEventMode() ? 6U : 4U);
}

TEST_F(Fault, OfAnyAllocationAtTheStartIsToldAndSurvived) {
    failAllocations([] {
        const std::size_t before = allocationFailures;
        RunningServer server;
        server.application().startPool();
        if (server.start()) {
            visit([&] { getSomething(server); });
        } else {
            EXPECT_GT(allocationFailures, before);
            EXPECT_TRUE(isPortFree(server.port())) << "a daemon is left that nobody stops";
        }
    });
}

TEST_F(Fault, OfAnyAllocationDuringADrainIsSurvived) {
    std::size_t armed = 0;
    Kind duringTheDrain = allocations();
    duringTheDrain.arm = [&](std::size_t nth) { armed = nth; };
    failOneAfterTheOther(duringTheDrain, [&] {
        RunningServer server;
        ASSERT_TRUE(server.start());
        RawClient idle = server.connect();
        EXPECT_EQ(idle.exchange(get("/")).status, 200);
        failAllocationOfOthers(armed);
        server.drain();
        failAllocationOfOthers(0);
    });
}

/// Takes descriptors until the process may have no more, but for some.
class Shortage {
public:
    explicit Shortage(std::size_t left) {
        while (const int descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) {
            if (descriptor < 0) {
                break;
            }
            taken_.push_back(descriptor);
        }
        for (; left > 0; --left) {
            ::close(taken_.back());
            taken_.pop_back();
        }
    }
    ~Shortage() {
        for (const int descriptor : taken_) {
            ::close(descriptor);
        }
        ::setrlimit(RLIMIT_NOFILE, &before_);
    }
    Shortage(const Shortage&) = delete;
    Shortage& operator=(const Shortage&) = delete;

private:
    /// Not too many, so that it does not take long.
    static rlimit limit() {
        rlimit before{};
        ::getrlimit(RLIMIT_NOFILE, &before);
        rlimit lower = before;
        lower.rlim_cur = std::min<rlim_t>(before.rlim_cur, 256);
        ::setrlimit(RLIMIT_NOFILE, &lower);
        return before;
    }

    const rlimit before_ = limit();
    std::vector<int> taken_;
};

class DescriptorShortage : public Fault {
protected:
    DescriptorShortage() {
        server_.application().startPool();
        EXPECT_TRUE(server_.start());
    }

    RunningServer server_;
};

TEST_F(DescriptorShortage, AtTheAcceptLetsTheNewClientWaitAndServesTheOthers) {
    RawClient old = server_.connect();
    EXPECT_EQ(old.exchange(get("/")).status, 200);
    std::unique_ptr<RawClient> late;
    {
        const Shortage shortage(1);
        late = std::make_unique<RawClient>(server_.port());
        late->send(get("/late"));
        for (int i = 0; i < 10; ++i) {
            EXPECT_EQ(old.exchange(get("/")).status, 200);
        }
    }
    // The engine accepts again once one of its connections has gone.
    old.close();
    EXPECT_EQ(late->readResponse().status, 200);
}

TEST_F(DescriptorShortage, AtTheUpgradeChangesNothing) {
    RawClient client = server_.connect();
    EXPECT_EQ(client.exchange(get("/")).status, 200); // it is accepted
    const Shortage shortage(0);
    client.send(get("/socket", "Upgrade: WebSocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                               "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"));
    EXPECT_EQ(client.readHead().status, 101);
    client.send(textFrame("hello"));
    EXPECT_EQ(readFrame(client).second, "hello");
}

} // namespace
} // namespace vireotest
