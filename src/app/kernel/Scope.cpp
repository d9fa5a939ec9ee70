#include "app/kernel/Scope.h"

#include "app/files/FileAnswer.h"
#include "app/files/FileRules.h"
#include "app/kernel/Throw.h"
#include "app/request/ForwardedClient.h"
#include "app/routing/Pattern.h"
#include "frame/HttpSyntax.h"
#include "frame/InvalidArgument.h"
#include "vireo/app/App.h"
#include "vireo/app/Response.h"

#include <algorithm>
#include <array>
#include <utility>

namespace vireo::impl {

namespace {

/// Those that the server knows of itself.
constexpr std::array<std::string_view, 10> KnownMethods = {"GET",     "HEAD",  "POST",  "PUT",   "DELETE",
                                                           "OPTIONS", "PATCH", "TRACE", "QUERY", SocketMethod};

template <typename T>
std::shared_ptr<const T> inherited(const std::shared_ptr<const T>& own, const std::shared_ptr<const T>& outer) {
    return own != nullptr ? own : outer;
}

/// Adds a scope with all that is within.
void addTo(ServicePlan& plan, const Scope& scope, const std::shared_ptr<const ScopeRules>& outer,
           std::uint64_t outerMaxBody) {
    auto rules = outer == nullptr ? std::make_shared<ScopeRules>() : std::make_shared<ScopeRules>(*outer);
    rules->parent = outer;
    rules->prefix = scope.prefix;
    rules->chain.insert(rules->chain.end(), scope.middlewares.begin(), scope.middlewares.end());
    rules->onError = inherited(scope.onError, rules->onError);
    rules->notFound = inherited(scope.notFound, rules->notFound);
    rules->methodNotAllowed = inherited(scope.methodNotAllowed, rules->methodNotAllowed);
    const std::uint64_t maxBody = scope.maxBody.value_or(outerMaxBody);
    plan.table.addScope(rules);
    for (const auto& route : scope.routes) {
        // This run's own: late answers of one before may still look at theirs.
        const auto endpoint = std::make_shared<Endpoint>(*route);
        endpoint->scope = rules;
        endpoint->maxBody = route->ownMaxBody.value_or(maxBody);
        plan.hasSockets = plan.hasSockets || endpoint->method == SocketMethod;
        if (std::ranges::find(KnownMethods, endpoint->method) == KnownMethods.end() &&
            std::ranges::find(plan.methods, endpoint->method) == plan.methods.end()) {
            plan.methods.push_back(endpoint->method);
        }
        plan.table.add(endpoint);
        ++plan.routes;
    }
    for (const auto& group : scope.groups) {
        addTo(plan, *group, rules, maxBody);
    }
}

} // namespace

void Registration::checkOpen() const {
    if (isGone) {
        throwLogicError("the App is gone");
    }
    if (isRunning) {
        throwLogicError("routes and rules are told of before the App starts");
    }
}

void Scope::clear() {
    // What goes here may be the last that holds a copy of this very group.
    std::vector<std::shared_ptr<const Middleware>>().swap(middlewares);
    onError = nullptr;
    notFound = nullptr;
    methodNotAllowed = nullptr;
    std::exchange(routes, {}).clear();
    for (const auto& group : std::exchange(groups, {})) {
        group->clear();
    }
}

std::shared_ptr<RouteRules> Scope::add(std::string_view method, std::string_view pattern) {
    registration->checkOpen();
    auto route = std::make_shared<RouteRules>();
    route->method = method;
    route->pattern = prefix + std::string(pattern);
    if (!pattern.empty() && pattern.front() != '/') {
        ql::impl::throwInvalidArgument("the pattern \"" + std::string(pattern) + "\" does not begin with a slash");
    }
    Pattern::parse(route->pattern);
    routes.push_back(route);
    return route;
}

void RouteState::forEach(const std::function<void(RouteRules&)>& change) const {
    registration->checkOpen();
    for (const auto& each : rules) {
        if (const auto route = each.lock()) {
            change(*route);
        }
    }
}

Route routeOf(const Scope& scope, std::vector<std::weak_ptr<RouteRules>> rules) {
    return Route(std::make_shared<const RouteState>(RouteState{scope.registration, std::move(rules)}));
}

AppState::AppState() : registration(std::make_shared<Registration>()), root(std::make_shared<Scope>()) {
    root->registration = registration;
}

AppState::~AppState() = default;

ServicePlan AppState::plan() const {
    ServicePlan plan;
    plan.app = registration;
    addTo(plan, *root, nullptr, DefaultMaxBody);
    plan.table.checkVisits();
    plan.proxies = proxies;
    plan.sockets = sockets;
    plan.reloads = registration->reloads;
    plan.observers = registration->observers;
    return plan;
}

} // namespace vireo::impl

