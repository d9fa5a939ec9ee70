// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/WebSocketSession.h"

#include <memory>

namespace ql::impl {

class SessionServing;

/// A session whose client has been answered 101, until the engine hands its connection over.
struct AcceptedSession {
    /// Of the run of the server, which outlives its engine.
    SessionServing& serving;
    /// Prepared.
    std::unique_ptr<http::WebSocketSession> session;
};

} // namespace ql::impl
