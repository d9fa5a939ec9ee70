// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/WebSocketHandle.h"
#include "vireo/export.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace ql::impl {
class SessionCore;
} // namespace ql::impl

namespace ql::http {

/// What an application does with one WebSocket (RFC 6455) of a client: derive, and hand an object of the class to
/// WebSocketAnswer::Accept().
///
///     class Echo : public ql::http::WebSocketSession {
///         void onText(std::string_view text) override { sendText(text); }
///     };
///
/// The library owns the object from then on. Its callbacks come from the threads of a pool, with no lock of the library
/// held, one at a time and in the order of the virtuals here: onOpen() once, then what the peer sends, then onClose()
/// once. Callbacks of different sessions overlap. A callback that blocks holds up the other sessions of its thread, and
/// the stop of the server. After onClose() the object is destroyed, on the same thread; where the connection ended
/// before it was opened, no callback comes.
///
/// One that throws closes the connection with 1011, and a line is logged (type 5).
class VIREO_API WebSocketSession {
public:
    WebSocketSession();
    virtual ~WebSocketSession();
    WebSocketSession(const WebSocketSession&) = delete;
    WebSocketSession& operator=(const WebSocketSession&) = delete;

    /// The peer is there.
    virtual void onOpen();
    /// A text message, valid UTF-8, which lives as long as the call. The body here ignores it, as the next one does.
    virtual void onText(std::string_view text);
    /// A binary message, which lives as long as the call.
    virtual void onBinary(std::span<const unsigned char> bytes);
    /// With WebSocketOptions::setPieces(), in place of the two above: a piece of a message as it comes, which lives as
    /// long as the call. The pieces of one message follow each other; the last one may be empty. A character of a text
    /// may be spread over two.
    virtual void onPiece(std::span<const unsigned char> piece, bool isText, bool isLast);
    /// The peer has answered a ping; those that keep the connection alive come here, too, without a payload.
    virtual void onPong(std::span<const unsigned char> payload);
    /// The queue has come down to half of its limit or less, after something did not fit, or more than that half
    /// waited.
    virtual void onDrained();
    /// The connection is at its end; nothing can be sent any more.
    /// @param code why, as the peer said: 1000 to 4999, 1005 when it named none. Where it said nothing, the code that
    /// this side has closed with, as 1001 at the stop of the server, 1002, 1007 or 1009 for what the peer sent, 1011
    /// for an exception; or 1006 when the connection was lost before.
    /// @param reason the peer's words, valid UTF-8; lives as long as the call.
    /// @param isClean whether both sides have said that they close; what this side says may still be on its way.
    virtual void onClose(std::uint16_t code, std::string_view reason, bool isClean);

    /// Reaches this connection from anywhere. What is sent before onOpen() is refused as Closed.
    WebSocketHandle getHandle() const;

    /// What the handle does, for this connection.
    ///@{
    WebSocketSend sendText(std::string_view text) const;
    WebSocketSend sendBinary(std::span<const unsigned char> bytes) const;
    WebSocketSend send(const WebSocketMessage& message) const;
    WebSocketSend ping(std::string_view payload = {}) const;
    WebSocketWriter beginText() const;
    WebSocketWriter beginBinary() const;
    void close(std::uint16_t code = 1000, std::string_view reason = {}) const;
    std::uint64_t queuedBytes() const;
    ///@}

private:
    friend class impl::SessionCore;

    // Room for later versions.
    virtual void reserved1();
    virtual void reserved2();
    virtual void reserved3();
    virtual void reserved4();

    std::shared_ptr<impl::SessionCore> core_;
};

} // namespace ql::http
