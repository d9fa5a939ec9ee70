// SPDX-License-Identifier: MIT
#pragma once

#include "app/kernel/Endpoint.h"
#include "app/kernel/Service.h"
#include "vireo/WebSocketOptions.h"
#include "vireo/app/Group.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vireo::impl {

class CurrentService;
class Runner;

/// What all scopes of an App look at: whether they may still be told something.
struct Registration {
    std::atomic<bool> isRunning{false};
    std::atomic<bool> isGone{false};
    /// How many WebSockets there are.
    mutable std::atomic<std::uint64_t> sockets{0};
    /// What App::reload() has read anew.
    std::vector<std::function<void()>> reloads;
    /// What the routes that tell of the run look at.
    std::shared_ptr<CurrentService> current;
    /// Where metrics() was called: somebody is to be told of exchanges.
    std::vector<std::shared_ptr<ql::http::ExchangeObserver>> observers;

    /// @throws std::logic_error when not.
    void checkOpen() const;
};

/// What a Group stands for: what it was told. Groups may outlive the App; then there is nothing in it.
struct Scope {
    std::string prefix;
    std::shared_ptr<Registration> registration;
    std::vector<std::shared_ptr<const Middleware>> middlewares;
    std::shared_ptr<const ErrorHandler> onError;
    std::shared_ptr<const Handler> notFound;
    std::shared_ptr<const Handler> methodNotAllowed;
    std::optional<std::uint64_t> maxBody;
    std::vector<std::shared_ptr<RouteRules>> routes;
    std::vector<std::shared_ptr<Scope>> groups;

    /// Drops all that it and its groups hold.
    void clear();
    /// @throws std::invalid_argument for what is no method or pattern.
    std::shared_ptr<RouteRules> add(std::string_view method, std::string_view pattern);
};

/// What a Route stands for. The App alone holds what was said.
struct RouteState {
    std::shared_ptr<Registration> registration;
    /// More than one for a directory of files.
    std::vector<std::weak_ptr<RouteRules>> rules;

    /// @throws std::logic_error when it can no longer be changed.
    void forEach(const std::function<void(RouteRules&)>& change) const;
};

Route routeOf(const Scope& scope, std::vector<std::weak_ptr<RouteRules>> rules);

/// What an App stands for.
struct AppState {
    AppState();
    ~AppState();

    /// What its functions have said. @throws std::invalid_argument for routes that cannot be told apart, and the like.
    ServicePlan plan() const;

    std::shared_ptr<Registration> registration;
    std::shared_ptr<Scope> root;
    std::shared_ptr<const ProxyRules> proxies;
    ql::http::WebSocketOptions sockets;

    // ---- A run: run/App.cpp's ----

    qlMutex mutex;
    /// From the begin of a start until somebody has seen its end.
    std::shared_ptr<Runner> runner QL_GUARDED_BY(mutex);
};

} // namespace vireo::impl
