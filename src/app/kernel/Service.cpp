#include "app/kernel/Service.h"

#include "app/events/Subscription.h"
#include "app/kernel/AppServer.h"
#include "app/kernel/Courier.h"
#include "app/kernel/Scope.h"
#include "app/kernel/Throw.h"
#include "app/request/ForwardedClient.h"
#include "app/sockets/AppAcceptor.h"
#include "frame/InvalidArgument.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlSystemUtils.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace vireo::impl {

namespace {

using ql::http::HttpServer;
using ql::http::ServerOptions;

constexpr std::size_t ConnectionMemoryBytes = 32768;
/// A worker's thread waits for what comes of a long body: 1 KiB a second is less than the slowest of networks for
/// telephones has, and holding a thread costs eight times what the core asks for. Over so long a time that a client may
/// be out of reach in between.
constexpr std::uint64_t BodyProgressBytes = 32768;
constexpr std::uint32_t BodyProgressMs = 30000;
constexpr std::int64_t RefusalLineMs = 1000;
constexpr unsigned long StartPatienceMs = 60000;

/// @throws std::invalid_argument when somebody has changed what the toolkit relies on.
void checkOptions(const ServerOptions& options) {
    const auto refuse = [](const char* what) {
        ql::impl::throwInvalidArgument(std::string("RunOptions::server changes ") + what);
    };
    if (options.getWaiting() != ServerOptions::Waiting::Event) {
        refuse("how the server waits");
    }
    if (!options.isStrictHttp()) {
        refuse("whether it is strict");
    }
    if (options.getFiling() != ServerOptions::Filing::Lines) {
        refuse("how it files requests");
    }
    if (options.getRequestOwner() != nullptr) {
        refuse("the owner of its requests");
    }
    if (options.getWebSocketAcceptor() != nullptr) {
        refuse("who accepts its WebSockets");
    }
}

} // namespace

ServerOptions Service::BaseOptions() {
    ServerOptions options;
    options.setWaiting(ServerOptions::Waiting::Event);
    options.setStrictHttp(true);
    options.setFiling(ServerOptions::Filing::Lines);
    options.setConnectionMemoryBytes(ConnectionMemoryBytes);
    options.setBodyProgress(BodyProgressBytes, BodyProgressMs);
    return options;
}

std::shared_ptr<Service> Service::Start(ServicePlan&& plan, ServerOptions options,
                                        const HttpServer::Parameters& parameters, const WorkerPool::Limits& limits) {
    checkOptions(options);
    for (const std::string& method : plan.methods) {
        options.addMethod(method);
    }
    for (const auto& observer : plan.observers) {
        options.addExchangeObserver(observer);
    }
    options.setRequestOwner(std::make_shared<AppOwner>());
    auto service = std::make_shared<Service>(std::move(plan), limits);
    service->isRecording_ = !options.getExchangeObservers().empty();
    service->maxQuickBody_ = (std::min)(MaxQuickBody, options.getUploadWindowBytes());
    if (service->plan_.hasSockets) {
        options.setWebSockets(std::make_shared<AppAcceptor>(service), service->plan_.sockets);
    }
    const auto server = std::make_shared<HttpServer>(new AppServer(service), options);
    server->startServer(parameters);
    if (!server->waitUntilRunning(StartPatienceMs)) {
        server->stopServer(true);
        const std::string why = server->getStartErrorText();
        throwRuntimeError(why.empty() ? "the server does not begin to run" : why);
    }
    const qlMutexLocker locker(service->mutex_);
    service->server_ = server;
    return service;
}

Service::Service(ServicePlan&& plan, const WorkerPool::Limits& limits)
    : app_(plan.app), plan_(std::move(plan)), pool_(limits) {}

Service::~Service() = default;

void Service::requestStop() {
    if (const auto running = server()) {
        running->stopServer(false);
    }
}

void Service::close(std::chrono::milliseconds patience) {
    isDraining_ = true;
    endSubscriptions();
    if (const auto running = server()) {
        if (patience.count() > 0) {
            constexpr std::int64_t MostMs = std::numeric_limits<std::uint32_t>::max();
            running->drain(static_cast<std::uint32_t>((std::min)(std::int64_t{patience.count()}, MostMs)));
        } else {
            running->stopServer(true);
        }
    }
    pool_.stop();
    std::shared_ptr<HttpServer> server;
    std::shared_ptr<Courier> courier;
    ServicePlan plan;
    {
        const qlMutexLocker locker(mutex_);
        server.swap(server_);
        courier.swap(courier_);
        std::swap(plan, plan_);
    }
    if (courier != nullptr) {
        courier->stop();
    }
}

void Service::reload() {
    std::vector<std::function<void()>> reads;
    {
        const qlMutexLocker locker(mutex_);
        reads = plan_.reloads;
    }
    for (const auto& read : reads) {
        read();
    }
}

std::vector<std::uint16_t> Service::ports() const {
    const auto running = server();
    return running == nullptr ? std::vector<std::uint16_t>() : running->getPorts();
}

Service::Counts Service::counts() const {
    const WorkerPool::Counts pool = pool_.counts();
    const qlMutexLocker locker(mutex_);
    const auto isLive = [](const std::weak_ptr<Subscription>& subscription) { return !subscription.expired(); };
    return {pool, static_cast<std::uint64_t>(std::ranges::count_if(subscriptions_, isLive)), app_->sockets};
}

std::shared_ptr<Courier> Service::courier() {
    const qlMutexLocker locker(mutex_);
    if (courier_ == nullptr) {
        auto courier = std::make_shared<Courier>();
        courier->start();
        courier_ = std::move(courier);
    }
    return courier_;
}

bool Service::addSubscription(std::weak_ptr<Subscription> subscription) {
    const qlMutexLocker locker(mutex_);
    if (isDraining()) {
        return false;
    }
    if (subscriptions_.size() >= subscriptionsToSweep_) {
        std::erase_if(subscriptions_, [](const auto& each) { return each.expired(); });
        subscriptionsToSweep_ = (std::max)(2 * subscriptions_.size(), subscriptionsToSweep_);
    }
    subscriptions_.push_back(std::move(subscription));
    return true;
}

void Service::noteRefusal() noexcept {
    const std::int64_t nowMs = qlSystemUtils::GetTimeBaseMs();
    std::int64_t lastMs = lastRefusalMs_.load();
    if ((lastMs >= 0 && nowMs - lastMs < RefusalLineMs) || !lastRefusalMs_.compare_exchange_strong(lastMs, nowMs)) {
        return;
    }
    qlLogObject(qlLogType::Failure, "app") << "The queue is full : requests are answered 503";
}

std::shared_ptr<HttpServer> Service::server() const {
    const qlMutexLocker locker(mutex_);
    return server_;
}

void Service::endSubscriptions() {
    std::vector<std::weak_ptr<Subscription>> subscriptions;
    {
        const qlMutexLocker locker(mutex_);
        subscriptions.swap(subscriptions_);
    }
    for (const auto& each : subscriptions) {
        if (const auto subscription = each.lock()) {
            subscription->end();
        }
    }
}

} // namespace vireo::impl
