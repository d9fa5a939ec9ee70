#include "vireo/HttpServer.h"

#include "engine/ConnectionLimit.h"
#include "engine/Daemon.h"
#include "frame/ExceptionLog.h"
#include "server/EventServing.h"
#include "server/ServerState.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/Vireo.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlSystemUtils.h"

#include <ios>
#include <memory>
#include <stdexcept>

namespace ql::http {

namespace {

constexpr const char* LogTag = "httpserver";
/// How long a stop can go unnoticed without a wake-up.
constexpr unsigned long WatchPeriodMs = 200;

impl::EngineOptions engineOptions(const HttpServer::Parameters& parameters, const ServerOptions& options,
                                  impl::EventServing* serving) {
    const qlLog* const log = qlLog::msInstance;
    impl::EngineOptions engine;
    engine.port = parameters.port;
    engine.onAllInterfaces = parameters.listenOnAllInterfaces;
    engine.listenBacklog = parameters.listenBacklog;
    engine.threadPoolSize = parameters.threadPoolSize;
    engine.connectionTimeoutMs = parameters.connectionTimeoutMs;
    engine.connectionMemoryBytes = options.getConnectionMemoryBytes();
    engine.webSockets = parameters.webSocketEnabled;
    engine.turbo = options.isTurbo();
    engine.trackConnections = log != nullptr && log->isVerbose();
    if (serving != nullptr) {
        engine.serving = serving;
        engine.connectionLimit = impl::connectionLimit(parameters.threadPoolSize);
    }
    return engine;
}

/// @param serving null where the engine polls.
/// @return null, which is said in the log, when the daemon cannot run.
std::unique_ptr<impl::Daemon> startDaemon(HttpServer& server, const ServerOptions& options,
                                          impl::EventServing* serving) {
    if (!IsVireoInitialized()) {
        qlLogObject(qlLogType::Failure, LogTag) << "Vireo is not initialized";
        return nullptr;
    }
    if (!impl::Daemon::CanPoll()) {
        qlLogObject(qlLogType::Failure, LogTag)
            << "Warning using microhttpd without poll or epoll support. The server will exit.";
        return nullptr;
    }
    const impl::EngineOptions engine = engineOptions(server.getParameters(), options, serving);
    const qlLog* const log = qlLog::msInstance;
    if (log == nullptr || log->isVerbose()) {
        qlLogObject(qlLogType::Server, LogTag) << "Starting http server : listen @" << engine.port << ", with flags 0x"
                                               << std::hex << impl::Daemon::FlagsOf(engine);
    }
    std::unique_ptr<impl::Daemon> daemon = impl::Daemon::Start(engine, server);
    if (!daemon) {
        qlLogObject(qlLogType::Failure, LogTag) << "Failed to create mhd server context";
    }
    return daemon;
}

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
    : implementation_(implementation), state_(new impl::ServerState{options}) {}

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
    status_ = Status::Starting;
    parameters_ = parameters;
    exitRequested_ = false;
    try {
        if (!implementation_) {
            throw std::logic_error("no implementation");
        }
        // A thread that has just set Stopped may not have ended yet, and would swallow the start. It needs the lock no
        // more, so this wait is short.
        waitThread(NoTimeLimit);
        startThread(nullptr);
    } catch (...) {
        impl::logCurrentException("the start of a server", "httpserver");
        status_ = Status::Error;
    }
    wakeUp_.wakeAll();
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

void HttpServer::run() {
    const qlMutexLocker locker(mutex_);
    std::unique_ptr<impl::EventServing> serving;
    std::unique_ptr<impl::Daemon> daemon;
    try {
        if (state_->options.getWaiting() == ServerOptions::Waiting::Event) {
            serving = std::make_unique<impl::EventServing>(state_->options, state_->options.getUploadWindowBytes());
        }
        daemon = startDaemon(*this, state_->options, serving.get());
    } catch (...) {
        // Only before the daemon runs: memory for a log line was short. Left to the thread, nobody would learn of it.
        impl::logCurrentException("the start of a server", "httpserver");
    }
    if (!daemon) {
        notifyStopped(*implementation_);
        status_ = Status::Error;
        return;
    }
    status_ = Status::Running;
    while (!shouldExit()) {
        wakeUp_.wait(&mutex_, WatchPeriodMs);
    }
    // While the engine still runs, so that the application can let go of requests and connections properly.
    notifyStopped(*implementation_);
    if (serving) {
        serving->exchanges.finishAll();
    }
    daemon.reset();
    status_ = Status::Stopped;
}

} // namespace ql::http
