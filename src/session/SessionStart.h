// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/WebSocketSession.h"
#include "websocket/SocketPort.h"

#include <cstdint>
#include <memory>
#include <span>

namespace ql::impl {

/// What an accepted session begins with once the engine has handed its connection over.
struct SessionStart {
    std::unique_ptr<http::WebSocketSession> session;
    /// The session's own: the socket to the peer, or one to the engine, which speaks TLS with the peer.
    std::uint64_t socket = InvalidSocket;
    /// For closeUpgradedConnection().
    void* upgradeHandle = nullptr;
    /// The socket to the peer where the engine stands between; else InvalidSocket.
    std::uint64_t between = InvalidSocket;
    /// What the peer sent behind its opening. Copied.
    std::span<const unsigned char> extraBytes;
};

} // namespace ql::impl
