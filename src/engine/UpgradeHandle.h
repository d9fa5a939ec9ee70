// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

namespace ql::impl {

/// Ends an upgraded connection in the engine, which then closes its socket.
using UpgradeCloser = void (*)(void* upgradeHandle);

/// How connections are closed: through the engine. Tests that have no engine put a function of their own here.
extern std::atomic<UpgradeCloser> upgradeCloser;

/// The one place from which an upgraded connection is closed. Not after the engine's daemon has stopped.
/// @param connection the socket to the peer where the engine stands between it and the application's, as over TLS;
/// InvalidSocket where they are one.
void closeUpgradedConnection(void* upgradeHandle, std::uint64_t connection);

/// What its closer has done with a connection's sockets comes before what follows on this. Before the engine closes
/// them: over TLS version 0.9.75 learns by a flag, under no lock, that it may.
void followUpgradeClosers() noexcept;

/// Returns when nobody is closing this connection any more. Before the engine frees it: version 0.9.75 can be done with
/// a connection over TLS while the thread that closes it is still on its way through the engine.
void awaitUpgradeClosers(std::uint64_t connection);

} // namespace ql::impl
