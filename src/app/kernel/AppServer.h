// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/HttpServerImpl.h"
#include "vireo/RequestOwner.h"

#include <memory>

namespace vireo::impl {

class Service;

/// Makes an exchange of each request. Holds the service, which holds the server that owns this, until the service is
/// closed.
class AppServer final : public ql::http::HttpServerImpl {
public:
    explicit AppServer(std::shared_ptr<Service> service);

    ql::HttpBaseRequest* createRequest() override;
    void handleRequest(ql::HttpBaseRequest* request) override;
    void acceptWebSocket(ql::http::WebSocket* socket) override;
    void onServerStopped() override {}
    void notifyScheduler() override {}

private:
    const std::shared_ptr<Service> service_;
};

/// Tells exchanges what becomes of them.
class AppOwner final : public ql::http::RequestOwner {
public:
    void onBodyReady(ql::HttpBaseRequest& request, bool isWhole) override;
    void onRequestDone(ql::HttpBaseRequest& request, std::string_view lossReason) override;
};

} // namespace vireo::impl
