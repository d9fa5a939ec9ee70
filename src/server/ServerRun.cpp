#include "server/ServerRun.h"

#include "engine/ConnectionLimit.h"
#include "engine/ConnectionTracking.h"
#include "engine/Daemon.h"
#include "engine/Listener.h"
#include "engine/StartFailure.h"
#include "server/Acceptor.h"
#include "server/ExchangeRecording.h"
#include "vireo/Vireo.h"
#include "vireo/support/SystemError.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlSystemUtils.h"

#include <algorithm>
#include <ios>
#include <optional>
#include <utility>

namespace ql::impl {

namespace {

constexpr const char* LogTag = "httpserver";

bool isVerbose() {
    const qlLog* const log = qlLog::msInstance;
    return log == nullptr || log->isVerbose();
}

Admissions::Limits limitsOf(const http::ServerOptions& options) {
    Admissions::Limits limits;
    const std::size_t most = options.getMaxConnections();
    limits.connections = most == 0 ? connectionLimit() : most;
    if (const std::size_t perAddress = options.getMaxConnectionsPerAddress(); perAddress != 0) {
        limits.perAddress = perAddress;
    }
    return limits;
}

} // namespace

ServerRun::ServerRun(http::HttpServer& server, const http::ServerOptions& options)
    : server_(server), options_(options) {}

ServerRun::~ServerRun() {
    stopAccepting();
    if (serving_) {
        serving_->exchanges.finishAll();
        serving_->watch.stop();
    }
}

bool ServerRun::isDrained(std::int64_t deadlineMs) {
    const std::int64_t nowMs = qlSystemUtils::GetTimeBaseMs();
    if (!drain_) {
        drain_.emplace(*serving_, *acceptor_, nowMs);
    }
    return drain_->isOver(nowMs, deadlineMs);
}

http::HttpServer::DrainResult ServerRun::drainResult() const {
    return drain_ ? drain_->result() : http::HttpServer::DrainResult{};
}

void ServerRun::stopAccepting() {
    acceptor_.reset();
}

ServerRun::StartError ServerRun::start() {
    if (!IsVireoInitialized()) {
        qlLogObject(qlLogType::Failure, LogTag) << "Vireo is not initialized";
        return StartError::NotInitialized;
    }
    if (!Daemon::CanPoll()) {
        qlLogObject(qlLogType::Failure, LogTag)
            << "Warning using microhttpd without poll or epoll support. The server will exit.";
        return StartError::Engine;
    }
    if (options_.getWaiting() == http::ServerOptions::Waiting::Event) {
        serving_ =
            std::make_unique<EventServing>(server_, options_, options_.getUploadWindowBytes(), limitsOf(options_),
                                           daemonCount(), server_.getParameters().connectionTimeoutMs);
        Deadlines& deadlines = serving_->deadlines;
        serving_->watch.start(*server_.getHttpImplementation(), options_.endsOnClientClose(), deadlines.periodMs(),
                              [&deadlines](std::int64_t nowMs) { deadlines.run(nowMs); });
    }
    const EngineOptions engine = engineOptions();
    if (isVerbose()) {
        qlLogObject(qlLogType::Server, LogTag) << "Starting http server : listen @" << server_.getParameters().port
                                               << ", with flags 0x" << std::hex << Daemon::FlagsOf(engine);
    }
    const StartError error = startEngine(engine);
    if (error != StartError::None) {
        qlLogObject(qlLogType::Failure, LogTag) << "Failed to create mhd server context";
    }
    return error;
}

ServerRun::StartError ServerRun::startEngine(const EngineOptions& options) {
    const http::HttpServer::Parameters& parameters = server_.getParameters();
    int systemError = 0;
    if (!serving_) {
        if (startDaemon(options)) {
            port_ = daemons_.front()->port();
            return StartError::None;
        }
        // The engine doesn't tell why. If the library cannot listen either, it is for the same reason.
        Listener::Open(parameters.port, parameters.listenOnAllInterfaces, parameters.listenBacklog, systemError);
        return startFailure(systemError);
    }
    std::unique_ptr<Listener> listener =
        Listener::Open(parameters.port, parameters.listenOnAllInterfaces, parameters.listenBacklog, systemError);
    if (!listener) {
        qlLogObject(qlLogType::Failure, LogTag)
            << "Cannot listen @" << parameters.port << " : " << SystemError(systemError).toString();
        return startFailure(systemError);
    }
    port_ = listener->port();
    for (std::size_t i = 0; i < daemonCount(); ++i) {
        if (!startDaemon(options)) {
            return StartError::Engine;
        }
    }
    acceptor_ = std::make_unique<Acceptor>(std::move(listener), parameters.listenBacklog,
                                           [this](const AcceptedSocket& accepted) { return take(accepted); });
    acceptor_->start();
    return StartError::None;
}

bool ServerRun::startDaemon(const EngineOptions& options) {
    daemons_.reserve(daemons_.size() + 1);
    std::unique_ptr<Daemon> daemon = Daemon::Start(options, server_);
    if (!daemon) {
        return false;
    }
    daemons_.push_back(std::move(daemon));
    return true;
}

EngineOptions ServerRun::engineOptions() const {
    const http::HttpServer::Parameters& parameters = server_.getParameters();
    EngineOptions engine;
    engine.port = parameters.port;
    engine.onAllInterfaces = parameters.listenOnAllInterfaces;
    engine.listenBacklog = parameters.listenBacklog;
    engine.threadPoolSize = parameters.threadPoolSize;
    engine.connectionTimeoutMs = parameters.connectionTimeoutMs;
    engine.connectionMemoryBytes = options_.getConnectionMemoryBytes();
    engine.webSockets = parameters.webSocketEnabled;
    engine.turbo = options_.isTurbo();
    engine.trackConnections = isTrackingLogged();
    engine.serving = serving_.get();
    return engine;
}

std::size_t ServerRun::daemonCount() const {
    return std::max<std::size_t>(server_.getParameters().threadPoolSize, 1);
}

bool ServerRun::take(const AcceptedSocket& accepted) {
    const std::optional<std::size_t> daemon =
        serving_->admissions.admit(accepted.socket, accepted.address.sin_addr.s_addr);
    if (!daemon) {
        if (!serving_->observers.empty()) {
            const auto* const address = reinterpret_cast<const sockaddr*>(&accepted.address);
            IpAddress client;
            client.fromIP(address);
            tellOfRefusedConnection(serving_->observers, client, endsOf(accepted.socket, address));
        }
        return false;
    }
    if (!daemons_[*daemon]->addConnection(accepted)) {
        serving_->admissions.leave(accepted.socket);
    }
    return true;
}

} // namespace ql::impl