namespace vireo {

namespace {

template <typename Function>
void checkFunction(const Function& function) {
    if (!function) {
        ql::impl::throwInvalidArgument("a route or rule is given an empty function");
    }
}

template <typename Function>
std::shared_ptr<const Function> shared(Function function) {
    checkFunction(function);
    return std::make_shared<const Function>(std::move(function));
}

} // namespace

Group::Group(std::shared_ptr<impl::Scope> scope) : scope_(std::move(scope)) {}
Group::Group(const Group& other) = default;
Group::~Group() = default;

Route Group::get(std::string_view pattern, Handler handler) {
    return route("GET", pattern, std::move(handler));
}

Route Group::post(std::string_view pattern, Handler handler) {
    return route("POST", pattern, std::move(handler));
}

Route Group::put(std::string_view pattern, Handler handler) {
    return route("PUT", pattern, std::move(handler));
}

Route Group::patch(std::string_view pattern, Handler handler) {
    return route("PATCH", pattern, std::move(handler));
}

Route Group::del(std::string_view pattern, Handler handler) {
    return route("DELETE", pattern, std::move(handler));
}

Route Group::options(std::string_view pattern, Handler handler) {
    return route("OPTIONS", pattern, std::move(handler));
}

Route Group::head(std::string_view pattern, Handler handler) {
    return route("HEAD", pattern, std::move(handler));
}

Route Group::route(std::string_view method, std::string_view pattern, Handler handler) {
    auto answer = shared(std::move(handler));
    if (!ql::impl::isToken(method)) {
        ql::impl::throwInvalidArgument("\"" + std::string(method) + "\" is no method");
    }
    const auto isLower = [](char c) { return c >= 'a' && c <= 'z'; };
    if (std::ranges::any_of(method, isLower)) {
        // Methods differ by the case of their letters: this one would never be asked for.
        ql::impl::throwInvalidArgument("the method \"" + std::string(method) + "\" is to be in upper case, as \"GET\"");
    }
    const auto route = scope_->add(method, pattern);
    route->handler = std::move(answer);
    return impl::routeOf(*scope_, {route});
}

Route Group::webSocket(std::string_view pattern, SocketHandler handler) {
    auto decide = shared(std::move(handler));
    const auto route = scope_->add(impl::SocketMethod, pattern);
    route->socket = std::move(decide);
    return impl::routeOf(*scope_, {route});
}

Route Group::files(std::string_view prefix, std::string directory) {
    return files(prefix, std::move(directory), FileOptions());
}

Route Group::files(std::string_view prefix, std::string directory, const FileOptions& options) {
    scope_->registration->checkOpen();
    while (!prefix.empty() && prefix.back() == '/') {
        prefix.remove_suffix(1);
    }
    std::function<void()> reload;
    const auto serve = shared(impl::serveFiles(std::move(directory), options, reload));
    std::vector<std::weak_ptr<impl::RouteRules>> routes;
    const auto add = [&](const char* rest) {
        const auto route = scope_->add("GET", std::string(prefix) + rest);
        route->handler = serve;
        route->isDirectory = true;
        route->isListing = impl::FileRules::of(options).listing;
        routes.push_back(route);
    };
    if (!scope_->prefix.empty() || !prefix.empty()) {
        add("");
    }
    add("/");
    add("/{path:path}");
    scope_->registration->reloads.push_back(std::move(reload));
    return impl::routeOf(*scope_, std::move(routes));
}

Group Group::group(std::string_view prefix) {
    scope_->registration->checkOpen();
    auto inner = std::make_shared<impl::Scope>();
    inner->prefix = scope_->prefix + std::string(prefix);
    impl::Pattern::parsePrefix(inner->prefix);
    inner->registration = scope_->registration;
    scope_->groups.push_back(inner);
    return Group(std::move(inner));
}

Group& Group::use(Middleware middleware) {
    scope_->registration->checkOpen();
    scope_->middlewares.push_back(shared(std::move(middleware)));
    return *this;
}

Group& Group::before(Handler handler) {
    checkFunction(handler);
    return use([run = std::move(handler)](Request& request, Response& response, Next& next) {
        run(request, response);
        next();
    });
}

Group& Group::after(Handler handler) {
    const auto run = shared(std::move(handler));
    return use([run](Request& request, Response& response, Next& next) {
        response.beforeSend([run, &request](Response& sent) { (*run)(request, sent); });
        next();
    });
}

Group& Group::maxBody(std::uint64_t bytes) {
    scope_->registration->checkOpen();
    scope_->maxBody = bytes;
    return *this;
}

Group& Group::onError(ErrorHandler handler) {
    scope_->registration->checkOpen();
    scope_->onError = shared(std::move(handler));
    return *this;
}

Group& Group::notFound(Handler handler) {
    scope_->registration->checkOpen();
    scope_->notFound = shared(std::move(handler));
    return *this;
}

Group& Group::methodNotAllowed(Handler handler) {
    scope_->registration->checkOpen();
    scope_->methodNotAllowed = shared(std::move(handler));
    return *this;
}

Route::Route(std::shared_ptr<const impl::RouteState> state) : state_(std::move(state)) {}
Route::Route(const Route& other) = default;
Route::Route(Route&& other) noexcept = default;
Route& Route::operator=(const Route& other) = default;
Route& Route::operator=(Route&& other) noexcept = default;
Route::~Route() = default;

Route& Route::quick() {
    state_->forEach([](impl::RouteRules& route) {
        if (route.ownMaxBody.value_or(0) > impl::MaxQuickBody) {
            impl::throwLogicError("Route::quick() : maxBody() lets bodies in that are not kept whole");
        }
        if (route.isListing) {
            impl::throwLogicError(
                "Route::quick() : listings read directories, for which no daemon thread has the time");
        }
        route.isQuick = true;
    });
    return *this;
}

Route& Route::maxBody(std::uint64_t bytes) {
    state_->forEach([bytes](impl::RouteRules& route) {
        if (route.isQuick && bytes > impl::MaxQuickBody) {
            ql::impl::throwInvalidArgument("Route::maxBody() : a quick route takes " +
                                           std::to_string(impl::MaxQuickBody) + " bytes at most");
        }
        route.ownMaxBody = bytes;
    });
    return *this;
}

Route& Route::named(std::string name) {
    state_->forEach([&name](impl::RouteRules& route) { route.name = name; });
    return *this;
}

// Like all that App is given, the networks come by value. NOLINTNEXTLINE(performance-unnecessary-value-param)
App& App::trustProxies(std::vector<std::string> networks) {
    scope_->registration->checkOpen();
    state_->proxies = std::make_shared<const impl::ProxyRules>(networks);
    return *this;
}

App& App::webSocketOptions(const ql::http::WebSocketOptions& options) {
    scope_->registration->checkOpen();
    state_->sockets = options;
    return *this;
}

} // namespace vireo
