// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineConnection.h"
#include "engine/Verdict.h"
#include "vireo/ExchangeRecord.h"

#include <cstdint>
#include <string_view>

namespace ql::http {
class HttpServer;
}

namespace ql::impl {

class EngineResponse;
struct RequestContext;

/// Gives the engine the answer to a request: the way of all of them, the application's and the library's. One that is
/// to be the last of its connection says so.
/// @param context null when it is lost.
/// @return Verdict::Close when there is no response or the engine refused it.
Verdict queueAnswer(const http::HttpServer& server, RequestContext* context, EngineConnection connection,
                    EngineResponse& response, std::uint32_t status) noexcept;

/// Notes for observers, if there are any, how the exchange ends, whatever the engine will say of it.
void noteEnding(RequestContext& context, http::ExchangeRecord::Ending ending, std::string_view reason) noexcept;

} // namespace ql::impl
