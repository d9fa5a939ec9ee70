// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace ql::http {
class HttpServer;
}

namespace ql::impl {

struct RequestContext;

// The requests that the engine has begun and not completed, of all servers in this process that poll, by their
// connections' sockets. Version 0.9.75 forgets to complete a request that it refuses for a second reason, or has no
// memory to refuse. Whoever learns that a connection is gone ends what is left of it: at the latest the next connection
// of that number does, so that no more are left than there are descriptors.

/// A request has begun on a connection that has no other. Nothing where the engine does not tell the socket. Daemon
/// threads.
void noteUncompleted(std::uint64_t socket, RequestContext& context) noexcept;

/// It is destroyed. Nothing for one that was not noted. Daemon threads.
void noteCompleted(RequestContext& context) noexcept;

/// Ends what is left of a connection that is gone. Daemon threads, under no lock.
void endUncompleted(std::uint64_t socket) noexcept;

/// Ends what is left of what a server's application was given, once its engines have stopped. Server thread.
void endUncompleted(http::HttpServer& server) noexcept;

} // namespace ql::impl
