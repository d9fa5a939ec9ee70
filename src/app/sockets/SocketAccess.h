// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/WebSocketHandle.h"
#include "vireo/app/Socket.h"

#include <memory>
#include <utility>

namespace vireo::impl {

struct SocketAccess {
    static Socket make(ql::http::WebSocketHandle handle);
    /// That of one that reaches none reaches none.
    static const ql::http::WebSocketHandle& handle(const Socket& socket);
};

} // namespace vireo::impl
