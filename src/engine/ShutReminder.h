// SPDX-License-Identifier: MIT
#pragma once

#include "server/ClientConnection.h"

struct MHD_Connection;

// Where the system's poll does not report a socket that this side has shut, the engine would keep the connection until
// its client does something, be it for ever. A reminder makes the engine close it. It comes to the daemon thread as one
// more connection, for nothing else wakes that thread, but it is no client's: it counts nowhere, and nobody is told of
// it.

namespace ql::impl {

struct EventServing;

/// Reminds the engine of a connection whose socket was shut. This may fail without a trace: it is to be repeated as
/// long as the connection is open. Any thread, but not while the engine is stopped.
void remindOfShut(ClientConnection& client) noexcept QL_REQUIRES(client.gate());

/// The engine has taken a connection, or is about to close one. Daemon threads.
/// @return false when it is a client's.
bool takeReminder(EventServing& serving, MHD_Connection* connection, bool started) noexcept;

} // namespace ql::impl
