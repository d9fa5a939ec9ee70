#pragma once

#include "skeleton/Application.h"
#include "skeleton/Request.h"
#include "vireo/WebSocket.h"
#include "vireo/WebSocketThread.h"

#include <memory>
#include <utility>

namespace skeleton {

/// A plain request to a server of WebSockets.
class NoWebSocket final : public Request {
public:
    using Request::Request;

private:
    Pause serve() override {
        answer(426, "text/plain", "open a WebSocket here\n");
        return {};
    }
};

/// Serves WebSockets of one class by a pool. Serves one run of a server: the pool can't be started again.
/// A derived class says in makeSocket() what becomes of an accepted connection.
class WebSocketServer : public PooledServer {
public:
    /// @param workers threads that serve the WebSockets.
    explicit WebSocketServer(unsigned int workers = 2)
        : PooledServer([](ql::http::HttpServerImpl& server) { return std::make_unique<NoWebSocket>(server); }) {
        pool_.startThreads(workers);
    }

    void acceptWebSocket(ql::http::WebSocket* accepted) final {
        const std::unique_ptr<ql::http::WebSocket> source(accepted);
        std::unique_ptr<ql::http::WebSocket> socket = makeSocket(std::move(*source));
        pool_.addWebSocket(socket); // a stopped pool closes it and leaves it here, to be destroyed
    }

    void onServerStopped() final {
        // No WebSocket may be closed once the engine has gone, so that happens now.
        pool_.stopThreads(true);
        pool_.closeAll();
        PooledServer::onServerStopped();
    }

protected:
    /// Daemon threads.
    virtual std::unique_ptr<ql::http::WebSocket> makeSocket(ql::http::WebSocket&& accepted) = 0;

private:
    ql::http::WebSocketThread pool_;
};

} // namespace skeleton
