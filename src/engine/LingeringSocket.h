// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace ql::impl {

/// A descriptor of its own for a connection that the engine closes meanwhile, so that the system does not reset it for
/// the bytes that nobody has read: the client would lose what was sent to it last.
class LingeringSocket {
public:
    /// Nothing will be sent any more. While the engine has not closed the socket.
    explicit LingeringSocket(std::uint64_t socket) noexcept;
    ~LingeringSocket();
    LingeringSocket(LingeringSocket&& other) noexcept;
    LingeringSocket& operator=(LingeringSocket&& other) noexcept;

    /// False when the system had no descriptor to give.
    bool isOpen() const;
    std::uint64_t socket() const { return socket_; }

private:
    std::uint64_t socket_;
};

/// Another descriptor of the same connection, which never blocks; InvalidSocket when the system has none to give.
std::uint64_t duplicateSocket(std::uint64_t socket) noexcept;

} // namespace ql::impl
