#pragma once

#include "support/Program.h"
#include "vireo/ServerOptions.h"

namespace bench {

/// Has servers accept every WebSocket of RFC 6455, for sessions that echo or broadcast, with the defaults of
/// ql::http::WebSocketOptions. The daemon threads wait by events, as an application for browsers has them.
/// @param server for one or more servers, which share one pool of `workers` threads then.
void serveSessions(ql::http::ServerOptions& server, const ServerOptions& options);

} // namespace bench
