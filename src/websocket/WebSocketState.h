// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/WebSocket.h"
#include "websocket/BlockQueue.h"
#include "websocket/MessageInProgress.h"
#include "websocket/pool/PollWaker.h"
#include "websocket/pool/PoolMember.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace ql::impl {

/// What a WebSocket has beside its declared fields, and what a pool sees of it. Lives as long as the WebSocket.
class WebSocketState final : public PoolMember {
public:
    explicit WebSocketState(http::WebSocket& socket);

    static WebSocketState& of(http::WebSocket& socket) { return *socket.state_; }

    std::uint64_t getSocket() const override { return socket_.getSocket(); }
    bool isWritePending() const override { return writePending.load(std::memory_order_relaxed); }
    bool isReadPending() const override { return socket_.hasReadPending(); }
    void setPollWaker(const std::shared_ptr<PollWaker>& waker) override;
    void noteReadable() override { socket_.setReadEnabled(true); }
    bool serve() override;
    void close() override { socket_.markForDeletion(); }

    /// Received and not yet parsed. The holder's.
    BlockQueue incoming;
    /// The holder's.
    MessageInProgress message;
    /// Not yet sent. Guarded by the WebSocket's mutex.
    BlockQueue outgoing;
    /// Whether `outgoing` holds anything. Written under the WebSocket's mutex and read without: the poll thread asks
    /// when it begins to watch a connection and after a write was noted.
    std::atomic<bool> writePending{false};
    /// A worker's turn: it gives the connection back afterwards, and what is left to send is seen then. Written by the
    /// thread that serves the connection; another that claims to do so finds one or the other.
    std::atomic<bool> isInTurn{false};
    /// Reaches the poll thread of the pool that the connection was given to last; empty before. Guarded by the
    /// WebSocket's mutex.
    std::shared_ptr<PollWaker> pollWaker;

private:
    http::WebSocket& socket_;
};

} // namespace ql::impl
