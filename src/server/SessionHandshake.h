// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineConnection.h"
#include "engine/Verdict.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace ql::http {
class HttpServer;
}

namespace ql::impl {

struct RequestContext;
struct StrictHead;

/// Answers the opening of a WebSocket as the application's acceptor decides (RFC 6455 section 4.2), on a server that
/// has one and runs.
/// @param strict null without strict HTTP.
/// @return none for what is no opening, or is passed on: a request like others.
/// @throws what the acceptor throws; std::bad_alloc. The client is to get a 500.
std::optional<Verdict> answerOpening(http::HttpServer& server, RequestContext& context, EngineConnection connection,
                                     const char* method, const char* version, const StrictHead* strict);

} // namespace ql::impl
