#include "vireo/HttpServer.h"

#include "frame/ExceptionLog.h"
#include "server/EngineCallbacks.h"
#include "server/EngineLog.h"
#include "server/EngineTimeout.h"
#include "server/ServerState.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/Vireo.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlSystemUtils.h"

#include <ios>
#include <stdexcept>

#include <NativeSockets.h>
#include <microhttpd.h>

namespace ql::http {

namespace {

constexpr const char* LogTag = "httpserver";
/// How long a stop can go unnoticed without a wake-up.
constexpr unsigned long WatchPeriodMs = 200;

unsigned int daemonFlags(const HttpServer::Parameters& parameters, const ServerOptions& options) {
    unsigned int flags = MHD_USE_AUTO | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_ERROR_LOG;
    if (parameters.webSocketEnabled) {
        flags |= MHD_ALLOW_UPGRADE;
    }
    if (options.isTurbo()) {
        flags |= MHD_USE_TURBO;
    }
    return flags;
}

sockaddr_in listenAddress(const HttpServer::Parameters& parameters) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(parameters.port);
    address.sin_addr.s_addr = htonl(parameters.listenOnAllInterfaces ? INADDR_ANY : INADDR_LOOPBACK);
    return address;
}

} // namespace

HttpServer::Parameters::Parameters()
    : threadPoolSize(static_cast<std::uint32_t>(qlSystemUtils::GetIdealThreadCount())) {}

HttpServer::HttpServer(HttpServerImpl* implementation) : HttpServer(implementation, ServerOptions()) {}

HttpServer::HttpServer(HttpServerImpl* implementation, const ServerOptions& options)
    : implementation_(implementation), state_(new impl::ServerState{options}) {}

HttpServer::~HttpServer() {
    stopServer(true);
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
    MHD_Daemon* daemon = nullptr;
    try {
        daemon = startDaemon();
    } catch (...) {
        // Only before the daemon runs: memory for a log line was short. Left to the thread, nobody would learn of it.
        impl::logCurrentException("the start of a server", "httpserver");
    }
    if (daemon == nullptr) {
        notifyStopped();
        status_ = Status::Error;
        return;
    }
    status_ = Status::Running;
    while (!shouldExit()) {
        wakeUp_.wait(&mutex_, WatchPeriodMs);
    }
    // While the engine still runs, so that the application can let go of requests and connections properly.
    notifyStopped();
    MHD_stop_daemon(daemon);
    status_ = Status::Stopped;
}

MHD_Daemon* HttpServer::startDaemon() {
    if (!IsVireoInitialized()) {
        qlLogObject(qlLogType::Failure, LogTag) << "Vireo is not initialized";
        return nullptr;
    }
    if (MHD_is_feature_supported(MHD_FEATURE_POLL) == MHD_NO && MHD_is_feature_supported(MHD_FEATURE_EPOLL) == MHD_NO) {
        qlLogObject(qlLogType::Failure, LogTag)
            << "Warning using microhttpd without poll or epoll support. The server will exit.";
        return nullptr;
    }
    const sockaddr_in address = listenAddress(parameters_);
    const unsigned int flags = daemonFlags(parameters_, state_->options);
    const qlLog* const log = qlLog::msInstance;
    if (log == nullptr || log->isVerbose()) {
        qlLogObject(qlLogType::Server, LogTag)
            << "Starting http server : listen @" << parameters_.port << ", with flags 0x" << std::hex << flags;
    }
    const MHD_NotifyConnectionCallback trackConnections = log != nullptr && log->isVerbose() ? &onConnection : nullptr;
    MHD_Daemon* const daemon =
        MHD_start_daemon(flags, parameters_.port, nullptr, nullptr, &onAccess, this,                           //
                         MHD_OPTION_EXTERNAL_LOGGER, &relayEngineMessage, nullptr,                             //
                         MHD_OPTION_URI_LOG_CALLBACK, &onUri, nullptr,                                         //
                         MHD_OPTION_CONNECTION_MEMORY_LIMIT, state_->options.getConnectionMemoryBytes(),       //
                         MHD_OPTION_LISTEN_BACKLOG_SIZE, static_cast<unsigned int>(parameters_.listenBacklog), //
                         MHD_OPTION_CONNECTION_TIMEOUT, timeoutSeconds(parameters_.connectionTimeoutMs),       //
                         MHD_OPTION_SOCK_ADDR, reinterpret_cast<const sockaddr*>(&address),                    //
                         MHD_OPTION_THREAD_POOL_SIZE, static_cast<unsigned int>(parameters_.threadPoolSize),   //
                         MHD_OPTION_NOTIFY_COMPLETED, &onRequestCompleted, static_cast<void*>(this),           //
                         MHD_OPTION_STRICT_FOR_CLIENT, 1,                                                      //
                         MHD_OPTION_NOTIFY_CONNECTION, trackConnections, nullptr,                              //
                         MHD_OPTION_END);
    if (daemon == nullptr) {
        qlLogObject(qlLogType::Failure, LogTag) << "Failed to create mhd server context";
    }
    return daemon;
}

void HttpServer::notifyStopped() {
    try {
        implementation_->onServerStopped();
    } catch (...) {
        impl::logCurrentException("onServerStopped", "httpserver");
    }
}

} // namespace ql::http
