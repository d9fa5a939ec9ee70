// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineConnection.h"
#include "engine/Verdict.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace ql::http {
class HttpServer;
class ServerOptions;
} // namespace ql::http

namespace ql::impl {

struct RequestContext;

/// Why the library answers a request itself, before the application sees anything of it.
struct RequestRefusal {
    std::uint32_t status;
    /// The page of the answer and the reason in the record. Lives for ever.
    std::string_view reason;
};

/// Looks at a request whose head has come, for what speaks against it: one thing after another, the first counts.
/// @return none when it is taken.
std::optional<RequestRefusal> findRefusal(const http::HttpServer& server, const http::ServerOptions& options,
                                          EngineConnection connection);

/// Answers it so, and closes the connection: what follows the head is not read.
/// @throws std::bad_alloc
Verdict answerRefusal(const http::HttpServer& server, RequestContext& context, EngineConnection connection,
                      const RequestRefusal& refusal);

/// Whether a body whose length was not announced is longer than it may be with this piece. Too late for an answer.
bool isBodyTooLong(const RequestContext& context, std::size_t pieceBytes);

} // namespace ql::impl
