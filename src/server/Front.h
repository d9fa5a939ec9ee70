// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineConnection.h"
#include "server/Admissions.h"
#include "tls/HandshakeWatch.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace ql::http {
class TlsContext;
}

namespace ql::impl {

struct EventServing;

/// What stands between the listeners and the engines of a server that accepts by itself, which it outlives.
struct Front {
    /// @param engines the number of engines that share the connections.
    explicit Front(const Admissions::Limits& limits = {}, std::size_t engines = 1) : admissions(limits, engines) {}

    Admissions admissions;
    /// Null where the engines poll; else outlives this.
    EventServing* serving = nullptr;
    /// Runs where a listener speaks TLS.
    HandshakeWatch handshakes;
    /// By the number of the listener; null where it is without TLS. Constant once the engines run.
    std::vector<std::shared_ptr<http::TlsContext>> tls;
};

/// The engine has taken a connection, or is about to close one. Daemon threads.
/// @param slot the engine's socket context: the connection's ConnectionRecord, which is a ClientConnection where the
/// server waits by events. Null when there was no memory for one: then its requests are not answered there.
void beginOrEndConnection(Front& front, EngineConnection connection, void*& slot, bool started) noexcept;

} // namespace ql::impl
