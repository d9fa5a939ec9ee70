#include "vireo/HttpServer.h"

#include "frame/ExceptionLog.h"
#include "server/ServerRun.h"
#include "server/ServerState.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlSystemUtils.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <utility>

namespace ql::http {

namespace {

constexpr const char* LogTag = "httpserver";
/// How long a stop can go unnoticed without a wake-up.
constexpr unsigned long WatchPeriodMs = 200;
/// How often a drain looks at how far it is.
constexpr unsigned long DrainPeriodMs = 10;

/// Without a text, for which there may be no memory.
constexpr auto OutOfResources = HttpServer::StartError::OutOfResources;

void notifyStopped(HttpServerImpl& implementation) {
    try {
        implementation.onServerStopped();
    } catch (...) {
        impl::logCurrentException("onServerStopped", "httpserver");
    }
}

} // namespace

HttpServer::Parameters::Parameters()
    : threadPoolSize(static_cast<std::uint32_t>(qlSystemUtils::GetIdealThreadCount())) {}

HttpServer::HttpServer(HttpServerImpl* implementation) : HttpServer(implementation, ServerOptions()) {}

HttpServer::HttpServer(HttpServerImpl* implementation, const ServerOptions& options)
    : implementation_(implementation), state_(new impl::ServerState(options)) {}

HttpServer::~HttpServer() {
    stopServer(true);
    // While the rest of the server is still there, for it knows the server.
    implementation_.reset();
}

void HttpServer::startServer(const Parameters& parameters) {
    const qlMutexLocker locker(mutex_);
    if (getStatus() != Status::Stopped) {
        return;
    }
    setStatus(Status::Starting);
    parameters_ = parameters;
    exitRequested_ = false;
    state_->setStartFailure({});
    state_->isDraining = false;
    impl::StartFailure failure{OutOfResources, {}};
    try {
        if (!implementation_) {
            failure = {StartError::NotInitialized, "no implementation"};
            throw std::logic_error(failure.text);
        }
        state_->drainResult = std::make_shared<DrainResult>();
        // A thread that has just set Stopped may not have ended yet, and would swallow the start. It needs the lock no
        // more, so this wait is short.
        waitThread(NoTimeLimit);
        startThread(nullptr);
    } catch (...) {
        impl::logCurrentException("the start of a server", "httpserver");
        state_->setStartFailure(std::move(failure));
        setStatus(Status::Error);
    }
    wakeUp_.wakeAll();
}

bool HttpServer::waitUntilRunning(unsigned long ms) {
    using Clock = std::chrono::steady_clock;
    // More would be beyond the clock's end.
    constexpr unsigned long MostMs = qlWaitCondition::NoTimeLimit;
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(std::min(ms, MostMs));
    const qlMutexLocker locker(state_->statusMutex);
    while (getStatus() == Status::Starting) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left <= 0) {
            break;
        }
        state_->statusChanged.wait(&state_->statusMutex, static_cast<unsigned long>(left));
    }
    return getStatus() == Status::Running;
}

HttpServer::StartError HttpServer::getStartError() const {
    return state_->startError;
}

std::string HttpServer::getStartErrorText() const {
    const qlMutexLocker locker(state_->statusMutex);
    if (state_->startErrorText.empty() && state_->startError == OutOfResources) {
        return "no memory or thread is left";
    }
    return state_->startErrorText;
}

std::uint16_t HttpServer::getPort() const {
    return state_->port;
}

std::vector<std::uint16_t> HttpServer::getPorts() const {
    const qlMutexLocker locker(state_->statusMutex);
    return state_->ports;
}

void HttpServer::setStatus(Status status) {
    const qlMutexLocker locker(state_->statusMutex);
    status_ = status;
    state_->statusChanged.wakeAll();
}

void HttpServer::stopServer(bool wait) {
    std::uint64_t run = 0;
    {
        const qlMutexLocker locker(mutex_);
        exitRequested_ = true;
        wakeUp_.wakeAll();
        run = getRunNumber();
    }
    if (wait) {
        waitRun(run, NoTimeLimit);
    }
}

HttpServer::DrainResult HttpServer::drain(std::uint32_t deadlineMs) {
    if (state_->options.getWaiting() != ServerOptions::Waiting::Event) {
        qlLogObject(qlLogType::Server, LogTag) << "Only a server with Waiting::Event can be drained : it stops";
        stopServer(true);
        return {};
    }
    std::uint64_t run = 0;
    std::shared_ptr<const DrainResult> result;
    {
        const qlMutexLocker locker(mutex_);
        const Status status = getStatus();
        if (status != Status::Starting && status != Status::Running) {
            return {};
        }
        const std::int64_t end = qlSystemUtils::GetTimeBaseMs() + deadlineMs;
        state_->drainDeadlineMs = isDraining() ? std::min(state_->drainDeadlineMs, end) : end;
        // Now: the server thread may come to it when some that are under way have ended.
        if (state_->run != nullptr) {
            state_->run->beginDrain();
        }
        state_->isDraining = true;
        wakeUp_.wakeAll();
        run = getRunNumber();
        result = state_->drainResult;
    }
    waitRun(run, NoTimeLimit);
    return *result;
}

bool HttpServer::isDraining() const {
    return state_->isDraining;
}

bool HttpServer::isDrained(impl::ServerRun& run) {
    try {
        return isDraining() && run.isDrained(state_->drainDeadlineMs);
    } catch (...) {
        // Memory was short. It looks again soon.
        impl::logCurrentException("a drain", LogTag);
        return false;
    }
}

void HttpServer::run() {
    qlMutexLocker locker(mutex_);
    std::unique_ptr<impl::ServerRun> serverRun;
    impl::StartFailure failure{OutOfResources, {}};
    try {
        serverRun = std::make_unique<impl::ServerRun>(*this, state_->options);
        failure = serverRun->start();
    } catch (...) {
        // Only before the server runs: memory or a thread was short. Left to the thread, nobody would learn of it.
        impl::logCurrentException("the start of a server", "httpserver");
    }
    const bool hasFailed = failure.error != StartError::None;
    state_->setStartFailure(std::move(failure));
    if (hasFailed) {
        notifyStopped(*implementation_);
        serverRun.reset();
        state_->isDraining = false;
        setStatus(Status::Error);
        return;
    }
    state_->setPorts(serverRun->takePorts());
    setStatus(Status::Running);
    state_->run = serverRun.get();
    while (!isDrained(*serverRun) && !shouldExit()) {
        wakeUp_.wait(&mutex_, isDraining() ? DrainPeriodMs : WatchPeriodMs);
    }
    state_->run = nullptr;
    exitRequested_ = true;
    *state_->drainResult = serverRun->drainResult();
    serverRun->stopAccepting();
    // While the engine still runs, so that the application can let go of requests and connections properly.
    notifyStopped(*implementation_);
    // The run is this thread's alone now. Sessions are called meanwhile, which may ask for a stop once more.
    locker.unlock();
    serverRun->endSessions();
    locker.lock();
    serverRun->sayGoodbye();
    serverRun.reset();
    state_->setPorts({});
    state_->isDraining = false;
    setStatus(Status::Stopped);
}

} // namespace ql::http
