// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/export.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace ql::http {
class WebSocketHandle;
}

namespace vireo {

namespace impl {
struct SocketAccess;
}

/// What has become of a message.
enum class SocketSend {
    Queued, ///< it is on its way
    Closed, ///< there is no connection, or it is being closed
    Full,   ///< the client takes less than it is sent: dropped; see SocketEvents::onDrained()
};

/// The connection of one WebSocket. Handlers get it, and may keep it as long as they like: it outlives the connection,
/// and what is sent then is Closed. A value; copies reach the same connection. Every member may be called from any
/// thread, and none waits for the client, unless the options of the WebSockets say so.
class VIREO_APP_API Socket {
public:
    /// Reaches none.
    Socket();
    /// Copies reach the same connection.
    ///@{
    Socket(const Socket& other);
    Socket& operator=(const Socket& other);
    ///@}
    ~Socket();

    /// Sends a text message.
    /// Throws std::invalid_argument when it is not UTF-8.
    SocketSend send(std::string_view text) const;
    /// Sends a binary message.
    SocketSend sendBinary(std::span<const unsigned char> bytes) const;
    /// Asks the client for a sign of life. The library does so by itself where nothing comes for a while.
    void ping() const;
    /// Closes the connection, behind what was sent so far; SocketEvents::onClose() follows.
    /// Throws std::invalid_argument for a code other than 1000 to 1003, 1007 to 1009, 1011 to 1014 and 3000 to 4999,
    /// and for a reason that is not UTF-8 or has more than 123 bytes.
    void close(std::uint16_t code = 1000, std::string_view reason = {}) const;
    /// Whether something can be sent. A snapshot.
    bool isOpen() const;
    /// Bytes that wait until the client takes them. A snapshot.
    std::uint64_t queuedBytes() const;

    /// Whether both reach the same connection, or none.
    friend bool operator==(const Socket&, const Socket&) = default;

private:
    friend struct impl::SocketAccess;

    std::shared_ptr<const ql::http::WebSocketHandle> handle_;
};

} // namespace vireo
