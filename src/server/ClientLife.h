// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineConnection.h"

#include <cstdint>

namespace ql::impl {

struct EventServing;
struct RequestContext;

/// The engine has taken a connection, or is about to close one, of a server that waits by events. Daemon threads.
/// @param slot the engine's socket context: the connection's ClientConnection as a ConnectionRecord, which the
/// connection table keeps. Null when there was no memory for one: then its requests are not answered.
void beginOrEndClient(EventServing& serving, EngineConnection connection, void*& slot, bool started) noexcept;

/// The engine hands a connection over to a WebSocket: it is no client any more. Daemon threads.
/// @param socket the WebSocket's, which over TLS is not the connection's.
void endUpgradedClient(RequestContext& context, std::uint64_t socket) noexcept;

} // namespace ql::impl
