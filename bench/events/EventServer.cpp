#include "events/EventServer.h"

#include "events/EventRequest.h"

namespace bench {

void EventServer::handleRequest(ql::HttpBaseRequest* request) {
    EventRequest& own = *static_cast<EventRequest*>(request);
    if (own.getParsedUrl().getPath() == "/health") {
        const ql::http::HttpServer* const server = server_;
        own.answerHealth(server != nullptr && !server->isDraining());
        return;
    }
    requestCount_.fetch_add(1, std::memory_order_relaxed);
    BenchServer::handleRequest(request);
}

std::unique_ptr<BenchRequest> EventServer::makeRequest() {
    return std::make_unique<EventRequest>(*this, board_);
}

} // namespace bench
