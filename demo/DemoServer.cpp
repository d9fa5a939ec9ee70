#include "DemoServer.h"

#include "DemoRequest.h"
#include "Routes.h"
#include "vireo/WebSocket.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <utility>

namespace demo {

namespace {

/// How long a stop waits for requests that are being served.
constexpr std::chrono::milliseconds StopPatience(1000);

} // namespace

DemoServer::DemoServer(unsigned int workers, unsigned int webSocketWorkers,
                       std::shared_ptr<ql::http::ExchangeMetrics> metrics)
    : metrics_(std::move(metrics)), requestPool_(workers) {
    setDefaultInternalError("internal error\n");
    if (metrics_ != nullptr) {
        addGauges();
    }
    if (webSocketWorkers != 0) {
        webSocketPool_.startThreads(webSocketWorkers);
    }
}

void DemoServer::addGauges() {
    metrics_->addGauge("vireo_demo_requests_active", "Requests that have begun and not ended.",
                       [this] { return static_cast<std::int64_t>(statistics_.snapshot().requestsActive); });
    metrics_->addGauge("vireo_demo_websockets_open", "WebSockets that are open.",
                       [this] { return static_cast<std::int64_t>(statistics_.snapshot().webSocketsOpen); });
    metrics_->addGauge("vireo_demo_event_streams", "Streams that wait for events.",
                       [this] { return static_cast<std::int64_t>(eventBoard_.streamCount()); });
}

void DemoServer::beginDrain() {
    isDraining_ = true;
    eventBoard_.close();
}

ql::HttpBaseRequest* DemoServer::createRequest() {
    return requestPool_.add(std::make_unique<DemoRequest>(*this));
}

void DemoServer::handleRequest(ql::HttpBaseRequest* base) {
    auto& request = static_cast<DemoRequest&>(*base); // createRequest() makes no others
    const Route& route = findRoute(request);
    request.setRoute(route);
    switch (route.place) {
    case Route::Place::Worker:
        requestPool_.serve(request);
        break;
    case Route::Place::DaemonThread:
        requestPool_.serveHere(request);
        break;
    }
}

void DemoServer::acceptWebSocket(ql::http::WebSocket* accepted) {
    const std::unique_ptr<ql::http::WebSocket> source(accepted);
    std::unique_ptr<ql::http::WebSocket> socket =
        std::make_unique<ChatSocket>(std::move(*source), chatRoom_, statistics_);
    webSocketPool_.addWebSocket(socket); // a stopped pool closes it and leaves it here, to be destroyed
}

void DemoServer::onServerStopped() {
    // No WebSocket may be closed once the engine has gone, so that happens now.
    webSocketPool_.stopThreads(true);
    webSocketPool_.closeAll();
    eventBoard_.close(); // or the streams would go on for ever
    requestPool_.finish(StopPatience);
}

void DemoServer::notifyScheduler() {
    requestPool_.wakeScheduler();
}

} // namespace demo
