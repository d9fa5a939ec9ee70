// SPDX-License-Identifier: MIT
#pragma once

#include "session/DeflateOffer.h"
#include "session/WebOrigin.h"
#include "vireo/WebSocketOptions.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ql::impl {

/// What ql::http::WebSocketCompression holds.
struct CompressionSettings {
    static const CompressionSettings& of(const http::WebSocketCompression& compression) {
        return *compression.settings_;
    }

    DeflateSettings deflate;
};

/// What ql::http::WebSocketOptions holds. Constant once sessions have it.
struct SessionSettings {
    static const SessionSettings& of(const http::WebSocketOptions& options) { return *options.settings_; }

    std::uint64_t maxMessageBytes = 1048576;
    std::uint64_t maxQueuedBytes = 4194304;
    http::WebSocketOptions::QueuePolicy queuePolicy = http::WebSocketOptions::QueuePolicy::Close;
    std::vector<WebOrigin> allowedOrigins;
    /// As they were given.
    std::vector<std::string> allowedOriginTexts;
    std::uint32_t pingIntervalMs = 45000; ///< 0 for never
    std::uint32_t pongTimeoutMs = 20000;  ///< 0 for any time
    std::uint32_t idleTimeoutMs = 0;      ///< 0 for never
    std::uint32_t closeTimeoutMs = 5000;
    std::optional<http::WebSocketCompression> compression;
    bool inPieces = false;
    std::uint32_t threads = 2;
    /// Null for one of the server's own.
    std::shared_ptr<http::WebSocketPool> pool;

    /// What a session has of them: it does not keep the pool that serves it.
    static std::shared_ptr<const SessionSettings> forSessions(const http::WebSocketOptions& options) {
        auto settings = std::make_shared<SessionSettings>(of(options));
        settings->pool.reset();
        return settings;
    }
};

} // namespace ql::impl
