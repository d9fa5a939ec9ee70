#pragma once

#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpResponseInterface.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace bench {

class BenchServer;

/// 200 or 404, one header, and a declared length where it is known.
class BenchResponse : public ql::HttpResponseInterface {
public:
    const Cookies& getCookies() const override;
    const Headers& getHeaders() const override;
    std::uint32_t getStatusCode() const override { return statusCode; }
    std::int64_t getContentLength() const override { return contentLength; }
    std::string getReasonPhrase() const override { return {}; }

    std::uint32_t statusCode = 200;
    std::int64_t contentLength = -1;
};

class BenchRequest : public ql::HttpBaseRequest {
public:
    explicit BenchRequest(ql::http::HttpServerImpl& server) : server_(server) {}

    ql::HttpResponseInterface& getResponse() override { return response_; }
    ql::http::HttpServerImpl& getServerImpl() override { return server_; }

    /// Does the work and releases the response. The calling thread is the request's worker meanwhile.
    void answer();

    /// No thread works on the request any more, and the engine is finished with it.
    bool isOver() const { return answered_.load(std::memory_order_acquire) && isSchedulerDone(); }

private:
    void answerWith(const char* data, std::uint64_t size);
    void stream(bool lengthKnown);
    void takeUpload();

    ql::http::HttpServerImpl& server_;
    BenchResponse response_;
    std::atomic<bool> answered_{false};
};

} // namespace bench
