// SPDX-License-Identifier: MIT
#pragma once

#include "server/Exchange.h"
#include "server/ExchangeRecording.h"
#include "session/AcceptedSession.h"
#include "vireo/support/qlTimer.h"
#include "websocket/SocketPort.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace ql {
class HttpBaseRequest;
}

namespace ql::http {
class HttpServer;
}

namespace ql::impl {

class ClientConnection;
struct ConnectionRecord;
struct EventServing;
struct Front;

/// What the engine's per-request slot points at, from the request line until the request is completed. The daemon
/// thread's alone.
struct RequestContext {
    /// @param uri null for none.
    explicit RequestContext(const char* uri) : fullUrl(uri == nullptr ? "" : uri) {}
    /// Of a server that accepts by itself.
    /// @param record of its connection; null for want of memory.
    RequestContext(const char* uri, Front& of, ConnectionRecord* record);
    ~RequestContext();
    RequestContext(const RequestContext&) = delete;
    RequestContext& operator=(const RequestContext&) = delete;

    /// The request target as received, until dispatch moves it into the request.
    std::string fullUrl;
    /// Runs from the end of the head.
    qlTimer receiveTimer{false};
    /// Null until the application has made the request object, which it owns.
    HttpBaseRequest* request = nullptr;
    /// Whose application has.
    http::HttpServer* server = nullptr;
    /// Of the server's run; null where the engine accepts.
    Front* front = nullptr;
    /// The run of the server that waits by events; null where the engine polls.
    EventServing* serving = nullptr;
    /// Whose request it is; null where the engine polls.
    ClientConnection* client = nullptr;
    /// Null until there is a request, and where the engine polls.
    std::shared_ptr<Exchange> exchange;
    /// The owner of the request has been told of its body.
    bool isBodyTold = false;
    /// None without observers.
    std::optional<ExchangeRecording> recording;
    /// Null but for an opening that was accepted.
    std::unique_ptr<AcceptedSession> accepted;

    // Of UncompletedRequests, under its lock.

    /// Of the connection; InvalidSocket for a request that is not noted there.
    std::uint64_t socket = InvalidSocket;
    RequestContext* nextUncompleted = nullptr;
};

/// Its address stands in the slot when there was no memory for a context: the target is lost.
inline std::byte lostContext{};

} // namespace ql::impl
