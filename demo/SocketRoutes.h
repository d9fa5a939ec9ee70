#pragma once

#include "Statistics.h"
#include "vireo/WebSocketAcceptor.h"
#include "vireo/WebSocketGroup.h"
#include "vireo/WebSocketOptions.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace demo {

/// The rooms that somebody is in, by their names. Any thread.
class Rooms {
public:
    /// The room of this name, which is there as long as somebody holds it.
    std::shared_ptr<ql::http::WebSocketGroup> enter(const std::string& name) QL_EXCLUDES(mutex_);

private:
    qlMutex mutex_;
    std::map<std::string, std::weak_ptr<ql::http::WebSocketGroup>> rooms_ QL_GUARDED_BY(mutex_);
};

/// WebSockets as browsers open them: /ws sends every message back, and a text that begins with "/all " to all who are
/// there; /rooms/NAME sends each text to all who are in the room.
class SocketRoutes final : public ql::http::WebSocketAcceptor {
public:
    /// @param statistics outlive the server's run.
    /// @param anyOrigin whether pages from elsewhere may come, too.
    SocketRoutes(Statistics& statistics, const ql::http::WebSocketOptions& options, bool anyOrigin);

    bool isOriginAllowed(const ql::http::WebSocketOpening& opening) override;
    ql::http::WebSocketAnswer decide(const ql::http::WebSocketOpening& opening) override;

private:
    ql::http::WebSocketAnswer acceptEcho(const ql::http::WebSocketOpening& opening);
    ql::http::WebSocketAnswer acceptMember(const std::string& room);

    Statistics& statistics_;
    /// In a room, where who does not listen misses something.
    ql::http::WebSocketOptions roomOptions_;
    const bool anyOrigin_;
    ql::http::WebSocketGroup echoes_;
    Rooms rooms_;
};

} // namespace demo
