// SPDX-License-Identifier: MIT
#pragma once

#include "server/ConnectionTable.h"
#include "server/ConnectionWatch.h"
#include "server/Deadlines.h"
#include "server/ExchangeObservers.h"
#include "vireo/ServerOptions.h"
#include "websocket/WebSocketLink.h"

#include <cstdint>

namespace ql::http {
class HttpServer;
}

namespace ql::impl {

/// What one run of a server that waits by events consists of beside the engine, which it outlives.
struct EventServing {
    /// @param of whose run it is.
    /// @param windowBytes what of a body is kept for its reader.
    /// @param idleTimeoutMs how long an engine lets a kept connection be idle; 0 for ever.
    EventServing(http::HttpServer& of, const http::ServerOptions& serverOptions, std::uint64_t windowBytes,
                 std::uint32_t idleTimeoutMs = 0)
        : server(of),
          options(serverOptions),
          uploadWindowBytes(windowBytes),
          deadlines(options, idleTimeoutMs, connections) {}

    http::HttpServer& server;
    const http::ServerOptions options;
    const ExchangeObservers& observers = options.getExchangeObservers();
    const std::uint64_t uploadWindowBytes;
    ConnectionTable connections;
    WebSocketRoster webSockets;
    /// The connection watch's alone.
    Deadlines deadlines;
    ConnectionWatch watch{connections};
};

} // namespace ql::impl
