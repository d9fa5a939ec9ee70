// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

namespace ql::impl {

/// Ends an upgraded connection in the engine, which then closes its socket.
using UpgradeCloser = void (*)(void* upgradeHandle);

/// How connections are closed: through the engine. Tests that have no engine put a function of their own here.
extern std::atomic<UpgradeCloser> upgradeCloser;

/// The one place from which an upgraded connection is closed. Not after the engine's daemon has stopped.
void closeUpgradedConnection(void* upgradeHandle);

} // namespace ql::impl
