// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineConnection.h"
#include "vireo/ServerOptions.h"

#include <string>

namespace ql {
class HttpBaseRequest;
}

namespace ql::impl {

struct StrictHead;

/// Files the head of a request, and whom it comes from, in its object. What there is no memory for is missing, which
/// the object says.
/// @param target as received.
/// @param strict null without strict HTTP; else what is filed instead of what the engine has. It is moved from.
void fileHead(HttpBaseRequest& request, EngineConnection connection, http::ServerOptions::Filing filing,
              const char* method, std::string&& target, StrictHead* strict);

} // namespace ql::impl
