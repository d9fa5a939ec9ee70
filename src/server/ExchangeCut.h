// SPDX-License-Identifier: MIT
#pragma once

#include "server/ClientConnection.h"
#include "server/CutReason.h"

namespace ql::impl {

/// Ends the exchange of a connection, if there is one, and the connection itself, in both directions. The first reason
/// stays. The response device is lost, a feed that is not whole fails, and the daemon thread, which is told, completes
/// the exchange. Any thread, under no device's lock.
void cutExchange(ClientConnection& client, CutReason reason) noexcept QL_REQUIRES(client.gate());

} // namespace ql::impl
