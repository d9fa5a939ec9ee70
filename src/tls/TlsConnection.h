// SPDX-License-Identifier: MIT
#pragma once

#include "tls/TlsTransport.h"

#include <memory>

namespace ql::http {
class TlsContext;
class TlsPeer;
} // namespace ql::http

namespace ql::impl {

class TlsCredentials;

/// What a connection has of TLS. The daemon thread's alone.
class TlsConnection {
public:
    /// Before the handshake. @param watch outlives the engine. @return null, or why there will be none.
    const char* begin(const http::TlsContext& context, EngineConnection connection, HandshakeWatch& watch);

    /// With each request, where it is on. @param session the engine's; null for want of one. @return false when the
    /// client may not be served.
    /// @throws std::bad_alloc
    bool meetPeer(void* session);

    bool isOn() const { return credentials_ != nullptr; }
    /// Null without TLS, and before the first request.
    const std::shared_ptr<const http::TlsPeer>& peer() const { return peer_; }

private:
    /// Kept as long as the session.
    std::shared_ptr<const TlsCredentials> credentials_;
    std::shared_ptr<const http::TlsPeer> peer_;
    TlsTransport transport_;
};

} // namespace ql::impl
