// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

namespace ql::impl {

struct Front;

/// What a daemon is started with.
struct EngineOptions {
    // Of a daemon that listens, and has a pool of threads.

    std::uint16_t port = 0;
    bool onAllInterfaces = false;
    std::uint32_t listenBacklog = 0;
    std::uint32_t threadPoolSize = 0;

    // Of any.

    std::uint32_t connectionTimeoutMs = 0; ///< 0 for none
    std::size_t connectionMemoryBytes = 0;
    bool webSockets = false;
    bool turbo = false;
    bool trackConnections = false;
    /// All connections speak TLS, with what each is given.
    bool tls = false;
    /// Exchanges suspend their connections.
    bool suspends = false;
    /// By which connections come, which are given to the daemon; outlives it. Null where the daemon listens.
    Front* front = nullptr;
};

} // namespace ql::impl
