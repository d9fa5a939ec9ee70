#include "vireo/HttpServer.h"

#include "support/Event.h"
#include "support/FakeRequest.h"
#include "support/OccupiedPort.h"
#include "support/RawSocket.h"
#include "support/TestLog.h"
#include "support/WaitUntil.h"
#include "vireo/Vireo.h"
#include "vireo/support/qlSystemUtils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <type_traits>
#include <utility>

namespace {

using ql::http::HttpServer;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Parameters = HttpServer::Parameters;
using Status = HttpServer::Status;
using vireotest::Event;
using vireotest::FakeServerImpl;
using vireotest::letOthersRun;
using vireotest::occupiedPort;
using vireotest::soon;
using vireotest::TestLog;
using vireotest::waitUntil;

constexpr qlLogType ServerMessage = static_cast<qlLogType>(2);
constexpr qlLogType Failure = static_cast<qlLogType>(5);

const TestLog::Line NotInitialized{Failure, "httpserver", "Vireo is not initialized"};
const TestLog::Line NoDaemon{Failure, "httpserver", "Failed to create mhd server context"};

auto asTuple(const Parameters& p) {
    return std::make_tuple(p.port, p.listenBacklog, p.threadPoolSize, p.connectionTimeoutMs, p.webSocketEnabled,
                           p.reservedFlag1, p.reservedFlag2, p.reservedFlag3, p.listenOnAllInterfaces);
}

/// Every field different from its default.
Parameters unusualParameters() {
    Parameters parameters;
    parameters.port = 12;
    parameters.listenBacklog = 34;
    parameters.threadPoolSize = 5678;
    parameters.connectionTimeoutMs = 90;
    parameters.webSocketEnabled = true;
    parameters.reservedFlag1 = true;
    parameters.reservedFlag2 = false;
    parameters.reservedFlag3 = true;
    parameters.listenOnAllInterfaces = true;
    return parameters;
}

/// Listens wherever the system finds a port.
Parameters anyPort() {
    Parameters parameters;
    parameters.port = 0;
    parameters.threadPoolSize = 2;
    return parameters;
}

Parameters takenPort() {
    Parameters parameters = anyPort();
    parameters.port = occupiedPort();
    return parameters;
}

// ---- Parameters ----

TEST(HttpServerParameters, HaveTheirDefaults) {
    const Parameters parameters;
    EXPECT_EQ(parameters.port, 8181);
    EXPECT_EQ(parameters.listenBacklog, 1024U);
    EXPECT_EQ(parameters.threadPoolSize, static_cast<std::uint32_t>(qlSystemUtils::GetIdealThreadCount()));
    EXPECT_EQ(parameters.connectionTimeoutMs, 360000U);
    EXPECT_FALSE(parameters.webSocketEnabled);
    EXPECT_FALSE(parameters.reservedFlag1);
    EXPECT_TRUE(parameters.reservedFlag2);
    EXPECT_FALSE(parameters.reservedFlag3);
    EXPECT_FALSE(parameters.listenOnAllInterfaces);
}

TEST(HttpServerParameters, HaveTheirWidths) {
    EXPECT_TRUE((std::is_same_v<decltype(Parameters::port), std::uint16_t>));
    EXPECT_TRUE((std::is_same_v<decltype(Parameters::listenBacklog), std::uint32_t>));
    EXPECT_TRUE((std::is_same_v<decltype(Parameters::threadPoolSize), std::uint32_t>));
    EXPECT_TRUE((std::is_same_v<decltype(Parameters::connectionTimeoutMs), std::uint32_t>));
}

TEST(HttpServerParameters, CopyTakesEveryField) {
    const Parameters original = unusualParameters();
    const Parameters copy(original);
    EXPECT_EQ(asTuple(copy), asTuple(original));
    Parameters assigned;
    assigned = original;
    EXPECT_EQ(asTuple(assigned), asTuple(original));
}

TEST(HttpServerParameters, MoveTakesEveryField) {
    Parameters moved(unusualParameters());
    EXPECT_EQ(asTuple(moved), asTuple(unusualParameters()));
    Parameters assigned;
    assigned = std::move(moved);
    EXPECT_EQ(asTuple(assigned), asTuple(unusualParameters()));
}

TEST(HttpServerStatus, HasItsNumbers) {
    EXPECT_EQ(static_cast<int>(Status::Stopped), 0);
    EXPECT_EQ(static_cast<int>(Status::Starting), 1);
    EXPECT_EQ(static_cast<int>(Status::Running), 2);
    EXPECT_EQ(static_cast<int>(Status::Error), 3);
    EXPECT_EQ(sizeof(Status), 4U);
}

// ---- Life ----

// A server lives on the heap here: ThreadSanitizer takes std::mutex objects that follow each other at one place of the
// stack for the same, and would see locks of different tests in contrary order.

[[nodiscard]] bool comesTo(const HttpServer& server, Status status) {
    return waitUntil([&] { return server.getStatus() == status; });
}

/// Nothing is initialised.
class HttpServerBareTest : public testing::Test {
protected:
    const TestLog log_;
    std::atomic<bool> isDestroyed_{false};
    FakeServerImpl& application_ = *new FakeServerImpl(&isDestroyed_);
    std::unique_ptr<HttpServer> server_ = std::make_unique<HttpServer>(&application_);
};

class HttpServerTest : public HttpServerBareTest {
protected:
    HttpServerTest() { ql::initializeVireo(); }
    ~HttpServerTest() override {
        server_.reset();
        ql::terminateVireo();
    }
};

TEST_F(HttpServerBareTest, NewOneIsStopped) {
    EXPECT_EQ(server_->getStatus(), Status::Stopped);
    EXPECT_FALSE(server_->shouldExit());
    EXPECT_EQ(server_->getHttpImplementation(), &application_);
    EXPECT_EQ(asTuple(server_->getParameters()), asTuple(Parameters()));
}

TEST_F(HttpServerBareTest, UnstartedOneDestroysItsImplementationAndNothingElseHappens) {
    int stopped = 0;
    application_.onStopped = [&] { ++stopped; };
    server_.reset();
    EXPECT_TRUE(isDestroyed_);
    EXPECT_EQ(stopped, 0);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(HttpServerBareTest, DoesNotStartWithoutTheLibrary) {
    server_->startServer(anyPort());
    ASSERT_TRUE(comesTo(*server_, Status::Error));
    EXPECT_THAT(log_.lines(), ElementsAre(NotInitialized));
    EXPECT_EQ(application_.stopped, 1);
}

TEST_F(HttpServerBareTest, ErrorIsFinal) {
    server_->startServer(anyPort());
    ASSERT_TRUE(comesTo(*server_, Status::Error));
    ql::initializeVireo();
    server_->startServer(unusualParameters());
    EXPECT_EQ(server_->getStatus(), Status::Error);
    server_->stopServer(true);
    EXPECT_EQ(server_->getStatus(), Status::Error);
    EXPECT_EQ(asTuple(server_->getParameters()), asTuple(anyPort()));
    EXPECT_EQ(application_.stopped, 1);
    server_.reset();
    ql::terminateVireo();
}

TEST_F(HttpServerBareTest, OneThatFailedDestroysItsImplementation) {
    server_->startServer(anyPort());
    server_.reset();
    EXPECT_TRUE(isDestroyed_);
}

TEST_F(HttpServerBareTest, IsStartingUntilItsThreadHasTried) {
    Event goOn;
    Status statusMeanwhile = Status::Stopped;
    application_.onStopped = [&] {
        statusMeanwhile = server_->getStatus();
        EXPECT_TRUE(goOn.wait());
    };
    server_->startServer(anyPort());
    EXPECT_EQ(server_->getStatus(), Status::Starting);
    goOn.set();
    ASSERT_TRUE(comesTo(*server_, Status::Error));
    EXPECT_EQ(statusMeanwhile, Status::Starting) << "the implementation hears of it first";
}

TEST_F(HttpServerBareTest, ServerWithoutImplementationDoesNotStart) {
    const auto server = std::make_unique<HttpServer>(nullptr);
    server->startServer(anyPort());
    EXPECT_EQ(server->getStatus(), Status::Error);
    EXPECT_THAT(log_.lines(), Contains(testing::Field(&TestLog::Line::text, HasSubstr("no implementation"))));
}

TEST_F(HttpServerTest, RunsAndStops) {
    server_->startServer(anyPort());
    ASSERT_TRUE(comesTo(*server_, Status::Running));
    EXPECT_EQ(application_.stopped, 0);
    server_->stopServer(true);
    EXPECT_EQ(server_->getStatus(), Status::Stopped);
    EXPECT_EQ(application_.stopped, 1);
    EXPECT_THAT(log_.linesOf(Failure), IsEmpty());
}

TEST_F(HttpServerTest, ParametersAreThoseOfTheAcceptedStart) {
    Parameters parameters = anyPort();
    parameters.reservedFlag1 = true;
    parameters.reservedFlag2 = false;
    parameters.reservedFlag3 = true;
    parameters.connectionTimeoutMs = 1;
    server_->startServer(parameters);
    EXPECT_EQ(asTuple(server_->getParameters()), asTuple(parameters));
}

TEST_F(HttpServerTest, SecondStartIsIgnored) {
    server_->startServer(anyPort());
    server_->startServer(unusualParameters());
    EXPECT_EQ(asTuple(server_->getParameters()), asTuple(anyPort()));
    ASSERT_TRUE(comesTo(*server_, Status::Running));
    server_->startServer(unusualParameters());
    EXPECT_EQ(server_->getStatus(), Status::Running);
    EXPECT_EQ(asTuple(server_->getParameters()), asTuple(anyPort()));
    server_->stopServer(true);
    EXPECT_EQ(application_.stopped, 1) << "one run";
}

TEST_F(HttpServerTest, StopFlagRisesAtTheStopAndFallsAtTheStart) {
    server_->stopServer(true);
    EXPECT_TRUE(server_->shouldExit());
    EXPECT_EQ(server_->getStatus(), Status::Stopped);
    EXPECT_EQ(application_.stopped, 0) << "there was no run";
    server_->startServer(anyPort());
    EXPECT_FALSE(server_->shouldExit());
    ASSERT_TRUE(comesTo(*server_, Status::Running));
    server_->stopServer(false);
    EXPECT_TRUE(server_->shouldExit());
}

TEST_F(HttpServerTest, StopAgainIsHarmless) {
    server_->startServer(anyPort());
    server_->stopServer(true);
    server_->stopServer(true);
    server_->stopServer(false);
    EXPECT_EQ(server_->getStatus(), Status::Stopped);
    EXPECT_EQ(application_.stopped, 1);
}

TEST_F(HttpServerTest, StopRightAfterTheStartStillMakesOneRun) {
    server_->startServer(anyPort());
    server_->stopServer(true);
    EXPECT_EQ(server_->getStatus(), Status::Stopped);
    EXPECT_EQ(application_.stopped, 1);
}

TEST_F(HttpServerTest, StopWithoutWaitingReturnsBeforeTheServerHasStopped) {
    Event isStopping;
    Event goOn;
    application_.onStopped = [&] {
        isStopping.set();
        EXPECT_TRUE(goOn.wait());
    };
    server_->startServer(anyPort());
    ASSERT_TRUE(comesTo(*server_, Status::Running));
    server_->stopServer(false);
    EXPECT_TRUE(isStopping.wait());
    EXPECT_EQ(server_->getStatus(), Status::Running) << "the daemon still runs while the implementation lets go";
    goOn.set();
    EXPECT_TRUE(comesTo(*server_, Status::Stopped));
}

TEST_F(HttpServerTest, StopThatWaitsReturnsAfterTheImplementationHasLetGo) {
    Event isStopping;
    Event goOn;
    application_.onStopped = [&] {
        isStopping.set();
        EXPECT_TRUE(goOn.wait());
    };
    server_->startServer(anyPort());
    std::atomic<bool> hasReturned{false};
    std::thread stopper([&] {
        server_->stopServer(true);
        hasReturned = true;
    });
    EXPECT_TRUE(isStopping.wait());
    letOthersRun();
    EXPECT_FALSE(hasReturned);
    goOn.set();
    stopper.join();
    EXPECT_EQ(server_->getStatus(), Status::Stopped);
}

TEST_F(HttpServerTest, CanBeStartedAgainWithOtherParameters) {
    server_->startServer(anyPort());
    ASSERT_TRUE(comesTo(*server_, Status::Running));
    server_->stopServer(true);
    Parameters other = anyPort();
    other.webSocketEnabled = true;
    server_->startServer(other);
    ASSERT_TRUE(comesTo(*server_, Status::Running));
    EXPECT_TRUE(server_->getParameters().webSocketEnabled);
    server_->stopServer(true);
    EXPECT_EQ(application_.stopped, 2);
}

/// Its thread ends only when it is let go, after everything that the server has to do is done.
class LingeringServer : public HttpServer {
public:
    using HttpServer::HttpServer;
    ~LingeringServer() override {
        end.set();
        stopServer(true);
    }

    Event end;

protected:
    void run() override {
        HttpServer::run();
        EXPECT_TRUE(end.wait());
    }
};

TEST_F(HttpServerTest, CanBeStartedAgainAsSoonAsItIsStopped) {
    const auto server = std::make_unique<LingeringServer>(new FakeServerImpl);
    server->startServer(anyPort());
    ASSERT_TRUE(comesTo(*server, Status::Running));
    server->stopServer(false);
    ASSERT_TRUE(comesTo(*server, Status::Stopped));
    std::future<void> starting = std::async(std::launch::async, [&] { server->startServer(anyPort()); });
    ASSERT_TRUE(comesTo(*server, Status::Starting));
    letOthersRun();
    server->end.set();
    starting.get();
    EXPECT_TRUE(comesTo(*server, Status::Running)) << "the start was not lost";
}

TEST_F(HttpServerTest, DestructionStopsARunningOneThenDestroysTheImplementation) {
    int stopped = 0;
    bool wasDestroyedBefore = true;
    application_.onStopped = [&] {
        ++stopped;
        wasDestroyedBefore = isDestroyed_;
    };
    server_->startServer(anyPort());
    ASSERT_TRUE(comesTo(*server_, Status::Running));
    server_.reset();
    EXPECT_EQ(stopped, 1);
    EXPECT_FALSE(wasDestroyedBefore);
    EXPECT_TRUE(isDestroyed_);
}

TEST_F(HttpServerTest, DestructionRightAfterTheStartMakesOneRun) {
    int stopped = 0;
    application_.onStopped = [&] { ++stopped; };
    server_->startServer(anyPort());
    server_.reset();
    EXPECT_EQ(stopped, 1);
    EXPECT_TRUE(isDestroyed_);
}

TEST_F(HttpServerTest, StopIsToldOnTheServersOwnThread) {
    std::thread::id thread;
    application_.onStopped = [&] { thread = std::this_thread::get_id(); };
    server_->startServer(anyPort());
    server_->stopServer(true);
    EXPECT_NE(thread, std::thread::id());
    EXPECT_NE(thread, std::this_thread::get_id());
}

TEST_F(HttpServerTest, PortInUseIsAnError) {
    server_->startServer(takenPort());
    ASSERT_TRUE(comesTo(*server_, Status::Error));
    EXPECT_THAT(log_.linesOf(Failure), ElementsAre(NoDaemon));
    EXPECT_THAT(log_.linesOf(qlLogType::Engine),
                Contains(testing::Field(&TestLog::Line::text, testing::StartsWith("libmicrohttpd: "))))
        << "the engine says why";
    EXPECT_EQ(application_.stopped, 1);
}

TEST_F(HttpServerTest, PortInUseIsFinal) {
    const Parameters taken = takenPort();
    server_->startServer(taken);
    ASSERT_TRUE(comesTo(*server_, Status::Error));
    server_->startServer(anyPort());
    EXPECT_EQ(server_->getStatus(), Status::Error);
    EXPECT_EQ(asTuple(server_->getParameters()), asTuple(taken));
    EXPECT_EQ(application_.stopped, 1);
    EXPECT_THAT(log_.linesOf(Failure), ElementsAre(NoDaemon));
}

TEST_F(HttpServerTest, ExceptionOfTheImplementationDoesNotStopTheStop) {
    application_.onStopped = [] { throw std::runtime_error("cannot let go"); };
    server_->startServer(anyPort());
    ASSERT_TRUE(comesTo(*server_, Status::Running));
    server_->stopServer(true);
    EXPECT_EQ(server_->getStatus(), Status::Stopped);
    EXPECT_THAT(
        log_.linesOf(Failure),
        ElementsAre(TestLog::Line{Failure, "httpserver", "onServerStopped threw an exception : cannot let go"}));
}

TEST_F(HttpServerBareTest, ExceptionOfTheImplementationDoesNotHideTheError) {
    application_.onStopped = [] { throw 42; };
    server_->startServer(anyPort());
    ASSERT_TRUE(comesTo(*server_, Status::Error));
    EXPECT_THAT(log_.lines(),
                ElementsAre(NotInitialized, TestLog::Line{Failure, "httpserver",
                                                          "onServerStopped threw an exception of an unknown type"}));
}

TEST_F(HttpServerTest, TwoServersLiveSideBySide) {
    std::atomic<bool> isOtherDestroyed{false};
    auto* const otherApplication = new FakeServerImpl(&isOtherDestroyed);
    auto other = std::make_unique<HttpServer>(otherApplication);
    server_->startServer(anyPort());
    other->startServer(anyPort());
    ASSERT_TRUE(comesTo(*server_, Status::Running));
    ASSERT_TRUE(comesTo(*other, Status::Running));
    server_->stopServer(true);
    EXPECT_EQ(other->getStatus(), Status::Running);
    EXPECT_FALSE(other->shouldExit());
    EXPECT_EQ(otherApplication->stopped, 0);
    other.reset();
    EXPECT_TRUE(isOtherDestroyed);
    EXPECT_FALSE(isDestroyed_);
    EXPECT_EQ(application_.stopped, 1);
}

TEST_F(HttpServerTest, ConcurrentStopsAllReturn) {
    server_->startServer(anyPort());
    ASSERT_TRUE(comesTo(*server_, Status::Running));
    std::thread first([this] { server_->stopServer(true); });
    std::thread second([this] { server_->stopServer(true); });
    first.join();
    second.join();
    EXPECT_EQ(server_->getStatus(), Status::Stopped);
    EXPECT_EQ(application_.stopped, 1);
}

TEST_F(HttpServerTest, StopDoesNotWaitForTheRunOfASecondThreadThatStartsAgainAtOnce) {
    for (int round = 0; round < 20; ++round) {
        server_->startServer(anyPort());
        ASSERT_TRUE(comesTo(*server_, Status::Running));
        std::thread second([this] {
            while (server_->getStatus() != Status::Stopped) {
                std::this_thread::yield();
            }
            server_->startServer(anyPort());
        });
        std::future<void> stopped = std::async(std::launch::async, [this] { server_->stopServer(true); });
        second.join();
        EXPECT_EQ(stopped.wait_until(soon()), std::future_status::ready) << "in round " << round;
        EXPECT_NE(server_->getStatus(), Status::Stopped);
        EXPECT_FALSE(server_->shouldExit());
        server_->stopServer(true);
        if (HasFailure()) {
            break;
        }
    }
}

// ---- The start line ----

class HttpServerStartLineTest : public testing::Test {
protected:
    HttpServerStartLineTest() { ql::initializeVireo(); }
    ~HttpServerStartLineTest() override { ql::terminateVireo(); }

    static void startAndStop(const Parameters& parameters) {
        const auto server = std::make_unique<HttpServer>(new FakeServerImpl);
        server->startServer(parameters);
        server->stopServer(true);
    }

    static std::string startLine(std::uint16_t port, const std::string& flags) {
        return "Starting http server : listen @" + std::to_string(port) + ", with flags 0x" + flags;
    }
};

TEST_F(HttpServerStartLineTest, NamesPortAndFlags) {
    const TestLog log(true);
    const Parameters taken = takenPort();
    startAndStop(taken);
    EXPECT_THAT(log.linesOf(ServerMessage),
                ElementsAre(TestLog::Line{ServerMessage, "httpserver", startLine(taken.port, "10009")}));
}

TEST_F(HttpServerStartLineTest, ShowsTheUpgradeFlagWithWebSockets) {
    const TestLog log(true);
    Parameters parameters = anyPort();
    parameters.webSocketEnabled = true;
    startAndStop(parameters);
    EXPECT_THAT(log.linesOf(ServerMessage),
                ElementsAre(TestLog::Line{ServerMessage, "httpserver", startLine(0, "18009")}));
}

TEST_F(HttpServerStartLineTest, ComesBeforeTheFailure) {
    const TestLog log(true, {qlLogType::Engine});
    const Parameters taken = takenPort();
    startAndStop(taken);
    EXPECT_THAT(log.lines(),
                ElementsAre(TestLog::Line{ServerMessage, "httpserver", startLine(taken.port, "10009")}, NoDaemon));
}

TEST_F(HttpServerStartLineTest, IsNotWrittenToALogThatIsNotVerbose) {
    const TestLog log(false);
    startAndStop(anyPort());
    EXPECT_THAT(log.linesOf(ServerMessage), IsEmpty());
}

TEST_F(HttpServerStartLineTest, IsWrittenWithoutALog) {
    testing::internal::CaptureStderr();
    startAndStop(anyPort());
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(startLine(0, "10009") + "\n"));
}

TEST_F(HttpServerStartLineTest, IsNotWrittenWithoutTheLibrary) {
    ql::terminateVireo();
    const TestLog log(true);
    startAndStop(anyPort());
    EXPECT_THAT(log.lines(), ElementsAre(NotInitialized));
    ql::initializeVireo();
}

} // namespace
