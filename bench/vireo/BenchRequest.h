#pragma once

#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpResponseInterface.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

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

    /// Of the target, whether the server keeps it parsed or not.
    std::string_view path() const {
        const std::string_view target = getOriginalRequestUrl();
        return target.substr(0, target.find('?'));
    }

protected:
    /// What the other programs of the benchmark do not serve; not found, unless a derived class has it.
    /// @return whether the answer is complete. If not, goOn() is called next.
    virtual bool answerOther();
    /// The calling thread is not the request's worker any more. setAnswered() says when the answer is complete.
    virtual void goOn() { setAnswered(); }
    void setAnswered() { answered_.store(true, std::memory_order_release); }
    void answerWith(const char* data, std::uint64_t size);

    BenchResponse response_;

private:
    void stream(bool lengthKnown);
    void takeUpload();

    ql::http::HttpServerImpl& server_;
    std::atomic<bool> answered_{false};
};

} // namespace bench
