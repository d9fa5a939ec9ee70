// SPDX-License-Identifier: MIT
#include "app/run/Observing.h"

#include "app/kernel/Scope.h"
#include "app/kernel/Service.h"
#include "frame/ExceptionLog.h"
#include "vireo/ExchangeMetrics.h"
#include "vireo/app/Group.h"
#include "vireo/app/Response.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace vireo::impl {

namespace {

bool isHealthy(const std::function<bool()>& check) {
    try {
        return !check || check();
    } catch (...) {
        ql::impl::logCurrentException("a health check", "app");
        return false;
    }
}

void answerHealth(Response& response, int status, std::string text) {
    response.status(status).header("Cache-Control", "no-store");
    response.text(std::move(text));
}

} // namespace

Handler healthHandler(std::shared_ptr<const CurrentService> current, std::function<bool()> check) {
    return [current = std::move(current), check = std::move(check)](Request&, Response& response) {
        const bool isWell = isHealthy(check);
        const std::shared_ptr<Service> service = current->get();
        if (service == nullptr) {
            answerHealth(response, 503, "starting\n");
        } else if (service->isDraining()) {
            answerHealth(response, 503, "draining\n");
        } else if (isWell) {
            answerHealth(response, 200, "ok\n");
        } else {
            answerHealth(response, 503, "not healthy\n");
        }
    };
}

std::shared_ptr<ql::http::ExchangeMetrics> makeMetrics(std::shared_ptr<const CurrentService> current) {
    auto metrics = std::make_shared<ql::http::ExchangeMetrics>();
    const auto add = [&](const std::string& name, const std::string& help, auto read) {
        metrics->addGauge("vireo_app_" + name, help, [current, read]() -> std::int64_t {
            const std::shared_ptr<Service> service = current->get();
            return service == nullptr ? 0 : static_cast<std::int64_t>(read(service->counts()));
        });
    };
    using Counts = Service::Counts;
    add("workers_busy", "Handlers that run on workers", [](const Counts& counts) { return counts.pool.busy; });
    add("threads", "Threads of workers", [](const Counts& counts) { return counts.pool.threads; });
    add("queued", "Requests that wait for a worker", [](const Counts& counts) { return counts.pool.queued; });
    add("refused", "Requests that found no room to wait", [](const Counts& counts) { return counts.pool.refused; });
    add("event_streams", "Clients that listen to events", [](const Counts& counts) { return counts.eventStreams; });
    add("sockets", "WebSockets that are open", [](const Counts& counts) { return counts.sockets; });
    return metrics;
}

Handler metricsHandler(std::shared_ptr<const ql::http::ExchangeMetrics> metrics) {
    return [metrics = std::move(metrics)](Request&, Response& response) {
        response.header("Cache-Control", "no-store");
        response.bytes(metrics->toOpenMetrics(), ql::http::ExchangeMetrics::OpenMetricsContentType);
    };
}

} // namespace vireo::impl

namespace vireo {

Route Group::health(std::string_view pattern) {
    return get(pattern, impl::healthHandler(scope_->registration->current, {})).quick();
}

Route Group::health(std::string_view pattern, std::function<bool()> check) {
    return get(pattern, impl::healthHandler(scope_->registration->current, std::move(check)));
}

Route Group::metrics(std::string_view pattern) {
    impl::Registration& registration = *scope_->registration;
    const std::shared_ptr<ql::http::ExchangeMetrics> metrics = impl::makeMetrics(registration.current);
    Route route = get(pattern, impl::metricsHandler(metrics));
    registration.observers.push_back(metrics);
    return route;
}

} // namespace vireo
