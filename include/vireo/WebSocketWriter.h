// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <memory>
#include <span>
#include <string_view>

namespace ql::impl {
struct WriterState;
} // namespace ql::impl

namespace ql::http {

/// What became of something that was to be sent over a WebSocket.
enum class WebSocketSend {
    Queued, ///< sent, or waiting to be
    Closed, ///< not sent: the connection is closed or about to be, or there is none
    Full,   ///< not sent: too much waits already
};

/// Sends one long message in pieces, made by WebSocketHandle::beginText() and beginBinary(). The peer sees one message;
/// nobody needs all of it in memory. It is not compressed. Other messages wait until it is finished, and are refused as
/// Full where they would have to wait for room; pings do not wait, nor does a close, which leaves the message
/// unfinished and what waits for it unsent.
///
/// For one thread at a time. A writer that is destroyed before finish() closes the connection with 1011, for the peer
/// could not tell half a message from a whole one.
class VIREO_API WebSocketWriter {
public:
    /// Takes over; the other one may only be assigned to or destroyed.
    ///@{
    WebSocketWriter(WebSocketWriter&& other) noexcept;
    WebSocketWriter& operator=(WebSocketWriter&& other) noexcept;
    ///@}
    WebSocketWriter(const WebSocketWriter&) = delete;
    WebSocketWriter& operator=(const WebSocketWriter&) = delete;
    ~WebSocketWriter();

    /// Sends a piece; an empty one sends nothing. The policy of the queue holds as for whole messages, but that a piece
    /// is never dropped. After Full the piece may be written again later.
    /// @throws std::invalid_argument when the pieces of a text so far are not UTF-8; a character may be spread over
    /// several. std::bad_alloc. The piece is not sent then.
    ///@{
    WebSocketSend write(std::span<const unsigned char> piece);
    WebSocketSend write(std::string_view piece);
    ///@}

    /// Ends the message. Once; afterwards everything is refused as Closed.
    /// @throws std::invalid_argument when a text ends within a character; std::bad_alloc.
    WebSocketSend finish();

private:
    friend struct impl::WriterState;

    explicit WebSocketWriter(std::unique_ptr<impl::WriterState> state);

    std::unique_ptr<impl::WriterState> state_;
};

} // namespace ql::http
