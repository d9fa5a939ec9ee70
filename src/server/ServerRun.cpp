#include "server/ServerRun.h"

#include "engine/ConnectionLimit.h"
#include "engine/ConnectionTracking.h"
#include "engine/Daemon.h"
#include "engine/EngineTimeout.h"
#include "engine/Listener.h"
#include "engine/StartFailure.h"
#include "server/Acceptor.h"
#include "server/ExchangeRecording.h"
#include "server/ServerAccess.h"
#include "server/UncompletedRequests.h"
#include "session/SessionServing.h"
#include "vireo/Vireo.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlSystemUtils.h"
#include "vireo/support/qlThread.h"

#include <algorithm>
#include <ios>
#include <optional>
#include <string>
#include <utility>

namespace ql::impl {

namespace {

constexpr const char* LogTag = "httpserver";

/// Of a WebSocket over TLS: the connection, the two ends between engine and application, and the application's once
/// more.
constexpr std::size_t MostDescriptors = 4;
/// How long engines may take to begin with the last connections that they were given.
constexpr std::int64_t BeginMs = 1000;
/// How long WebSockets over TLS may take to be closed: the engine hands on what was sent to them last.
constexpr std::int64_t FarewellMs = 1000;
constexpr unsigned long FarewellLookMs = 10;

bool isVerbose() {
    const qlLog* const log = qlLog::msInstance;
    return log == nullptr || log->isVerbose();
}

Admissions::Limits limitsOf(const http::ServerOptions& options, std::size_t descriptorsOfEach) {
    Admissions::Limits limits;
    const std::size_t most = options.getMaxConnections();
    limits.connections = most == 0 ? connectionLimit() / descriptorsOfEach : most;
    if (const std::size_t perAddress = options.getMaxConnectionsPerAddress(); perAddress != 0) {
        limits.perAddress = perAddress;
    }
    return limits;
}

/// Where the server listens; by its parameters where it has no listeners.
std::vector<ListenEndpointData> endpointsOf(const http::ServerOptions& options,
                                            const http::HttpServer::Parameters& parameters) {
    std::vector<ListenEndpointData> endpoints;
    for (const http::ListenEndpoint& endpoint : options.getListeners()) {
        endpoints.push_back(ListenEndpointData::of(endpoint));
    }
    if (endpoints.empty()) {
        endpoints.push_back({.name = std::to_string(parameters.port),
                             .address = parameters.listenOnAllInterfaces ? "0.0.0.0" : "127.0.0.1",
                             .port = parameters.port});
    }
    return endpoints;
}

std::string namesOf(const std::vector<ListenEndpointData>& endpoints) {
    std::string names;
    for (const ListenEndpointData& endpoint : endpoints) {
        names += (names.empty() ? "" : ", @") + endpoint.name;
    }
    return names;
}

std::string textOf(const ListenEndpointData& endpoint, const StartFailure& failure) {
    return "Cannot listen @" + endpoint.name + " : " + failure.text;
}

} // namespace

ServerRun::ServerRun(http::HttpServer& server, const http::ServerOptions& options)
    : server_(server), options_(options), endpoints_(endpointsOf(options, server.getParameters())) {}

ServerRun::~ServerRun() {
    stopAccepting();
    if (serving_) {
        serving_->connections.finishExchanges();
        serving_->watch.stop();
    }
    if (front_) {
        front_->handshakes.stop();
    }
    daemons_.clear();
    endUncompleted(server_);
    ServerAccess::setSessions(server_, nullptr);
}

void ServerRun::beginDrain() {
    if (!drain_) {
        drain_.emplace(*serving_, front_->admissions, *acceptor_, sessions_.get(), qlSystemUtils::GetTimeBaseMs());
    }
}

bool ServerRun::isDrained(std::int64_t deadlineMs) {
    beginDrain();
    return drain_->isOver(qlSystemUtils::GetTimeBaseMs(), deadlineMs);
}

http::HttpServer::DrainResult ServerRun::drainResult() const {
    return drain_ ? drain_->result() : http::HttpServer::DrainResult{};
}

void ServerRun::stopAccepting() {
    if (!acceptor_) {
        return;
    }
    acceptor_.reset();
    // What an engine has not begun with when it stops, it closes without its own lock and without a word.
    front_->admissions.waitForEngines(BeginMs);
}

void ServerRun::endSessions() {
    if (!sessions_) {
        return;
    }
    // Who was drained has had the time to go.
    const std::int64_t patienceMs = drain_ && drain_->hasEnded() ? 0 : sessions_->settings()->closeTimeoutMs;
    while (!sessions_->areGone(qlSystemUtils::GetTimeBaseMs(), patienceMs)) {
        qlThread::msleep(FarewellLookMs);
    }
}

void ServerRun::sayGoodbye() {
    if (!hasTls()) {
        return;
    }
    const std::int64_t endMs = qlSystemUtils::GetTimeBaseMs() + FarewellMs;
    while (front_->admissions.counts().upgraded != 0 && qlSystemUtils::GetTimeBaseMs() < endMs) {
        qlThread::msleep(FarewellLookMs);
    }
}

bool ServerRun::isAccepting() const {
    return options_.getWaiting() == http::ServerOptions::Waiting::Event || !options_.getListeners().empty();
}

StartFailure ServerRun::start() {
    if (!IsVireoInitialized()) {
        qlLogObject(qlLogType::Failure, LogTag) << "Vireo is not initialized";
        return {StartError::NotInitialized, "Vireo is not initialized"};
    }
    if (!Daemon::CanPoll()) {
        qlLogObject(qlLogType::Failure, LogTag)
            << "Warning using microhttpd without poll or epoll support. The server will exit.";
        return {StartError::Engine, "the engine has neither poll nor epoll"};
    }
    if (isAccepting()) {
        prepareFront();
    }
    if (options_.getWebSocketAcceptor()) {
        sessions_ = std::make_unique<SessionServing>(options_.getWebSocketOptions());
        ServerAccess::setSessions(server_, sessions_.get());
    }
    const EngineOptions engine = engineOptions();
    if (isVerbose()) {
        qlLogObject(qlLogType::Server, LogTag) << "Starting http server : listen @" << namesOf(endpoints_)
                                               << ", with flags 0x" << std::hex << Daemon::FlagsOf(engine);
    }
    StartFailure failure = front_ ? startAccepting(engine) : startEngine(engine);
    if (failure.error != StartError::None) {
        qlLogObject(qlLogType::Failure, LogTag) << "Failed to create mhd server context";
    }
    return failure;
}

void ServerRun::prepareFront() {
    const std::size_t descriptors = hasTls() && hasWebSockets() ? MostDescriptors : 1;
    front_.emplace(limitsOf(options_, descriptors), 2 * daemonCount());
    if (hasTls()) {
        front_->handshakes.start(std::int64_t{1000} * timeoutSeconds(server_.getParameters().connectionTimeoutMs));
    }
    if (options_.getWaiting() != http::ServerOptions::Waiting::Event) {
        return;
    }
    serving_ = std::make_unique<EventServing>(server_, options_, options_.getUploadWindowBytes(),
                                              server_.getParameters().connectionTimeoutMs);
    front_->serving = serving_.get();
    Deadlines& deadlines = serving_->deadlines;
    serving_->watch.start(*server_.getHttpImplementation(), options_.endsOnClientClose(), deadlines.periodMs(),
                          [&deadlines](std::int64_t nowMs) { deadlines.run(nowMs); });
}

StartFailure ServerRun::startEngine(const EngineOptions& options) {
    if (startDaemon(options)) {
        ports_.push_back(daemons_.front()->port());
        return {};
    }
    // The engine doesn't tell why. If the library cannot listen either, it is for the same reason.
    StartFailure failure;
    if (Listener::Open(endpoints_.front(), options.listenBacklog, failure)) {
        return {StartError::Engine, "the engine refuses to start"};
    }
    failure.text = textOf(endpoints_.front(), failure);
    return failure;
}

StartFailure ServerRun::startAccepting(const EngineOptions& options) {
    std::vector<std::unique_ptr<Listener>> listeners;
    StartFailure failure = openListeners(listeners);
    if (failure.error != StartError::None) {
        qlLogObject(qlLogType::Failure, LogTag) << failure.text;
        return failure;
    }
    for (const bool tls : {false, true}) {
        const bool isWanted = std::ranges::find(endpoints_, tls, &ListenEndpointData::isTls) != endpoints_.end();
        if (isWanted && !startDaemons(options, tls)) {
            return {StartError::Engine, "the engine refuses to start"};
        }
    }
    acceptor_ = std::make_unique<Acceptor>(std::move(listeners), options.listenBacklog,
                                           [this](const AcceptedSocket& accepted) { return take(accepted); });
    acceptor_->start();
    return {};
}

StartFailure ServerRun::openListeners(std::vector<std::unique_ptr<Listener>>& listeners) {
    for (const ListenEndpointData& endpoint : endpoints_) {
        StartFailure failure;
        listeners.push_back(open(endpoint, failure));
        if (listeners.back() == nullptr) {
            failure.text = textOf(endpoint, failure);
            return failure;
        }
        ports_.push_back(listeners.back()->port());
        front_->tls.push_back(endpoint.tls);
    }
    return {};
}

std::unique_ptr<Listener> ServerRun::open(const ListenEndpointData& endpoint, StartFailure& failure) const {
    if (endpoint.isTls && !Daemon::CanTls()) {
        failure = {StartError::TlsUnavailable, "TLS is not built in"};
        return nullptr;
    }
    if (endpoint.isTls && endpoint.tls == nullptr) {
        failure = {StartError::TlsUnavailable, "there is no context of TLS"};
        return nullptr;
    }
    return Listener::Open(endpoint, server_.getParameters().listenBacklog, failure);
}

bool ServerRun::startDaemons(EngineOptions options, bool tls) {
    options.tls = tls;
    Admissions::Engines& engines = tls ? tlsEngines_ : plainEngines_;
    engines = {daemons_.size(), daemonCount()};
    for (std::size_t i = 0; i < engines.count; ++i) {
        if (!startDaemon(options)) {
            return false;
        }
    }
    return true;
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

EngineOptions ServerRun::engineOptions() {
    const http::HttpServer::Parameters& parameters = server_.getParameters();
    EngineOptions engine;
    engine.port = parameters.port;
    engine.onAllInterfaces = parameters.listenOnAllInterfaces;
    engine.listenBacklog = parameters.listenBacklog;
    engine.threadPoolSize = parameters.threadPoolSize;
    engine.connectionTimeoutMs = parameters.connectionTimeoutMs;
    engine.connectionMemoryBytes = options_.getConnectionMemoryBytes();
    engine.webSockets = hasWebSockets();
    engine.turbo = options_.isTurbo();
    engine.trackConnections = isTrackingLogged();
    engine.suspends = serving_ != nullptr;
    engine.front = front_ ? &*front_ : nullptr;
    return engine;
}

std::size_t ServerRun::daemonCount() const {
    return std::max<std::size_t>(server_.getParameters().threadPoolSize, 1);
}

bool ServerRun::hasTls() const {
    return std::ranges::any_of(endpoints_, &ListenEndpointData::isTls);
}

bool ServerRun::hasWebSockets() const {
    return server_.getParameters().webSocketEnabled || options_.getWebSocketAcceptor() != nullptr;
}

bool ServerRun::take(const AcceptedSocket& accepted) {
    const bool isTls = endpoints_[accepted.listener].isTls;
    const std::optional<std::size_t> daemon = front_->admissions.admit(
        {accepted.socket, accepted.address.clientKey(), accepted.listener}, isTls ? tlsEngines_ : plainEngines_);
    if (!daemon) {
        if (serving_ && !serving_->observers.empty()) {
            IpAddress client;
            client.fromIP(accepted.address.get());
            tellOfRefusedConnection(serving_->observers, client, endsOf(accepted.socket, accepted.address));
        }
        if (isTls) {
            // An answer in the clear would be none.
            closeSocket(accepted.socket);
        }
        return isTls;
    }
    if (!daemons_[*daemon]->addConnection(accepted)) {
        front_->admissions.leave(accepted.socket);
    }
    return true;
}

} // namespace ql::impl
