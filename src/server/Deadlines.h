// SPDX-License-Identifier: MIT
#pragma once

#include "server/DeadlineRule.h"
#include "vireo/ServerOptions.h"

#include <cstdint>

namespace ql::impl {

class ClientConnection;
class ConnectionTable;

/// Cuts the connections of a server on which the client or the application is too slow. They are looked at from time to
/// time, so each deadline is kept up to that much late. One thread.
class Deadlines {
public:
    /// @param idleTimeoutMs how long the engine lets a kept connection be idle; 0 for ever.
    /// @param connections outlives this.
    Deadlines(const http::ServerOptions& options, std::uint32_t idleTimeoutMs, ConnectionTable& connections);

    /// How often run() is to be called; 0 for never.
    std::int64_t periodMs() const { return periodMs_; }

    /// Looks at all connections. Under no lock.
    /// @param nowMs what qlSystemUtils::GetTimeBaseMs() says.
    /// @throws std::bad_alloc
    void run(std::int64_t nowMs);

private:
    /// Whether the connection is worth its gate.
    bool isSuspect(ClientConnection& client, std::int64_t nowMs) const;
    /// @return the reason for which the connection is cut now; None for not, or not for the first time.
    CutReason check(ClientConnection& client, std::int64_t nowMs) const;

    const DeadlineLimits limits_;
    const std::int64_t periodMs_;
    ConnectionTable& connections_;
};

} // namespace ql::impl
