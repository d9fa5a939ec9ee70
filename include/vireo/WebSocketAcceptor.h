// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/WebSocketAnswer.h"
#include "vireo/WebSocketOpening.h"
#include "vireo/export.h"

namespace ql::http {

/// Decides about those who ask a server for a WebSocket, before they get one. The application derives from it and gives
/// it to ServerOptions::setWebSockets(); the server, and each copy of the options, holds it.
///
/// Both virtuals are called on daemon threads, several at once, with no lock held, and must return quickly, since every
/// connection of that daemon thread waits meanwhile. What they throw is logged, and the client gets a 500.
class VIREO_API WebSocketAcceptor {
public:
    WebSocketAcceptor();
    virtual ~WebSocketAcceptor();
    WebSocketAcceptor(const WebSocketAcceptor&) = delete;
    WebSocketAcceptor& operator=(const WebSocketAcceptor&) = delete;

    /// Whether pages from there may have a WebSocket here; asked first, and only where there is an
    /// Origin that WebSocketOptions::addAllowedOrigin() does not name. The default
    /// allows those of this server alone (WebSocketOpening::isSameOrigin()): a browser sends its cookies along for any
    /// page that it shows. The others get a 403, and the log names the two.
    virtual bool isOriginAllowed(const WebSocketOpening& opening);

    /// Accepts, refuses, or passes on. Once for each opening.
    virtual WebSocketAnswer decide(const WebSocketOpening& opening) = 0;

private:
    // Room for later versions.
    virtual void reserved1();
    virtual void reserved2();
    virtual void reserved3();
    virtual void reserved4();
};

} // namespace ql::http
