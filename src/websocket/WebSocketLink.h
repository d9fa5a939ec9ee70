// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/support/qlMutex.h"

#include <memory>
#include <vector>

namespace ql::http {
class WebSocket;
}

namespace ql::impl {

class WebSocketState;

/// How a server reaches a WebSocket that belongs to an application: in whichever object it lives, as long as it does.
///
/// Order of locks: the link's, the WebSocket's.
class WebSocketLink {
public:
    /// It lives here now; null for nowhere any more. By whoever makes or destroys the object.
    void setState(WebSocketState* state) QL_EXCLUDES(mutex_);

    /// Tells the peer that the server goes away, once. Any thread.
    void sayGoodbye() noexcept QL_EXCLUDES(mutex_);

private:
    void pass() noexcept QL_REQUIRES(mutex_);

    qlMutex mutex_;
    WebSocketState* state_ QL_GUARDED_BY(mutex_) = nullptr;
    bool isTold_ QL_GUARDED_BY(mutex_) = false;
};

/// The WebSockets of one run of a server. Any thread.
class WebSocketRoster {
public:
    /// @throws std::bad_alloc
    void add(http::WebSocket& socket) QL_EXCLUDES(mutex_);

    /// Tells each that is there or still comes that the server goes away.
    void sayGoodbye() noexcept QL_EXCLUDES(mutex_);

private:
    void forgetGone() QL_REQUIRES(mutex_);

    qlMutex mutex_;
    std::vector<std::weak_ptr<WebSocketLink>> links_ QL_GUARDED_BY(mutex_);
    bool isLeaving_ QL_GUARDED_BY(mutex_) = false;
};

} // namespace ql::impl
