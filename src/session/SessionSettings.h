// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/WebSocketOptions.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace ql::impl {

/// What ql::http::WebSocketCompression holds.
struct CompressionSettings {
    static const CompressionSettings& of(const http::WebSocketCompression& compression) {
        return *compression.settings_;
    }

    int level = 1;
    std::uint64_t minBytes = 256;
    int serverMaxWindowBits = http::WebSocketCompression::MaxWindowBits;
    int clientMaxWindowBits = http::WebSocketCompression::MaxWindowBits;
    bool serverNoContextTakeover = false;
    bool clientNoContextTakeover = false;
    int memoryLevel = 8;
};

/// What ql::http::WebSocketOptions holds. Constant once sessions have it.
struct SessionSettings {
    static const SessionSettings& of(const http::WebSocketOptions& options) { return *options.settings_; }

    std::uint64_t maxMessageBytes = 1048576;
    std::uint64_t maxQueuedBytes = 4194304;
    http::WebSocketOptions::QueuePolicy queuePolicy = http::WebSocketOptions::QueuePolicy::Close;
    std::uint32_t pingIntervalMs = 30000; ///< 0 for never
    std::uint32_t pongTimeoutMs = 20000;  ///< 0 for any time
    std::uint32_t idleTimeoutMs = 0;      ///< 0 for never
    std::uint32_t closeTimeoutMs = 5000;
    std::optional<http::WebSocketCompression> compression;
    bool inPieces = false;
    std::uint32_t threads = 2;
    /// Null for one of the server's own.
    std::shared_ptr<http::WebSocketPool> pool;
};

} // namespace ql::impl
