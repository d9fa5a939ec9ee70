// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineOptions.h"

#include <cstdint>
#include <memory>

struct MHD_Daemon;

namespace ql::http {
class HttpServer;
}

namespace ql::impl {

struct AcceptedSocket;

/// A running daemon of the engine, which calls the functions of EngineCallbacks.h on threads of its own. Destruction
/// stops it: it waits for those threads and closes the connections.
class Daemon {
public:
    /// Whether this engine can poll, or at least so that many connections are no burden.
    static bool CanPoll();

    /// Whether this engine, and this build, can serve over TLS.
    static bool CanTls();

    /// The engine's flags for the options.
    static unsigned int FlagsOf(const EngineOptions& options);

    /// @param server whom the callbacks serve; must outlive the daemon.
    /// @return null when the engine refuses; it says why through the log.
    static std::unique_ptr<Daemon> Start(const EngineOptions& options, http::HttpServer& server);

    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    /// The port that it listens on.
    std::uint16_t port() const;

    /// Gives a connection to a daemon that does not listen. Any thread, but not while the daemon is stopped.
    /// @return false when the engine does not take it; it has closed it then.
    bool addConnection(const AcceptedSocket& accepted);

private:
    Daemon() = default;

    /// Null until the engine has started it.
    MHD_Daemon* daemon_ = nullptr;
};

} // namespace ql::impl
