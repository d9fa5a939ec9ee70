// SPDX-License-Identifier: MIT
#pragma once

#include "server/ServerState.h"
#include "vireo/HttpServer.h"

namespace ql::impl {

/// What of a server is for the library alone.
struct ServerAccess {
    /// Any thread.
    static const http::ServerOptions& options(const http::HttpServer& server) { return server.state_->options; }

    /// What its sessions are served with while it runs; null without such. Any thread of its run.
    static SessionServing* sessions(const http::HttpServer& server) { return server.state_->sessions; }
    /// For the server thread, while no daemon runs.
    static void setSessions(const http::HttpServer& server, SessionServing* sessions) {
        server.state_->sessions = sessions;
    }
};

} // namespace ql::impl
