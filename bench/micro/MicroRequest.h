#pragma once

#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpResponseInterface.h"
#include "vireo/HttpServerImpl.h"

#include <string>

namespace bench {

/// A server and a request without an engine.
class MicroServer : public ql::http::HttpServerImpl {
public:
    ql::HttpBaseRequest* createRequest() override { return nullptr; }
    void handleRequest(ql::HttpBaseRequest* /*request*/) override {}
    void acceptWebSocket(ql::http::WebSocket* /*socket*/) override {}
    void onServerStopped() override {}
    void notifyScheduler() override {}
};

class MicroResponse : public ql::HttpResponseInterface {
public:
    const Cookies& getCookies() const override { return cookies_; }
    const Headers& getHeaders() const override { return headers_; }
    std::uint32_t getStatusCode() const override { return 200; }
    std::int64_t getContentLength() const override { return -1; }
    std::string getReasonPhrase() const override { return {}; }

private:
    Cookies cookies_;
    Headers headers_;
};

class MicroRequest : public ql::HttpBaseRequest {
public:
    explicit MicroRequest(MicroServer& server) : server_(server) {}

    ql::HttpResponseInterface& getResponse() override { return response_; }
    ql::http::HttpServerImpl& getServerImpl() override { return server_; }
    using HttpBaseRequest::editFeedDevice;

private:
    MicroServer& server_;
    MicroResponse response_;
};

} // namespace bench
