// SPDX-License-Identifier: MIT
#pragma once

#include "server/ServerState.h"
#include "vireo/HttpServer.h"

namespace ql::impl {

/// What of a server is for the library alone.
struct ServerAccess {
    /// Any thread.
    static const http::ServerOptions& options(const http::HttpServer& server) { return server.state_->options; }
};

} // namespace ql::impl
