// SPDX-License-Identifier: MIT
#pragma once

#include "app/kernel/Endpoint.h"
#include "app/kernel/Work.h"
#include "app/kernel/WorkerPool.h"
#include "app/routing/RouteTable.h"
#include "vireo/HttpServer.h"
#include "vireo/ServerOptions.h"
#include "vireo/WebSocketOptions.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vireo::impl {

class Courier;
class ProxyRules;
class Subscription;
struct Registration;

/// What an App is to run.
struct ServicePlan {
    /// What stands for the App itself.
    std::shared_ptr<const Registration> app;
    RouteTable table;
    /// Null: nobody is trusted.
    std::shared_ptr<const ProxyRules> proxies;
    ql::http::WebSocketOptions sockets;
    bool hasSockets = false;
    /// Those that the server does not know of itself.
    std::vector<std::string> methods;
    /// How many routes there are.
    std::size_t routes = 0;
    /// What App::reload() has read anew.
    std::vector<std::function<void()>> reloads;
    std::vector<std::shared_ptr<ql::http::ExchangeObserver>> observers;
};

/// One run of an App: its routes, its server, its threads. close() ends it, and takes all of that apart; what is left
/// is held by exchanges that nobody has let go of, and does nothing.
class Service : public std::enable_shared_from_this<Service> {
public:
    struct Counts {
        WorkerPool::Counts pool;
        std::uint64_t eventStreams = 0;
        std::uint64_t sockets = 0;
    };

    /// What Start() takes: with what the toolkit needs of a server. What is said beside is the caller's.
    static ql::http::ServerOptions BaseOptions();

    /// Serves when it returns.
    /// @throws std::invalid_argument when the options are not those of BaseOptions() where they have to be.
    /// @throws std::runtime_error with the core's text.
    static std::shared_ptr<Service> Start(ServicePlan&& plan, ql::http::ServerOptions options,
                                          const ql::http::HttpServer::Parameters& parameters,
                                          const WorkerPool::Limits& limits);

    explicit Service(ServicePlan&& plan, const WorkerPool::Limits& limits);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /// Ends what is under way at once: for a close() that goes on. Any thread.
    void requestStop() QL_EXCLUDES(mutex_);
    /// Drains for so long, cuts what is left, and waits until all is over. Once; not on a thread of its own.
    void close(std::chrono::milliseconds patience) QL_EXCLUDES(mutex_);
    /// Has everything read anew that can be. Any thread.
    void reload() QL_EXCLUDES(mutex_);

    std::vector<std::uint16_t> ports() const QL_EXCLUDES(mutex_);
    /// Whether close() was called. Any thread.
    bool isDraining() const { return isDraining_.load(); }
    /// Whether somebody is told of the exchanges.
    bool isRecording() const { return isRecording_; }
    /// Whose run it is; any time.
    const std::shared_ptr<const Registration>& app() const { return app_; }
    const ServicePlan& plan() const { return plan_; }
    /// The longest body of a quick route: such a one is there as a whole before it is handled.
    std::uint64_t maxQuickBody() const { return maxQuickBody_; }
    Counts counts() const QL_EXCLUDES(mutex_);

    WorkerPool& pool() { return pool_; }
    /// Made at the first need. Any thread.
    std::shared_ptr<Courier> courier() QL_EXCLUDES(mutex_);

    /// Has the subscription ended when the service is. @return false when it drains.
    bool addSubscription(std::weak_ptr<Subscription> subscription) QL_EXCLUDES(mutex_);

    /// Logs, once a second at most, that the queue is full.
    void noteRefusal() noexcept;

private:
    std::shared_ptr<ql::http::HttpServer> server() const QL_EXCLUDES(mutex_);
    void endSubscriptions() QL_EXCLUDES(mutex_);

    const std::shared_ptr<const Registration> app_;
    /// Constant until close() has joined all who look at it; what others look at is swapped under mutex_.
    ServicePlan plan_;
    WorkerPool pool_;
    bool isRecording_ = false;
    std::uint64_t maxQuickBody_ = MaxQuickBody;
    std::atomic<bool> isDraining_{false};
    std::atomic<std::int64_t> lastRefusalMs_{-1};

    mutable qlMutex mutex_;
    std::shared_ptr<ql::http::HttpServer> server_ QL_GUARDED_BY(mutex_);
    std::shared_ptr<Courier> courier_ QL_GUARDED_BY(mutex_);
    std::vector<std::weak_ptr<Subscription>> subscriptions_ QL_GUARDED_BY(mutex_);
    /// Beyond so many, those that have gone are dropped first.
    std::size_t subscriptionsToSweep_ QL_GUARDED_BY(mutex_) = 1024;
};

} // namespace vireo::impl
