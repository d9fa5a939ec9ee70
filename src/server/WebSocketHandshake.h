// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineConnection.h"
#include "engine/Verdict.h"

#include <cstdint>
#include <string_view>

namespace ql::http {
class HttpServer;
}

namespace ql::impl {

struct RequestContext;
struct RequestHead;

/// True when the request's headers ask for a WebSocket. The comparison is case-sensitive, "Upgrade: WebSocket" and a
/// "Connection" that contains "Upgrade": a reverse proxy in front sets them so, and what comes directly from a
/// browser, in lower case, is an ordinary request for the application to answer.
bool isWebSocketUpgrade(EngineConnection connection);

/// Answers the opening handshake (RFC 6455 section 4.2).
Verdict answerWebSocketUpgrade(http::HttpServer& server, RequestContext& context, EngineConnection connection,
                               std::string_view method, std::string_view version);

/// The same two for strict HTTP: in any case of letters, as browsers send it. What asks for something else, by another
/// method, or of an old version is a request like others (RFC 9110 section 7.8).
///@{
bool isWebSocketUpgrade(const RequestHead& head);
Verdict answerStrictWebSocketUpgrade(http::HttpServer& server, RequestContext& context, EngineConnection connection);
///@}

/// Wraps an upgraded socket and gives it to the application. Observers are told here: when the engine completes the
/// request of an upgraded connection, it holds a lock.
/// @param context of the request that asked for it; null for none.
void handOverUpgradedSocket(http::HttpServer& server, RequestContext* context, EngineConnection connection,
                            std::uint64_t socket, void* upgradeHandle) noexcept;

} // namespace ql::impl
