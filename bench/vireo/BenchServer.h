#pragma once

#include "support/DelayLine.h"
#include "support/WorkerPool.h"
#include "vireo/BenchRequest.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/WebSocketThread.h"

#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace bench {

/// The application's side of the benchmark: as little as an application can do.
class BenchServer : public ql::http::HttpServerImpl {
public:
    /// @param workers threads that answer requests, and threads of the WebSocket pool.
    /// @param looks of the first: see WorkerPool.
    /// @param answerInline answer plain requests inside handleRequest().
    BenchServer(unsigned int workers, int looks, bool answerInline, bool webSocket);
    ~BenchServer() override;

    ql::HttpBaseRequest* createRequest() override;
    void handleRequest(ql::HttpBaseRequest* request) override;
    void acceptWebSocket(ql::http::WebSocket* accepted) override;
    void onServerStopped() override;
    void notifyScheduler() override {}

protected:
    virtual std::unique_ptr<BenchRequest> makeRequest();

private:
    /// The requests that one daemon thread made, oldest first. A connection stays on its thread, so that no other one
    /// touches the list, and a request is deleted where it was made.
    using Requests = std::deque<std::unique_ptr<BenchRequest>>;

    Requests& requestsOfThisThread();

    const bool answerInline_;
    WorkerPool<BenchRequest*> workers_;
    DelayLine<BenchRequest*> late_;
    ql::http::WebSocketThread webSockets_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<Requests>> requests_; // guarded by mutex_, the lists are not
};

} // namespace bench
