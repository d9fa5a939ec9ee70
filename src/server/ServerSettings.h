// SPDX-License-Identifier: MIT
#pragma once

#include "server/ExchangeObservers.h"
#include "vireo/ServerOptions.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ql::impl {

/// What ql::http::ServerOptions holds.
struct ServerSettings {
    /// Without it the default of the waiting holds.
    std::optional<std::size_t> connectionMemoryBytes;
    bool turbo = false;
    bool strictHttp = false;
    std::vector<http::ListenEndpoint> listeners;
    http::ServerOptions::Waiting waiting = http::ServerOptions::Waiting::Polling;
    http::ServerOptions::Filing filing = http::ServerOptions::Filing::Maps;
    std::uint64_t uploadWindowBytes = 1048576;
    std::uint64_t maxBodyBytes = 0;
    std::uint64_t maxHeadBytes = 0;
    std::uint32_t maxRequestsPerConnection = 0;
    ExchangeObservers observers;
    std::shared_ptr<http::RequestOwner> owner;
    bool endsOnClientClose = true;
    std::size_t maxConnections = 0;
    std::size_t maxConnectionsPerAddress = 0;
    std::uint32_t drainGraceMs = 0;
    http::ServerOptions::DrainAnswer drainAnswer = http::ServerOptions::DrainAnswer::Serve;
    std::uint32_t headTimeoutMs = 30000;
    std::uint64_t bodyProgressBytes = 4096;
    std::uint32_t bodyProgressMs = 30000;
    std::uint32_t answerTimeoutMs = 300000;
    std::uint32_t writeTimeoutMs = 60000;
    std::vector<std::string> methods;
    std::shared_ptr<http::WebSocketAcceptor> webSocketAcceptor;
    http::WebSocketOptions webSocketOptions;
};

} // namespace ql::impl
