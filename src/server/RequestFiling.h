// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineConnection.h"
#include "vireo/ServerOptions.h"

#include <string>

namespace ql {
class HttpBaseRequest;
}

namespace ql::impl {

class ClientConnection;
struct StrictHead;

/// Files the head of a request, and whom it comes from, in its object. What there is no memory for is missing, which
/// the object says.
/// @param client whose connection it is; null where the engine polls.
/// @param target as received.
/// @param strict null without strict HTTP; else what is filed instead of what the engine has. It is moved from.
void fileHead(HttpBaseRequest& request, EngineConnection connection, const ClientConnection* client,
              http::ServerOptions::Filing filing, const char* method, std::string&& target, StrictHead* strict);

} // namespace ql::impl
