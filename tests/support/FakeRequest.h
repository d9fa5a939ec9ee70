#pragma once

#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpResponseInterface.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/WebSocket.h"
#include "vireo/support/qlThread.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace vireotest {

/// A response description whose parts are set directly, before the response is released.
class FakeResponse : public ql::HttpResponseInterface {
public:
    Headers headers;
    Cookies cookies;
    std::uint32_t status = 200;
    std::int64_t contentLength = -1;

    const Cookies& getCookies() const override { return cookies; }
    const Headers& getHeaders() const override { return headers; }
    std::uint32_t getStatusCode() const override { return status; }
    std::int64_t getContentLength() const override { return contentLength; }
    std::string getReasonPhrase() const override {
        ++reasonPhrasesAsked;
        return "Fake";
    }

    mutable std::atomic<int> reasonPhrasesAsked{0};
};

/// A request that shows what is protected.
class FakeRequest : public ql::HttpBaseRequest {
public:
    explicit FakeRequest(ql::http::HttpServerImpl& serverImpl) : serverImpl_(serverImpl) {}

    ql::HttpResponseInterface& getResponse() override {
        ++responsesAsked;
        return response;
    }
    ql::http::HttpServerImpl& getServerImpl() override { return serverImpl_; }

    /// Makes the calling thread this request's worker.
    void handleOnThisThread() { workerThreadStartHandling(qlThread::CurrentThreadId()); }

    using HttpBaseRequest::applicationTag_;
    using HttpBaseRequest::applicationTimer_;
    using HttpBaseRequest::editFeedDevice;
    using HttpBaseRequest::getHeaderAndBodyReadDurationMs;
    using HttpBaseRequest::getHeaderAndResponseWriteDurationMs;
    using HttpBaseRequest::setParseError;

    FakeResponse response;
    std::atomic<int> responsesAsked{0};

private:
    ql::http::HttpServerImpl& serverImpl_;
};

/// Answers with its own body, on the daemon thread, once all of that is there: when dispatch first asks for the
/// response. It allocates next to nothing, and no run depends on how threads take turns.
class EchoRequest : public FakeRequest {
public:
    using FakeRequest::FakeRequest;

    ql::HttpResponseInterface& getResponse() override {
        ql::HttpResponseDevice& out = editInternalResponseDevice();
        if (out.getResponseState() == ql::HttpResponseDevice::ResponseState::NotReady) {
            handleOnThisThread();
            std::array<char, 4096> piece;
            while (!editFeedDevice().atEnd()) {
                out.writeBytes(piece.data(), editFeedDevice().readBytes(piece.data(), piece.size()));
            }
            beforeRelease();
            out.endSending();
            out.releaseResponse();
            workerThreadStopHandling({});
        }
        return response;
    }

private:
    virtual void beforeRelease() {}
};

/// An application's side that counts its calls and then does what it was given to do. Set the functions before a
/// server starts.
class FakeServerImpl : public ql::http::HttpServerImpl {
public:
    /// @param destroyed set by the destructor, if given.
    explicit FakeServerImpl(std::atomic<bool>* destroyed = nullptr) : destroyed_(destroyed) {}
    ~FakeServerImpl() override {
        if (destroyed_ != nullptr) {
            *destroyed_ = true;
        }
    }

    using HttpServerImpl::setDefaultInternalError;

    /// Null: a FakeRequest, which lives as long as this object.
    std::function<ql::HttpBaseRequest*()> onCreate;
    std::function<void(ql::HttpBaseRequest*)> onHandle;
    /// Null: the connection is closed and destroyed.
    std::function<void(ql::http::WebSocket*)> onAccept;
    std::function<void()> onStopped;
    std::function<void()> onNotify;

    std::atomic<int> created{0};
    std::atomic<int> handled{0};
    std::atomic<int> accepted{0};
    std::atomic<int> stopped{0};
    std::atomic<int> notified{0};

    ql::HttpBaseRequest* createRequest() override {
        ++created;
        if (onCreate) {
            return onCreate();
        }
        const std::lock_guard<std::mutex> guard(mutex_);
        return requests_.emplace_back(std::make_unique<FakeRequest>(*this)).get();
    }

    void handleRequest(ql::HttpBaseRequest* request) override {
        ++handled;
        if (onHandle) {
            onHandle(request);
        }
    }

    void acceptWebSocket(ql::http::WebSocket* socket) override {
        ++accepted;
        if (onAccept) {
            onAccept(socket);
            return;
        }
        const std::unique_ptr<ql::http::WebSocket> owned(socket);
        owned->markForDeletion();
    }

    void onServerStopped() override {
        ++stopped;
        if (onStopped) {
            onStopped();
        }
    }

    void notifyScheduler() override {
        ++notified;
        if (onNotify) {
            onNotify();
        }
    }

private:
    std::atomic<bool>* const destroyed_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<FakeRequest>> requests_;
};

} // namespace vireotest
