// SPDX-License-Identifier: MIT
#pragma once

#include "engine/OwnSocket.h"

#include <cstdint>

namespace ql::impl {

/// A descriptor of its own for a connection that the engine closes meanwhile, so that the system does not reset it for
/// the bytes that nobody has read: the client would lose what was sent to it last.
class LingeringSocket {
public:
    /// Nothing will be sent any more. While the engine has not closed the socket.
    explicit LingeringSocket(std::uint64_t socket) noexcept;

    /// False when the system had no descriptor to give.
    bool isOpen() const { return own_.isOpen(); }
    std::uint64_t socket() const { return own_.socket(); }

private:
    OwnSocket own_;
};

} // namespace ql::impl
