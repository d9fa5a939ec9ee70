#pragma once

#include "ChatSocket.h"
#include "EventBoard.h"
#include "Statistics.h"
#include "skeleton/RequestPool.h"
#include "vireo/ExchangeMetrics.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/WebSocketThread.h"

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

namespace demo {

/// The application's side of the server. Serves one run of it: the WebSocket pool can't be started again.
class DemoServer final : public ql::http::HttpServerImpl {
public:
    /// @param workers threads that serve requests.
    /// @param webSocketWorkers threads that serve WebSockets; 0 when there are to be none.
    /// @param metrics observes the exchanges, and is given out with what the demo adds; null for none.
    DemoServer(unsigned int workers, unsigned int webSocketWorkers, std::shared_ptr<ql::http::ExchangeMetrics> metrics);

    ql::HttpBaseRequest* createRequest() override;
    void handleRequest(ql::HttpBaseRequest* base) override;
    void acceptWebSocket(ql::http::WebSocket* accepted) override;
    void onServerStopped() override;
    void notifyScheduler() override;

    /// The server is about to be drained: whoever asks is told, and the streams of events end, which would not by
    /// themselves. Any thread.
    void beginDrain();
    /// POST /drain is to do this; nothing at first. Before the start.
    void offerDrain(std::function<void()> wish) { drainWish_ = std::move(wish); }
    bool offersDrain() const { return drainWish_ != nullptr; }
    /// Once offered, any thread.
    void askForDrain() { drainWish_(); }
    bool isDraining() const { return isDraining_.load(std::memory_order_relaxed); }

    Statistics& statistics() { return statistics_; }
    EventBoard& eventBoard() { return eventBoard_; }
    /// Null when there are none.
    const ql::http::ExchangeMetrics* metrics() const { return metrics_.get(); }

private:
    void addGauges();

    const std::shared_ptr<ql::http::ExchangeMetrics> metrics_;
    std::function<void()> drainWish_;
    std::atomic<bool> isDraining_ = false;
    // The pools stand last, so that their threads have ended before the rest goes.
    Statistics statistics_;
    ChatRoom chatRoom_;
    EventBoard eventBoard_{requestPool_};
    ql::http::WebSocketThread webSocketPool_;
    skeleton::RequestPool requestPool_;
};

} // namespace demo
