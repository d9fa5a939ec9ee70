// SPDX-License-Identifier: MIT
#pragma once

#include "tls/TlsConnection.h"

#include <cstdint>
#include <string>

namespace ql::impl {

/// What is remembered about one TCP connection, in the engine's socket context. The daemon thread's alone.
struct ConnectionRecord {
    ConnectionRecord();

    /// 32 hexadecimal digits.
    const std::string connectionId;
    const std::int64_t startTime;
    std::uint32_t requestCount = 0;
    TlsConnection tls;
};

/// A fresh version-7 UUID (RFC 9562) as 32 lower-case hexadecimal digits without dashes.
std::string makeConnectionId();

/// Whether the log wants to know of connections.
bool isTrackingLogged();

/// Says in the log that a connection has started, is ended before its time for a reason, or was closed.
///@{
void logStarted(const ConnectionRecord& record);
void logCut(const ConnectionRecord& record, const char* reason);
void logClosed(const ConnectionRecord& record);
///@}

/// Makes the record of a connection that has started, or destroys that of one that was closed.
/// @param slot the engine's socket context.
void trackConnection(void*& slot, bool started, bool isLogged) noexcept;

} // namespace ql::impl
