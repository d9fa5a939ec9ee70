// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineConnection.h"
#include "engine/Verdict.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace ql::http {
class HttpServer;
}

namespace ql::impl {

class EngineResponse;
struct RequestContext;

/// True when the request's headers ask for a WebSocket. The comparison is case-sensitive, "Upgrade: WebSocket" and a
/// "Connection" that contains "Upgrade": a reverse proxy in front sets them so, and what comes directly from a
/// browser, in lower case, is an ordinary request for the application to answer.
bool isWebSocketUpgrade(EngineConnection connection);

/// Answers the opening handshake (RFC 6455 section 4.2).
Verdict answerWebSocketUpgrade(http::HttpServer& server, RequestContext& context, EngineConnection connection,
                               std::string_view method, std::string_view version);

/// The same for strict HTTP, of what isOpening().
Verdict answerStrictWebSocketUpgrade(http::HttpServer& server, RequestContext& context, EngineConnection connection);

constexpr std::uint32_t SwitchingProtocols = 101;

/// Adds what every client wants to see in the answer that switches protocols.
void addAcceptance(EngineResponse& response, const std::string& key);

/// Answers an opening of another version than the one that there is (RFC 6455 section 4.4).
Verdict answerUpgradeRequired(const http::HttpServer& server, RequestContext& context, EngineConnection connection);

/// What the engine hands over.
struct UpgradedSocket {
    std::uint64_t socket;
    void* handle;
    /// What it has received already behind the head; lives as long as the call.
    std::span<const unsigned char> extraBytes;
};

/// Gives an upgraded connection to the session that was accepted for it, or wrapped to the application. Observers are
/// told here: when the engine completes the request of an upgraded connection, it holds a lock.
/// @param context of the request that asked for it; null for none.
void handOverUpgradedSocket(http::HttpServer& server, RequestContext* context, EngineConnection connection,
                            const UpgradedSocket& upgraded) noexcept;

} // namespace ql::impl
