// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

namespace ql::impl {

struct EventServing;

/// What a daemon is started with.
struct EngineOptions {
    std::uint16_t port = 0;
    bool onAllInterfaces = false;
    std::uint32_t listenBacklog = 0;
    std::uint32_t threadPoolSize = 0;
    std::uint32_t connectionTimeoutMs = 0; ///< 0 for none
    std::size_t connectionMemoryBytes = 0;
    bool webSockets = false;
    bool turbo = false;
    bool trackConnections = false;
    /// Whose exchanges suspend their connections; outlives the daemon. Null where the engine polls.
    EventServing* serving = nullptr;
    unsigned int connectionLimit = 0; ///< 0 leaves it to the engine
};

} // namespace ql::impl
