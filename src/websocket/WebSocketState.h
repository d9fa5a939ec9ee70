// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/WebSocket.h"
#include "websocket/BlockQueue.h"
#include "websocket/MessageInProgress.h"
#include "websocket/SocketPort.h"
#include "websocket/WebSocketLink.h"
#include "websocket/pool/PoolListener.h"
#include "websocket/pool/PoolMember.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

namespace ql::impl {

/// What a WebSocket has beside its declared fields, and what a pool sees of it. Lives as long as the WebSocket.
class WebSocketState final : public PoolMember {
public:
    explicit WebSocketState(http::WebSocket& socket);
    ~WebSocketState() override;

    static WebSocketState& of(http::WebSocket& socket) { return *socket.state_; }

    std::uint64_t getSocket() const override { return socket_.getSocket(); }
    bool isWritePending() const override { return writePending.load(std::memory_order_relaxed); }
    bool isReadPending() const override { return socket_.hasReadPending(); }
    void setPollWaker(const std::shared_ptr<PoolListener>& waker) override;
    void noteReadable() override { socket_.setReadEnabled(true); }
    bool serve() override;
    void close() override { socket_.markForDeletion(); }

    /// How the server reaches it, from now on. By who makes the connection.
    void setLink(std::shared_ptr<WebSocketLink> link);
    /// Takes over the link of another one, which this connection was.
    void takeLink(WebSocketState& former) { setLink(std::exchange(former.link_, nullptr)); }
    /// Queues a frame that tells the peer to go, unless one was. Nothing is written behind it.
    /// @throws std::bad_alloc
    void sayGoodbye();
    /// Tells the pool, if it is in one, that it closes its socket now. By the holder.
    void tellOfClose();

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
    /// Reaches the pool that the connection was given to last; empty before. Guarded by the WebSocket's mutex.
    std::shared_ptr<PoolListener> pollWaker;
    /// The socket to the peer where the engine stands between; else InvalidSocket. The holder's.
    std::uint64_t connection = InvalidSocket;
    /// Whether the peer was told to go. Guarded by the WebSocket's mutex.
    bool isLeaving = false;

private:
    http::WebSocket& socket_;
    /// Empty where no server reaches it. The holder's.
    std::shared_ptr<WebSocketLink> link_;
};

} // namespace ql::impl
