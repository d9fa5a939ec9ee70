// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/WebSocketWriter.h"
#include "vireo/export.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace ql::impl {
class SessionCore;
} // namespace ql::impl

namespace ql::http {

class WebSocketMessage;

/// Reaches one WebSocket, from any thread and for as long as somebody likes: it outlives the connection and the
/// session, and what is sent then is refused as Closed. One that was made by default, or moved from, reaches none.
///
/// A message goes out at once, on the calling thread and without a copy, as far as the connection takes it; the rest
/// waits in the connection's queue (WebSocketOptions::setMaxQueuedBytes()). Messages of several threads never mix, and
/// those of one thread arrive in their order. What one callback of a session sends to its own peer may leave together,
/// at the end of the turn.
///
/// A message that does not fit into the queue meets the policy of the options; one that is larger than the whole queue
/// is refused as Full, unless the policy is to close. With WebSocketOptions::QueuePolicy::Wait the sender waits until
/// there is room or the connection is closed; so it must not hold a lock that a callback of a session takes. The
/// threads of the pool, and those that call HttpServerImpl, never wait: there one message beyond the limit is taken for
/// the callback's own peer, and nothing more is received from that peer until there is room again; what is beyond that,
/// and what is for other peers, is refused as Full.
///
/// A value; copies reach the same connection.
class VIREO_API WebSocketHandle {
public:
    /// Reaches none.
    WebSocketHandle();
    /// Reaches what the other one does.
    ///@{
    WebSocketHandle(const WebSocketHandle& other);
    WebSocketHandle(WebSocketHandle&& other) noexcept;
    WebSocketHandle& operator=(const WebSocketHandle& other);
    WebSocketHandle& operator=(WebSocketHandle&& other) noexcept;
    ///@}
    ~WebSocketHandle();

    /// Sends a text message.
    /// @throws std::invalid_argument when it is not UTF-8; std::bad_alloc. Nothing is sent then.
    WebSocketSend sendText(std::string_view text) const;
    /// Sends a binary message.
    /// @throws std::bad_alloc and nothing is sent.
    WebSocketSend sendBinary(std::span<const unsigned char> bytes) const;
    /// Sends a message that was encoded before. What has to wait is shared with whoever else it is sent to.
    /// @throws std::bad_alloc and nothing is sent.
    WebSocketSend send(const WebSocketMessage& message) const;
    /// Sends a ping, ahead of messages that wait. The answer comes as WebSocketSession::onPong().
    /// @param payload at most 125 bytes, of any kind.
    /// @throws std::invalid_argument when it is longer; std::bad_alloc.
    WebSocketSend ping(std::string_view payload = {}) const;

    /// Begins a message whose bytes come in pieces. One at a time: while another one is unfinished, the new writer is
    /// refused as Full.
    ///@{
    WebSocketWriter beginText() const;
    WebSocketWriter beginBinary() const;
    ///@}

    /// Closes the connection behind what was sent so far: the peer is told, its answer waited for, at most
    /// WebSocketOptions::setCloseTimeoutMs(), and WebSocketSession::onClose() called. From now on everything is refused
    /// as Closed. Does nothing the second time.
    /// @param code 1000 to 1003, 1007 to 1009, 1011 to 1014, or 3000 to 4999.
    /// @param reason UTF-8, at most 123 bytes.
    /// @throws std::invalid_argument for another code or reason; std::bad_alloc.
    void close(std::uint16_t code = 1000, std::string_view reason = {}) const;

    /// Bytes that wait to be sent, with their framing. A snapshot.
    std::uint64_t queuedBytes() const;

    /// Whether something can be sent. A snapshot.
    bool isOpen() const;

    /// Whether both reach the same connection, or none.
    friend bool operator==(const WebSocketHandle&, const WebSocketHandle&) = default;

private:
    friend class WebSocketSession;
    friend class impl::SessionCore;

    explicit WebSocketHandle(std::shared_ptr<impl::SessionCore> core);

    std::shared_ptr<impl::SessionCore> core_;
};

} // namespace ql::http
