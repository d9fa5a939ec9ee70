#include "app/kernel/AppServer.h"

#include "app/kernel/AppExchange.h"
#include "vireo/WebSocket.h"

#include <utility>

namespace vireo::impl {

AppServer::AppServer(std::shared_ptr<Service> service) : service_(std::move(service)) {
    setDefaultInternalError("internal error\n");
}

ql::HttpBaseRequest* AppServer::createRequest() {
    return &AppExchange::Make(service_, *this);
}

void AppServer::handleRequest(ql::HttpBaseRequest* request) {
    static_cast<AppExchange&>(*request).handle();
}

void AppServer::acceptWebSocket(ql::http::WebSocket* socket) {
    // Sessions are made otherwise: nobody asks for one of these.
    socket->markForDeletion();
}

void AppOwner::onBodyReady(ql::HttpBaseRequest& request, bool isWhole) {
    static_cast<AppExchange&>(request).handleBody(isWhole);
}

void AppOwner::onRequestDone(ql::HttpBaseRequest& request, std::string_view /*lossReason*/) {
    static_cast<AppExchange&>(request).end();
}

} // namespace vireo::impl
