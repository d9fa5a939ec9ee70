// SPDX-License-Identifier: MIT
#pragma once

#include "frame/Utf8.h"
#include "session/SessionCore.h"
#include "vireo/WebSocketWriter.h"
#include "websocket/FrameHeader.h"

#include <memory>

namespace ql::impl {

/// What a WebSocketWriter holds.
struct WriterState {
    /// @param session may be null.
    static http::WebSocketWriter Begin(std::shared_ptr<SessionCore> session, FrameType type);

    std::shared_ptr<SessionCore> session;
    /// What everything is answered with, unless the message is open.
    http::WebSocketSend refusal = http::WebSocketSend::Closed;
    bool isOpen = false;
    bool isText = false;
    /// Of the next frame.
    FrameType type = FrameType::Binary;
    Utf8Validator utf8;
};

} // namespace ql::impl
